import QtQuick
import Larkpin.Panel

// The keyboard focus ring: drawn around its parent only while the parent has
// the active focus (Tab reached it), never for a mouse hover.
Rectangle {
    objectName: "focusRing"
    property real ringRadius: 6
    anchors.fill: parent
    anchors.margins: -2
    radius: ringRadius + 2
    color: "transparent"
    border.width: 1.5
    border.color: Hud.lark
    visible: parent.activeFocus
}
