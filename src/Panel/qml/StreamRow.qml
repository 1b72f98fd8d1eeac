import QtQuick

// One line of the stream; expands in place into the inspector.
Item {
    id: row
    property string signalId: ""
    property string kind: "whale"
    property string ticker: ""
    property string body: ""
    property string figure: ""
    property string meta: ""
    property bool watched: false
    readonly property bool isOpen: panel.openId === signalId
    readonly property bool hovering: hover.hovered
    readonly property color accent: hud.kindColour(kind)
    // The summary is one line whatever the wire sends.
    readonly property string tickerLine: hud.oneLine(ticker)
    readonly property string bodyLine: hud.oneLine(body)

    implicitHeight: stack.implicitHeight + 16
    Accessible.role: Accessible.ListItem
    Accessible.name: [kindName(kind), ticker, body, figure, meta].filter((s) => s !== "").join(", ")
    Accessible.selectable: true
    Accessible.selected: isOpen
    Accessible.onPressAction: panel.toggle(signalId)
    readonly property bool keyboardCurrent: ListView.isCurrentItem && ListView.view && ListView.view.activeFocus
    function kindName(k) { return k === "whale" ? "Whale" : k === "spike" ? "Spike" : k === "stocks" ? "Stock" : k }
    opacity: isOpen || hovering ? 1.0 : 0.72
    Behavior on opacity { enabled: panel.animated; NumberAnimation { duration: hud.glideMs; easing.type: Easing.BezierSpline; easing.bezierCurve: hud.glideCurve } }

    HoverHandler { id: hover }
    Rectangle {
        anchors.fill: parent
        color: row.isOpen ? hud.alpha(hud.raised, 0.7) : row.hovering ? hud.alpha(hud.raised, 0.45) : "transparent"
        Behavior on color { enabled: panel.animated; ColorAnimation { duration: hud.glideMs; easing.type: Easing.BezierSpline; easing.bezierCurve: hud.glideCurve } }
    }
    Rectangle {
        objectName: "focusRing"
        anchors.fill: parent
        anchors.margins: 1
        radius: 4
        color: "transparent"
        border.width: 1.5
        border.color: hud.lark
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
        onClicked: panel.toggle(row.signalId)
    }

    Column {
        id: stack
        x: 14
        y: 8
        width: row.width - 28
        spacing: 9

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
                font.family: hud.mono
                font.pointSize: 12 * hud.pt
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
                readonly property string shown: whole.elidedText
                readonly property int split: Math.min(row.tickerLine.length, shown.length)
                readonly property bool cutInTicker: shown.indexOf("\u2026") >= 0 && shown.indexOf("\u2026") < row.tickerLine.length
                readonly property string tickerPart: cutInTicker ? shown.substring(0, shown.indexOf("\u2026") + 1) : shown.substring(0, split)
                readonly property string bodyPart: shown.substring(tickerPart.length)
                Row {
                    anchors.verticalCenter: parent.verticalCenter
                    Text {
                        objectName: "tickerText"
                        anchors.baseline: bodyText.baseline
                        text: headline.tickerPart
                        textFormat: Text.PlainText
                        maximumLineCount: 1
                        font.family: hud.mono
                        font.pointSize: 12 * hud.pt
                        font.weight: Font.DemiBold
                        color: hud.ink
                    }
                    Text {
                        id: bodyText
                        objectName: "bodyText"
                        text: headline.bodyPart
                        textFormat: Text.PlainText
                        maximumLineCount: 1
                        font.family: hud.mono
                        font.pointSize: 11.5 * hud.pt
                        color: hud.ink3
                    }
                }
            }
            Text {
                id: figureText
                objectName: "figureText"
                visible: row.figure !== ""
                anchors.right: metaText.left
                anchors.rightMargin: 6
                anchors.verticalCenter: parent.verticalCenter
                text: hud.oneLine(row.figure)
                textFormat: Text.PlainText
                maximumLineCount: 1
                font.family: hud.mono
                font.pointSize: 11 * hud.pt
                font.weight: Font.DemiBold
                color: hud.alpha(row.accent, 0.9)
            }
            Text {
                id: metaText
                objectName: "metaText"
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                width: 42
                horizontalAlignment: Text.AlignRight
                text: hud.oneLine(row.meta)
                textFormat: Text.PlainText
                maximumLineCount: 1
                elide: Text.ElideRight
                font.family: hud.mono
                font.pointSize: 9.5 * hud.pt
                color: hud.ink4
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
            height: active && item ? item.implicitHeight + 14 : 0
            Behavior on height { enabled: panel.animated && !panel.reduceMotion; SpringAnimation { spring: hud.snapSpring; damping: hud.snapDamping; epsilon: 0.25 } }
            sourceComponent: Item {
                implicitHeight: inspectorView.implicitHeight
                InspectorView {
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
        color: hud.lark
    }
    SignalMenuHook {
        anchors.fill: parent
        signalId: row.signalId
        selected: row.isOpen
    }
}
