import QtQuick
import Larkpin.Panel

// The strongest visible signal, large; opens in place onto its evidence.
Item {
    id: card
    required property PanelModel panel
    property signalCard hero
    property bool bloom: false
    readonly property string signalId: hero.signalId
    readonly property bool isOpen: signalId !== "" && card.panel.openId === signalId
    readonly property bool hovering: hover.hovered
    readonly property color accent: Hud.kindColour(hero.valid ? hero.kind : SignalKind.Whale)
    implicitHeight: column.implicitHeight + 26
    // The whole card opens and closes it, like a row; its buttons keep their own.
    activeFocusOnTab: visible && signalId !== ""
    Accessible.role: Accessible.Button
    Accessible.name: Array.from([Hud.kindLabel(card.hero.valid ? card.hero.kind : SignalKind.Whale), Hud.oneLine(card.hero.ticker),
                      card.hero.amount, Hud.oneLine(card.hero.body)]).filter((s) => s !== "").join(", ")
    Accessible.description: card.isOpen ? "Top signal, evidence shown" : "Top signal"
    Accessible.focusable: true
    Accessible.onPressAction: card.panel.toggle(card.signalId)
    Keys.onPressed: (event) => {
        if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter || event.key === Qt.Key_Space) {
            card.panel.toggle(card.signalId)
            event.accepted = true
        }
    }

    HoverHandler { id: hover }
    HeroPlate {
        anchors.fill: parent
        accent: card.accent
        glow: card.bloom || card.isOpen
        fill: card.bloom ? Qt.tint(Hud.plate, Hud.alpha(card.accent, 0.10))
                         : card.hovering ? Hud.alpha(Hud.raised, 0.85) : Hud.alpha(Hud.plate, 0.75)
        edge: card.bloom ? Hud.alpha(card.accent, 0.55) : card.hovering || card.isOpen ? Hud.hairlineHot : Hud.hairline
        fades: card.panel.animated
    }
    MouseArea {
        objectName: "heroOpen"
        // Above the evidence only: a click in the opened evidence reads it, not closes it.
        width: parent.width
        height: card.isOpen ? column.y + heroInspector.y : parent.height
        enabled: card.signalId !== ""
        cursorShape: Qt.PointingHandCursor
        onClicked: card.panel.toggle(card.signalId)
    }
    FocusRing { ringRadius: 10 }
    Column {
        id: column
        x: 27
        y: 13
        width: card.width - 27 - 14
        spacing: Hud.gapSnug

        HeroHeader {
            width: parent.width
            height: 18
            kind: card.hero.valid ? card.hero.kind : SignalKind.Whale
            age: card.hero.age
            WinRing {
                objectName: "winRing"
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                visible: card.hero.hasWinRate
                ratio: card.hero.winRate
                label: card.hero.winRateText
            }
        }
        // Figure lines
        Item {
            id: figureLine
            width: parent.width
            height: 28
            readonly property string ticker: Hud.oneLine(card.hero.ticker)
            readonly property real room: width - (amount.visible ? amount.width + 10 : 0)
            // The ticker shrinks to fit beside the amount, from its full size
            // down to the smallest legible one; past that it is shortened.
            // Computed here: a fitted font would stop at a point size.
            TextMetrics {
                id: fullTicker
                font.family: Hud.mono
                font.pixelSize: Hud.heroTickerPx
                font.weight: Font.Bold
                text: figureLine.ticker
            }
            readonly property int tickerPx: fullTicker.advanceWidth <= room ? Hud.heroTickerPx
                : Math.max(Hud.minLegiblePx, Math.floor(Hud.heroTickerPx * room / fullTicker.advanceWidth))
            // Sized in pixels to fit, so not one of the shared texts.
            Text {
                objectName: "heroTicker"
                width: Math.max(0, figureLine.room)
                height: parent.height
                verticalAlignment: Text.AlignVCenter
                text: figureLine.ticker
                maximumLineCount: 1
                elide: Text.ElideRight
                textFormat: Text.PlainText
                Accessible.role: Accessible.StaticText
                Accessible.name: text
                font.family: Hud.mono
                font.pixelSize: figureLine.tickerPx
                font.weight: Font.Bold
                color: Hud.ink
            }
            RollingText {
                panel: card.panel
                id: amount
                objectName: "heroAmount"
                visible: card.hero.amount !== ""
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                text: card.hero.amount
                size: 17
                weight: Font.DemiBold
                colour: card.accent
            }
        }
        ValueText {
            objectName: "heroBody"
            width: parent.width
            elide: Text.ElideRight
            maximumLineCount: 1
            text: Hud.oneLine(card.hero.body)
            size: 11.5
        }
        ProseText {
            visible: text !== ""
            width: parent.width
            wrapMode: Text.Wrap
            text: card.hero.detail
            lineHeight: 1.15
        }
        Row {
            spacing: Hud.gapLabel
            topPadding: 2
            HUDAction {
                panel: card.panel
                objectName: "heroChart"
                visible: card.hero.chartUrl !== ""
                title: "CHART"
                systemName: "arrow.up.forward"
                accent: card.accent
                onClicked: card.panel.openLink(card.hero.chartUrl)
            }
            HUDAction {
                panel: card.panel
                objectName: "heroEvidence"
                title: card.isOpen ? "HIDE" : "EVIDENCE"
                accent: Hud.ink2
                onClicked: card.panel.toggle(card.signalId)
            }
        }
        Loader {
            id: heroInspector
            objectName: "heroInspector"
            active: card.isOpen
            // Stays in the column while it folds away, so the card shrinks smoothly.
            visible: height > 0
            clip: true
            width: parent.width
            height: active && item ? (item as Item).implicitHeight : 0
            Behavior on height { enabled: card.panel.animated && !card.panel.reduceMotion; SpringAnimation { spring: Hud.snapSpring; damping: Hud.snapDamping; epsilon: 0.25 } }
            sourceComponent: Column {
                spacing: Hud.gapGroup
                topPadding: 4
                Hairline { width: parent.width }
                InspectorView {
                    panel: card.panel
                    width: parent.width
                    signalId: card.signalId
                    hidesChart: true
                }
            }
        }
    }
    SignalMenuHook {
        panel: card.panel
        anchors.fill: parent
        signalId: card.signalId
        selected: card.isOpen
    }
}
