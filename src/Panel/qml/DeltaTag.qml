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
    ValueText {
        id: label
        anchors.centerIn: parent
        text: tag.text
        size: 9
        font.weight: Font.DemiBold
        color: tag.tone
    }
}
