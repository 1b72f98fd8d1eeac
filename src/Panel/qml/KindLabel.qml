import QtQuick
import Larkpin.Panel

LabelText {
    property int kind: SignalKind.Whale
    property string label: Hud.kindLabel(kind)
    size: 9
    tracking: 0.9
    text: label
    color: Hud.kindColour(kind)
}
