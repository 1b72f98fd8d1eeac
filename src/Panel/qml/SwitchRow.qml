import QtQuick
import Larkpin.Panel

Item {
    id: switchRow
    required property PanelModel panel
    property string title: ""
    property color titleColour: Hud.ink
    property string subtitle: ""
    property bool on: false
    signal toggled(bool on)
    implicitHeight: Math.max(texts.implicitHeight, control.implicitHeight) + 18

    Column {
        id: texts
        anchors.verticalCenter: parent.verticalCenter
        width: parent.width - control.width - 12
        spacing: Hud.gapMicro
        ValueText {
            text: switchRow.title
            font.weight: Font.DemiBold
            font.letterSpacing: 0.6
            color: switchRow.titleColour
        }
        ProseText {
            visible: switchRow.subtitle !== ""
            width: parent.width
            wrapMode: Text.Wrap
            text: switchRow.subtitle
        }
    }
    Toggle {
        panel: switchRow.panel
        id: control
        objectName: "toggle"
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        on: switchRow.on
        Accessible.name: switchRow.title
        Accessible.description: switchRow.subtitle
        onToggled: (value) => switchRow.toggled(value)
    }
}
