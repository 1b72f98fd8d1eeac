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
        radius: Hud.panelRadius
        gradient: Gradient {
            GradientStop { position: 0; color: Hud.plate }
            GradientStop { position: 1; color: Hud.abyss }
        }
    }
    MouseArea { anchors.fill: parent; hoverEnabled: true } // nothing reaches the HUD beneath

    Item {
        id: header
        width: parent.width
        height: Hud.railHeight
        Row {
            anchors.left: parent.left
            anchors.leftMargin: Hud.inset
            anchors.verticalCenter: parent.verticalCenter
            spacing: Hud.gapSection
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
                        model: settings.panel.settings.streamSwitches.length
                        Column {
                            readonly property var modelData: settings.panel.settings.streamSwitches[index]
                            width: parent.width
                            SwitchRow {
                                panel: settings.panel
                                objectName: "stream-" + modelData.kind
                                width: parent.width
                                title: modelData.title
                                titleColour: Hud.kindColour(Hud.kindOf(modelData.kind))
                                subtitle: modelData.subtitle
                                on: modelData.on
                                onToggled: (value) => settings.panel.settings.setStreamEnabled(modelData.kind, value)
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
                        values: settings.panel.settings.minimumChips
                        onChosen: (value) => settings.panel.settings.setMinimumSize(value)
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
                        values: settings.panel.settings.focusChips
                        onChosen: (value) => settings.panel.settings.setFocusSize(value)
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
                        on: settings.panel.settings.launchAtLogin
                        onToggled: (value) => settings.panel.settings.setLaunchAtLogin(value)
                    }
                    Hairline { width: parent.width }
                    SwitchRow {
                        panel: settings.panel
                        objectName: "pauseSwitch"
                        width: parent.width
                        title: "Pause ticker"
                        subtitle: "The panel keeps updating."
                        on: settings.panel.settings.paused
                        onToggled: (value) => settings.panel.settings.setPaused(value)
                    }
                    Hairline { width: parent.width }
                    SwitchRow {
                        panel: settings.panel
                        objectName: "notifySwitch"
                        width: parent.width
                        title: "Notify on focus alerts"
                        subtitle: "A desktop notification when a trade takes the ticker over."
                        on: settings.panel.settings.notifyTakeovers
                        onToggled: (value) => settings.panel.settings.setNotifyTakeovers(value)
                    }
                    Hairline { width: parent.width }
                    SwitchRow {
                        panel: settings.panel
                        objectName: "trayOnlySwitch"
                        width: parent.width
                        title: "Tray icon only"
                        subtitle: "No ticker strip at the top of the screen."
                        on: settings.panel.settings.trayOnly
                        onToggled: (value) => settings.panel.settings.setTrayOnly(value)
                    }
                }
                SettingsSection {
                    id: listedSection
                    objectName: "mutedAndWatched"
                    readonly property var entries: Array.from(settings.panel.settings.mutedList).concat(Array.from(settings.panel.settings.watchedList))
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
                                onRemoved: settings.panel.settings.setListed(modelData.kind, modelData.name, false)
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
                    spacing: Hud.gapSnug
                    CaptionText {
                        id: version
                        objectName: "versionText"
                        anchors.verticalCenter: parent.verticalCenter
                        text: settings.panel.settings.versionText
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
                        Accessible.name: settings.panel.siteText
                        Accessible.focusable: true
                        Accessible.onPressAction: settings.panel.openSite()
                        Keys.onReturnPressed: settings.panel.openSite()
                        Keys.onEnterPressed: settings.panel.openSite()
                        Keys.onSpacePressed: settings.panel.openSite()
                        FocusRing { ringRadius: 4 }
                        anchors.verticalCenter: parent.verticalCenter
                        width: siteRow.implicitWidth
                        height: siteRow.implicitHeight + 8
                        Row {
                            id: siteRow
                            anchors.verticalCenter: parent.verticalCenter
                            spacing: Hud.gapTiny
                            LabelText {
                                text: settings.panel.siteText
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
                            onClicked: settings.panel.openSite()
                        }
                    }
                    HUDAction {
                        panel: settings.panel
                        id: quit
                        objectName: "quitAction"
                        anchors.verticalCenter: parent.verticalCenter
                        title: "QUIT"
                        accent: Hud.ink2
                        onClicked: settings.panel.quit()
                    }
                }
            }
        }
    }
}
