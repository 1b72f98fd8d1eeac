import QtQuick
import Larkpin.Panel

// A hero card's eyebrow: the kind and the age on the left; whatever the card
// puts inside (a win ring, a close button) anchors itself on the right.
Item {
    id: header
    property int kind: SignalKind.Whale
    property string age: ""

    Row {
        anchors.verticalCenter: parent.verticalCenter
        spacing: Hud.gap
        KindLabel { kind: header.kind; size: 9.5 }
        CaptionText {
            text: Hud.oneLine(header.age)
            maximumLineCount: 1
        }
    }
}
