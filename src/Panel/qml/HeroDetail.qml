import QtQuick

// A stand-alone card of one signal with a close button.
Item {
    id: detail
    property var hero: ({})
    signal closeRequested()
    readonly property color accent: hud.kindColour(hero.kind || "whale")
    implicitHeight: column.implicitHeight + 26

    Rectangle {
        anchors.fill: parent
        radius: 10
        color: hud.plate
        border.width: hud.hairlineWidth
        border.color: hud.hairlineHot
    }
    AccentRule {
        x: 12
        y: 14
        height: detail.height - 28
        colour: detail.accent
        glow: true
    }
    Column {
        id: column
        x: 27
        y: 13
        width: detail.width - 27 - 12
        spacing: 9
        Item {
            width: parent.width
            height: 24
            Row {
                anchors.verticalCenter: parent.verticalCenter
                spacing: 8
                KindLabel { kind: detail.hero.kind || "whale"; size: 9.5 }
                Text {
                    text: detail.hero.age || ""
                    textFormat: Text.PlainText
                    font.family: hud.mono
                    font.pointSize: 9 * hud.pt
                    color: hud.ink4
                }
            }
            HUDIconButton {
                objectName: "closeDetail"
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                systemName: "xmark"
                help: "Close"
                onClicked: detail.closeRequested()
            }
        }
        Text {
            width: parent.width
            elide: Text.ElideRight
            maximumLineCount: 1
            text: hud.oneLine(detail.hero.headline || "")
            textFormat: Text.PlainText
            font.family: hud.mono
            font.pointSize: 13 * hud.pt
            font.weight: Font.DemiBold
            color: hud.ink
        }
        Text {
            visible: text !== ""
            width: parent.width
            wrapMode: Text.Wrap
            text: detail.hero.detail || ""
            textFormat: Text.PlainText
            font.family: hud.sans
            font.pointSize: 10.5 * hud.pt
            color: hud.ink3
        }
        HUDAction {
            visible: (detail.hero.chartUrl || "") !== ""
            title: "CHART"
            systemName: "arrow.up.forward"
            accent: detail.accent
            onClicked: panel.openLink(detail.hero.chartUrl)
        }
        Hairline { width: parent.width }
    }
}
