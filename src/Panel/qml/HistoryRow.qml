import QtQuick
import Larkpin.Panel

// One kept signal: the stream row's summary with the time it happened; opens
// in place into the kept sentence and the same evidence view as the live
// stream, or says plainly why the evidence cannot be had.
Item {
    id: row
    required property PanelModel panel
    property string signalId: ""
    property int kind: SignalKind.Whale
    property string ticker: ""
    property string body: ""
    property string figure: ""
    property string detail: ""
    property string time: ""
    property string chartUrl: ""
    property bool watched: false
    readonly property bool isOpen: row.panel.openId === signalId
    readonly property bool hovering: hover.hovered
    readonly property color accent: Hud.kindColour(kind)
    // Re-read whenever the evidence changes.
    readonly property string note: row.panel.detailRevision >= 0 && isOpen ? row.panel.history.evidenceNote(signalId) : ""

    implicitHeight: stack.implicitHeight + 16
    Accessible.role: Accessible.ListItem
    Accessible.name: Array.from([Hud.kindWire(kind), ticker, body, figure, time]).filter((s) => s !== "").join(", ")
    Accessible.selectable: true
    Accessible.selected: isOpen
    Accessible.onPressAction: row.panel.toggle(signalId)
    opacity: isOpen || hovering ? 1.0 : 0.8

    HoverHandler { id: hover }
    Rectangle {
        anchors.fill: parent
        color: row.isOpen ? Hud.alpha(Hud.raised, 0.7) : row.hovering ? Hud.alpha(Hud.raised, 0.45) : "transparent"
    }
    Rectangle {
        anchors.fill: parent
        anchors.margins: 1
        radius: Hud.rowRadius
        color: "transparent"
        border.width: 1.5
        border.color: Hud.lark
        visible: row.ListView.isCurrentItem && row.ListView.view && row.ListView.view.activeFocus
    }
    MouseArea {
        objectName: "historyRowTarget"
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
        spacing: Hud.gap

        Item {
            id: summary
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
            TextMetrics {
                id: whole
                font.family: Hud.mono
                font.pointSize: 12 * Hud.pt
                font.weight: Font.DemiBold
                text: Hud.oneLine(row.ticker) + " " + Hud.oneLine(row.body)
                elide: Text.ElideMiddle
                elideWidth: headline.width
            }
            Item {
                id: headline
                x: kindLabel.x + 46
                width: summary.width - x - (figureText.visible ? figureText.implicitWidth + 8 : 0) - timeText.width - 6
                height: parent.height
                clip: true
                readonly property var runs: Hud.headlineRuns(whole.elidedText, Hud.oneLine(row.ticker))
                Row {
                    anchors.verticalCenter: parent.verticalCenter
                    ValueText {
                        anchors.baseline: bodyText.baseline
                        text: headline.runs[0]
                        maximumLineCount: 1
                        size: 12
                        font.weight: Font.DemiBold
                        color: Hud.ink
                    }
                    ValueText {
                        id: bodyText
                        text: headline.runs[1]
                        maximumLineCount: 1
                        size: 11.5
                        color: Hud.ink3
                    }
                }
            }
            ValueText {
                id: figureText
                visible: row.figure !== ""
                anchors.right: timeText.left
                anchors.rightMargin: 6
                anchors.verticalCenter: parent.verticalCenter
                text: Hud.oneLine(row.figure)
                maximumLineCount: 1
                font.weight: Font.DemiBold
                color: Hud.alpha(row.accent, 0.9)
            }
            CaptionText {
                id: timeText
                objectName: "historyTime"
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                width: 62
                horizontalAlignment: Text.AlignRight
                text: Hud.oneLine(row.time)
                maximumLineCount: 1
                elide: Text.ElideLeft
                size: 9.5
            }
        }
        Loader {
            objectName: "historyEvidence"
            active: row.isOpen
            visible: active
            x: 52
            width: parent.width - x
            sourceComponent: Column {
                spacing: Hud.gap
                ProseText {
                    visible: row.detail !== ""
                    width: parent.width
                    text: Hud.oneLine(row.detail)
                    wrapMode: Text.Wrap
                    size: 10.5
                }
                ProseText {
                    objectName: "evidenceNote"
                    visible: row.note !== ""
                    width: parent.width
                    text: row.note
                    wrapMode: Text.Wrap
                    size: 10.5
                    color: Hud.amber
                }
                HUDAction {
                    panel: row.panel
                    visible: row.note !== "" && row.chartUrl !== ""
                    title: "CHART"
                    systemName: "arrow.up.forward"
                    onClicked: row.panel.openLink(row.chartUrl)
                }
                InspectorView {
                    panel: row.panel
                    visible: row.note === ""
                    width: parent.width
                    signalId: row.signalId
                }
            }
        }
    }
    Rectangle {
        objectName: "historyWatchedMark"
        visible: row.watched
        x: 5
        y: stack.y + 9 - height / 2
        width: 5
        height: 5
        radius: 2.5
        color: Hud.lark
    }
}
