import QtQuick
import Larkpin.Panel

Column {
    id: loading
    required property PanelModel panel
    spacing: Hud.gapSnug
    ProseText {
        text: "Loading the evidence\u2026"
    }
    Item {
        id: track
        width: parent.width
        height: 2
        clip: true
        Rectangle { anchors.fill: parent; radius: Hud.barRadius; color: Hud.alpha(Hud.ink4, 0.45) }
        Rectangle {
            id: sweep
            width: track.width * 0.28
            height: 2
            radius: Hud.barRadius
            color: Hud.lark
            x: track.width * 0.2
            SequentialAnimation on x {
                running: loading.panel.animated && track.width > 0
                loops: Animation.Infinite
                NumberAnimation { from: -sweep.width; to: track.width; duration: Hud.sweepMs; easing.type: Easing.BezierSpline; easing.bezierCurve: Hud.easeInOutCurve }
            }
        }
    }
}
