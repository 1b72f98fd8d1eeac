import QtQuick
import Larkpin.Panel

Item {
    id: pill
    required property PanelModel panel
    property string label: ""
    property color colour: Hud.amber
    property bool alive: false
    implicitWidth: row.implicitWidth + 16
    implicitHeight: 20
    // The feed's state, read out again whenever it changes.
    Accessible.role: Accessible.StatusBar
    Accessible.name: "Feed " + pill.label

    Rectangle {
        anchors.fill: parent
        radius: height / 2
        color: Hud.alpha(Hud.raised, 0.55)
        border.width: Hud.hairlineWidth
        border.color: Hud.hairline
    }
    Row {
        id: row
        anchors.centerIn: parent
        spacing: Hud.gapLabel
        PulseDot {
            panel: pill.panel
            anchors.verticalCenter: parent.verticalCenter
            colour: pill.colour
            alive: pill.alive
            size: 6
        }
        ValueText {
            objectName: "linkLabel"
            anchors.verticalCenter: parent.verticalCenter
            text: pill.label
            size: 9.5
            font.weight: Font.Medium
            font.letterSpacing: 0.9
            color: Hud.ink3
        }
    }
}
