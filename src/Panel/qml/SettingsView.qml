import QtQuick
import Larkpin.Panel

// The settings page. Every edit goes straight to the store through the model,
// which saves only when the value really changes.
Item {
    id: settings
    required property PanelModel panel
    signal back()
    // The keyboard starts on the page's first control.
    function focusFirst() { backButton.forceActiveFocus() }

    Rectangle {
        anchors.fill: parent
        radius: 14
        gradient: Gradient {
            GradientStop { position: 0; color: Hud.plate }
            GradientStop { position: 1; color: Hud.abyss }
        }
    }
    MouseArea { anchors.fill: parent; hoverEnabled: true } // nothing reaches the HUD beneath

    Item {
        id: header
        width: parent.width
        height: 46
        Row {
            anchors.left: parent.left
            anchors.leftMargin: 12
            anchors.verticalCenter: parent.verticalCenter
            spacing: 10
            HUDIconButton {
                id: backButton
                panel: settings.panel
                objectName: "backButton"
                systemName: "chevron.left"
                help: "Back"
                onClicked: settings.back()
            }
            LabelText {
                anchors.verticalCenter: parent.verticalCenter
                text: "SETTINGS"
                size: 11
                tracking: 1.75
                color: Hud.ink
            }
        }
    }
    Hairline { anchors.top: header.bottom; width: parent.width }

    Flickable {
        id: flick
        objectName: "settingsFlick"
        anchors.top: header.bottom
        anchors.bottom: parent.bottom
        width: parent.width
        contentHeight: page.implicitHeight
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        // A field reached with Tab scrolls into view.
        function reveal(item) {
            if (!item || !page.contains(page.mapFromItem(item, 0, 0)))
                return
            const top = item.mapToItem(page, 0, 0).y - 8
            const bottom = top + item.height + 16
            if (top < flick.contentY)
                flick.contentY = Math.max(0, top)
            else if (bottom > flick.contentY + flick.height)
                flick.contentY = Math.min(Math.max(0, flick.contentHeight - flick.height), bottom - flick.height)
        }
        Connections {
            target: settings.Window.window
            function onActiveFocusItemChanged() {
                if (settings.visible)
                    flick.reveal(settings.Window.activeFocusItem)
            }
        }

        Column {
            id: page
            width: flick.width
            Column {
                x: 16
                width: parent.width - 32
                topPadding: 14
                bottomPadding: 6
                spacing: 18

                SettingsSection {
                    title: "STREAMS"
                    width: parent.width
                    Repeater {
                        model: panel.settings.streamSwitches.length
                        Column {
                            readonly property var modelData: panel.settings.streamSwitches[index]
                            width: parent.width
                            SwitchRow {
                                panel: settings.panel
                                objectName: "stream-" + modelData.kind
                                width: parent.width
                                title: modelData.title
                                titleColour: Hud.kindColour(modelData.kind)
                                subtitle: modelData.subtitle
                                on: modelData.on
                                onToggled: (value) => panel.settings.setStreamEnabled(modelData.kind, value)
                            }
                            Hairline { visible: index < 2; width: parent.width }
                        }
                    }
                }
                SettingsSection {
                    title: "MINIMUM SIZE"
                    note: "Skip trades under this size."
                    width: parent.width
                    ChipRow {
                        panel: settings.panel
                        objectName: "minimumChips"
                        groupName: "Minimum size"
                        topPadding: 2
                        values: panel.settings.minimumChips
                        onChosen: (value) => panel.settings.setMinimumSize(value)
                    }
                }
                SettingsSection {
                    title: "FOCUS ALERT"
                    note: "Above this size, the strip under the top bar drops everything else and shows just that trade."
                    width: parent.width
                    ChipRow {
                        panel: settings.panel
                        objectName: "focusChips"
                        groupName: "Focus alert"
                        topPadding: 2
                        values: panel.settings.focusChips
                        onChosen: (value) => panel.settings.setFocusSize(value)
                    }
                }
                SettingsSection {
                    title: "PREFERENCES"
                    width: parent.width
                    SwitchRow {
                        panel: settings.panel
                        objectName: "launchAtLogin"
                        width: parent.width
                        title: "Launch at login"
                        on: panel.settings.launchAtLogin
                        onToggled: (value) => panel.settings.setLaunchAtLogin(value)
                    }
                    Hairline { width: parent.width }
                    SwitchRow {
                        panel: settings.panel
                        objectName: "pauseSwitch"
                        width: parent.width
                        title: "Pause ticker"
                        subtitle: "The panel keeps updating."
                        on: panel.settings.paused
                        onToggled: (value) => panel.settings.setPaused(value)
                    }
                    Hairline { width: parent.width }
                    SwitchRow {
                        panel: settings.panel
                        objectName: "notifySwitch"
                        width: parent.width
                        title: "Notify on focus alerts"
                        subtitle: "A desktop notification when a trade takes the ticker over."
                        on: panel.settings.notifyTakeovers
                        onToggled: (value) => panel.settings.setNotifyTakeovers(value)
                    }
                    Hairline { width: parent.width }
                    SwitchRow {
                        panel: settings.panel
                        objectName: "trayOnlySwitch"
                        width: parent.width
                        title: "Tray icon only"
                        subtitle: "No ticker strip at the top of the screen."
                        on: panel.settings.trayOnly
                        onToggled: (value) => panel.settings.setTrayOnly(value)
                    }
                }
                SettingsSection {
                    id: listedSection
                    objectName: "mutedAndWatched"
                    readonly property var entries: panel.settings.mutedList.concat(panel.settings.watchedList)
                    title: "MUTED AND WATCHED"
                    note: entries.length === 0
                          ? "Right-click a trade to mute its token or wallet, or to watch a wallet."
                          : "Muted never reach the ticker; watched always do."
                    width: parent.width
                    Repeater {
                        model: listedSection.entries
                        Column {
                            width: parent.width
                            ListedRow {
                                panel: settings.panel
                                objectName: "listed-" + modelData.kind + "-" + modelData.name
                                width: parent.width
                                label: modelData.label
                                kind: modelData.kind
                                onRemoved: panel.settings.setListed(modelData.kind, modelData.name, false)
                            }
                            Hairline { visible: index < listedSection.entries.length - 1; width: parent.width }
                        }
                    }
                }
            }
            Hairline { width: parent.width }
            Item {
                width: parent.width
                height: footer.implicitHeight + 26
                Row {
                    id: footer
                    x: 16
                    y: 12
                    width: parent.width - 32
                    spacing: 7
                    CaptionText {
                        id: version
                        objectName: "versionText"
                        anchors.verticalCenter: parent.verticalCenter
                        text: panel.settings.versionText
                    }
                    Item {
                        width: Math.max(0, footer.width - version.width - site.width - quit.width - 3 * footer.spacing)
                        height: 1
                    }
                    Item {
                        id: site
                        objectName: "siteLink"
                        activeFocusOnTab: true
                        Accessible.role: Accessible.Link
                        Accessible.name: panel.siteText
                        Accessible.focusable: true
                        Accessible.onPressAction: panel.openSite()
                        Keys.onReturnPressed: panel.openSite()
                        Keys.onEnterPressed: panel.openSite()
                        Keys.onSpacePressed: panel.openSite()
                        FocusRing { ringRadius: 4 }
                        anchors.verticalCenter: parent.verticalCenter
                        width: siteRow.implicitWidth
                        height: siteRow.implicitHeight + 8
                        Row {
                            id: siteRow
                            anchors.verticalCenter: parent.verticalCenter
                            spacing: 4
                            LabelText {
                                text: panel.siteText
                                color: Hud.lark
                            }
                            Glyph {
                                anchors.verticalCenter: parent.verticalCenter
                                name: "arrow.up.forward"
                                size: 8
                                colour: Hud.lark
                            }
                        }
                        MouseArea {
                            anchors.fill: parent
                            cursorShape: Qt.PointingHandCursor
                            onClicked: panel.openSite()
                        }
                    }
                    HUDAction {
                        panel: settings.panel
                        id: quit
                        objectName: "quitAction"
                        anchors.verticalCenter: parent.verticalCenter
                        title: "QUIT"
                        accent: Hud.ink2
                        onClicked: panel.quit()
                    }
                }
            }
        }
    }
}
