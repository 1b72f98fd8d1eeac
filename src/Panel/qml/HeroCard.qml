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
        border.width: 1
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
                    text: card.hero.age || ""
                    textFormat: Text.PlainText
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
            width: parent.width
            height: 28
            Text {
                objectName: "heroTicker"
                width: parent.width - (amount.visible ? amount.width + 10 : 0)
                height: parent.height
                verticalAlignment: Text.AlignVCenter
                text: card.hero.ticker || ""
                textFormat: Text.PlainText
                font.family: hud.mono
                font.pointSize: 22 * hud.pt
                font.weight: Font.Bold
                fontSizeMode: Text.HorizontalFit
                minimumPixelSize: 11
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
            width: parent.width
            elide: Text.ElideRight
            text: card.hero.body || ""
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
}
