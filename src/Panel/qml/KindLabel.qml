import QtQuick
import Larkpin.Panel

Text {
    property string kind: "whale"
    property string label: Hud.kindLabel(kind)
    property real size: 9
    text: label
    textFormat: Text.PlainText
    font.family: Hud.mono
    font.pointSize: (size) * Hud.pt
    font.bold: true
    font.letterSpacing: 0.9
    color: Hud.kindColour(kind)
}
