#include "Menu/Blur.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace Blur {

QImage gaussian(const QImage &source, double sigma)
{
    if (sigma < 0.05 || source.isNull())
        return source;
    const QImage src = source.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const int r = int(std::ceil(sigma * 3));
    std::vector<double> weights(size_t(2 * r + 1));
    double sum = 0;
    for (int i = -r; i <= r; ++i)
        sum += weights[size_t(i + r)] = std::exp(-(i * i) / (2 * sigma * sigma));
    std::vector<quint32> kernel(weights.size());
    for (size_t i = 0; i < weights.size(); ++i)
        kernel[i] = quint32(std::lround(weights[i] / sum * 65536.0));
    const int w = src.width(), h = src.height();
    // One pass along rows (step 1) or along columns (step: one scan line).
    auto pass = [&](const QImage &in, bool horizontal) {
        QImage out(in.size(), in.format());
        const int lines = horizontal ? h : w, length = horizontal ? w : h;
        const qsizetype stride = in.bytesPerLine() / 4;
        const qsizetype step = horizontal ? 1 : stride;
        const auto *base = reinterpret_cast<const quint32 *>(in.constBits());
        auto *outBase = reinterpret_cast<quint32 *>(out.bits());
        for (int line = 0; line < lines; ++line) {
            const quint32 *row = horizontal ? base + line * stride : base + line;
            quint32 *dst = horizontal ? outBase + line * stride : outBase + line;
            for (int x = 0; x < length; ++x) {
                quint32 a = 0, rr = 0, g = 0, b = 0;
                const int from = std::max(-r, -x), to = std::min(r, length - 1 - x);
                for (int i = from; i <= to; ++i) {
                    const quint32 px = row[(x + i) * step];
                    const quint32 k = kernel[size_t(i + r)];
                    a += k * (px >> 24);
                    rr += k * ((px >> 16) & 0xff);
                    g += k * ((px >> 8) & 0xff);
                    b += k * (px & 0xff);
                }
                const auto channel = [](quint32 v) { return std::min<quint32>(255, (v + 32768) >> 16); };
                dst[x * step] = (channel(a) << 24) | (channel(rr) << 16) | (channel(g) << 8) | channel(b);
            }
        }
        return out;
    };
    QImage out = pass(pass(src, true), false);
    out.setDevicePixelRatio(source.devicePixelRatio());
    return out;
}

} // namespace Blur
