import QtQuick
import Larkpin.Panel

// A small upper-case label (a kind, a button's title, a section's name):
// monospaced, bold and spaced out by `tracking` points.
Text {
    property real size: 9.5
    property real tracking: 0.8
    textFormat: Text.PlainText
    // Read by a screen reader as what it shows.
    Accessible.role: Accessible.StaticText
    Accessible.name: text
    font.family: Hud.mono
    font.pointSize: size * Hud.pt
    font.bold: true
    font.letterSpacing: tracking
    color: Hud.ink4
}
