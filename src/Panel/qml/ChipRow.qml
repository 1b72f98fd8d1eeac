import QtQuick
import Larkpin.Panel

Row {
    id: chips
    required property PanelModel panel
    property var values: []  // [{label, value, selected}]
    signal chosen(real value)
    spacing: 5
    Repeater {
        model: chips.values.length
        HUDChip {
            panel: chips.panel
            required property int index
            readonly property var entry: chips.values[index]
            label: entry.label
            selected: entry.selected
            onClicked: chips.chosen(entry.value)
        }
    }
}
