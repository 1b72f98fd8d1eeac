import QtQuick

Item {
    id: pill
    property string label: ""
    property color colour: hud.amber
    property bool alive: false
    implicitWidth: row.implicitWidth + 16
    implicitHeight: 20

    Rectangle {
        anchors.fill: parent
        radius: height / 2
        color: hud.alpha(hud.raised, 0.55)
        border.width: hud.hairlineWidth
        border.color: hud.hairline
    }
    Row {
        id: row
        anchors.centerIn: parent
        spacing: 6
        PulseDot {
            anchors.verticalCenter: parent.verticalCenter
            colour: pill.colour
            alive: pill.alive
            size: 6
        }
        Text {
            objectName: "linkLabel"
            anchors.verticalCenter: parent.verticalCenter
            text: pill.label
            textFormat: Text.PlainText
            font.family: hud.mono
            font.pointSize: 9.5 * hud.pt
            font.weight: Font.Medium
            font.letterSpacing: 0.9
            color: hud.ink3
        }
    }
}
