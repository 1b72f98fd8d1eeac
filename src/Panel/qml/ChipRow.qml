import QtQuick

Row {
    id: chips
    property var values: []  // [{label, value, selected}]
    signal chosen(real value)
    spacing: 5
    Repeater {
        model: chips.values
        HUDChip {
            label: modelData.label
            selected: modelData.selected
            onClicked: chips.chosen(modelData.value)
        }
    }
}
