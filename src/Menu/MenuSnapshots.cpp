#include "Menu/MenuSnapshots.h"

#include "Feed/FeedStore.h"
#include "Menu/StatusItemController.h"
#include "Menu/StatusStreamView.h"

#include <QPainter>

namespace MenuSnapshots {

QImage statusBar(FeedStore &store, bool dark, qreal scale)
{
    const QSize size(StatusItemController::itemWidth, 24);
    QImage image(size * scale, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(scale);
    image.fill(dark ? QColor(30, 31, 36) : QColor(236, 236, 238));
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    // The mark takes the bar's own ink so it never vanishes.
    p.setPen(Qt::NoPen);
    p.setBrush(dark ? QColor(237, 241, 244) : QColor(20, 22, 28));
    for (double dy : {-5.0, -1.0, 3.0})
        p.drawRoundedRect(QRectF(4, 12 + dy, 13, 2), 1, 1);

    StatusStreamView view;
    QList<StreamSegment> rows;
    for (const Signal &s : store.tickerSignals())
        rows.append(StreamSegment{s.kind, s.line});
    view.update(rows, true);
    view.setRail(store.telemetry().rail);
    view.setLinkState(store.link());
    view.setDark(dark);
    p.translate(4 + StatusItemController::markWidth + 5, 0);
    view.paintAt(p, QSizeF(size.width() - 22 - 4, size.height()), 1e9);
    return image;
}

} // namespace MenuSnapshots
