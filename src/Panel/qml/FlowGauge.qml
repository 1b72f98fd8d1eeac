import QtQuick
import Larkpin.Panel

Item {
    id: gauge
    property real buyShare: 0.5
    readonly property real share: Math.max(0, Math.min(1, buyShare))
    implicitHeight: 2
    height: 2

    Rectangle {
        visible: width > 0
        width: gauge.width * gauge.share
        height: 2; radius: Hud.barRadius
        color: Hud.alpha(Hud.emerald, 0.75)
    }
    Rectangle {
        visible: width > 0
        x: gauge.width * gauge.share
        width: gauge.width - x
        height: 2; radius: Hud.barRadius
        color: Hud.alpha(Hud.alert, 0.55)
    }
}
