import QtQuick
import Larkpin.Panel

Column {
    id: readout
    required property PanelModel panel
    property string label: ""
    property string value: ""
    property color colour: Hud.ink
    property bool rolling: false
    spacing: 2

    ValueText {
        text: readout.label
        size: 8
        font.weight: Font.Medium
        font.letterSpacing: 0.9
        color: Hud.ink4
    }
    RollingText {
        panel: readout.panel
        visible: readout.rolling
        text: readout.value
        size: 11
        weight: Font.Medium
        colour: readout.colour
    }
    ValueText {
        visible: !readout.rolling
        text: readout.value
        font.weight: Font.Medium
        color: readout.colour
    }
}
