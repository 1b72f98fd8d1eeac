import QtQuick
import Larkpin.Panel

// A figure, a name or a headline in the monospaced face. `size` is in the
// design's logical pixels. Wire text is never markup: plain text only.
Text {
    property real size: 11
    textFormat: Text.PlainText
    // Read by a screen reader as what it shows.
    Accessible.role: Accessible.StaticText
    Accessible.name: text
    font.family: Hud.mono
    font.pointSize: size * Hud.pt
    color: Hud.ink2
}
