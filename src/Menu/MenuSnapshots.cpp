#include "Menu/MenuSnapshots.h"

#include "Feed/FeedStore.h"
#include "Menu/StatusItemController.h"
#include "Menu/StatusStreamView.h"
#include "Menu/StripWindow.h"

#include <QPainter>

namespace MenuSnapshots {

QImage statusBar(FeedStore &store, bool dark, qreal scale)
{
    const QSize size(StatusItemController::itemWidth, StatusItemController::defaultBarHeight);
    QImage image(size * scale, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(scale);
    const QColor bar = dark ? QColor(30, 31, 36) : QColor(236, 236, 238);
    image.fill(bar);
    QPainter p(&image);
    StripWindow::paintFace(p, size, bar);

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
