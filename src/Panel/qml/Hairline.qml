import QtQuick

// A rule exactly one device pixel high.
Rectangle {
    objectName: "hairline"
    property color colour: hud.hairline
    color: colour
    implicitHeight: hud.hairlineWidth
    height: hud.hairlineWidth
}
