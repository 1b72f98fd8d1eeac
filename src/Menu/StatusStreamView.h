#pragma once
// The ticker inside the strip: one segment at a time, flipping every 3 s, the
// rail of recent trades beneath and a link dot that pings on every frame. A
// focal trade takes the whole view over: the ordinary stream is blurred and
// dimmed behind it while it rolls in.
// Frames are painted as a function of time. A single-shot pump asks for the
// next frame only when something on screen will have moved by then, and stops
// when nothing moves, so the process sleeps between animations: a flip costs
// five wake-ups, a ping's ring five after the frame that brought it.

#include "Feed/LinkState.h"
#include "Wire/Telemetry.h"
#include "Menu/StreamComposer.h"

#include <QElapsedTimer>
#include <QHash>
#include <QWidget>

#include <array>
#include <optional>

class QTimer;

// What the view shows during a takeover: the segment and its dollar size.
struct Focal {
    StreamSegment segment;
    std::optional<double> usd;
    bool operator==(const Focal &) const = default;
};

class StatusStreamView : public QWidget {
    Q_OBJECT
public:
    static constexpr double hold = 3.0;
    static constexpr double flipDuration = 0.28;
    static constexpr double railStep = 19.0;
    static constexpr double dimmedOpacity = 0.3;
    static constexpr double focalBlurRadius = 2.2;
    static constexpr double pingRingMax = 6.5; // the ring's outer radius, from the dot's 2.5
    static constexpr double rowTravel = 17;    // how far a flip moves the row, in points
    // The ring fades with the cube of its remaining life over 0.7 s; past
    // this age it is a 1-pixel line under four steps of alpha, and nothing is drawn.
    static constexpr double pingVisibleFor = 0.5;

    explicit StatusStreamView(QWidget *parent = nullptr);

    void update(const QList<StreamSegment> &rows, bool paused);
    // A value starts (or replaces) a takeover; none ends it.
    void snap(const std::optional<Focal> &focal);
    const std::optional<Focal> &focal() const { return focal_; }
    void setRail(const QList<RailTick> &rail);
    const QList<RailTick> &rail() const { return rail_; }
    void setLinkState(LinkState state);
    LinkState linkState() const { return link_; }
    void applyLinkColour();
    void redrawRow(bool animated);
    void setDark(bool dark);
    bool isDark() const { return dark_; }
    // Less motion, as the desktop asks: rows flip without sliding, a takeover
    // stands at its final frame at once (no entrance, no growing blur, no
    // counting figure). Starts from the desktop's setting.
    void setReduceMotion(bool on);
    bool reduceMotion() const { return reduceMotion_; }
    void ping();
    void flip();

    // Draws the view as it looks `t` seconds (on the view's own clock) into its life.
    void paintAt(QPainter &p, const QSizeF &size, double t) const;
    double now() const { return double(clock_.nsecsElapsed()) / 1e9; }

    // Where a flip's frames fall on its curve, in seconds, at a device pixel
    // ratio: equal steps of the row's travel (a few points each, less than
    // 30 Hz frames took in the curve's fast middle), the last one when the
    // row reaches its resting pixel and the outgoing row is gone. The flip's
    // own wake-up draws the first; the view asks for the others.
    static QList<double> flipFrameTimes(double scale);
    // When the next frame after one drawn at t is due; none once nothing moves.
    std::optional<double> nextFrameAfter(double t) const;

Q_SIGNALS:
    // The ticker moved on to its next row: the app is awake anyway, a good
    // moment for other periodic looks to ride along.
    void flipped();

public:
    // State, for tests.
    bool hasFlipTimer() const;
    bool hasPumpTimer() const;
    bool isFlipping() const { return now() - flipStarted_ < flipDuration; }
    bool blurAttached() const { return blurAttached_; }
    double railPhase() const { return railPhase_; }
    int index() const { return index_; }
    const QList<StreamSegment> &rows() const { return rows_; }
    // Lane opacity and blur radius at time t: 1 and 0 at rest, dimmedOpacity
    // and focalBlurRadius during a takeover.
    double laneOpacityAt(double t) const;
    double blurRadiusAt(double t) const;

protected:
    void paintEvent(QPaintEvent *) override;

private:
    void rescheduleFlip();
    void present(double t);
    // The incoming row's offset in device pixels while a flip runs; one more
    // value once it has landed.
    int flipFrameKey(double t, double scale) const;
    void pump(double seconds);
    void schedule(double t);
    double takeoverEnd() const;
    const QList<double> &flipSchedule(double scale) const; // flipFrameTimes, kept per scale
    double flipLandsAfter(double scale) const;
    bool rolling(double t) const;
    void release(bool wasShowing);
    void attachBlur();
    void detachBlurAfterFade();
    double laneMixAt(double t) const;
    void startLaneMix(double target);
    void paintLane(QPainter &p, const QSizeF &size, double t) const;
    void paintFocal(QPainter &p, const QSizeF &size, double t) const;
    QImage cachedBadge(const StreamSegment &segment, const std::optional<QString> &figure, double height,
                       double scale) const;
    const QImage &cachedGlow(const StreamSegment &segment, const std::optional<QString> &figure,
                             double height, double scale) const;

    QList<StreamSegment> rows_;
    QList<RailTick> rail_;
    double railPhase_ = 0;
    int index_ = 0;
    std::optional<StreamSegment> flipFrom_;
    bool paused_ = false;
    bool dark_ = true;
    bool reduceMotion_ = false;
    LinkState link_ = LinkState::connecting;
    double flipStarted_ = -10;
    double pingStarted_ = -10;
    double pumpUntil_ = 0;
    QElapsedTimer clock_;
    QTimer *flipTimer_ = nullptr;
    QTimer *pumpTimer_ = nullptr;
    QTimer *unblurTask_ = nullptr;

    std::optional<Focal> focal_;
    std::optional<Focal> leaving_; // fading out after a release
    bool replaced_ = false;        // the focal trade took over from another one
    double rollStarted_ = -10;
    double releaseStarted_ = -10;
    bool blurAttached_ = false;
    double laneMixFrom_ = 0, laneMixTo_ = 0, laneMixStarted_ = -10;

    // Badges are drawn once per segment and figure, not per frame.
    mutable QHash<QString, QImage> badges_;
    mutable QHash<qint64, QImage> glows_; // by the landed badge's cache key
    // The takeover's blurred lane, kept while the lane and radius stay the same.
    mutable QImage blurSource_, blurred_;
    mutable double blurredRadius_ = -1;
    // The rail as last drawn, and what it was drawn from.
    mutable QImage railImage_;
    mutable QList<RailTick> railDrawn_;
    mutable double railDrawnPhase_ = -1;
    struct BadgeMemo {
        StreamSegment segment;
        std::optional<QString> figure;
        double height = -1, scale = -1;
        QImage image;
    };
    mutable std::array<BadgeMemo, 3> badgeMemo_;
    mutable int nextMemo_ = 0;
    mutable double flipScheduleScale_ = -1;
    mutable QList<double> flipSchedule_;
    mutable QImage dotSprite_;
    mutable QColor dotColour_;
    mutable QPointF dotPhase_;
    // What the last pumped frame showed: the row's offset and the ping's tick.
    int presentedFlip_ = -1, presentedPing_ = -1;
    bool takeoverSettled_ = true;
};
