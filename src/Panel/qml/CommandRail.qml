import QtQuick
import Larkpin.Panel

Item {
    id: rail
    required property PanelModel panel
    signal settingsRequested()
    signal historyRequested()
    implicitHeight: Hud.railHeight

    Row {
        anchors.left: parent.left
        anchors.leftMargin: Hud.edge
        anchors.verticalCenter: parent.verticalCenter
        spacing: Hud.gap
        BrandMark { anchors.verticalCenter: parent.verticalCenter }
        LabelText {
            anchors.verticalCenter: parent.verticalCenter
            text: "LARKPIN"
            size: 11
            tracking: 1.8
            color: Hud.ink
        }
    }
    Row {
        anchors.right: parent.right
        anchors.rightMargin: Hud.inset
        anchors.verticalCenter: parent.verticalCenter
        spacing: Hud.gapLabel
        LinkPill {
            panel: rail.panel
            anchors.verticalCenter: parent.verticalCenter
            label: rail.panel.linkText
            colour: rail.panel.linkColour
            alive: rail.panel.linkAlive
        }
        Item { width: 2; height: 1 }
        HUDIconButton {
            panel: rail.panel
            objectName: "pauseButton"
            systemName: rail.panel.pauseSymbol
            help: rail.panel.pauseHelp
            active: rail.panel.paused
            onClicked: rail.panel.togglePause()
        }
        HUDIconButton {
            panel: rail.panel
            objectName: "refreshButton"
            systemName: "arrow.clockwise"
            help: "Refresh"
            onClicked: rail.panel.refresh()
        }
        HUDIconButton {
            panel: rail.panel
            objectName: "historyButton"
            systemName: "clock.arrow.circlepath"
            help: "History"
            onClicked: rail.historyRequested()
        }
        HUDIconButton {
            panel: rail.panel
            objectName: "settingsButton"
            systemName: "slider.horizontal.3"
            help: "Settings"
            onClicked: rail.settingsRequested()
        }
    }
}
