import QtQuick

Item {
    id: mini
    property string signalId: ""
    property string kind: "whale"
    property string headline: ""
    readonly property bool isOpen: panel.openId === signalId
    readonly property bool hovering: mouse.containsMouse
    readonly property color accent: hud.kindColour(kind)
    implicitHeight: 54
    activeFocusOnTab: visible
    Accessible.role: Accessible.Button
    Accessible.name: headline
    Accessible.focusable: true
    Accessible.onPressAction: panel.toggle(mini.signalId)
    Keys.onPressed: (event) => {
        if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter || event.key === Qt.Key_Space) {
            panel.toggle(mini.signalId)
            event.accepted = true
        }
    }
    // A new card drops in from the top.
    opacity: 0
    transform: Translate { id: drop; y: -10 }
    Component.onCompleted: {
        if (!panel.animated) {
            opacity = 1
            drop.y = 0
            return
        }
        enter.start()
    }
    ParallelAnimation {
        id: enter
        NumberAnimation { target: mini; property: "opacity"; to: 1; duration: hud.glideMs; easing.type: Easing.BezierSpline; easing.bezierCurve: hud.glideCurve }
        SpringAnimation { target: drop; property: "y"; to: 0; spring: hud.snapSpring; damping: hud.snapDamping; epsilon: 0.25 }
    }

    Rectangle {
        anchors.fill: parent
        radius: 8
        color: mini.hovering ? hud.float_ : hud.alpha(hud.raised, 0.55)
        border.width: hud.hairlineWidth
        border.color: mini.isOpen ? hud.alpha(mini.accent, 0.5) : mini.hovering ? hud.hairlineHot : hud.hairline
        clip: true
        Behavior on color { enabled: panel.animated; ColorAnimation { duration: hud.glideMs; easing.type: Easing.BezierSpline; easing.bezierCurve: hud.glideCurve } }
    }
    AccentRule {
        x: 8
        y: 9
        height: mini.height - 18
        colour: mini.accent
    }
    Column {
        x: 18
        y: 8
        width: mini.width - 26
        spacing: 3
        KindLabel { kind: mini.kind; size: 8 }
        Text {
            width: parent.width
            // Two lines at most, made by wrapping, never by the wire.
            text: hud.oneLine(mini.headline)
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            maximumLineCount: 2
            elide: Text.ElideRight
            font.family: hud.mono
            font.pointSize: 10 * hud.pt
            color: hud.ink2
        }
    }
    FocusRing { ringRadius: 8 }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: panel.toggle(mini.signalId)
    }
    SignalMenuHook {
        anchors.fill: parent
        signalId: mini.signalId
        selected: mini.isOpen
    }
}
