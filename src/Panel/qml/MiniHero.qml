import QtQuick
import Larkpin.Panel

Item {
    id: mini
    required property PanelModel panel
    property string signalId: ""
    property int kind: SignalKind.Whale
    property string headline: ""
    readonly property bool isOpen: mini.panel.openId === signalId
    readonly property bool hovering: mouse.containsMouse
    readonly property color accent: Hud.kindColour(kind)
    implicitHeight: 54
    activeFocusOnTab: visible
    Accessible.role: Accessible.Button
    Accessible.name: headline
    Accessible.focusable: true
    Accessible.onPressAction: mini.panel.toggle(mini.signalId)
    Keys.onPressed: (event) => {
        if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter || event.key === Qt.Key_Space) {
            mini.panel.toggle(mini.signalId)
            event.accepted = true
        }
    }
    // A new card drops in from the top.
    opacity: 0
    transform: Translate { id: drop; y: -10 }
    Component.onCompleted: {
        if (!mini.panel.animated) {
            opacity = 1
            drop.y = 0
            return
        }
        enter.start()
    }
    ParallelAnimation {
        id: enter
        NumberAnimation { target: mini; property: "opacity"; to: 1; duration: Hud.glideMs; easing.type: Easing.BezierSpline; easing.bezierCurve: Hud.glideCurve }
        SpringAnimation { target: drop; property: "y"; to: 0; spring: Hud.snapSpring; damping: Hud.snapDamping; epsilon: 0.25 }
    }

    Rectangle {
        anchors.fill: parent
        radius: Hud.tileRadius
        color: mini.hovering ? Hud.float_ : Hud.alpha(Hud.raised, 0.55)
        border.width: Hud.hairlineWidth
        border.color: mini.isOpen ? Hud.alpha(mini.accent, 0.5) : mini.hovering ? Hud.hairlineHot : Hud.hairline
        clip: true
        Glide on color { enabled: mini.panel.animated }
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
        spacing: Hud.gapMicro
        KindLabel { kind: mini.kind; size: 8 }
        ValueText {
            width: parent.width
            // Two lines at most, made by wrapping, never by the wire.
            text: Hud.oneLine(mini.headline)
            wrapMode: Text.Wrap
            maximumLineCount: 2
            elide: Text.ElideRight
            size: 10
        }
    }
    FocusRing { ringRadius: 8 }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: mini.panel.toggle(mini.signalId)
    }
    SignalMenuHook {
        panel: mini.panel
        anchors.fill: parent
        signalId: mini.signalId
        selected: mini.isOpen
    }
}
