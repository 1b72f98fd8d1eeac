import QtQuick
import Larkpin.Panel

Item {
    id: trade
    property var row: ({})
    implicitHeight: 16

    Text {
        id: side
        width: 34
        anchors.verticalCenter: parent.verticalCenter
        text: trade.row.side
        textFormat: Text.PlainText
        font.family: Hud.mono
        font.pointSize: 9 * Hud.pt
        font.bold: true
        font.letterSpacing: 0.6
        color: trade.row.buy ? Hud.emerald : Hud.alert
    }
    Text {
        x: 36
        width: 74
        anchors.verticalCenter: parent.verticalCenter
        elide: Text.ElideRight
        maximumLineCount: 1
        text: Hud.oneLine(trade.row.symbol)
        textFormat: Text.PlainText
        font.family: Hud.mono
        font.pointSize: 10.5 * Hud.pt
        color: Hud.ink2
    }
    Text {
        x: 112
        anchors.verticalCenter: parent.verticalCenter
        text: trade.row.amount
        textFormat: Text.PlainText
        font.family: Hud.mono
        font.pointSize: 10.5 * Hud.pt
        font.weight: Font.Medium
        color: Hud.ink
    }
    Text {
        anchors.right: pnl.left
        anchors.rightMargin: 10
        anchors.verticalCenter: parent.verticalCenter
        text: trade.row.age
        textFormat: Text.PlainText
        font.family: Hud.mono
        font.pointSize: 9 * Hud.pt
        color: Hud.ink4
    }
    Text {
        id: pnl
        anchors.right: parent.right
        width: 52
        horizontalAlignment: Text.AlignRight
        anchors.verticalCenter: parent.verticalCenter
        text: trade.row.pnl
        textFormat: Text.PlainText
        font.family: Hud.mono
        font.pointSize: 9.5 * Hud.pt
        font.weight: Font.DemiBold
        color: trade.row.open ? Hud.ink4 : trade.row.pnlNegative ? Hud.alert : Hud.emerald
    }
}
