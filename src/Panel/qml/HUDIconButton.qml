import QtQuick

Item {
    id: button
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
        color: button.active ? hud.alpha(hud.lark, 0.14) : button.hovering ? hud.float_ : "transparent"
        border.width: hud.hairlineWidth
        border.color: button.active ? hud.alpha(hud.lark, 0.35) : hud.hairline
        Behavior on color { enabled: panel.animated; ColorAnimation { duration: hud.glideMs; easing.type: Easing.BezierSpline; easing.bezierCurve: hud.glideCurve } }
    }
    Glyph {
        anchors.centerIn: parent
        name: button.systemName
        size: 10.5
        colour: button.active ? hud.lark : button.hovering ? hud.ink : hud.ink2
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
