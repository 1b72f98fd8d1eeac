import QtQuick

Column {
    id: readout
    property string label: ""
    property string value: ""
    property color colour: hud.ink
    property bool rolling: false
    spacing: 2

    Text {
        text: readout.label
        textFormat: Text.PlainText
        font.family: hud.mono
        font.pointSize: 8 * hud.pt
        font.weight: Font.Medium
        font.letterSpacing: 0.9
        color: hud.ink4
    }
    RollingText {
        visible: readout.rolling
        text: readout.value
        size: 11
        weight: Font.Medium
        colour: readout.colour
    }
    Text {
        visible: !readout.rolling
        text: readout.value
        textFormat: Text.PlainText
        font.family: hud.mono
        font.pointSize: 11 * hud.pt
        font.weight: Font.Medium
        color: readout.colour
    }
}
