import QtQuick
import QtQuick.Layouts
import Larkpin.Panel

// The panel's root: backdrop, command rail, hero layer, stream, telemetry
// band, and the settings page sliding over all of it.
Item {
    id: hudView
    required property PanelModel panel
    objectName: "hudView"
    width: 400
    height: 620
    focus: true
    Accessible.role: Accessible.Pane
    Accessible.name: "Larkpin"
    // The last key the panel saw (Escape never gets here: the window takes it).
    property int lastKey: 0
    Keys.onPressed: (event) => { lastKey = event.key }

    // A soft shadow, cast into the window's transparent margin where a
    // compositor blends it: stacked rings, each a little smaller and all of
    // them faint, darken towards the panel's edge. A little lower than wide.
    Item {
        objectName: "panelShadow"
        visible: Hud.shadowMargin > 0
        anchors.fill: parent
        z: -1
        Repeater {
            model: 9
            Rectangle {
                required property int index
                readonly property real spread: Hud.shadowMargin * (1 - index / 9)
                x: -spread
                y: -spread + 4
                width: hudView.width + 2 * spread
                height: hudView.height + 2 * spread - 4
                radius: Hud.panelRadius + spread
                color: Qt.rgba(0, 0, 0, 0.032)
            }
        }
    }
    HUDBackdrop {
        anchors.fill: parent
        cornerRadius: 14
    }

    // Under the settings page the main view is out of reach of Tab and of a
    // screen reader, not only out of sight.
    readonly property bool settingsCover: hudView.panel.showSettings && !slide.running && !fade.running

    ColumnLayout {
        id: layout
        anchors.fill: parent
        anchors.margins: 1
        spacing: 0
        visible: !hudView.settingsCover

        CommandRail {
            panel: hudView.panel
            Layout.fillWidth: true
            onSettingsRequested: hudView.panel.showSettings = true
            onHistoryRequested: hudView.panel.history.shown = true
        }
        // A layout rounds its items' heights up to whole points, which at 2x
        // would make the rule two device pixels: the layout gets a point
        // and the rule keeps its own height inside it.
        Item {
            objectName: "railRule"
            Layout.fillWidth: true
            Layout.preferredHeight: 1
            Hairline { width: parent.width }
        }
        AwayBanner {
            panel: hudView.panel
            objectName: "awayBanner"
            Layout.fillWidth: true
            Layout.preferredHeight: implicitHeight
        }

        // Hero layer
        Item {
            id: heroLayer
            objectName: "heroLayer"
            visible: hudView.panel.hasHero
            Layout.fillWidth: true
            // A panel shortened to fit its screen keeps room for the stream.
            Layout.preferredHeight: visible ? Math.min(heroColumn.implicitHeight + 26, hudView.height * (hudView.height < 560 ? 0.45 : 0.6)) : 0
            clip: true

            Flickable {
                id: heroFlick
                x: 12
                y: 12
                width: parent.width - 24
                height: parent.height - 26
                contentHeight: heroColumn.implicitHeight
                interactive: contentHeight > height
                boundsBehavior: Flickable.StopAtBounds
                clip: true

                Column {
                    id: heroColumn
                    width: heroFlick.width
                    spacing: Hud.gap
                    // Cards drop in from the top as they appear.
                    opacity: hudView.panel.hasHero ? 1 : 0
                    y: hudView.panel.hasHero ? 0 : -14
                    Glide on opacity { enabled: hudView.panel.animated }
                    Behavior on y { enabled: hudView.panel.animated && !hudView.panel.reduceMotion; SpringAnimation { spring: Hud.snapSpring; damping: Hud.snapDamping; epsilon: 0.25 } }
                    HeroCard {
                        panel: hudView.panel
                        objectName: "heroCard"
                        width: parent.width
                        hero: hudView.panel.hero
                        bloom: hudView.panel.bloom
                    }
                    Row {
                        id: minis
                        visible: hudView.panel.minis.count > 0
                        width: parent.width
                        spacing: Hud.gap
                        Repeater {
                            model: hudView.panel.minis
                            MiniHero {
                                panel: hudView.panel
                                required property var model
                                objectName: "miniHero"
                                width: (minis.width - minis.spacing * (hudView.panel.minis.count - 1)) / Math.max(1, hudView.panel.minis.count)
                                signalId: model.signalId
                                kind: model.kind
                                headline: model.headline
                            }
                        }
                    }
                }
            }
            // An opened hero can outgrow its layer: fade the cut edge so it
            // reads as "more below", not as clipped text.
            Rectangle {
                objectName: "heroMoreBelow"
                x: heroFlick.x
                width: heroFlick.width
                height: 28
                y: heroFlick.y + heroFlick.height - height
                visible: heroFlick.contentY + heroFlick.height < heroFlick.contentHeight - 1
                gradient: Gradient {
                    GradientStop { position: 0; color: Hud.alpha(Hud.plate, 0) }
                    GradientStop { position: 1; color: Hud.alpha(Hud.plate, 0.96) }
                }
            }
        }

        // Filter chips
        Row {
            id: chips
            objectName: "filterChips"
            Layout.fillWidth: true
            Layout.leftMargin: Hud.edge
            Layout.rightMargin: Hud.edge
            Layout.topMargin: 12
            Layout.bottomMargin: 10
            spacing: Hud.gapSmall
            // Counted by index so the chips outlive their changing data.
            Repeater {
                model: hudView.panel.chips.length
                HUDChip {
                    panel: hudView.panel
                    required property int index
                    readonly property var chip: hudView.panel.chips[index]
                    objectName: "chip-" + chip.label
                    label: chip.label
                    trailing: chip.trailing
                    selected: chip.selected
                    onClicked: hudView.panel.selectFilter(index)
                }
            }
        }

        // Stream
        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true

            ListView {
                id: stream
                objectName: "streamList"
                anchors.fill: parent
                visible: !hudView.panel.streamEmpty
                model: hudView.panel.stream
                boundsBehavior: Flickable.StopAtBounds
                cacheBuffer: 200

                // Where the reader is, taken as a change to the list begins
                // (the view applies changes later, at layout): a list left at
                // its top stays there and shows what arrives; a scrolled list
                // keeps the row at its top where it was.
                property bool holding: false
                property bool wasAtTop: true
                property string anchorId: ""
                property real anchorOffset: 0
                function noteChange() {
                    if (holding)
                        return
                    holding = true
                    // A row the keyboard is on stays where it is on screen.
                    if (activeFocus && currentItem && currentItem.y + currentItem.height > contentY
                            && currentItem.y < contentY + height) {
                        wasAtTop = false
                        anchorId = (currentItem as StreamRow).signalId
                        anchorOffset = currentItem.y - contentY
                        // Qt 6.4's linter takes Qt.callLater for a QJSValue property, not a method.
                        Qt.callLater(restoreReading) // qmllint disable type
                        return
                    }
                    wasAtTop = contentY <= originY + 0.5
                    const top = itemAt(width / 2, contentY + 0.5)
                    anchorId = top ? top.signalId : ""
                    anchorOffset = top ? top.y - contentY : 0
                    Qt.callLater(restoreReading)
                }
                function restoreReading() {
                    holding = false
                    if (moving || dragging)
                        return
                    forceLayout()
                    if (wasAtTop) {
                        positionViewAtBeginning()
                        return
                    }
                    const at = hudView.panel.stream.indexOf(anchorId)
                    if (at < 0)
                        return
                    positionViewAtIndex(at, ListView.Beginning)
                    const item = itemAtIndex(at)
                    if (item)
                        contentY = Math.max(originY, Math.min(item.y - anchorOffset,
                                                              originY + contentHeight - height))
                    if (activeFocus && currentIndex >= 0)
                        positionViewAtIndex(currentIndex, ListView.Contain)
                }
                Connections {
                    target: hudView.panel.stream as QtObject
                    function onRowsAboutToBeInserted() { stream.noteChange() }
                    function onRowsAboutToBeRemoved() { stream.noteChange() }
                    function onModelAboutToBeReset() { stream.noteChange() }
                }

                // An opened row scrolls, as its evidence grows, until all of
                // it shows above the band (its top first, if it is taller
                // than the view).
                function keepInView(row) {
                    if (!row || !row.isOpen || moving || dragging)
                        return
                    let target = contentY
                    if (row.y + row.height > target + height)
                        target = row.y + row.height - height
                    if (row.y < target)
                        target = row.y
                    if (target !== contentY)
                        contentY = target
                }
                // Tab lands on the stream; Up/Down move through it, Return or
                // Space opens or closes the current row.
                activeFocusOnTab: true
                keyNavigationEnabled: true
                highlightFollowsCurrentItem: false
                Accessible.role: Accessible.List
                Accessible.name: "Stream"
                // The row the keyboard is on stays in view as it moves.
                onCurrentIndexChanged: if (activeFocus && currentIndex >= 0) positionViewAtIndex(currentIndex, ListView.Contain)
                onActiveFocusChanged: {
                    if (!activeFocus)
                        return
                    if (currentIndex < 0 && count > 0)
                        currentIndex = Math.max(0, indexAt(width / 2, contentY + 1))
                    if (currentItem && !currentItem.activeFocus)
                        currentItem.forceActiveFocus(Qt.TabFocusReason)
                }
                Keys.onPressed: (event) => {
                    if ((event.key === Qt.Key_Return || event.key === Qt.Key_Enter || event.key === Qt.Key_Space)
                            && currentItem) {
                        hudView.panel.toggle(currentItem.signalId)
                        event.accepted = true
                    }
                }
                delegate: StreamRow {
                    id: streamRow
                    panel: hudView.panel
                    required property var model
                    onIsOpenChanged: if (isOpen) Qt.callLater(stream.keepInView, streamRow)
                    onHeightChanged: if (isOpen) Qt.callLater(stream.keepInView, streamRow)
                    width: ListView.view.width
                    signalId: model.signalId
                    kind: model.kind
                    ticker: model.ticker
                    body: model.body
                    figure: model.figure
                    meta: model.meta
                    watched: model.watched
                }
            }
            // The same hint at the foot of the list, so a row cut by the band
            // does not show as stray marks.
            Rectangle {
                objectName: "streamMoreBelow"
                anchors.bottom: parent.bottom
                width: parent.width
                height: 24
                visible: stream.visible && !stream.atYEnd
                gradient: Gradient {
                    GradientStop { position: 0; color: Hud.alpha(Hud.abyss, 0) }
                    GradientStop { position: 1; color: Hud.alpha(Hud.abyss, 0.9) }
                }
            }
            EmptyState {
                objectName: "emptyState"
                visible: hudView.panel.streamEmpty
                width: parent.width
                symbol: hudView.panel.emptySymbol
                message: hudView.panel.emptyMessage
            }
        }

        TelemetryBand {
            panel: hudView.panel
            objectName: "telemetryBand"
            Layout.fillWidth: true
        }
    }

    // A stand-alone card of one signal, over the content.
    Item {
        objectName: "detailLayer"
        visible: hudView.panel.detailCard.valid && !hudView.settingsCover
        anchors.fill: parent
        anchors.topMargin: Hud.railHeight + 1
        Rectangle { anchors.fill: parent; color: Hud.alpha(Hud.abyss, 0.7); radius: Hud.panelRadius }
        MouseArea { anchors.fill: parent; onClicked: hudView.panel.closeDetailCard() }
        Flickable {
            x: Hud.inset
            y: Hud.inset
            width: parent.width - 2 * Hud.inset
            height: parent.height - 2 * Hud.inset
            contentHeight: detailColumn.implicitHeight
            boundsBehavior: Flickable.StopAtBounds
            clip: true
            Column {
                id: detailColumn
                width: parent.width
                HeroDetail {
                    panel: hudView.panel
                    objectName: "heroDetail"
                    width: parent.width
                    hero: hudView.panel.detailCard
                    onCloseRequested: hudView.panel.closeDetailCard()
                }
                // The evidence follows the card, on the same plate.
                Rectangle {
                    width: parent.width
                    height: detailEvidence.implicitHeight + 28
                    color: Hud.plate
                    radius: Hud.plateRadius
                    border.width: Hud.hairlineWidth
                    border.color: Hud.hairline
                    InspectorView {
                        panel: hudView.panel
                        id: detailEvidence
                        x: 27
                        y: 14
                        width: parent.width - 27 - 12
                        signalId: hudView.panel.detailCard.signalId
                        hidesChart: true
                    }
                }
            }
        }
    }

    // The panel's crisp edge.
    Rectangle {
        anchors.fill: parent
        radius: Hud.panelRadius
        color: "transparent"
        border.width: Hud.hairlineWidth
        border.color: Hud.hairlineHot
    }

    HistoryView {
        panel: hudView.panel
        objectName: "historyView"
        width: parent.width
        height: parent.height
        visible: hudView.panel.history.shown || historyFade.running
        opacity: hudView.panel.history.shown ? 1 : 0
        onBack: hudView.panel.history.shown = false
        Glide on opacity { id: historyFade; enabled: hudView.panel.animated }
        Rectangle {
            anchors.fill: parent
            radius: Hud.panelRadius
            color: "transparent"
            border.width: Hud.hairlineWidth
            border.color: Hud.hairlineHot
        }
    }

    // The one signal menu, owned here so no list update can take it down.
    SignalMenu {
        id: signalMenu
        panel: hudView.panel
    }
    Connections {
        target: hudView.panel
        function onMenuRequested(id, sceneX, sceneY) {
            const at = hudView.mapFromItem(null, sceneX, sceneY)
            signalMenu.openFor(id, at.x, at.y)
        }
    }

    SettingsView {
        panel: hudView.panel
        id: settingsView
        objectName: "settingsView"
        width: parent.width
        height: parent.height
        visible: hudView.panel.showSettings || slide.running || fade.running
        // With less motion asked for, the page only fades.
        x: hudView.panel.showSettings || hudView.panel.reduceMotion ? 0 : width
        opacity: hudView.panel.showSettings ? 1 : 0
        onBack: hudView.panel.showSettings = false
        onVisibleChanged: visible && hudView.panel.showSettings ? focusFirst() : hudView.forceActiveFocus()
        Behavior on x { enabled: hudView.panel.animated && !hudView.panel.reduceMotion; SpringAnimation { id: slide; spring: Hud.snapSpring; damping: Hud.snapDamping; epsilon: 0.25 } }
        Glide on opacity { id: fade; enabled: hudView.panel.animated }
        Rectangle {
            anchors.fill: parent
            radius: Hud.panelRadius
            color: "transparent"
            border.width: Hud.hairlineWidth
            border.color: Hud.hairlineHot
        }
    }
}
