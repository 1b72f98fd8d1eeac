import QtQuick

Item {
    id: band
    readonly property bool hovering: hover.hovered
    implicitHeight: stack.implicitHeight + 22
    opacity: hovering ? 1.0 : 0.66
    Behavior on opacity { enabled: panel.animated; NumberAnimation { duration: hud.glideMs; easing.type: Easing.BezierSpline; easing.bezierCurve: hud.glideCurve } }

    // Edge to edge, but the band sits in the panel's rounded foot: its lower
    // corners follow the panel's (14 less the 1-pt edge), or they would show
    // as dark specks outside it.
    property real footRadius: 13
    Item {
        anchors.fill: parent
        clip: true
        Rectangle {
            objectName: "bandPlate"
            y: -band.footRadius
            width: parent.width
            height: parent.height + band.footRadius
            radius: band.footRadius
            color: hud.alpha(hud.plate, 0.5)
        }
    }
    HoverHandler { id: hover }
    HUDToolTip {
        owner: band
        active: band.hovering
        text: "Live readings from the tape. Nothing here is estimated."
    }

    Column {
        id: stack
        x: 14
        y: 11
        width: parent.width - 28
        spacing: 9

        // Rate row
        Row {
            width: parent.width
            spacing: 12
            Item {
                width: parent.width - 54 - 12
                height: 26
                anchors.bottom: parent.bottom
                Sparkline {
                    objectName: "volumeSparkline"
                    anchors.fill: parent
                    visible: panel.hasVolume
                    values: panel.buckets
                    colour: hud.lark
                }
                Hairline {
                    visible: !panel.hasVolume
                    anchors.bottom: parent.bottom
                    width: parent.width
                }
            }
            Readout {
                objectName: "flowReadout"
                width: 54
                anchors.bottom: parent.bottom
                label: "FLOW"
                value: panel.flowText
                rolling: true
            }
        }
        // Flow row
        Column {
            visible: panel.hasFlow
            width: parent.width
            spacing: 5
            FlowGauge {
                width: parent.width
                buyShare: panel.buyShare
            }
            Item {
                width: parent.width
                height: buy.implicitHeight
                Text {
                    id: buy
                    objectName: "buyText"
                    text: panel.buyText
                    textFormat: Text.PlainText
                    font.family: hud.sans
                    font.pointSize: 8.5 * hud.pt
                    font.weight: Font.Medium
                    color: hud.alpha(hud.emerald, 0.8)
                }
                Text {
                    objectName: "sellText"
                    anchors.right: parent.right
                    text: panel.sellText
                    textFormat: Text.PlainText
                    font.family: hud.sans
                    font.pointSize: 8.5 * hud.pt
                    font.weight: Font.Medium
                    color: hud.alpha(hud.alert, 0.7)
                }
            }
        }
        // Counters
        Row {
            objectName: "counterRow"
            Repeater {
                model: panel.counters
                Row {
                    Text {
                        visible: index > 0
                        leftPadding: 6
                        rightPadding: 6
                        text: "\u00B7"
                        textFormat: Text.PlainText
                        font.family: hud.sans
                        font.pointSize: 9 * hud.pt
                        color: hud.ink4
                    }
                    Text {
                        objectName: "counter"
                        text: modelData
                        textFormat: Text.PlainText
                        font.family: hud.sans
                        font.pointSize: 9 * hud.pt
                        color: hud.ink2
                    }
                }
            }
        }
    }
}
