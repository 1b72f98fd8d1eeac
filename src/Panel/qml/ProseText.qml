import QtQuick
import Larkpin.Panel

// A sentence for reading (a state, a hint, a description) in the sans face.
Text {
    property real size: 10.5
    textFormat: Text.PlainText
    // Read by a screen reader as what it shows.
    Accessible.role: Accessible.StaticText
    Accessible.name: text
    font.family: Hud.sans
    font.pointSize: size * Hud.pt
    color: Hud.ink3
}
