import QtQuick
import Larkpin.Panel

Item {
    implicitWidth: 13
    implicitHeight: 11
    Column {
        spacing: 2.5
        Repeater {
            model: 3
            Rectangle {
                required property int index
                width: 13; height: 2; radius: Hud.barRadius
                color: Hud.lark
                opacity: index === 1 ? 1 : 0.55
            }
        }
    }
}
