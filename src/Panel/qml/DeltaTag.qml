import QtQuick
import Larkpin.Panel

Rectangle {
    id: tag
    property string text: ""
    property bool negative: false
    readonly property color tone: negative ? Hud.alert : Hud.emerald
    implicitWidth: label.implicitWidth + 10
    implicitHeight: label.implicitHeight + 4
    radius: 3
    color: Hud.alpha(tone, 0.14)
    Text {
        id: label
        anchors.centerIn: parent
        text: tag.text
        textFormat: Text.PlainText
        font.family: Hud.mono
        font.pointSize: 9 * Hud.pt
        font.weight: Font.DemiBold
        color: tag.tone
    }
}
