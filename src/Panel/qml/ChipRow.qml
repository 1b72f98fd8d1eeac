import QtQuick
import Larkpin.Panel

Row {
    id: chips
    required property PanelModel panel
    property var values: []  // [{label, value, selected}]
    signal chosen(real value)
    // A radio group for a screen reader, named for its section.
    property string groupName: ""
    Accessible.role: Accessible.Grouping
    Accessible.name: groupName
    spacing: Hud.gapSmall
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
