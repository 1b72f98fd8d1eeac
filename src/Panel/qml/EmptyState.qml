import QtQuick
import Larkpin.Panel

Item {
    id: empty
    property string symbol: ""
    property string message: ""
    implicitHeight: column.implicitHeight + 92

    Column {
        id: column
        anchors.horizontalCenter: parent.horizontalCenter
        y: 46
        spacing: Hud.gapSection
        Glyph {
            objectName: "emptySymbol"
            anchors.horizontalCenter: parent.horizontalCenter
            name: empty.symbol
            size: 17
            colour: Hud.ink4
        }
        ProseText {
            objectName: "emptyMessage"
            anchors.horizontalCenter: parent.horizontalCenter
            text: empty.message
            width: Math.min(implicitWidth, empty.width - 48)
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
            size: 11.5
        }
    }
}
