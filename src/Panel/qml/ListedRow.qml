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

    Text {
        id: labelText
        anchors.verticalCenter: parent.verticalCenter
        width: parent.width - tag.width - remove.width - 24
        text: listed.label
        textFormat: Text.PlainText
        elide: Text.ElideRight
        font.family: Hud.mono
        font.pointSize: 11 * Hud.pt
        font.weight: Font.DemiBold
        color: listed.watching ? Hud.ink : Hud.ink3
    }
    Text {
        id: tag
        anchors.right: remove.left
        anchors.rightMargin: 12
        anchors.verticalCenter: parent.verticalCenter
        text: listed.watching ? "WATCHED" : "MUTED"
        textFormat: Text.PlainText
        font.family: Hud.mono
        font.pointSize: 8 * Hud.pt
        font.bold: true
        font.letterSpacing: 1.2
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
        onClicked: listed.removed()
    }
}
