#include "Feed/LiveFrames.h"

#include <algorithm>

bool MessageBound::overflows(qint64 frameBytes, bool last)
{
    if (counted_ < 0)
        return false;
    counted_ += frameBytes;
    if (counted_ > max_) {
        counted_ = -1; // once
        return true;
    }
    if (last)
        counted_ = 0;
    return false;
}

std::optional<QList<TwFill>> FrameReader::read(const QByteArray &bytes, int maxFills)
{
    const auto frame = bytes.isEmpty() ? std::nullopt : TwDecode::socketFrame(bytes);
    const QString n = verbose_ ? QString::number(frames_) : QString();
    if (!frame) {
        log_(QStringLiteral("frame #") + n + QStringLiteral(" UNDECODABLE"));
        return std::nullopt;
    }
    if (!frame->data) {
        // Wire text goes to the log as it came; it is never interpreted.
        if (verbose_)
            log_(QStringLiteral("frame #") + n + QStringLiteral(" type=") + frame->type);
        return std::nullopt;
    }
    QList<TwFill> fills = *frame->data;
    fills_ += fills.size();
    if (verbose_)
        log_(QStringLiteral("frame #") + n + QStringLiteral(" fills=") + QString::number(fills.size()) +
             QStringLiteral(" (total ") + QString::number(fills_) + QLatin1Char(')'));
    if (frame->droppedFills > 0) {
        dropped_ += frame->droppedFills;
        log_(QStringLiteral("frame #") + n + QLatin1Char(' ') + QString::number(frame->droppedFills) +
             QStringLiteral(" fills did not decode, dropped"));
    }
    if (fills.size() > maxFills) {
        // A burst no service sends: the newest are kept, so the mark moves on.
        const qsizetype over = fills.size() - maxFills;
        dropped_ += over;
        log_(QStringLiteral("frame #") + n + QStringLiteral(" over ") + QString::number(maxFills) +
             QStringLiteral(" fills: the oldest ") + QString::number(over) + QStringLiteral(" dropped"));
        fills.remove(0, over);
    }
    return fills;
}

std::optional<QString> LatenessMeter::note(double now, double newestStamp)
{
    const double late = std::max(0.0, (now - newestStamp) * 1000);
    worstLateMs_ = std::max(worstLateMs_, late);
    windowLateMs_ = std::max(windowLateMs_, late);
    ++windowFrames_;
    if (!windowStart_)
        windowStart_ = now;
    if (now - *windowStart_ < 20)
        return std::nullopt;
    const QString line = QStringLiteral("fills handled at most ") + QString::number(windowLateMs_, 'f', 0) +
                         QStringLiteral(" ms after their stamp in the last 20 s (") +
                         QString::number(windowFrames_) + QStringLiteral(" frames)");
    windowStart_ = now;
    windowLateMs_ = 0;
    windowFrames_ = 0;
    return line;
}
