import QtQuick

Rectangle {
    id: tag
    property string text: ""
    property bool negative: false
    readonly property color tone: negative ? hud.alert : hud.emerald
    implicitWidth: label.implicitWidth + 10
    implicitHeight: label.implicitHeight + 4
    radius: 3
    color: hud.alpha(tone, 0.14)
    Text {
        id: label
        anchors.centerIn: parent
        text: tag.text
        textFormat: Text.PlainText
        font.family: hud.mono
        font.pointSize: 9 * hud.pt
        font.weight: Font.DemiBold
        color: tag.tone
    }
}
