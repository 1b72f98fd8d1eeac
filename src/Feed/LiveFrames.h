#pragma once
// What the live socket brings, checked frame by frame: one message's frames
// counted against its bound while they come, each message decoded and held to
// the per-frame cap (with its log lines), and how late its fills are handled.

#include "Wire/TarnwickModels.h"

#include <QList>
#include <QString>

#include <functional>
#include <optional>

// Qt checks each frame's announced size, but it gathers the frames of one
// message without a bound: they are counted here as they come.
class MessageBound {
public:
    explicit MessageBound(qint64 maxBytes) : max_(maxBytes) {}
    // True once, for the frame that takes its message past the bound; the
    // socket is then given up and nothing more is counted.
    bool overflows(qint64 frameBytes, bool last);

private:
    qint64 max_;
    qint64 counted_ = 0; // negative: over the bound once already
};

class FrameReader {
public:
    FrameReader(bool verbose, std::function<void(const QString &)> log)
        : verbose_(verbose), log_(std::move(log))
    {
    }

    void count() { ++frames_; } // each message, before it is read
    // The fills of a "fills" frame, the newest `maxFills` of them; nullopt for
    // an undecodable frame or one of another type (each logged).
    std::optional<QList<TwFill>> read(const QByteArray &bytes, int maxFills);

    qint64 frames() const { return frames_; }
    qint64 fills() const { return fills_; }
    qint64 dropped() const { return dropped_; } // undecodable or over the cap

private:
    bool verbose_;
    std::function<void(const QString &)> log_;
    qint64 frames_ = 0;
    qint64 fills_ = 0;
    qint64 dropped_ = 0;
};

// From a fill's own stamp to the end of its frame's handling: the worst since
// start, and with the trace on the worst of every 20 s.
class LatenessMeter {
public:
    // A line for the trace when a 20 s window closes.
    std::optional<QString> note(double now, double newestStamp);
    double worstMs() const { return worstLateMs_; }

private:
    double worstLateMs_ = 0;
    double windowLateMs_ = 0;
    qint64 windowFrames_ = 0;
    std::optional<double> windowStart_;
};
