import QtQuick

// A rule exactly one device pixel high. The rule is drawn one point high and
// scaled down: the software scene graph (the snapshot pictures) rounds a
// rectangle's own height up to whole points.
Item {
    objectName: "hairline"
    property color colour: hud.hairline
    implicitHeight: hud.hairlineWidth
    height: hud.hairlineWidth
    Rectangle {
        width: parent.width
        height: 1
        color: parent.colour
        transform: Scale { yScale: hud.hairlineWidth }
    }
}
