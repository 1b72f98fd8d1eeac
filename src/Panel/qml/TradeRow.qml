import QtQuick
import Larkpin.Panel

Item {
    id: trade
    property var row: ({})
    implicitHeight: 16

    LabelText {
        id: side
        width: 34
        anchors.verticalCenter: parent.verticalCenter
        text: trade.row.side
        size: 9
        tracking: 0.6
        color: trade.row.buy ? Hud.emerald : Hud.alert
    }
    ValueText {
        x: 36
        width: 74
        anchors.verticalCenter: parent.verticalCenter
        elide: Text.ElideRight
        maximumLineCount: 1
        text: Hud.oneLine(trade.row.symbol)
        size: 10.5
    }
    ValueText {
        x: 112
        anchors.verticalCenter: parent.verticalCenter
        text: trade.row.amount
        size: 10.5
        font.weight: Font.Medium
        color: Hud.ink
    }
    CaptionText {
        anchors.right: pnl.left
        anchors.rightMargin: 10
        anchors.verticalCenter: parent.verticalCenter
        text: trade.row.age
    }
    ValueText {
        id: pnl
        anchors.right: parent.right
        width: 52
        horizontalAlignment: Text.AlignRight
        anchors.verticalCenter: parent.verticalCenter
        text: trade.row.pnl
        size: 9.5
        font.weight: Font.DemiBold
        color: trade.row.open ? Hud.ink4 : trade.row.pnlNegative ? Hud.alert : Hud.emerald
    }
}
