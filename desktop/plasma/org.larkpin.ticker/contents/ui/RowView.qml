// One row of the ticker: the badge in the kind's accent, the figure, the rest
// of the line; "NO SIGNALS" / "TAPE OFFLINE" without a row.
import QtQuick 2.15
import org.kde.plasma.core 2.0 as PlasmaCore

Item {
    required property var ticker // the applet's root: accents, arrows, the source

    property var row: ({})
    Row {
        anchors.verticalCenter: parent.verticalCenter
        spacing: 5
        visible: row.kind !== undefined && row.kind !== ""
        Rectangle {
            width: badge.implicitWidth + 10
            height: badge.implicitHeight + 2
            radius: 4
            color: ticker.accent(row.kind || "whale")
            Text {
                id: badge
                anchors.centerIn: parent
                text: (row.symbol || "") + (ticker.arrows[row.direction] || "")
                font.pixelSize: 12
                textFormat: Text.PlainText
                font.bold: true
                color: ticker.badgeInk
            }
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: row.amount || ""
            visible: text !== ""
            font.pixelSize: 12
            textFormat: Text.PlainText
            font.bold: true
            color: ticker.accent(row.kind || "whale")
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: row.text || ""
            font.pixelSize: 12
            textFormat: Text.PlainText
            color: PlasmaCore.Theme.disabledTextColor
        }
    }
    Text {
        anchors.verticalCenter: parent.verticalCenter
        visible: !(row.kind !== undefined && row.kind !== "")
        text: ticker.source.link === "down" ? "TAPE OFFLINE" : "NO SIGNALS"
        font.pixelSize: 11
        textFormat: Text.PlainText
        font.bold: true
        font.letterSpacing: 1
        color: PlasmaCore.Theme.disabledTextColor
    }
}
