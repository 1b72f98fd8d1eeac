import QtQuick
import Larkpin.Panel

// A stand-alone card of one signal with a close button.
Item {
    id: detail
    required property PanelModel panel
    property var hero: ({})
    signal closeRequested()
    readonly property color accent: Hud.kindColour(hero.kind || "whale")
    implicitHeight: column.implicitHeight + 26

    Rectangle {
        anchors.fill: parent
        radius: 10
        color: Hud.plate
        border.width: Hud.hairlineWidth
        border.color: Hud.hairlineHot
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
                    font.family: Hud.mono
                    font.pointSize: 9 * Hud.pt
                    color: Hud.ink4
                }
            }
            HUDIconButton {
                panel: detail.panel
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
            text: Hud.oneLine(detail.hero.headline || "")
            textFormat: Text.PlainText
            font.family: Hud.mono
            font.pointSize: 13 * Hud.pt
            font.weight: Font.DemiBold
            color: Hud.ink
        }
        Text {
            visible: text !== ""
            width: parent.width
            wrapMode: Text.Wrap
            text: detail.hero.detail || ""
            textFormat: Text.PlainText
            font.family: Hud.sans
            font.pointSize: 10.5 * Hud.pt
            color: Hud.ink3
        }
        HUDAction {
            panel: detail.panel
            visible: (detail.hero.chartUrl || "") !== ""
            title: "CHART"
            systemName: "arrow.up.forward"
            accent: detail.accent
            onClicked: detail.panel.openLink(detail.hero.chartUrl)
        }
        Hairline { width: parent.width }
    }
}
