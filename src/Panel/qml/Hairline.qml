import QtQuick

// A rule exactly one device pixel high.
Rectangle {
    property color colour: hud.hairline
    color: colour
    implicitHeight: hud.hairlineWidth
    height: hud.hairlineWidth
}
