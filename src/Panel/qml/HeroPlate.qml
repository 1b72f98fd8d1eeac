import QtQuick
import Larkpin.Panel

// What the hero card and the detail card stand on: a rounded plate with a
// hairline edge and the kind's accent rule down its left side. Lay it under
// the card's content with anchors.fill.
Item {
    id: plate
    property color accent: Hud.lark
    property bool glow: false
    property color fill: Hud.plate
    property color edge: Hud.hairline
    // Fill and edge changes ease over; off for pictures and reduced motion.
    property bool fades: false

    Rectangle {
        anchors.fill: parent
        radius: Hud.plateRadius
        color: plate.fill
        border.width: Hud.hairlineWidth
        border.color: plate.edge
        Behavior on color { enabled: plate.fades; ColorAnimation { duration: Hud.plateFadeMs; easing.type: Easing.OutCubic } }
        Behavior on border.color { enabled: plate.fades; ColorAnimation { duration: Hud.plateFadeMs; easing.type: Easing.OutCubic } }
    }
    AccentRule {
        x: 12
        y: 14
        height: plate.height - 28
        colour: plate.accent
        glow: plate.glow
    }
}
