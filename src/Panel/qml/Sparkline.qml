import QtQuick
import Larkpin.Panel

Item {
    id: line
    property var values: []
    property color colour: Hud.lark

    SparkShape {
        anchors.fill: parent
        values: line.values
        closed: true
        fillTop: Hud.alpha(line.colour, 0.3)
        fillBottom: Hud.alpha(line.colour, 0.02)
    }
    SparkShape {
        anchors.fill: parent
        values: line.values
        strokeColour: Hud.alpha(line.colour, 0.85)
        strokeWidth: 1.2
    }
    // The latest reading.
    Rectangle {
        readonly property var points: Hud.sparkPath(line.values, line.width, line.height, false)
        visible: line.values.length >= 2
        width: 3.5; height: 3.5; radius: 1.75
        color: Hud.alpha(line.colour, 0.5)
        x: line.width - width / 2
        y: {
            if (line.values.length < 2) return 0
            var lo = Math.min.apply(null, line.values), hi = Math.max.apply(null, line.values)
            var span = hi === lo ? 1 : hi - lo
            return line.height - (line.values[line.values.length - 1] - lo) / span * line.height - height / 2
        }
    }
}
