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
    spacing: Hud.gapSnug

    Item {
        width: parent.width
        height: Math.max(eyebrowText.implicitHeight, trailingText.implicitHeight)
        LabelText {
            id: eyebrowText
            text: Hud.oneLine(module.eyebrow)
            maximumLineCount: 1
            elide: Text.ElideRight
            width: Math.min(implicitWidth, Math.max(0, parent.width - trailingText.implicitWidth - 8))
            size: 8
            tracking: 1.2
        }
        CaptionText {
            id: trailingText
            anchors.right: parent.right
            text: module.trailing
            size: 8.5
        }
    }
    Item {
        width: parent.width
        height: Math.max(titleText.implicitHeight, deltaTag.implicitHeight)
        Row {
            spacing: Hud.gapSnug
            anchors.verticalCenter: parent.verticalCenter
            ValueText {
                id: titleText
                text: Hud.oneLine(module.title)
                maximumLineCount: 1
                elide: Text.ElideRight
                width: Math.min(implicitWidth, Math.max(0, module.width - deltaTag.width - 20))
                size: 14
                font.weight: Font.DemiBold
                color: Hud.ink
            }
            ValueText {
                anchors.baseline: titleText.baseline
                visible: module.subtitle !== ""
                text: Hud.oneLine(module.subtitle)
                maximumLineCount: 1
                size: 10
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
        spacing: Hud.gapSnug
    }
}
