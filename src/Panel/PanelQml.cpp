#include "Panel/PanelQml.h"

#include "Panel/PanelModel.h"
#include "Support/Log.h"
#include "Panel/PanelStyle.h"

#include <QFile>
#include <QPainter>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQmlEngineExtensionPlugin>
#include <QQuickItem>
#include <QSvgRenderer>

// The module's types, compiled views and qmldir live in this static library;
// importing its plugin here brings them along wherever the panel is linked.
Q_IMPORT_QML_PLUGIN(Larkpin_PanelPlugin)

static void initPanelResources()
{
    Q_INIT_RESOURCE(panel);
}

namespace PanelQml {

void initResources()
{
    static const bool done = (initPanelResources(), true);
    Q_UNUSED(done);
}

void configureEngine(QQmlEngine &engine, double devicePixelRatio, int shadowMargin)
{
    initResources();
    // Where the module's qmldir is: qrc:/Larkpin/Panel/.
    if (!engine.importPathList().contains(QStringLiteral("qrc:/")))
        engine.addImportPath(QStringLiteral("qrc:/"));
    if (!engine.imageProvider(QStringLiteral("glyph")))
        engine.addImageProvider(QStringLiteral("glyph"), new GlyphProvider);
    PanelStyle::configure(engine, devicePixelRatio, shadowMargin);
}

QUrl hudViewUrl()
{
    return QUrl(QStringLiteral("qrc:/Larkpin/Panel/HUDView.qml"));
}

QQuickItem *createHud(QQmlEngine &engine, PanelModel *model, QString *error)
{
    QQmlComponent component(&engine, hudViewUrl());
    QObject *object = component.isReady()
                          ? component.createWithInitialProperties({{QStringLiteral("panel"),
                                                                    QVariant::fromValue(model)}})
                          : nullptr;
    auto *item = qobject_cast<QQuickItem *>(object);
    if (!item) {
        const QString why = component.errorString();
        Log::warning(lcApp(), QStringLiteral("panel view failed to load: ") + why);
        if (error)
            *error = why;
        delete object;
        return nullptr;
    }
    return item;
}

const QStringList &glyphNames()
{
    static const QStringList names{
        QStringLiteral("chevron.left"),
        QStringLiteral("arrow.up.forward"),
        QStringLiteral("play.fill"),
        QStringLiteral("pause.fill"),
        QStringLiteral("arrow.clockwise"),
        QStringLiteral("slider.horizontal.3"),
        QStringLiteral("clock.arrow.circlepath"),
        QStringLiteral("antenna.radiowaves.left.and.right"),
        QStringLiteral("antenna.radiowaves.left.and.right.slash"),
        QStringLiteral("wave.3.right"),
        QStringLiteral("xmark"),
    };
    return names;
}

} // namespace PanelQml

GlyphProvider::GlyphProvider() : QQuickImageProvider(QQuickImageProvider::Image) {}

QImage GlyphProvider::render(const QString &name, const QColor &colour, const QSize &pixels)
{
    QImage image(pixels.isValid() && !pixels.isEmpty() ? pixels : QSize(32, 32),
                 QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    if (!PanelQml::glyphNames().contains(name)) {
        Log::warning(lcApp(), QStringLiteral("unknown glyph ") + name);
        return image;
    }
    QSvgRenderer svg(QStringLiteral(":/larkpin/panel/icons/") + name + QStringLiteral(".svg"));
    if (!svg.isValid())
        return image;
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    svg.render(&p);
    // The glyphs are drawn in black; keep their shape, take the colour.
    p.setCompositionMode(QPainter::CompositionMode_SourceIn);
    p.fillRect(image.rect(), colour);
    return image;
}

QImage GlyphProvider::requestImage(const QString &id, QSize *size, const QSize &requestedSize)
{
    const int slash = int(id.lastIndexOf(QLatin1Char('/')));
    const QString name = slash < 0 ? id : id.left(slash);
    QColor colour = slash < 0 ? QColor(Qt::white) : QColor(QLatin1Char('#') + id.mid(slash + 1));
    if (!colour.isValid())
        colour = Qt::white;
    QImage image = render(name, colour, requestedSize);
    if (size)
        *size = image.size();
    return image;
}
