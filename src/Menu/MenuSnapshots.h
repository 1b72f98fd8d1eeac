#pragma once

#include <QImage>

class FeedStore;

namespace MenuSnapshots {
// The strip as it looks now (mark, current row, rail and dot), on a light or
// dark bar, at the given scale: 196 × 24 points.
QImage statusBar(FeedStore &store, bool dark, qreal scale);
} // namespace MenuSnapshots
