#pragma once
// Theme colours and the two type faces, as Qt GUI values.

#include "Support/Theme.h"

#include <QColor>
#include <QFont>

inline QColor toQColor(const Theme::Rgba &c)
{
    return QColor::fromRgbF(float(c.r), float(c.g), float(c.b), float(c.a));
}

namespace Fonts {
// Inter for text, JetBrains Mono for the monospaced design; sizes in points
// drawn as logical pixels, so 11.5 pt is 11.5 px on the bar.
QFont system(double size, QFont::Weight weight);
QFont mono(double size, QFont::Weight weight);
} // namespace Fonts
