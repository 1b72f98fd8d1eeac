/* Larkpin's ticker as a Plasma 5 applet. The app publishes what its ticker
 * shows on the session bus; TickerSource (a small Qt 5 plugin installed
 * beside this applet) carries it here as properties, and this only draws it.
 * Left click: the app's panel, opening next to the applet (above a bottom
 * panel, below a top one). Right click: the app's menu. */
import QtQuick 2.15
import QtQuick.Layouts 1.15
import org.kde.plasma.plasmoid 2.0
import org.kde.plasma.core 2.0 as PlasmaCore
import org.larkpin.ticker 1.0

Item {
    id: root

    Plasmoid.preferredRepresentation: Plasmoid.fullRepresentation
    Plasmoid.backgroundHints: PlasmaCore.Types.NoBackground
    Plasmoid.toolTipMainText: "Larkpin"
    Plasmoid.toolTipSubText: source.status

    readonly property bool motion: PlasmaCore.Units.longDuration > 1
    readonly property color barColour: PlasmaCore.Theme.backgroundColor
    readonly property bool darkBar: (0.2126 * barColour.r + 0.7152 * barColour.g + 0.0722 * barColour.b) < 0.5
    readonly property var arrows: ({ buy: " \u25B2", sell: " \u25BC" })
    // The badge's writing: the app's ink on the bright accents of a dark bar,
    // white on the deeper ones of a light bar.
    readonly property color badgeInk: darkBar ? (source.accents["ink"] || "#06070a") : "#ffffff"

    function accent(kind) {
        const a = source.accents
        const fallback = { whale: "#ccff00", spike: "#ffb020", stocks: "#00ff9c" }
        return a[darkBar ? kind : kind + "-light"] || fallback[kind] || PlasmaCore.Theme.textColor
    }
    // A figure on its way to its final value, printed like the app printed it.
    function shapedLike(value, last) {
        const m = /^([^0-9]*)([0-9][0-9,]*)(\.([0-9]+))?([KMB]?)(.*)$/.exec(last)
        if (!m)
            return last
        const scale = ({ K: 1e3, M: 1e6, B: 1e9 })[m[5]] || 1
        let digits = (value / scale).toFixed(m[4] ? m[4].length : 0)
        if (m[2].indexOf(",") >= 0)
            digits = digits.replace(/\B(?=(\d{3})+(?!\d))/g, ",")
        return m[1] + digits + m[5] + m[6]
    }

    readonly property alias source: tickerSource
    TickerSource { id: tickerSource }

    Plasmoid.fullRepresentation: Item {
        id: ticker
        readonly property bool vertical: Plasmoid.formFactor === PlasmaCore.Types.Vertical
        Layout.minimumWidth: vertical ? -1 : 196
        Layout.preferredWidth: vertical ? -1 : 196
        Layout.maximumWidth: vertical ? -1 : 196
        Layout.minimumHeight: vertical ? 24 : -1
        Layout.fillHeight: !vertical
        visible: source.available

        MouseArea {
            anchors.fill: parent
            acceptedButtons: Qt.LeftButton | Qt.RightButton
            onClicked: {
                const p = ticker.mapToGlobal(0, 0)
                if (mouse.button === Qt.RightButton) {
                    const at = ticker.mapToGlobal(mouse.x, mouse.y)
                    source.showMenu(Math.round(at.x), Math.round(at.y))
                } else {
                    source.togglePanel(Math.round(p.x), Math.round(p.y), Math.round(ticker.width),
                                       Math.round(ticker.height))
                }
            }
        }

        // The brand mark: three bars, the 13 x 12 design.
        Column {
            id: mark
            anchors.left: parent.left
            anchors.leftMargin: 4
            anchors.verticalCenter: parent.verticalCenter
            spacing: 2
            Repeater {
                model: 3
                Rectangle { width: 13; height: 2; radius: 1; color: PlasmaCore.Theme.textColor }
            }
        }
        Rectangle {
            id: dot
            width: 5; height: 5; radius: 2.5
            anchors.left: mark.right
            anchors.leftMargin: 5
            anchors.verticalCenter: parent.verticalCenter
            color: source.accents[source.link === "live" ? "link-live"
                                  : source.link === "down" ? "link-down" : "link-waiting"] || "#ffb020"
        }

        Item {
            id: lane
            anchors.left: dot.right
            anchors.leftMargin: 5
            anchors.right: parent.right
            anchors.rightMargin: 4
            anchors.top: parent.top
            anchors.bottom: parent.bottom
            clip: true

            property var shown: ({})
            property var leaving: ({})
            readonly property string rowKey: JSON.stringify(source.row) + source.link

            onRowKeyChanged: {
                leaving = shown
                shown = source.row
                if (!root.motion || !leaving.kind) {
                    flip.stop()
                    incoming.y = 0
                    outgoing.visible = false
                    return
                }
                outgoing.visible = true
                flip.restart()
            }
            Component.onCompleted: shown = source.row

            ParallelAnimation {
                id: flip
                NumberAnimation { target: incoming; property: "y"; from: lane.height; to: 0; duration: 280; easing.type: Easing.OutCubic }
                NumberAnimation { target: outgoing; property: "y"; from: 0; to: -lane.height; duration: 280; easing.type: Easing.OutCubic }
                NumberAnimation { target: outgoing; property: "opacity"; from: 1; to: 0; duration: 280 }
                onFinished: outgoing.visible = false
            }

            Item {
                id: rows
                anchors.fill: parent
                opacity: taking.active ? 0.3 : 1
                Behavior on opacity { NumberAnimation { duration: root.motion ? 260 : 0 } }
                RowView { id: incoming; row: lane.shown; width: parent.width; height: parent.height; ticker: root }
                RowView { id: outgoing; row: lane.leaving; width: parent.width; height: parent.height; ticker: root; visible: false }
            }

            // The takeover: one trade owns the item while the app holds it.
            Item {
                id: taking
                anchors.fill: parent
                readonly property var t: source.takeover
                readonly property bool active: t.kind !== undefined
                property real counted: 0
                visible: active
                onTChanged: {
                    count.stop()
                    hold.stop()
                    if (!active)
                        return
                    if (root.motion && typeof t.usd === "number") {
                        count.to = t.usd
                        count.restart()
                        enter.restart()
                    } else {
                        counted = typeof t.usd === "number" ? t.usd : 0
                        focal.scale = 1
                    }
                    const left = Math.max(0, source.takeoverRemainingMs)
                    holdBar.width = (lane.width - 4) * Math.min(1, left / (t.holdMs || 7000))
                    hold.duration = left
                    hold.restart()
                }
                NumberAnimation { id: count; target: taking; property: "counted"; from: 0; duration: 550; easing.type: Easing.OutCubic }
                NumberAnimation { id: enter; target: focal; property: "scale"; from: 0.93; to: 1; duration: 320; easing.type: Easing.OutBack }
                NumberAnimation { id: hold; target: holdBar; property: "width"; to: 0; easing.type: Easing.Linear }

                Rectangle {
                    id: focal
                    anchors.verticalCenter: parent.verticalCenter
                    width: focalRow.implicitWidth + 10
                    height: focalRow.implicitHeight + 4
                    radius: 5
                    color: Qt.rgba(0, 0, 0, 0)
                    border.width: 1
                    border.color: root.accent(taking.t.kind || "whale")
                    Rectangle {
                        anchors.fill: parent
                        radius: 5
                        color: root.accent(taking.t.kind || "whale")
                        opacity: 0.15
                    }
                    Row {
                        id: focalRow
                        anchors.centerIn: parent
                        spacing: 5
                        Rectangle {
                            width: focalBadge.implicitWidth + 10
                            height: focalBadge.implicitHeight + 2
                            radius: 4
                            color: root.accent(taking.t.kind || "whale")
                            Text {
                                id: focalBadge
                                anchors.centerIn: parent
                                text: (taking.t.symbol || "")
                                      + (root.arrows[taking.t.direction] || "")
                                font.pixelSize: 12
                                textFormat: Text.PlainText
                                font.bold: true
                                color: root.badgeInk
                            }
                        }
                        Text {
                            anchors.verticalCenter: parent.verticalCenter
                            text: taking.t.amount ? root.shapedLike(taking.counted, taking.t.amount) : ""
                            font.pixelSize: 13
                            textFormat: Text.PlainText
                            font.bold: true
                            color: root.accent(taking.t.kind || "whale")
                        }
                    }
                }
                Rectangle {
                    id: holdBar
                    anchors.bottom: parent.bottom
                    anchors.bottomMargin: 2
                    height: 2
                    radius: 1
                    color: root.accent(taking.t.kind || "whale")
                }
            }
        }
    }
}
