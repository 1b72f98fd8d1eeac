import QtQuick
import Larkpin.Panel

// A switch-style toggle, tinted lark, at 0.85 of the usual 38 × 22.
Item {
    id: toggle
    required property PanelModel panel
    property bool on: false
    signal toggled(bool on)
    implicitWidth: 38 * 0.85
    implicitHeight: 22 * 0.85
    activeFocusOnTab: visible && enabled
    Accessible.role: Accessible.CheckBox
    Accessible.checkable: true
    Accessible.checked: on
    Accessible.focusable: true
    Accessible.onPressAction: toggle.toggled(!toggle.on)
    Accessible.onToggleAction: toggle.toggled(!toggle.on)
    Keys.onPressed: (event) => {
        if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter || event.key === Qt.Key_Space) {
            toggle.toggled(!toggle.on)
            event.accepted = true
        }
    }

    Rectangle {
        anchors.fill: parent
        radius: height / 2
        color: toggle.on ? Hud.lark : Hud.alpha(Hud.ink4, 0.8)
        Glide on color { enabled: toggle.panel.animated }
    }
    Rectangle {
        width: toggle.height - 4
        height: width
        radius: width / 2
        y: 2
        x: toggle.on ? toggle.width - width - 2 : 2
        color: toggle.on ? Hud.abyss : Hud.ink
        Behavior on x { enabled: toggle.panel.animated && !toggle.panel.reduceMotion; SpringAnimation { spring: Hud.snapSpring; damping: Hud.snapDamping } }
    }
    FocusRing { ringRadius: toggle.height / 2 - 2 }
    MouseArea {
        anchors.fill: parent
        cursorShape: Qt.PointingHandCursor
        onClicked: toggle.toggled(!toggle.on)
    }
}
