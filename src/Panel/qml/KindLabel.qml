import QtQuick
import Larkpin.Panel

LabelText {
    property string kind: "whale"
    property string label: Hud.kindLabel(kind)
    size: 9
    tracking: 0.9
    text: label
    color: Hud.kindColour(kind)
}
