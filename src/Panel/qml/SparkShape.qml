import QtQuick
import QtQuick.Shapes
import Larkpin.Panel

// The path through the values; with `closed` an area down to the bottom edge.
Shape {
    id: spark
    property var values: []
    property bool closed: false
    property color strokeColour: "transparent"
    property real strokeWidth: 0
    property color fillTop: "transparent"
    property color fillBottom: "transparent"

    ShapePath {
        strokeColor: spark.strokeColour
        strokeWidth: spark.strokeWidth
        miterLimit: 10
        joinStyle: ShapePath.MiterJoin
        fillGradient: spark.closed ? area : null
        fillColor: "transparent"
        PathPolyline { path: Hud.sparkPath(spark.values, spark.width, spark.height, spark.closed) }
    }
    LinearGradient {
        id: area
        x1: 0; y1: 0; x2: 0; y2: spark.height
        GradientStop { position: 0; color: spark.fillTop }
        GradientStop { position: 1; color: spark.fillBottom }
    }
}
