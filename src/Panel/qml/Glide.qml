import QtQuick
import Larkpin.Panel

// The panel's one short ease-out for a change of colour or opacity: every
// hover, selection and fade glides with the same duration and curve. Turn it
// off with `enabled` where the panel is not animated.
Behavior {
    id: glide
    // True while a change is under way (a view stays visible until its fade ends).
    readonly property alias running: animation.running
    PropertyAnimation {
        id: animation
        duration: Hud.glideMs
        easing.type: Easing.BezierSpline
        easing.bezierCurve: Hud.glideCurve
    }
}
