import QtQuick

Row {
    id: chips
    property var values: []  // [{label, value, selected}]
    signal chosen(real value)
    spacing: 5
    Repeater {
        model: chips.values.length
        HUDChip {
            readonly property var entry: chips.values[index]
            label: entry.label
            selected: entry.selected
            onClicked: chips.chosen(entry.value)
        }
    }
}
