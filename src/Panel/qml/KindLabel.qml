import QtQuick

Text {
    property string kind: "whale"
    property string label: hud.kindLabel(kind)
    property real size: 9
    text: label
    textFormat: Text.PlainText
    font.family: hud.mono
    font.pointSize: (size) * hud.pt
    font.bold: true
    font.letterSpacing: 0.9
    color: hud.kindColour(kind)
}
