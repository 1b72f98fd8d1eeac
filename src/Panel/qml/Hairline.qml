import QtQuick
import Larkpin.Panel

// A rule exactly one device pixel high. The rule is drawn one point high and
// scaled down: the software scene graph (the snapshot pictures) rounds a
// rectangle's own height up to whole points.
Item {
    objectName: "hairline"
    property color colour: Hud.hairline
    implicitHeight: Hud.hairlineWidth
    height: Hud.hairlineWidth
    Rectangle {
        width: parent.width
        height: 1
        color: parent.colour
        transform: Scale { yScale: Hud.hairlineWidth }
    }
}
