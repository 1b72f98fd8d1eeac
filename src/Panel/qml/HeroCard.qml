import QtQuick

// The strongest visible signal, large; opens in place onto its evidence.
Item {
    id: card
    property var hero: ({})
    property bool bloom: false
    readonly property string signalId: hero.signalId || ""
    readonly property bool isOpen: signalId !== "" && panel.openId === signalId
    readonly property bool hovering: hover.hovered
    readonly property color accent: hud.kindColour(hero.kind || "whale")
    implicitHeight: column.implicitHeight + 26

    HoverHandler { id: hover }
    Rectangle {
        anchors.fill: parent
        radius: 10
        color: card.bloom ? Qt.tint(hud.plate, hud.alpha(card.accent, 0.10))
                          : card.hovering ? hud.alpha(hud.raised, 0.85) : hud.alpha(hud.plate, 0.75)
        border.width: hud.hairlineWidth
        border.color: card.bloom ? hud.alpha(card.accent, 0.55) : card.hovering || card.isOpen ? hud.hairlineHot : hud.hairline
        Behavior on color { enabled: panel.animated; ColorAnimation { duration: 260; easing.type: Easing.OutCubic } }
        Behavior on border.color { enabled: panel.animated; ColorAnimation { duration: 260; easing.type: Easing.OutCubic } }
    }
    AccentRule {
        x: 12
        y: 14
        height: card.height - 28
        colour: card.accent
        glow: card.bloom || card.isOpen
    }
    Column {
        id: column
        x: 27
        y: 13
        width: card.width - 27 - 14
        spacing: 7

        // Eyebrow
        Item {
            width: parent.width
            height: 18
            Row {
                anchors.verticalCenter: parent.verticalCenter
                spacing: 8
                KindLabel { kind: card.hero.kind || "whale"; size: 9.5 }
                Text {
                    text: hud.oneLine(card.hero.age || "")
                    textFormat: Text.PlainText
                    maximumLineCount: 1
                    font.family: hud.mono
                    font.pointSize: 9 * hud.pt
                    color: hud.ink4
                }
            }
            WinRing {
                objectName: "winRing"
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                visible: card.hero.hasWinRate === true
                ratio: card.hero.winRate || 0
                label: card.hero.winRateText || ""
            }
        }
        // Figure lines
        Item {
            id: figureLine
            width: parent.width
            height: 28
            readonly property string ticker: hud.oneLine(card.hero.ticker || "")
            readonly property real room: width - (amount.visible ? amount.width + 10 : 0)
            // The ticker shrinks to fit beside the amount, from its full size
            // down to the smallest legible one; past that it is shortened.
            // Computed here: a fitted font would stop at a point size.
            TextMetrics {
                id: fullTicker
                font.family: hud.mono
                font.pixelSize: hud.heroTickerPx
                font.weight: Font.Bold
                text: figureLine.ticker
            }
            readonly property int tickerPx: fullTicker.advanceWidth <= room ? hud.heroTickerPx
                : Math.max(hud.minLegiblePx, Math.floor(hud.heroTickerPx * room / fullTicker.advanceWidth))
            Text {
                objectName: "heroTicker"
                width: Math.max(0, figureLine.room)
                height: parent.height
                verticalAlignment: Text.AlignVCenter
                text: figureLine.ticker
                textFormat: Text.PlainText
                maximumLineCount: 1
                elide: Text.ElideRight
                font.family: hud.mono
                font.pixelSize: figureLine.tickerPx
                font.weight: Font.Bold
                color: hud.ink
            }
            RollingText {
                id: amount
                objectName: "heroAmount"
                visible: (card.hero.amount || "") !== ""
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                text: card.hero.amount || ""
                size: 17
                weight: Font.DemiBold
                colour: card.accent
            }
        }
        Text {
            objectName: "heroBody"
            width: parent.width
            elide: Text.ElideRight
            maximumLineCount: 1
            text: hud.oneLine(card.hero.body || "")
            textFormat: Text.PlainText
            font.family: hud.mono
            font.pointSize: 11.5 * hud.pt
            color: hud.ink2
        }
        Text {
            visible: text !== ""
            width: parent.width
            wrapMode: Text.Wrap
            text: card.hero.detail || ""
            textFormat: Text.PlainText
            font.family: hud.sans
            font.pointSize: 10.5 * hud.pt
            lineHeight: 1.15
            color: hud.ink3
        }
        Row {
            spacing: 6
            topPadding: 2
            HUDAction {
                objectName: "heroChart"
                visible: (card.hero.chartUrl || "") !== ""
                title: "CHART"
                systemName: "arrow.up.forward"
                accent: card.accent
                onClicked: panel.openLink(card.hero.chartUrl)
            }
            HUDAction {
                objectName: "heroEvidence"
                title: card.isOpen ? "HIDE" : "EVIDENCE"
                accent: hud.ink2
                onClicked: panel.toggle(card.signalId)
            }
        }
        Loader {
            objectName: "heroInspector"
            active: card.isOpen
            // Stays in the column while it folds away, so the card shrinks smoothly.
            visible: height > 0
            clip: true
            width: parent.width
            height: active && item ? item.implicitHeight : 0
            Behavior on height { enabled: panel.animated && !panel.reduceMotion; SpringAnimation { spring: hud.snapSpring; damping: hud.snapDamping; epsilon: 0.25 } }
            sourceComponent: Column {
                spacing: 12
                topPadding: 4
                Hairline { width: parent.width }
                InspectorView {
                    width: parent.width
                    signalId: card.signalId
                    hidesChart: true
                }
            }
        }
    }
    SignalMenuHook {
        anchors.fill: parent
        signalId: card.signalId
        selected: card.isOpen
    }
}
