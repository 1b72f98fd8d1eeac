import QtQuick
import Larkpin.Panel

// Label over value, in equal columns; an absent value reads "-".
Row {
    id: stats
    property var items: []
    property real availableWidth: 280
    Repeater {
        model: stats.items
        Column {
            width: stats.availableWidth / Math.max(1, stats.items.length)
            spacing: 3
            Text {
                text: modelData.label
                textFormat: Text.PlainText
                font.family: Hud.mono
                font.pointSize: 7.5 * Hud.pt
                font.weight: Font.Medium
                font.letterSpacing: 0.8
                color: Hud.ink4
            }
            Text {
                width: parent.width - 4
                elide: Text.ElideRight
                text: modelData.value
                textFormat: Text.PlainText
                font.family: Hud.mono
                font.pointSize: 11 * Hud.pt
                font.weight: Font.Medium
                color: Hud.ink2
            }
        }
    }
}
