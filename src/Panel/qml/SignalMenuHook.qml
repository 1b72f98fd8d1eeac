import QtQuick
import Larkpin.Panel

// Laid over a row or card: a right-click, or Menu / Shift+F10 while the
// signal is the open one, asks the panel for its SignalMenu. The menu lives
// at the panel's root, not here: the list may destroy this row while the menu
// is up. Left clicks and hover pass through to what lies beneath.
MouseArea {
    id: hook
    required property PanelModel panel
    objectName: "menuHook"
    property string signalId: ""
    property bool selected: false
    acceptedButtons: Qt.RightButton

    function popup(x, y) {
        if (signalId === "")
            return
        const at = hook.mapToItem(null, x, y)
        hook.panel.requestMenu(hook.signalId, at.x, at.y)
    }
    onClicked: (mouse) => popup(mouse.x, mouse.y)

    Shortcut {
        enabled: hook.selected && hook.signalId !== ""
        sequences: ["Menu", "Shift+F10"]
        onActivated: hook.popup(24, Math.min(hook.height, 24))
    }
}
