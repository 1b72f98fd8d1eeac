import QtQuick
import Larkpin.Panel

// The panel's base. There is no blur of what lies behind the window without
// shaders; a dark translucent base under the plate-to-abyss tint stands in.
Item {
    id: backdrop
    property real cornerRadius: 14

    Rectangle {
        anchors.fill: parent
        radius: backdrop.cornerRadius
        color: Hud.alpha(Hud.abyss, 0.6)
    }
    Rectangle {
        anchors.fill: parent
        radius: backdrop.cornerRadius
        gradient: Gradient {
            GradientStop { position: 0; color: Hud.alpha(Hud.plate, 0.82) }
            GradientStop { position: 1; color: Hud.alpha(Hud.abyss, 0.92) }
        }
    }
}
