import QtQuick
import Larkpin.Panel

// A 3-pt vertical bar; its glow is a soft wider bar behind it.
Item {
    id: rule
    property color colour: Hud.lark
    property bool glow: false
    implicitWidth: 3
    width: 3

    Rectangle {
        visible: rule.glow
        anchors.centerIn: parent
        width: 3 + 8; height: parent.height + 6; radius: 5
        color: Hud.alpha(rule.colour, 0.75 * 0.18)
    }
    Rectangle {
        anchors.fill: parent
        radius: 1.5
        color: rule.colour
    }
}
