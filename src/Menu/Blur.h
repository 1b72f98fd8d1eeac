#pragma once
// A Gaussian blur for the strip's small images: the takeover's softened lane
// and the focal badge's glow. Outside the image counts as transparent, so
// edges fade rather than smear.

#include <QImage>

namespace Blur {
// Separable, in 16-bit fixed point over premultiplied pixels: quick enough
// for every frame of a takeover's fade. `sigma` is in pixels; under 0.05 the
// source comes back untouched. The result keeps the source's device pixel ratio.
QImage gaussian(const QImage &source, double sigma);
} // namespace Blur
