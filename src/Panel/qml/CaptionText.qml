import QtQuick
import Larkpin.Panel

// Small print beside something larger: an age, a unit, a meta column.
Text {
    property real size: 9
    textFormat: Text.PlainText
    // Read by a screen reader as what it shows.
    Accessible.role: Accessible.StaticText
    Accessible.name: text
    font.family: Hud.mono
    font.pointSize: size * Hud.pt
    color: Hud.ink4
}
