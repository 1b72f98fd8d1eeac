#pragma once
// What every QML engine that shows the panel needs: the Larkpin.Panel module
// (its views compiled ahead of time, the Hud style singleton), the glyphs and
// the "glyph" image provider.

#include "Panel/HistoryModel.h"
#include "Panel/PanelModel.h"
#include "Panel/SettingsModel.h"
#include "Panel/SignalListModel.h"

#include <QQuickImageProvider>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

class QQmlEngine;
class QQuickItem;

// The models the views are handed, named for the views' type annotations;
// they come from C++ only.
struct PanelModelForeign {
    Q_GADGET
    QML_FOREIGN(PanelModel)
    QML_NAMED_ELEMENT(PanelModel)
    QML_UNCREATABLE("a panel's model is made by its controller")
};
struct SettingsModelForeign {
    Q_GADGET
    QML_FOREIGN(SettingsModel)
    QML_NAMED_ELEMENT(SettingsModel)
    QML_UNCREATABLE("a panel's settings come with its model")
};
struct SignalListModelForeign {
    Q_GADGET
    QML_FOREIGN(SignalListModel)
    QML_NAMED_ELEMENT(SignalListModel)
    QML_UNCREATABLE("a panel's lists are made by its model")
};
struct HistoryModelForeign {
    Q_GADGET
    QML_FOREIGN(HistoryModel)
    QML_NAMED_ELEMENT(HistoryModel)
    QML_UNCREATABLE("a panel's history comes with its model")
};

namespace PanelQml {
void initResources();
// Installs the glyph provider and sets what the engine's Hud will be made
// with; before the engine loads any view.
void configureEngine(QQmlEngine &engine, double devicePixelRatio = 2.0, int shadowMargin = 0);
QUrl hudViewUrl();
// Builds one HUDView tree for `model` (its required property "panel"); null
// and a log line when the QML does not load.
QQuickItem *createHud(QQmlEngine &engine, PanelModel *model, QString *error = nullptr);
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
