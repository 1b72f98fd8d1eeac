import QtQuick
import Larkpin.Panel

// The frame of one block of evidence.
Column {
    id: module
    property string eyebrow: ""
    property string title: ""
    property string subtitle: ""
    property string trailing: ""
    property bool hasDelta: false
    property string delta: ""
    property bool deltaNegative: false
    default property alias content: body.data
    spacing: 7

    Item {
        width: parent.width
        height: Math.max(eyebrowText.implicitHeight, trailingText.implicitHeight)
        Text {
            id: eyebrowText
            text: Hud.oneLine(module.eyebrow)
            textFormat: Text.PlainText
            maximumLineCount: 1
            elide: Text.ElideRight
            width: Math.min(implicitWidth, Math.max(0, parent.width - trailingText.implicitWidth - 8))
            font.family: Hud.mono
            font.pointSize: 8 * Hud.pt
            font.bold: true
            font.letterSpacing: 1.2
            color: Hud.ink4
        }
        Text {
            id: trailingText
            anchors.right: parent.right
            text: module.trailing
            textFormat: Text.PlainText
            font.family: Hud.mono
            font.pointSize: 8.5 * Hud.pt
            color: Hud.ink4
        }
    }
    Item {
        width: parent.width
        height: Math.max(titleText.implicitHeight, deltaTag.implicitHeight)
        Row {
            spacing: 7
            anchors.verticalCenter: parent.verticalCenter
            Text {
                id: titleText
                text: Hud.oneLine(module.title)
                textFormat: Text.PlainText
                maximumLineCount: 1
                elide: Text.ElideRight
                width: Math.min(implicitWidth, Math.max(0, module.width - deltaTag.width - 20))
                font.family: Hud.mono
                font.pointSize: 14 * Hud.pt
                font.weight: Font.DemiBold
                color: Hud.ink
            }
            Text {
                anchors.baseline: titleText.baseline
                visible: module.subtitle !== ""
                text: Hud.oneLine(module.subtitle)
                textFormat: Text.PlainText
                maximumLineCount: 1
                font.family: Hud.mono
                font.pointSize: 10 * Hud.pt
                color: Hud.ink3
                elide: Text.ElideRight
                width: Math.min(implicitWidth, Math.max(0, module.width - titleText.width - deltaTag.width - 20))
            }
        }
        DeltaTag {
            id: deltaTag
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            visible: module.hasDelta
            text: module.delta
            negative: module.deltaNegative
        }
    }
    Column {
        id: body
        width: parent.width
        spacing: 7
    }
}
