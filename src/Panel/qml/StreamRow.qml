import QtQuick
import Larkpin.Panel

// One line of the stream; expands in place into the inspector.
Item {
    id: row
    required property PanelModel panel
    property string signalId: ""
    property int kind: SignalKind.Whale
    property string ticker: ""
    property string body: ""
    property string figure: ""
    property string meta: ""
    property bool watched: false
    readonly property bool isOpen: row.panel.openId === signalId
    readonly property bool hovering: hover.hovered
    readonly property color accent: Hud.kindColour(kind)
    // The summary is one line whatever the wire sends.
    readonly property string tickerLine: Hud.oneLine(ticker)
    readonly property string bodyLine: Hud.oneLine(body)

    implicitHeight: stack.implicitHeight + 16
    Accessible.role: Accessible.ListItem
    Accessible.name: Array.from([Hud.kindName(kind), ticker, body, figure, meta]).filter((s) => s !== "").join(", ")
    Accessible.selectable: true
    Accessible.selected: isOpen
    Accessible.onPressAction: row.panel.toggle(signalId)
    readonly property bool keyboardCurrent: ListView.isCurrentItem && ListView.view && ListView.view.activeFocus
    // The current row holds the keyboard focus inside the list, so a screen
    // reader follows the arrows row by row.
    focus: ListView.isCurrentItem
    Accessible.focusable: true
    opacity: isOpen || hovering ? 1.0 : 0.72
    Glide on opacity { enabled: row.panel.animated }

    HoverHandler { id: hover }
    Rectangle {
        anchors.fill: parent
        color: row.isOpen ? Hud.alpha(Hud.raised, 0.7) : row.hovering ? Hud.alpha(Hud.raised, 0.45) : "transparent"
        Glide on color { enabled: row.panel.animated }
    }
    Rectangle {
        objectName: "focusRing"
        anchors.fill: parent
        anchors.margins: 1
        radius: Hud.rowRadius
        color: "transparent"
        border.width: 1.5
        border.color: Hud.lark
        visible: row.keyboardCurrent
    }

    // The whole summary band takes the click, padding included: everything
    // that lights up on hover answers. An open row's evidence below keeps
    // its own controls.
    MouseArea {
        objectName: "rowTarget"
        width: row.width
        height: row.isOpen ? stack.y + summary.height + stack.spacing / 2 : row.height
        cursorShape: Qt.PointingHandCursor
        onClicked: row.panel.toggle(row.signalId)
    }

    Column {
        id: stack
        x: 14
        y: 8
        width: row.width - 28
        spacing: Hud.gapRow

        Item {
            id: summary
            objectName: "summary"
            width: parent.width
            height: 18

            AccentRule {
                id: rule
                anchors.verticalCenter: parent.verticalCenter
                height: 15
                colour: row.accent
            }
            KindLabel {
                id: kindLabel
                x: rule.width + 7
                width: 40
                anchors.verticalCenter: parent.verticalCenter
                kind: row.kind
                size: 8.5
            }
            // Middle truncation across the two runs: the ticker's start and
            // the body's end stay visible.
            TextMetrics {
                id: whole
                font.family: Hud.mono
                font.pointSize: 12 * Hud.pt
                font.weight: Font.DemiBold
                text: row.tickerLine + " " + row.bodyLine
                elide: Text.ElideMiddle
                elideWidth: headline.width
            }
            Item {
                id: headline
                x: kindLabel.x + 40 + 6
                width: summary.width - x - (figureText.visible ? figureText.implicitWidth + 8 : 0) - 42 - 6
                height: parent.height
                clip: true
                readonly property var runs: Hud.headlineRuns(whole.elidedText, row.tickerLine)
                Row {
                    anchors.verticalCenter: parent.verticalCenter
                    ValueText {
                        objectName: "tickerText"
                        anchors.baseline: bodyText.baseline
                        text: headline.runs[0]
                        maximumLineCount: 1
                        size: 12
                        font.weight: Font.DemiBold
                        color: Hud.ink
                    }
                    ValueText {
                        id: bodyText
                        objectName: "bodyText"
                        text: headline.runs[1]
                        maximumLineCount: 1
                        size: 11.5
                        color: Hud.ink3
                    }
                }
            }
            ValueText {
                id: figureText
                objectName: "figureText"
                visible: row.figure !== ""
                anchors.right: metaText.left
                anchors.rightMargin: 6
                anchors.verticalCenter: parent.verticalCenter
                text: Hud.oneLine(row.figure)
                maximumLineCount: 1
                font.weight: Font.DemiBold
                color: Hud.alpha(row.accent, 0.9)
            }
            CaptionText {
                id: metaText
                objectName: "metaText"
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                width: 42
                horizontalAlignment: Text.AlignRight
                text: Hud.oneLine(row.meta)
                maximumLineCount: 1
                elide: Text.ElideRight
                size: 9.5
            }
        }
        Loader {
            objectName: "rowInspector"
            active: row.isOpen
            // Stays in the column while it folds away, so the row shrinks smoothly.
            visible: height > 0
            clip: true
            x: 52
            width: parent.width - x
            height: active && item ? (item as Item).implicitHeight + 14 : 0
            Behavior on height { enabled: row.panel.animated && !row.panel.reduceMotion; SpringAnimation { spring: Hud.snapSpring; damping: Hud.snapDamping; epsilon: 0.25 } }
            sourceComponent: Item {
                implicitHeight: inspectorView.implicitHeight
                InspectorView {
                    panel: row.panel
                    id: inspectorView
                    y: 10
                    width: parent.width
                    signalId: row.signalId
                }
            }
        }
    }
    // Trades by a watched wallet carry a small mark left of the rule.
    Rectangle {
        objectName: "watchedMark"
        visible: row.watched
        x: 5
        y: stack.y + 9 - height / 2
        width: 5
        height: 5
        radius: 2.5
        color: Hud.lark
    }
    SignalMenuHook {
        panel: row.panel
        anchors.fill: parent
        signalId: row.signalId
        selected: row.isOpen
    }
}
