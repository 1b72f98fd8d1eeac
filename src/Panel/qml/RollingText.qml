import QtQuick
import Larkpin.Panel

// Text drawn cell by cell: when it changes only the changed characters roll,
// the new one up from the bottom edge, the old one out through the top.
Row {
    id: rolling
    required property PanelModel panel
    property string text: ""
    property real size: 11
    property int weight: Font.Medium
    property color colour: Hud.ink

    Repeater {
        model: rolling.text.length
        delegate: Item {
            id: cell
            required property int index
            readonly property string ch: rolling.text.charAt(cell.index)
            readonly property bool digit: ch >= "0" && ch <= "9"
            property string shown: ch
            property string leaving: ""
            width: digit ? rolling.size * 0.6 : natural.advanceWidth
            height: rolling.size * 1.25
            clip: true

            TextMetrics { id: natural; text: cell.ch; font: current.font }
            ValueText {
                id: current
                width: parent.width
                height: parent.height
                horizontalAlignment: Text.AlignHCenter
                verticalAlignment: Text.AlignVCenter
                text: cell.shown
                size: rolling.size
                font.weight: rolling.weight
                color: rolling.colour
            }
            Text {
                id: previous
                width: parent.width
                height: parent.height
                horizontalAlignment: Text.AlignHCenter
                verticalAlignment: Text.AlignVCenter
                text: cell.leaving
                textFormat: Text.PlainText
                font: current.font
                color: rolling.colour
                opacity: 0
            }
            onChChanged: {
                leaving = shown
                shown = ch
                if (!rolling.panel.animated)
                    return
                roll.restart()
            }
            ParallelAnimation {
                id: roll
                NumberAnimation { target: current; property: "y"; from: cell.height; to: 0; duration: Hud.snapMs; easing.type: Easing.OutCubic }
                NumberAnimation { target: current; property: "opacity"; from: 0; to: 1; duration: Hud.snapMs; easing.type: Easing.OutCubic }
                NumberAnimation { target: previous; property: "y"; from: 0; to: -cell.height; duration: Hud.snapMs; easing.type: Easing.OutCubic }
                NumberAnimation { target: previous; property: "opacity"; from: 1; to: 0; duration: Hud.snapMs; easing.type: Easing.OutCubic }
            }
        }
    }
}
