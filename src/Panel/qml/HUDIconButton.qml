import QtQuick
import Larkpin.Panel

Item {
    id: button
    required property PanelModel panel
    property string systemName: ""
    property string help: ""
    property bool active: false
    readonly property bool hovering: mouse.containsMouse
    signal clicked()

    implicitWidth: 24
    implicitHeight: 24
    activeFocusOnTab: visible && enabled
    Accessible.role: Accessible.Button
    Accessible.name: help !== "" ? help : systemName
    Accessible.focusable: true
    Accessible.onPressAction: button.clicked()
    Keys.onPressed: (event) => {
        if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter || event.key === Qt.Key_Space) {
            button.clicked()
            event.accepted = true
        }
    }

    Rectangle {
        anchors.fill: parent
        radius: width / 2
        color: button.active ? Hud.alpha(Hud.lark, 0.14) : button.hovering ? Hud.float_ : "transparent"
        border.width: Hud.hairlineWidth
        border.color: button.active ? Hud.alpha(Hud.lark, 0.35) : Hud.hairline
        Glide on color { enabled: button.panel.animated }
    }
    Glyph {
        anchors.centerIn: parent
        name: button.systemName
        size: 10.5
        colour: button.active ? Hud.lark : button.hovering ? Hud.ink : Hud.ink2
    }
    FocusRing { ringRadius: button.width / 2 - 2 }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: button.clicked()
    }
    HUDToolTip {
        owner: button
        active: button.hovering
        text: button.help
    }
}
