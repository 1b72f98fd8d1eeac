import QtQuick
import Larkpin.Panel

// A status dot that slowly swells and dims while alive. The glow is a soft
// halo drawn with plain circles (no shader effects).
Item {
    id: dot
    required property PanelModel panel
    property color colour: Hud.emerald
    property bool alive: false
    property real size: 6
    // 0 rest, 1 fully breathed in; no initial binding, the breath animates it.
    property real breath
    readonly property bool breathing: alive && breath > 0.5
    readonly property real glowRadius: alive ? 2 + 4 * breath : 2

    implicitWidth: size
    implicitHeight: size
    opacity: alive ? 0.45 + 0.55 * breath : 0.6

    Repeater {
        model: 3
        Rectangle {
            required property int index
            readonly property real r: dot.size / 2 + dot.glowRadius * (index + 1) / 3
            anchors.centerIn: parent
            width: r * 2; height: r * 2; radius: r
            color: Hud.alpha(dot.colour, 0.9 * 0.22 / (index + 1))
        }
    }
    Rectangle {
        anchors.centerIn: parent
        width: dot.size; height: dot.size; radius: dot.size / 2
        color: dot.colour
    }
    SequentialAnimation on breath {
        running: dot.alive && dot.panel.animated
        loops: Animation.Infinite
        NumberAnimation { from: 0; to: 1; duration: Hud.breathMs; easing.type: Easing.BezierSpline; easing.bezierCurve: Hud.easeInOutCurve }
        NumberAnimation { from: 1; to: 0; duration: Hud.breathMs; easing.type: Easing.BezierSpline; easing.bezierCurve: Hud.easeInOutCurve }
    }
    Component.onCompleted: if (alive && !dot.panel.animated) breath = 1
}
