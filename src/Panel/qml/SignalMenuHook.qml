import QtQuick
import Larkpin.Panel

// Laid over a row or card: a right-click, or Menu / Shift+F10 while the
// signal is the open one, brings up its SignalMenu. Left clicks and hover
// pass through to what lies beneath.
MouseArea {
    id: hook
    required property PanelModel panel
    objectName: "menuHook"
    property string signalId: ""
    property bool selected: false
    acceptedButtons: Qt.RightButton

    function popup(x, y) {
        if (signalId === "")
            return null
        const menu = menuComponent.createObject(hook, { signalId: hook.signalId, x: x, y: y })
        menu.closed.connect(menu.destroy)
        menu.open()
        return menu
    }
    onClicked: (mouse) => popup(mouse.x, mouse.y)

    Shortcut {
        enabled: hook.selected && hook.signalId !== ""
        sequences: ["Menu", "Shift+F10"]
        onActivated: hook.popup(24, Math.min(hook.height, 24))
    }
    Component {
        id: menuComponent
        SignalMenu { panel: hook.panel }
    }
}
