import QtQuick
import Larkpin.Panel

// The panel's own tooltip: its dark plate, a hairline edge and light plain
// text. It lives in the window's top layer, so nothing in the panel covers
// it, and stays inside the panel's edges: under its owner when there is room,
// else over it.
Item {
    id: tip
    objectName: "hudToolTip"
    property Item owner: null
    property string text: ""
    property bool active: false // the pointer rests on the owner
    property int delay: 700
    property bool armed: false
    readonly property Item host: owner ? owner.Window.contentItem : null

    parent: host
    z: 10000
    visible: armed && text !== ""
    width: Math.min(label.implicitWidth, 240 - 18) + 18
    height: label.implicitHeight + 12

    function place() {
        if (!owner || !host)
            return
        const p = owner.mapToItem(host, owner.width / 2, 0)
        x = Math.round(Math.max(6, Math.min(p.x - width / 2, host.width - width - 6)))
        const below = p.y + owner.height + 6
        y = Math.round(below + height <= host.height - 6 ? below : Math.max(6, p.y - height - 6))
    }
    onActiveChanged: {
        armed = false
        if (active)
            wait.restart()
        else
            wait.stop()
    }
    Timer {
        id: wait
        interval: tip.delay
        onTriggered: {
            tip.place()
            tip.armed = true
        }
    }

    Rectangle {
        anchors.fill: parent
        color: Hud.float_
        radius: 7
        border.width: Hud.hairlineWidth
        border.color: Hud.hairlineHot
    }
    ProseText {
        id: label
        x: 9
        y: 6
        width: tip.width - 18
        text: tip.text
        wrapMode: Text.Wrap
        maximumLineCount: 4
        elide: Text.ElideRight
        size: 9.5
        color: Hud.ink
    }
}
