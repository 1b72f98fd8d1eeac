import QtQuick
import Larkpin.Panel

Item {
    id: chip
    required property PanelModel panel
    property string label: ""
    property string trailing: ""
    property bool selected: false
    readonly property bool hovering: mouse.containsMouse
    signal clicked()

    implicitWidth: row.implicitWidth + 18
    implicitHeight: row.implicitHeight + 10
    activeFocusOnTab: visible && enabled
    Accessible.role: Accessible.RadioButton
    Accessible.name: trailing !== "" ? label + " " + trailing : label
    Accessible.checkable: true
    Accessible.checked: selected
    Accessible.focusable: true
    Accessible.onPressAction: chip.clicked()
    Keys.onPressed: (event) => {
        if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter || event.key === Qt.Key_Space) {
            chip.clicked()
            event.accepted = true
        }
    }

    Rectangle {
        anchors.fill: parent
        radius: Hud.controlRadius
        color: chip.selected ? Hud.alpha(Hud.ink, 0.92) : chip.hovering ? Hud.float_ : Hud.alpha(Hud.raised, 0.7)
        Glide on color { enabled: chip.panel.animated }
    }
    Row {
        id: row
        anchors.centerIn: parent
        spacing: Hud.gapTiny
        LabelText {
            text: chip.label
            tracking: 0.7
            color: chip.selected ? Hud.abyss : Hud.ink2
        }
        LabelText {
            visible: chip.trailing !== ""
            text: chip.trailing
            tracking: 0.7
            color: chip.selected ? Hud.abyss : Hud.ink2
            opacity: 0.5
        }
    }
    FocusRing {}
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: chip.clicked()
    }
}
