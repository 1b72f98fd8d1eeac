import QtQuick

Item {
    id: rail
    signal settingsRequested()
    implicitHeight: 46

    Row {
        anchors.left: parent.left
        anchors.leftMargin: 14
        anchors.verticalCenter: parent.verticalCenter
        spacing: 8
        BrandMark { anchors.verticalCenter: parent.verticalCenter }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: "LARKPIN"
            textFormat: Text.PlainText
            font.family: hud.mono
            font.pointSize: 11 * hud.pt
            font.bold: true
            font.letterSpacing: 1.8
            color: hud.ink
        }
    }
    Row {
        anchors.right: parent.right
        anchors.rightMargin: 12
        anchors.verticalCenter: parent.verticalCenter
        spacing: 6
        LinkPill {
            anchors.verticalCenter: parent.verticalCenter
            label: panel.linkText
            colour: panel.linkColour
            alive: panel.linkAlive
        }
        Item { width: 2; height: 1 }
        HUDIconButton {
            objectName: "pauseButton"
            systemName: panel.pauseSymbol
            help: panel.pauseHelp
            active: panel.paused
            onClicked: panel.togglePause()
        }
        HUDIconButton {
            objectName: "refreshButton"
            systemName: "arrow.clockwise"
            help: "Refresh"
            onClicked: panel.refresh()
        }
        HUDIconButton {
            objectName: "settingsButton"
            systemName: "slider.horizontal.3"
            help: "Settings"
            onClicked: rail.settingsRequested()
        }
    }
}
