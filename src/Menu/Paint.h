#pragma once
// Theme colours and the two type faces, as Qt GUI values.

#include "Look/Theme.h"

#include <QColor>
#include <QFont>
#include <QImage>

#include <cmath>

inline QColor toQColor(const Theme::Rgba &c)
{
    return QColor::fromRgbF(float(c.r), float(c.g), float(c.b), float(c.a));
}

// A clear premultiplied canvas for `logical` points at `scale` device pixels
// a point: what every cached piece of the strip is drawn into.
inline QImage clearImage(const QSizeF &logical, double scale)
{
    QImage image(QSize(int(std::ceil(logical.width() * scale)), int(std::ceil(logical.height() * scale))),
                 QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(scale);
    image.fill(Qt::transparent);
    return image;
}

namespace Fonts {
// Inter for text, JetBrains Mono for the monospaced design; sizes in points
// drawn as logical pixels, so 11.5 pt is 11.5 px on the bar.
QFont system(double size, QFont::Weight weight);
QFont mono(double size, QFont::Weight weight);
} // namespace Fonts
