import QtQuick
import Larkpin.Panel

// "While you were away: 4 whales, largest $1.2M on $DOGO" at the top of the
// panel; a click opens History at that time, the cross puts it away.
Item {
    id: banner
    required property PanelModel panel
    readonly property string text: panel.history.awayText
    visible: text !== ""
    implicitHeight: visible ? 38 : 0
    Accessible.role: Accessible.Button
    Accessible.name: text
    Accessible.onPressAction: panel.history.openAway()

    Rectangle {
        x: 10
        y: 6
        width: parent.width - 20
        height: parent.height - 8
        radius: Hud.tileRadius
        color: Hud.alpha(Hud.lark, 0.14)
        border.width: Hud.hairlineWidth
        border.color: Hud.alpha(Hud.lark, 0.45)
        MouseArea {
            objectName: "awayBannerTarget"
            anchors.fill: parent
            cursorShape: Qt.PointingHandCursor
            onClicked: banner.panel.history.openAway()
        }
        ProseText {
            objectName: "awayText"
            x: 12
            width: parent.width - 12 - 30
            anchors.verticalCenter: parent.verticalCenter
            text: Hud.oneLine(banner.text)
            elide: Text.ElideRight
            maximumLineCount: 1
            size: 10.5
            color: Hud.ink
        }
        HUDIconButton {
            panel: banner.panel
            objectName: "awayDismiss"
            anchors.right: parent.right
            anchors.rightMargin: 4
            anchors.verticalCenter: parent.verticalCenter
            systemName: "xmark"
            help: "Dismiss"
            onClicked: banner.panel.history.dismissAway()
        }
    }
}
