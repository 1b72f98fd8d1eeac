import QtQuick
import Larkpin.Panel

Column {
    id: section
    property string title: ""
    property string note: ""
    default property alias content: body.data
    spacing: Hud.gap

    LabelText {
        text: section.title
        size: 8.5
        tracking: 1.4
    }
    ProseText {
        visible: section.note !== ""
        width: parent.width
        wrapMode: Text.Wrap
        text: section.note
    }
    Column {
        id: body
        width: parent.width
    }
}
