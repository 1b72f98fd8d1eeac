import QtQuick
import Larkpin.Panel

// A figure, a name or a headline in the monospaced face. `size` is in the
// design's logical pixels. Wire text is never markup: plain text only.
Text {
    property real size: 11
    textFormat: Text.PlainText
    font.family: Hud.mono
    font.pointSize: size * Hud.pt
    color: Hud.ink2
}
