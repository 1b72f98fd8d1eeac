#include "Menu/BarShade.h"

#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QScreen>
#include <QTimer>

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>

namespace {
// The mean colour of a part of the X11 root window, read with one GetImage.
// Qt's grabWindow() adds a pixmap and a copy into it, whose NoExposure event
// wakes the event thread and then the main thread again: at a look every few
// seconds that was most of the strip's wake-ups at rest. None off X11, or
// for a pixel format other than 32 bits per pixel.
std::optional<QColor> meanOfRoot(const QRect &device)
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    xcb_connection_t *c = x11 ? x11->connection() : nullptr;
    if (!c || device.isEmpty())
        return std::nullopt;
    const xcb_screen_t *root = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    if (!root || (root->root_depth != 24 && root->root_depth != 32) ||
        xcb_get_setup(c)->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST)
        return std::nullopt;
    const QRect r = device.intersected(QRect(0, 0, root->width_in_pixels, root->height_in_pixels));
    if (r.isEmpty())
        return std::nullopt;
    xcb_get_image_reply_t *reply = xcb_get_image_reply(
        c,
        xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, root->root, int16_t(r.x()), int16_t(r.y()),
                      uint16_t(r.width()), uint16_t(r.height()), ~0u),
        nullptr);
    if (!reply)
        return std::nullopt;
    std::optional<QColor> mean;
    const int bytes = xcb_get_image_data_length(reply);
    if (bytes == r.width() * r.height() * 4) {
        const uint8_t *px = xcb_get_image_data(reply);
        quint64 sum[3] = {0, 0, 0};
        for (int i = 0; i < bytes; i += 4) { // B, G, R, pad in LSB-first order
            sum[0] += px[i + 2];
            sum[1] += px[i + 1];
            sum[2] += px[i];
        }
        const quint64 n = quint64(bytes / 4);
        mean = QColor(int(sum[0] / n), int(sum[1] / n), int(sum[2] / n));
    }
    free(reply);
    return mean;
}
} // namespace

BarShade::BarShade(QObject *parent) : QObject(parent)
{
    watch_ = new QTimer(this);
    watch_->setSingleShot(true);
    watch_->setInterval(lookMs + 1000);
    watch_->setTimerType(Qt::CoarseTimer);
    connect(watch_, &QTimer::timeout, this, [this] { look(true); });
}

void BarShade::look(bool now)
{
    const std::optional<Spot> spot = where ? where() : std::nullopt;
    if (!spot)
        return; // a palette event while the strip is still being built
    // Theme changes and the few-second check ask at once; anything else at
    // most every two minutes.
    if (!now && sampled_.isValid() && sampled_.elapsed() < 120000)
        return;
    sampled_.start();
    QScreen *screen = spot->screen;
    const std::optional<QColor> bar =
        screen ? sample(screen, sampleRegion(screen->geometry(), screen->availableGeometry(), spot->strip))
               : std::nullopt;
    if (onLook)
        onLook(bar);
}

void BarShade::start()
{
    look(true);
    watch_->start();
}

void BarShade::flipped()
{
    if (sampled_.elapsed() >= lookMs - 500)
        look(true);
    watch_->start();
}

QRect BarShade::sampleRegion(const QRect &screen, const QRect &available, const QRect &strip)
{
    const int top = strip.top() - screen.top();
    if (top > 0)
        return QRect(strip.left(), screen.top(), strip.width(), top);
    if (available.bottom() < screen.bottom())
        return QRect(strip.left(), available.bottom() + 1, strip.width(),
                     screen.bottom() - available.bottom());
    return {};
}

std::optional<QColor> BarShade::sample(QScreen *screen, const QRect &region)
{
    if (!screen || region.isEmpty())
        return std::nullopt;
    if (QGuiApplication::platformName() == QLatin1String("xcb")) {
        // Device pixels: X11 knows nothing of Qt's scaling.
        const qreal dpr = screen->devicePixelRatio();
        const QRect device(QPoint(qRound(region.x() * dpr), qRound(region.y() * dpr)),
                           QSize(std::max(1, qRound(region.width() * dpr)), std::max(1, qRound(region.height() * dpr))));
        if (const std::optional<QColor> mean = meanOfRoot(device))
            return mean;
    }
    const QRect g = screen->geometry();
    const QImage shot =
        screen->grabWindow(0, region.x() - g.x(), region.y() - g.y(), region.width(), region.height())
            .toImage();
    if (shot.isNull())
        return std::nullopt;
    // Icons and clock text are a small part of a bar: the mean is its background.
    const QColor mean = shot.convertToFormat(QImage::Format_RGB32)
                            .scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                            .pixelColor(0, 0);
    return mean;
}

bool BarShade::isDark(const QColor &colour)
{
    // Relative luminance of sRGB, by the usual weights.
    const double y = 0.2126 * colour.redF() + 0.7152 * colour.greenF() + 0.0722 * colour.blueF();
    return y < 0.5;
}
