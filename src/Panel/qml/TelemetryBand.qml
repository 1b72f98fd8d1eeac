import QtQuick
import Larkpin.Panel

Item {
    id: band
    required property PanelModel panel
    readonly property bool hovering: hover.hovered
    implicitHeight: stack.implicitHeight + 22
    opacity: hovering || activeFocus ? 1.0 : 0.66
    // The last stop of Tab: its readings are read as its description.
    activeFocusOnTab: visible
    Accessible.role: Accessible.Grouping
    Accessible.name: "Telemetry"
    Accessible.focusable: true
    Glide on opacity { enabled: band.panel.animated }

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
            color: Hud.alpha(Hud.plate, 0.5)
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
        spacing: Hud.gapRow

        // Rate row
        Row {
            width: parent.width
            spacing: Hud.gapGroup
            Item {
                width: parent.width - 54 - 12
                height: 26
                anchors.bottom: parent.bottom
                Sparkline {
                    objectName: "volumeSparkline"
                    anchors.fill: parent
                    visible: band.panel.telemetry.hasVolume
                    values: band.panel.telemetry.buckets
                    colour: Hud.lark
                }
                Hairline {
                    visible: !band.panel.telemetry.hasVolume
                    anchors.bottom: parent.bottom
                    width: parent.width
                }
            }
            Readout {
                panel: band.panel
                objectName: "flowReadout"
                width: 54
                anchors.bottom: parent.bottom
                label: "FLOW"
                value: band.panel.telemetry.flowText
                rolling: true
            }
        }
        // Flow row
        Column {
            visible: band.panel.telemetry.hasFlow
            width: parent.width
            spacing: Hud.gapSmall
            FlowGauge {
                width: parent.width
                buyShare: band.panel.telemetry.buyShare
            }
            Item {
                width: parent.width
                height: buy.implicitHeight
                ProseText {
                    id: buy
                    objectName: "buyText"
                    text: band.panel.telemetry.buyText
                    size: 8.5
                    font.weight: Font.Medium
                    color: Hud.alpha(Hud.emerald, 0.8)
                }
                ProseText {
                    objectName: "sellText"
                    anchors.right: parent.right
                    text: band.panel.telemetry.sellText
                    size: 8.5
                    font.weight: Font.Medium
                    color: Hud.alpha(Hud.alert, 0.7)
                }
            }
        }
        // Counters
        Row {
            objectName: "counterRow"
            Repeater {
                model: band.panel.telemetry.counters
                Row {
                    id: counter
                    required property int index
                    required property var modelData
                    ProseText {
                        visible: counter.index > 0
                        leftPadding: 6
                        rightPadding: 6
                        text: "\u00B7"
                        size: 9
                        color: Hud.ink4
                    }
                    ProseText {
                        objectName: "counter"
                        text: counter.modelData
                        size: 9
                        color: Hud.ink2
                    }
                }
            }
        }
    }
    FocusRing { ringRadius: 2; anchors.margins: 2 }
}
