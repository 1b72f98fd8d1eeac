import QtQuick
import Larkpin.Panel

Column {
    id: section
    property string title: ""
    property string note: ""
    default property alias content: body.data
    spacing: 8

    Text {
        text: section.title
        textFormat: Text.PlainText
        font.family: Hud.mono
        font.pointSize: 8.5 * Hud.pt
        font.bold: true
        font.letterSpacing: 1.4
        color: Hud.ink4
    }
    Text {
        visible: section.note !== ""
        width: parent.width
        wrapMode: Text.Wrap
        text: section.note
        textFormat: Text.PlainText
        font.family: Hud.sans
        font.pointSize: 10.5 * Hud.pt
        color: Hud.ink3
    }
    Column {
        id: body
        width: parent.width
    }
}
