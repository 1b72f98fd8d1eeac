import QtQuick
import Larkpin.Panel

// One of the project's SVG glyphs, tinted, rendered at twice its size.
Image {
    id: glyph
    property string name: ""
    property color colour: Hud.ink
    property real size: 12
    width: size
    height: size
    fillMode: Image.PreserveAspectFit
    smooth: true
    mipmap: true
    sourceSize.width: Math.ceil(size * 2)
    sourceSize.height: Math.ceil(size * 2)
    source: name === "" ? "" : "image://glyph/" + name + "/" + colour.toString().substring(1)
}
