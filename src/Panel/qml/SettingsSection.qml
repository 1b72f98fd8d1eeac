import QtQuick

Column {
    id: section
    property string title: ""
    property string note: ""
    default property alias content: body.data
    spacing: 8

    Text {
        text: section.title
        textFormat: Text.PlainText
        font.family: hud.mono
        font.pointSize: 8.5 * hud.pt
        font.bold: true
        font.letterSpacing: 1.4
        color: hud.ink4
    }
    Text {
        visible: section.note !== ""
        width: parent.width
        wrapMode: Text.Wrap
        text: section.note
        textFormat: Text.PlainText
        font.family: hud.sans
        font.pointSize: 10.5 * hud.pt
        color: hud.ink3
    }
    Column {
        id: body
        width: parent.width
    }
}
