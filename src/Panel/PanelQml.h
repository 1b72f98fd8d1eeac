#pragma once
// What every QML engine that shows the panel needs: the bundled QML and
// glyphs, the "glyph" image provider and the shared style object ("hud").

#include <QQuickImageProvider>
#include <QUrl>

class QQmlEngine;
class QQmlContext;
class QQuickItem;
class PanelModel;

namespace PanelQml {
void initResources();
// Installs the glyph provider and the "hud" style on the engine's root context.
void configureEngine(QQmlEngine &engine, double devicePixelRatio = 2.0);
QUrl hudViewUrl();
// Builds one HUDView tree for `model` under a context of its own; null and
// a log line when the QML does not load.
QQuickItem *createHud(QQmlEngine &engine, PanelModel *model, QQmlContext **contextOut,
                      QString *error = nullptr);
// The glyph names the panel draws, each an SVG in the bundle.
const QStringList &glyphNames();
} // namespace PanelQml

// "image://glyph/<name>/<rrggbb>": the project's SVG glyph in one colour.
class GlyphProvider : public QQuickImageProvider {
public:
    GlyphProvider();
    QImage requestImage(const QString &id, QSize *size, const QSize &requestedSize) override;
    static QImage render(const QString &name, const QColor &colour, const QSize &pixels);
};
