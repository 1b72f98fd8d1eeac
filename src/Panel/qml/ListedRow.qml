import QtQuick
import Larkpin.Panel

// One entry of the muted and watched lists in settings, with its remove button.
Item {
    id: listed
    required property PanelModel panel
    property string label: ""
    property string kind: "token" // token, wallet (both muted) or watch
    signal removed()
    readonly property bool watching: kind === "watch"
    implicitHeight: 30

    ValueText {
        id: labelText
        anchors.verticalCenter: parent.verticalCenter
        width: parent.width - tag.width - remove.width - 24
        text: listed.label
        elide: Text.ElideRight
        font.weight: Font.DemiBold
        color: listed.watching ? Hud.ink : Hud.ink3
    }
    LabelText {
        id: tag
        anchors.right: remove.left
        anchors.rightMargin: Hud.inset
        anchors.verticalCenter: parent.verticalCenter
        text: listed.watching ? "WATCHED" : "MUTED"
        size: 8
        tracking: 1.2
        color: listed.watching ? Hud.lark : Hud.ink4
    }
    HUDIconButton {
        panel: listed.panel
        id: remove
        objectName: "removeListed"
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        systemName: "xmark"
        help: listed.watching ? "Stop watching" : "Unmute"
        // The tooltip says what; a screen reader needs which, too.
        Accessible.name: (listed.watching ? "Stop watching " : "Unmute ") + listed.label
        onClicked: listed.removed()
    }
}
