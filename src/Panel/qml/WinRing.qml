import QtQuick
import QtQuick.Shapes
import Larkpin.Panel

Row {
    id: ring
    property real ratio: 0
    property string label: Math.round(clamped * 100) + "% WR"
    readonly property real clamped: Math.max(0, Math.min(1, ratio))
    spacing: Hud.gapSmall

    Shape {
        width: 16; height: 16
        anchors.verticalCenter: parent.verticalCenter
        ShapePath {
            strokeColor: Hud.alpha(Hud.ink4, 0.7)
            strokeWidth: 2
            fillColor: "transparent"
            PathAngleArc { centerX: 8; centerY: 8; radiusX: 6.5; radiusY: 6.5; startAngle: 0; sweepAngle: 360 }
        }
        ShapePath {
            strokeColor: Hud.lark
            strokeWidth: 2
            capStyle: ShapePath.RoundCap
            fillColor: "transparent"
            PathAngleArc { centerX: 8; centerY: 8; radiusX: 6.5; radiusY: 6.5; startAngle: -90; sweepAngle: 360 * ring.clamped }
        }
    }
    ValueText {
        anchors.verticalCenter: parent.verticalCenter
        text: ring.label
        size: 9
        font.weight: Font.DemiBold
    }
}
