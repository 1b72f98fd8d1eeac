import QtQuick
import Larkpin.Panel

// The kept history, over the panel like the settings page: a search field
// ($TOKEN, @handle, a kind, a minimum size), the time range of a summary when
// one is applied, and the list, newest first, read a page at a time as it
// scrolls.
Item {
    id: view
    required property PanelModel panel
    readonly property HistoryModel history: panel.history
    signal back()

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
                panel: view.panel
                objectName: "historyBackButton"
                systemName: "chevron.left"
                help: "Back"
                onClicked: view.back()
            }
            LabelText {
                anchors.verticalCenter: parent.verticalCenter
                text: "HISTORY"
                size: 11
                tracking: 1.75
                color: Hud.ink
            }
        }
    }
    Hairline { id: rule; anchors.top: header.bottom; width: parent.width }

    // The search field.
    Rectangle {
        id: field
        objectName: "historySearch"
        anchors.top: rule.bottom
        anchors.topMargin: 10
        x: 14
        width: parent.width - 28
        height: 30
        radius: 7
        color: Hud.alpha(Hud.raised, 0.8)
        border.width: Hud.hairlineWidth
        border.color: input.activeFocus ? Hud.alpha(Hud.lark, 0.7) : Hud.hairline
        TextInput {
            id: input
            objectName: "historySearchInput"
            x: 10
            width: parent.width - 20
            anchors.verticalCenter: parent.verticalCenter
            font.family: Hud.mono
            font.pointSize: 11 * Hud.pt
            color: Hud.ink
            selectionColor: Hud.alpha(Hud.lark, 0.4)
            clip: true
            maximumLength: 200
            activeFocusOnTab: true
            text: view.history.queryText
            Accessible.role: Accessible.EditableText
            Accessible.name: "Search history"
            // Each change searches again; the model drops answers to older text.
            onTextEdited: view.history.queryText = text
            Keys.onDownPressed: list.forceActiveFocus()
        }
        ProseText {
            anchors.left: input.left
            anchors.verticalCenter: parent.verticalCenter
            visible: input.text === "" && !input.activeFocus
            text: "$TOKEN  @handle  whale  1M"
            size: 10.5
            color: Hud.ink4
        }
    }

    // The time range of a summary, with its way out.
    Item {
        id: range
        objectName: "historyRange"
        anchors.top: field.bottom
        anchors.topMargin: visible ? 8 : 0
        x: 14
        width: parent.width - 28
        height: visible ? 22 : 0
        visible: view.history.rangeText !== ""
        CaptionText {
            anchors.verticalCenter: parent.verticalCenter
            text: "WHILE AWAY · " + view.history.rangeText
            size: 9.5
            color: Hud.lark
        }
        HUDIconButton {
            panel: view.panel
            objectName: "historyClearRange"
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            systemName: "xmark"
            help: "Show all of history"
            onClicked: view.history.clearRange()
        }
    }

    ListView {
        id: list
        objectName: "historyList"
        anchors.top: range.bottom
        anchors.topMargin: 8
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 6
        width: parent.width
        clip: true
        model: view.history
        boundsBehavior: Flickable.StopAtBounds
        cacheBuffer: 400
        activeFocusOnTab: true
        keyNavigationEnabled: true
        highlightFollowsCurrentItem: false
        Accessible.role: Accessible.List
        Accessible.name: "History"
        Keys.onPressed: (event) => {
            if ((event.key === Qt.Key_Return || event.key === Qt.Key_Enter || event.key === Qt.Key_Space)
                    && currentItem) {
                view.panel.toggle(currentItem.signalId)
                event.accepted = true
            }
        }
        delegate: HistoryRow {
            panel: view.panel
            required property var model
            width: ListView.view.width
            signalId: model.signalId
            kind: model.kind
            ticker: model.ticker
            body: model.body
            figure: model.figure
            detail: model.detail
            time: model.time
            chartUrl: model.chartUrl
            watched: model.watched
        }
        footer: Item {
            width: list.width
            height: view.history.message !== "" ? 54 : 12
            ProseText {
                objectName: "historyMessage"
                anchors.centerIn: parent
                visible: view.history.message !== ""
                text: view.history.message
                size: 11
            }
        }
    }
}
