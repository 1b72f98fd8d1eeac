// Kept whole: its timing and its drawing share one animation state, which a split would scatter.
#include "Menu/StatusStreamView.h"

#include "Menu/Blur.h"
#include "Menu/Paint.h"
#include "Support/Format.h"
#include "Look/Easing.h"
#include "Look/ReducedMotion.h"
#include "Look/Spring.h"

#include <QPainter>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {
constexpr double takeoverFrame = 1.0 / 30; // fades, the entrance and the slide
constexpr double rollFrame = 1.0 / 60;     // the figure counting up moves its digits faster
constexpr double ringFrame = 0.1;          // the ring grows by at most 1.5 points a frame
constexpr double flipStep = 3.5;           // the most a flip frame moves the row, in points
constexpr double laneFade = 0.26;          // dimming and blurring of the stream
constexpr double focalFadeIn = 0.18;       // the focal layer's opacity
constexpr double focalFadeOut = 0.2;       // after a release
constexpr double slideDuration = 0.2;      // one focal trade replacing another
constexpr double rollDuration = 0.55;      // the figure counting up
constexpr double takeoverSettles = 0.8;    // the entrance spring is still by then
constexpr int unblurDelayMs = 360;

// The focal layer's entrance: mass 0.7, stiffness 260, damping 16, from 0 to 1.
constexpr Spring popSpring{0.7, 260, 16};

// What a badge shows, as the start of its cache key (the size follows).
QString badgeKey(const StreamSegment &segment, const std::optional<QString> &figure)
{
    const QChar sep(0x1f);
    return QString::number(int(segment.kind)) + sep + segment.line.ticker + sep +
           segment.line.tag.value_or(QString()) + sep + figure.value_or(segment.line.figure.value_or(QString())) +
           sep;
}

double devicePixelRatioOf(const QPainter &p)
{
    return p.device() ? std::max(1.0, p.device()->devicePixelRatioF()) : 2.0;
}
} // namespace

StatusStreamView::StatusStreamView(QWidget *parent) : QWidget(parent), reduceMotion_(ReducedMotion::reduced())
{
    setAttribute(Qt::WA_TransparentForMouseEvents); // clicks belong to the strip
    if (const auto *motion = ReducedMotion::watcher())
        connect(motion, &ReducedMotion::Watcher::changed, this, &StatusStreamView::setReduceMotion);
    clock_.start();
    flipTimer_ = new QTimer(this);
    flipTimer_->setInterval(int(hold * 1000));
    flipTimer_->setTimerType(Qt::CoarseTimer); // a little slack lets the system batch wake-ups
    connect(flipTimer_, &QTimer::timeout, this, &StatusStreamView::flip);
    pumpTimer_ = new QTimer(this);
    pumpTimer_->setSingleShot(true);
    pumpTimer_->setTimerType(Qt::PreciseTimer); // frames are placed on the curve, not on a grid
    connect(pumpTimer_, &QTimer::timeout, this, [this] {
        const double t = now();
        present(t);
        schedule(t);
    });
    unblurTask_ = new QTimer(this);
    unblurTask_->setSingleShot(true);
    unblurTask_->setInterval(unblurDelayMs);
    connect(unblurTask_, &QTimer::timeout, this, [this] {
        if (focal_)
            return;
        blurAttached_ = false;
        QWidget::update();
    });
}

bool StatusStreamView::hasFlipTimer() const
{
    return flipTimer_->isActive();
}

bool StatusStreamView::hasPumpTimer() const
{
    return pumpTimer_->isActive();
}

void StatusStreamView::update(const QList<StreamSegment> &rows, bool paused)
{
    paused_ = paused;
    if (rows != rows_) {
        // Keep the segment on show if it is still in the list.
        const StreamSegment shown = rows_.value(index_);
        const qsizetype at = rows_.isEmpty() ? -1 : rows.indexOf(shown);
        rows_ = rows;
        index_ = at >= 0 ? int(at) : 0;
        // The badges of rows that stay are kept: scores age, so the list
        // reorders now and then without anything new to draw.
        QStringList staying;
        for (const StreamSegment &row : rows_)
            staying << badgeKey(row, std::nullopt);
        badges_.removeIf([&staying](const QHash<QString, QImage>::iterator &it) {
            return std::none_of(staying.cbegin(), staying.cend(),
                                [&it](const QString &prefix) { return it.key().startsWith(prefix); });
        });
        redrawRow(false);
    }
    rescheduleFlip();
}

void StatusStreamView::rescheduleFlip()
{
    // A running timer is left alone: restarting it on every new list would
    // starve the flip on a busy tape.
    if (rows_.size() < 2 || paused_ || focal_)
        flipTimer_->stop();
    else if (!flipTimer_->isActive())
        flipTimer_->start();
}

void StatusStreamView::flip()
{
    if (rows_.size() < 2 || isFlipping())
        return;
    flipFrom_ = rows_.value(index_);
    index_ = (index_ + 1) % int(rows_.size());
    railPhase_ += railStep;
    redrawRow(true);
    Q_EMIT flipped();
}

void StatusStreamView::setReduceMotion(bool on)
{
    reduceMotion_ = on;
    QWidget::update();
}

void StatusStreamView::redrawRow(bool animated)
{
    if (animated && !reduceMotion_) {
        // The flip's clock starts one step back, so that the wake-up that
        // flips draws the first step: a frame of the row still at rest would
        // cost a wake-up of its own and show nothing move.
        flipStarted_ = now() - flipSchedule(std::max(1.0, devicePixelRatioF())).first();
        pump(flipDuration);
    } else {
        flipStarted_ = -10;
        flipFrom_.reset();
    }
    QWidget::update();
}

void StatusStreamView::setRail(const QList<RailTick> &rail)
{
    rail_ = rail;
    QWidget::update();
}

void StatusStreamView::setLinkState(LinkState state)
{
    link_ = state;
}

void StatusStreamView::applyLinkColour()
{
    QWidget::update(); // the dot's colour is read from linkState at paint time
}

void StatusStreamView::setDark(bool dark)
{
    if (dark_ == dark)
        return;
    dark_ = dark;
    redrawRow(false);
}

void StatusStreamView::ping()
{
    if (paused_ || !isVisible())
        return;
    pingStarted_ = now();
    pump(0.75);
}

void StatusStreamView::pump(double seconds)
{
    const double t = now();
    pumpUntil_ = std::max(pumpUntil_, t + seconds);
    schedule(t);
}

void StatusStreamView::schedule(double t)
{
    std::optional<double> next = nextFrameAfter(t);
    if (next && *next > pumpUntil_)
        next = t < pumpUntil_ ? std::optional(pumpUntil_) : std::nullopt;
    if (!next) {
        pumpTimer_->stop();
        return;
    }
    // Whole milliseconds, rounded up: a frame that comes a little early would
    // find nothing moved and cost a wake-up of its own.
    pumpTimer_->start(std::max(1, int(std::ceil((*next - t) * 1000))));
}

double StatusStreamView::takeoverEnd() const
{
    if (reduceMotion_)
        return -10; // every takeover frame is its final one
    return std::max({laneMixStarted_ + laneFade, rollStarted_ + takeoverSettles, releaseStarted_ + focalFadeOut});
}

bool StatusStreamView::rolling(double t) const
{
    return focal_ && focal_->usd && !reduceMotion_ && t - rollStarted_ < rollDuration;
}

QList<double> StatusStreamView::flipFrameTimes(double scale)
{
    // The row rests once it is within half a device pixel of its place.
    const double travel = rowTravel * scale;
    const double landed = 1 - 0.5 / travel;
    const int steps = std::max(1, int(std::ceil(landed * rowTravel / flipStep)));
    QList<double> times;
    for (int k = 1; k <= steps; ++k)
        times.append(flipDuration * Easing::flip.timeOf(landed * k / steps));
    return times;
}

const QList<double> &StatusStreamView::flipSchedule(double scale) const
{
    if (scale != flipScheduleScale_) {
        flipScheduleScale_ = scale;
        flipSchedule_ = flipFrameTimes(scale);
    }
    return flipSchedule_;
}

double StatusStreamView::flipLandsAfter(double scale) const
{
    return flipSchedule(scale).last();
}

std::optional<double> StatusStreamView::nextFrameAfter(double t) const
{
    std::optional<double> next;
    const auto want = [&next](double at) {
        if (!next || at < *next)
            next = at;
    };
    const double end = takeoverEnd();
    if (t < end)
        want(std::min(end, t + (rolling(t) ? rollFrame : takeoverFrame)));
    // A frame drawn within 2 ms of one of the flip's own times was that frame.
    const double scale = std::max(1.0, devicePixelRatioF());
    if (flipFrom_ && t < flipStarted_ + flipLandsAfter(scale)) {
        for (double at : flipSchedule(scale))
            if (flipStarted_ + at > t + 0.002) {
                want(flipStarted_ + at);
                break;
            }
    }
    // The ring rides on whatever frames come; on its own it asks for one now and then.
    const double ringGone = pingStarted_ + pingVisibleFor;
    if (t < ringGone)
        want(std::min(ringGone, t + ringFrame));
    return next;
}

void StatusStreamView::snap(const std::optional<Focal> &focal)
{
    if (focal == focal_)
        return;
    if (!focal) {
        release(true);
        return;
    }
    const bool wasShowing = focal_.has_value();
    const double t = now();
    focal_ = focal;
    leaving_.reset();
    replaced_ = wasShowing;
    rollStarted_ = t;
    flipTimer_->stop();
    attachBlur();
    startLaneMix(1);
    pump(takeoverSettles);
    QWidget::update();
}

void StatusStreamView::release(bool wasShowing)
{
    if (wasShowing) {
        leaving_ = focal_;
        releaseStarted_ = now();
    }
    focal_.reset();
    startLaneMix(0);
    detachBlurAfterFade();
    pump(std::max(laneFade, focalFadeOut) + 0.08);
    rescheduleFlip();
    QWidget::update();
}

void StatusStreamView::attachBlur()
{
    unblurTask_->stop();
    blurAttached_ = true; // one blur on the lane, however often this is called
}

void StatusStreamView::detachBlurAfterFade()
{
    unblurTask_->start();
}

double StatusStreamView::laneMixAt(double t) const
{
    if (reduceMotion_)
        return laneMixTo_;
    const double k = Easing::easeInOut.valueAt((t - laneMixStarted_) / laneFade);
    return laneMixFrom_ + (laneMixTo_ - laneMixFrom_) * k;
}

void StatusStreamView::startLaneMix(double target)
{
    const double t = now();
    laneMixFrom_ = laneMixAt(t);
    laneMixTo_ = target;
    laneMixStarted_ = t;
}

double StatusStreamView::laneOpacityAt(double t) const
{
    return 1 - laneMixAt(t) * (1 - dimmedOpacity);
}

double StatusStreamView::blurRadiusAt(double t) const
{
    return blurAttached_ ? laneMixAt(t) * focalBlurRadius : 0;
}

QImage StatusStreamView::cachedBadge(const StreamSegment &segment, const std::optional<QString> &figure,
                                     double height, double scale) const
{
    // Most frames want the badge or two of the last frame: compare fields
    // rather than build a hash key (number formatting and allocations) per frame.
    for (const BadgeMemo &m : badgeMemo_)
        if (m.height == height && m.scale == scale && m.figure == figure && m.segment == segment)
            return m.image;
    const QChar sep(0x1f);
    const QString key = badgeKey(segment, figure) + QString::number(height) + sep + QString::number(scale);
    auto it = badges_.find(key);
    if (it == badges_.end()) {
        if (badges_.size() > 48) // a rolling figure makes a few dozen; never let them pile up
            badges_.clear();
        it = badges_.insert(key, StreamComposer::badge(segment, figure, height, scale));
    }
    badgeMemo_[nextMemo_] = BadgeMemo{segment, figure, height, scale, *it};
    nextMemo_ = (nextMemo_ + 1) % int(badgeMemo_.size());
    return *it;
}

const QImage &StatusStreamView::cachedGlow(const StreamSegment &segment, const std::optional<QString> &figure,
                                           double height, double scale) const
{
    const QImage badge = cachedBadge(segment, figure, height, scale);
    const qint64 key = badge.cacheKey();
    auto it = glows_.find(key);
    if (it == glows_.end()) {
        if (glows_.size() > 8)
            glows_.clear();
        QImage glow(badge.size(), QImage::Format_ARGB32_Premultiplied);
        glow.setDevicePixelRatio(badge.devicePixelRatio());
        glow.fill(Qt::transparent);
        if (!badge.isNull()) {
            QPainter g(&glow);
            g.drawImage(0, 0, badge);
            g.setCompositionMode(QPainter::CompositionMode_SourceIn);
            g.fillRect(glow.rect(), toQColor(Theme::menuAccent(segment.kind, true)));
        }
        glow = Blur::gaussian(glow, 2.0 * scale);
        glow.setDevicePixelRatio(scale);
        it = glows_.insert(key, glow);
    }
    return *it;
}

int StatusStreamView::flipFrameKey(double t, double scale) const
{
    // Landed is its own frame: only then is the outgoing row's last sliver gone.
    if (!flipFrom_ || t >= flipStarted_ + flipLandsAfter(scale))
        return std::numeric_limits<int>::max();
    const double progress = std::clamp((t - flipStarted_) / flipDuration, 0.0, 1.0);
    return int(std::lround(rowTravel * Easing::flip.valueAt(progress) * scale));
}

void StatusStreamView::present(double t)
{
    if (!isVisible())
        return; // nothing on screen to bring up to date; the next expose draws afresh
    // On this path a frame costs far more on its way to the display server
    // (and through a cold cache after a sleep) than in drawing, so only the
    // part that moves is repainted, and a frame that would show what is
    // already there is not drawn at all. Each animation's settled frame is
    // drawn once, by the first frame after its end.
    constexpr int settled = std::numeric_limits<int>::max();
    const bool takeover = t < takeoverEnd();
    if (takeover || !takeoverSettled_) {
        takeoverSettled_ = !takeover;
        presentedFlip_ = presentedPing_ = -1;
        QWidget::repaint();
        return;
    }
    const double scale = std::max(1.0, devicePixelRatioF());
    const int flip = flipFrameKey(t, scale);
    // Any frame while the ring shows draws it at its new age.
    const int ping = t - pingStarted_ < pingVisibleFor ? int((t - pingStarted_) * 1000) : settled;
    QRect dirty;
    // The row moves in whole pixels; the tail of a flip often stays on one.
    if (flip != presentedFlip_)
        dirty = QRect(0, 0, width() - 12, height());
    if (ping != presentedPing_)
        dirty |= QRect(width() - 15, 0, 15, height()); // the ring at its widest
    presentedFlip_ = flip;
    presentedPing_ = ping;
    if (!dirty.isEmpty())
        QWidget::repaint(dirty); // now rather than posted: one trip through the loop per frame
}

void StatusStreamView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    paintAt(p, size(), now());
}

void StatusStreamView::paintLane(QPainter &p, const QSizeF &size, double t) const
{
    const double h = size.height();
    const QRectF lane(0, 0, size.width() - 12, h);
    const double scale = devicePixelRatioOf(p);

    // Rail first, under the row, growing up from the bottom edge. It only
    // changes with a new tick or a flip, so it is drawn once into an image and
    // reused by every frame in between.
    const double phase = std::fmod(railPhase_, 7.0);
    const QSize pixels(int(std::ceil(lane.width() * scale)), int(std::ceil(h * scale)));
    if (railImage_.size() != pixels || railImage_.devicePixelRatio() != scale || railDrawn_ != rail_ ||
        railDrawnPhase_ != phase) {
        railImage_ = clearImage(QSizeF(lane.width(), h), scale);
        QPainter rp(&railImage_);
        rp.setRenderHint(QPainter::Antialiasing);
        rp.translate(0, h);
        rp.scale(1, -1);
        StreamComposer::drawRail(rp, rail_, QRectF(0, 1, lane.width(), 8), phase);
        railDrawn_ = rail_;
        railDrawnPhase_ = phase;
    }
    p.drawImage(QPointF(0, 0), railImage_);

    if (rows_.isEmpty()) {
        StreamComposer::drawIdle(
            p, link_ == LinkState::down ? QStringLiteral("TAPE OFFLINE") : QStringLiteral("NO SIGNALS"), lane,
            dark_);
        return;
    }
    p.save();
    p.setClipRect(lane);
    const QImage current = cachedBadge(rows_.value(index_), std::nullopt, h, scale);
    if (flipFrom_ && t < flipStarted_ + flipLandsAfter(scale)) {
        // The old row leaves upwards while the new one rolls up from below.
        const double eased =
            Easing::flip.valueAt(std::clamp((t - flipStarted_) / flipDuration, 0.0, 1.0));
        p.drawImage(QPointF(0, -rowTravel * eased), cachedBadge(*flipFrom_, std::nullopt, h, scale));
        p.drawImage(QPointF(0, rowTravel * (1 - eased)), current);
    } else {
        p.drawImage(QPointF(0, 0), current);
    }
    p.restore();
}

void StatusStreamView::paintFocal(QPainter &p, const QSizeF &size, double t) const
{
    const Focal *shown = focal_ ? &*focal_ : leaving_ ? &*leaving_ : nullptr;
    if (!shown)
        return;
    const double h = size.height();
    double opacity, scaleBy = 1, dy = 0;
    if (reduceMotion_ && !focal_)
        return; // gone at once
    if (focal_ && reduceMotion_) {
        opacity = 1; // the landed frame from the start
    } else if (focal_) {
        const double since = t - rollStarted_;
        opacity = replaced_ ? 1 : std::clamp(since / focalFadeIn, 0.0, 1.0);
        if (replaced_)
            dy = 5 * (1 - std::clamp(since / slideDuration, 0.0, 1.0));
        else if (since < popSpring.settlingDuration()) // then a plain copy, not a resampling
            scaleBy = 0.93 + 0.07 * popSpring.valueAt(since);
    } else {
        opacity = 1 - std::clamp((t - releaseStarted_) / focalFadeOut, 0.0, 1.0);
    }
    if (opacity <= 0)
        return;

    // The figure counts up to the trade's size, keeping the size's own shape.
    std::optional<QString> figure;
    if (shown->usd) {
        const double k = reduceMotion_
                             ? 1.0
                             : 1 - std::pow(1 - std::clamp((t - rollStarted_) / rollDuration, 0.0, 1.0), 3);
        figure = Format::usd(*shown->usd * (focal_ ? k : 1.0), *shown->usd);
    }
    const double scale = devicePixelRatioOf(p);
    const QImage badge = cachedBadge(shown->segment, figure, h, scale);
    if (badge.isNull())
        return;

    // A glow in the kind's accent, from the outline of the badge as it lands.
    // The digits rolling underneath change a blurred glow by nothing visible,
    // so it is made once per takeover rather than once per frame.
    const QImage &glow = cachedGlow(
        shown->segment, shown->usd ? std::optional(Format::usd(*shown->usd)) : std::nullopt, h, scale);

    p.save();
    const QPointF centre(StreamComposer::badgeWidth / 2, h / 2);
    p.translate(centre.x(), centre.y() + dy);
    p.scale(scaleBy, scaleBy);
    p.translate(-centre);
    p.setOpacity(opacity * 0.7);
    p.drawImage(QPointF(0, 0), glow);
    p.setOpacity(opacity);
    p.drawImage(QPointF(0, 0), badge);
    p.restore();
}

void StatusStreamView::paintAt(QPainter &p, const QSizeF &size, double t) const
{
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    const double h = size.height();
    // Far enough from the edge that the ping's ring at its widest (radius
    // pingRingMax plus half its pen) stays whole inside the view.
    const double dotX = size.width() - pingRingMax - 1;

    const double laneOpacity = laneOpacityAt(t);
    const double blur = blurRadiusAt(t);
    if (blur > 0.01) {
        // Blurred at one pixel per point: the result is soft anyway, and it is
        // a quarter of the work at 2x. The blur is kept while neither the lane
        // nor the radius changes, which is most of a takeover.
        QImage lane = clearImage(size, 1);
        {
            QPainter lp(&lane);
            lp.setRenderHint(QPainter::Antialiasing);
            paintLane(lp, size, t);
        }
        if (lane != blurSource_ || std::abs(blur - blurredRadius_) > 0.02) {
            blurred_ = Blur::gaussian(lane, blur);
            blurSource_ = lane;
            blurredRadius_ = blur;
        }
        p.save();
        p.setOpacity(laneOpacity);
        p.drawImage(QRectF(QPointF(0, 0), QSizeF(lane.size())), blurred_);
        p.restore();
    } else {
        p.save();
        p.setOpacity(laneOpacity);
        paintLane(p, size, t);
        p.restore();
    }

    paintFocal(p, size, t);

    // The link dot, and its ring while a ping plays.
    const QColor dot = toQColor(link_ == LinkState::live   ? Theme::emerald
                                : link_ == LinkState::down ? Theme::alert
                                                           : Theme::amber);
    const double pingAge = t - pingStarted_;
    if (pingAge >= 0 && pingAge < pingVisibleFor) {
        const double k = 1 - std::pow(1 - pingAge / 0.7, 3); // ease-out
        QColor ring = dot;
        ring.setAlphaF(float(0.55 * (1 - k)));
        p.setPen(QPen(ring, 1));
        p.setBrush(Qt::NoBrush);
        const double r = 2.5 + (pingRingMax - 2.5) * k;
        p.drawEllipse(QPointF(dotX, h / 2), r, r);
    }
    // The dot is in every frame: a small image per colour and pixel phase
    // rather than an antialiased path each time.
    const double scale = devicePixelRatioOf(p);
    const QTransform &tf = p.transform();
    if (tf.type() > QTransform::TxTranslate) {
        p.setPen(Qt::NoPen);
        p.setBrush(dot);
        p.drawEllipse(QPointF(dotX, h / 2), 2.5, 2.5);
        return;
    }
    const QPointF origin(tf.dx(), tf.dy());
    const QPointF corner = (QPointF(dotX - 3.5, h / 2 - 3.5) + origin) * scale; // in device pixels
    const QPointF phase(corner.x() - std::floor(corner.x()), corner.y() - std::floor(corner.y()));
    if (dotSprite_.isNull() || dotColour_ != dot || dotSprite_.devicePixelRatio() != scale ||
        dotPhase_ != phase) {
        dotSprite_ = clearImage(QSizeF(8, 8), scale);
        QPainter sp(&dotSprite_);
        sp.setRenderHint(QPainter::Antialiasing);
        sp.setPen(Qt::NoPen);
        sp.setBrush(dot);
        sp.drawEllipse(QPointF(3.5, 3.5) + phase / scale, 2.5, 2.5);
        dotColour_ = dot;
        dotPhase_ = phase;
    }
    p.drawImage(QPointF(std::floor(corner.x()), std::floor(corner.y())) / scale - origin, dotSprite_);
}
