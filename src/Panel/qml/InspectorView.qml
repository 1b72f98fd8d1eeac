import QtQuick
import Larkpin.Panel

// The evidence behind one signal, in one of four states the model decides:
// details, blank, failed or loading.
Column {
    id: inspector
    required property PanelModel panel
    property string signalId: ""
    property bool hidesChart: false
    // The revision is an argument so the binding reads it, and is re-evaluated
    // when the evidence changes (a discarded operand can be compiled away).
    readonly property inspectorInfo info: inspector.infoAt(inspector.signalId, inspector.panel.detailRevision)
    function infoAt(id: string, revision: int): inspectorInfo { return inspector.panel.inspector(id) }
    readonly property string state_: info.state
    spacing: 14

    ProseText {
        objectName: "inspectorBlank"
        visible: inspector.state_ === "blank"
        text: "No wallet or pool data for this one."
    }
    Row {
        objectName: "inspectorFailed"
        visible: inspector.state_ === "failed"
        spacing: Hud.gapSection
        ProseText {
            anchors.verticalCenter: parent.verticalCenter
            text: "Couldn't load the details."
        }
        HUDAction {
            panel: inspector.panel
            objectName: "retryAction"
            anchors.verticalCenter: parent.verticalCenter
            title: "RETRY"
            accent: Hud.alert
            onClicked: inspector.panel.retry(inspector.signalId)
        }
    }
    LoadingBar {
        panel: inspector.panel
        objectName: "inspectorLoading"
        visible: inspector.state_ === "loading"
        width: parent.width
    }

    Module {
        id: walletM
        objectName: "walletModule"
        readonly property var w: inspector.info.wallet
        visible: inspector.state_ === "details" && inspector.info.hasWallet
        width: parent.width
        eyebrow: w.eyebrow || ""
        title: w.title || ""
        subtitle: w.subtitle || ""
        StatRow { items: walletM.w.stats || []; availableWidth: inspector.width }
        Row {
            visible: walletM.w.hasDelta === true
            spacing: Hud.gapSnug
            DeltaTag { text: walletM.w.delta || ""; negative: walletM.w.deltaNegative === true }
            ProseText {
                anchors.verticalCenter: parent.verticalCenter
                text: walletM.w.deltaNote || ""
                size: 9.5
            }
        }
        Column {
            width: inspector.width
            spacing: Hud.gapTiny
            Repeater {
                model: walletM.w.trades || []
                TradeRow {
                    required property var modelData
                    width: inspector.width
                    row: modelData
                }
            }
        }
    }
    Module {
        id: tokenM
        objectName: "tokenModule"
        readonly property var t: inspector.info.token
        visible: inspector.state_ === "details" && inspector.info.hasToken
        width: parent.width
        eyebrow: t.eyebrow || ""
        title: t.title || ""
        subtitle: t.subtitle || ""
        hasDelta: t.hasDelta === true
        delta: t.delta || ""
        deltaNegative: t.deltaNegative === true
        StatRow { items: tokenM.t.stats || []; availableWidth: inspector.width }
        ValueText {
            text: tokenM.t.flowLine || ""
            size: 9.5
            color: Hud.ink3
        }
    }
    Module {
        id: equityM
        objectName: "equityModule"
        readonly property var e: inspector.info.equity
        visible: inspector.state_ === "details" && inspector.info.hasEquity
        width: parent.width
        eyebrow: e.eyebrow || ""
        title: e.title || ""
        subtitle: e.subtitle || ""
        hasDelta: e.hasDelta === true
        delta: e.delta || ""
        deltaNegative: e.deltaNegative === true
        ProseText {
            text: equityM.e.session || ""
            size: 10
        }
    }
    Row {
        objectName: "linkRow"
        readonly property var links: {
            var all = Array.from(inspector.info.links)
            return inspector.hidesChart ? all.filter(function (l) { return l.title !== "CHART" }) : all
        }
        visible: inspector.state_ === "details" && links.length > 0
        spacing: Hud.gapLabel
        Repeater {
            model: parent.links
            HUDAction {
                panel: inspector.panel
                required property var modelData
                objectName: "link-" + modelData.title
                title: modelData.title
                systemName: "arrow.up.forward"
                accent: Hud.ink2
                onClicked: inspector.panel.openLink(modelData.url)
            }
        }
    }
    // Where no row or card lies over it (the detail card), the inspector
    // brings up the signal's menu itself.
    TapHandler {
        acceptedButtons: Qt.RightButton
        onTapped: (point) => {
            if (inspector.signalId === "")
                return
            const at = inspector.mapToItem(null, point.position.x, point.position.y)
            inspector.panel.requestMenu(inspector.signalId, at.x, at.y)
        }
    }
}
