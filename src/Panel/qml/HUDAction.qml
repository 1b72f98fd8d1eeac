import QtQuick
import Larkpin.Panel

Item {
    id: action
    required property PanelModel panel
    property string title: ""
    property string systemName: ""
    property color accent: Hud.lark
    property bool primary: false
    property bool fills: false
    readonly property bool hovering: mouse.containsMouse
    signal clicked()

    implicitWidth: fills ? row.implicitWidth : row.implicitWidth + 22
    implicitHeight: row.implicitHeight + 14
    activeFocusOnTab: visible && enabled
    Accessible.role: Accessible.Button
    Accessible.name: title
    Accessible.focusable: true
    Accessible.onPressAction: action.clicked()
    Keys.onPressed: (event) => {
        if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter || event.key === Qt.Key_Space) {
            action.clicked()
            event.accepted = true
        }
    }

    Rectangle {
        anchors.fill: parent
        radius: Hud.controlRadius
        color: action.primary ? (action.hovering ? action.accent : Hud.alpha(action.accent, 0.88))
                              : (action.hovering ? Hud.float_ : Hud.alpha(Hud.raised, 0.6))
        border.width: Hud.hairlineWidth
        border.color: action.hovering ? Hud.hairlineHot : Hud.hairline
        Glide on color { enabled: action.panel.animated }
    }
    Row {
        id: row
        anchors.centerIn: parent
        spacing: Hud.gapSmall
        LabelText {
            anchors.verticalCenter: parent.verticalCenter
            text: action.title
            size: 10
            color: action.primary ? Hud.abyss : action.accent
        }
        Glyph {
            anchors.verticalCenter: parent.verticalCenter
            visible: action.systemName !== ""
            name: action.systemName
            size: 8
            colour: action.primary ? Hud.abyss : action.accent
        }
    }
    FocusRing {}
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: action.clicked()
    }
}
