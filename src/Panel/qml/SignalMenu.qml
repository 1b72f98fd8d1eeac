import QtQuick
import QtQuick.Controls
import Larkpin.Panel

// The context menu of one signal: mute its token or wallet, watch its
// wallet, and for a few seconds after a mute, take it back. What it offers
// comes from the model; the menu only lays it out and passes the choice on.
// The panel has one, at its root (openFor): it stays up while the list
// changes beneath it, until the user chooses or dismisses it, and it is
// modal, so the click that dismisses it never lands on a row. A dialog only
// so that a screen reader gets its name (a plain popup reads as an unnamed
// dialog); it has neither header nor buttons.
Dialog {
    id: menu
    title: "Signal actions"
    header: null
    footer: null
    required property PanelModel panel
    objectName: "signalMenuPopup"
    property string signalId: ""
    // Re-read when the lists or the pending undo change.
    readonly property var entries: menu.entriesFor(menu.signalId, menu.panel.settings.undoText, menu.panel.settings.mutedList, menu.panel.settings.watchedList)
    function entriesFor(id: string, undo: var, muted: var, watched: var): var { return menu.panel.menuEntries(id) }
    property int current: 0

    function openFor(id: string, x: real, y: real) {
        menu.signalId = id
        menu.current = 0
        menu.x = x
        menu.y = y
        if (!menu.opened)
            menu.open()
        // Qt 6.4's linter takes Qt.callLater for a QJSValue property, not a method.
        Qt.callLater(menu.focusCurrent) // qmllint disable type
    }
    function focusCurrent() {
        const item = entryRepeater.itemAt(menu.current)
        if (item && menu.opened)
            item.forceActiveFocus()
    }
    onCurrentChanged: focusCurrent()
    onOpened: focusCurrent()

    padding: 5
    margins: 8
    modal: true
    dim: false
    focus: true
    closePolicy: Popup.CloseOnEscape | Popup.CloseOnPressOutside
    enter: Transition { enabled: menu.panel.animated; NumberAnimation { property: "opacity"; from: 0; to: 1; duration: Hud.menuFadeMs } }

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
    // The rows name one another by id, which makes this deferred content
    // immediate: the menu is built once with the panel, so nothing is lost.
    contentItem: Column { // qmllint disable deferred-property-id
        objectName: "signalMenu"
        readonly property string signalId: menu.signalId
        focus: true
        Accessible.role: Accessible.PopupMenu
        Accessible.name: "Signal actions"
        Keys.onUpPressed: menu.current = (menu.current + menu.entries.length - 1) % Math.max(1, menu.entries.length)
        Keys.onDownPressed: menu.current = (menu.current + 1) % Math.max(1, menu.entries.length)
        Keys.onReturnPressed: menu.choose(menu.current)
        Keys.onEnterPressed: menu.choose(menu.current)
        Keys.onTabPressed: menu.current = (menu.current + 1) % Math.max(1, menu.entries.length)
        Keys.onBacktabPressed: menu.current = (menu.current + menu.entries.length - 1) % Math.max(1, menu.entries.length)
        Keys.onSpacePressed: menu.choose(menu.current)
        Repeater {
            id: entryRepeater
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
                Accessible.role: Accessible.MenuItem
                Accessible.name: entry.modelData.title
                Accessible.focusable: true
                Accessible.onPressAction: menu.choose(entry.index)
                Rectangle {
                    anchors.fill: parent
                    radius: Hud.controlRadius
                    color: entry.lit ? Hud.alpha(Hud.raised, 0.95) : "transparent"
                }
                FocusRing { ringRadius: 4; anchors.margins: 1 }
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
