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
            id: stat
            required property var modelData
            width: stats.availableWidth / Math.max(1, stats.items.length)
            spacing: Hud.gapMicro
            ValueText {
                text: stat.modelData.label
                size: 7.5
                font.weight: Font.Medium
                font.letterSpacing: 0.8
                color: Hud.ink4
            }
            ValueText {
                width: parent.width - 4
                elide: Text.ElideRight
                text: stat.modelData.value
                font.weight: Font.Medium
            }
        }
    }
}
