import QtQuick
import QtQuick.Controls
import Larkpin.Panel

// The context menu of one signal: mute its token or wallet, watch its
// wallet, and for a few seconds after a mute, take it back. What it offers
// comes from the model; the menu only lays it out and passes the choice on.
Popup {
    id: menu
    required property PanelModel panel
    objectName: "signalMenuPopup"
    property string signalId: ""
    // Re-read when the lists or the pending undo change.
    readonly property var entries: menu.entriesFor(menu.signalId, menu.panel.settings.undoText, menu.panel.settings.mutedList, menu.panel.settings.watchedList)
    function entriesFor(id: string, undo: var, muted: var, watched: var): var { return menu.panel.menuEntries(id) }
    property int current: 0

    padding: 5
    margins: 8
    modal: false
    focus: true
    closePolicy: Popup.CloseOnEscape | Popup.CloseOnPressOutside
    enter: Transition { enabled: menu.panel.animated; NumberAnimation { property: "opacity"; from: 0; to: 1; duration: 120 } }

    // Counted while shown, so the window's Escape closes the menu, not the panel.
    property bool counted: false
    onAboutToShow: { counted = true; menu.panel.menuShown(true) }
    onAboutToHide: { if (counted) menu.panel.menuShown(false); counted = false }
    Component.onDestruction: if (counted) menu.panel.menuShown(false)
    Connections {
        target: menu.panel
        function onDismissMenusRequested() { menu.counted = false; menu.close() }
    }

    function choose(i) {
        const e = entries[i]
        if (!e)
            return
        // Closed first: a mute takes the row, and the menu with it.
        const id = signalId
        close()
        menu.panel.runMenuAction(id, e.action)
    }

    background: Rectangle {
        radius: 9
        // Opaque: the rows beneath must not read through the entries.
        color: Qt.tint(Hud.plate, Hud.float_)
        border.width: 1
        border.color: Hud.hairlineHot
    }
    contentItem: Column {
        id: column
        objectName: "signalMenu"
        readonly property string signalId: menu.signalId
        focus: true
        Keys.onUpPressed: menu.current = (menu.current + menu.entries.length - 1) % Math.max(1, menu.entries.length)
        Keys.onDownPressed: menu.current = (menu.current + 1) % Math.max(1, menu.entries.length)
        Keys.onReturnPressed: menu.choose(menu.current)
        Keys.onEnterPressed: menu.choose(menu.current)
        Repeater {
            model: menu.entries
            Item {
                id: entry
                required property int index
                required property var modelData
                objectName: "menu-" + entry.modelData.action
                readonly property bool undo: entry.modelData.action === "undo"
                readonly property bool lit: mouse.containsMouse || menu.current === entry.index
                width: Math.max(178, label.implicitWidth + 24)
                height: 28
                Rectangle {
                    anchors.fill: parent
                    radius: 6
                    color: entry.lit ? Hud.alpha(Hud.raised, 0.95) : "transparent"
                }
                ValueText {
                    id: label
                    x: 12
                    anchors.verticalCenter: parent.verticalCenter
                    text: entry.modelData.title
                    elide: Text.ElideRight
                    width: Math.min(implicitWidth, 260)
                    size: 10.5
                    font.weight: entry.undo ? Font.DemiBold : Font.Normal
                    color: entry.undo ? Hud.lark : entry.lit ? Hud.ink : Hud.ink2
                }
                MouseArea {
                    id: mouse
                    anchors.fill: parent
                    hoverEnabled: true
                    cursorShape: Qt.PointingHandCursor
                    onEntered: menu.current = entry.index
                    onClicked: menu.choose(entry.index)
                }
            }
        }
    }
}
