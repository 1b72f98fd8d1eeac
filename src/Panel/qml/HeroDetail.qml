import QtQuick
import Larkpin.Panel

// A stand-alone card of one signal with a close button.
Item {
    id: detail
    required property PanelModel panel
    property signalCard hero
    signal closeRequested()
    readonly property color accent: Hud.kindColour(hero.valid ? hero.kind : SignalKind.Whale)
    implicitHeight: column.implicitHeight + 26

    HeroPlate {
        anchors.fill: parent
        accent: detail.accent
        glow: true
        edge: Hud.hairlineHot
    }
    Column {
        id: column
        x: 27
        y: 13
        width: detail.width - 27 - 12
        spacing: Hud.gapRow
        HeroHeader {
            width: parent.width
            height: 24
            kind: detail.hero.valid ? detail.hero.kind : SignalKind.Whale
            age: detail.hero.age
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
        ValueText {
            width: parent.width
            elide: Text.ElideRight
            maximumLineCount: 1
            text: Hud.oneLine(detail.hero.headline)
            size: 13
            font.weight: Font.DemiBold
            color: Hud.ink
        }
        ProseText {
            visible: text !== ""
            width: parent.width
            wrapMode: Text.Wrap
            text: detail.hero.detail
        }
        HUDAction {
            panel: detail.panel
            visible: detail.hero.chartUrl !== ""
            title: "CHART"
            systemName: "arrow.up.forward"
            accent: detail.accent
            onClicked: detail.panel.openLink(detail.hero.chartUrl)
        }
        Hairline { width: parent.width }
    }
}
