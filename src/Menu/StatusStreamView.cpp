#include "Menu/StatusStreamView.h"

#include "Menu/Paint.h"

#include <QPainter>
#include <QTimer>

#include <cmath>

namespace {
// cubic-bezier(0.36, 0, 0.14, 1): a quick start and a soft landing.
double flipCurve(double x)
{
    double lo = 0, hi = 1, u = x;
    for (int i = 0; i < 30; ++i) {
        u = (lo + hi) / 2;
        const double bx = 3 * (1 - u) * (1 - u) * u * 0.36 + 3 * (1 - u) * u * u * 0.14 + u * u * u;
        (bx < x ? lo : hi) = u;
    }
    return 3 * (1 - u) * u * u + u * u * u;
}
} // namespace

StatusStreamView::StatusStreamView(QWidget *parent) : QWidget(parent)
{
    setAttribute(Qt::WA_TransparentForMouseEvents); // clicks belong to the strip
    clock_.start();
    flipTimer_ = new QTimer(this);
    flipTimer_->setInterval(int(hold * 1000));
    flipTimer_->setTimerType(Qt::CoarseTimer); // a little slack lets the system batch wake-ups
    connect(flipTimer_, &QTimer::timeout, this, &StatusStreamView::flip);
    pumpTimer_ = new QTimer(this);
    pumpTimer_->setInterval(33);
    connect(pumpTimer_, &QTimer::timeout, this, [this] {
        QWidget::update();
        if (now() > pumpUntil_)
            pumpTimer_->stop();
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
        QWidget::update();
    }
    rescheduleFlip();
}

void StatusStreamView::rescheduleFlip()
{
    flipTimer_->stop();
    if (rows_.size() >= 2 && !paused_)
        flipTimer_->start();
}

void StatusStreamView::flip()
{
    if (rows_.size() < 2 || now() - flipStarted_ < flipDuration)
        return;
    previous_ = index_;
    index_ = (index_ + 1) % int(rows_.size());
    flipStarted_ = now();
    pump(flipDuration + 0.08);
}

void StatusStreamView::setRail(const QList<RailTick> &rail)
{
    rail_ = rail;
    QWidget::update();
}

void StatusStreamView::setLinkState(LinkState state)
{
    link_ = state;
    QWidget::update();
}

void StatusStreamView::setDark(bool dark)
{
    dark_ = dark;
    QWidget::update();
}

void StatusStreamView::ping()
{
    if (paused_)
        return;
    pingStarted_ = now();
    pump(0.75);
}

void StatusStreamView::pump(double seconds)
{
    pumpUntil_ = std::max(pumpUntil_, now() + seconds);
    if (!pumpTimer_->isActive())
        pumpTimer_->start();
}

void StatusStreamView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    paintAt(p, size(), now());
}

void StatusStreamView::paintAt(QPainter &p, const QSizeF &size, double t) const
{
    p.setRenderHint(QPainter::Antialiasing);
    const double h = size.height();
    const double dotX = size.width() - 5;
    const QRectF lane(0, 0, size.width() - 12, h);

    // Rail first, under the row, growing up from the bottom edge.
    p.save();
    p.translate(0, h);
    p.scale(1, -1);
    StreamComposer::drawRail(p, rail_, QRectF(0, 1, lane.width(), 8), std::fmod(index_ * railStep, 7.0));
    p.restore();

    if (rows_.isEmpty()) {
        StreamComposer::drawIdle(p, link_ == LinkState::down ? QStringLiteral("TAPE OFFLINE") : QStringLiteral("NO SIGNALS"),
                                 lane, dark_);
    } else {
        const double progress = std::clamp((t - flipStarted_) / flipDuration, 0.0, 1.0);
        const double eased = flipCurve(progress);
        p.save();
        p.setClipRect(lane);
        const QImage current = StreamComposer::badge(rows_.value(index_), std::nullopt, h);
        if (progress < 1 && previous_ >= 0 && previous_ < rows_.size()) {
            // The old row leaves upwards while the new one rolls up from 17 below.
            const QImage old = StreamComposer::badge(rows_.value(previous_), std::nullopt, h);
            p.drawImage(QPointF(0, -17 * eased), old);
            p.drawImage(QPointF(0, 17 * (1 - eased)), current);
        } else {
            p.drawImage(QPointF(0, 0), current);
        }
        p.restore();
    }

    // The link dot, and its ring while a ping plays.
    const QColor dot = toQColor(link_ == LinkState::live    ? Theme::emerald
                                : link_ == LinkState::down ? Theme::alert
                                                           : Theme::amber);
    const double pingAge = t - pingStarted_;
    if (pingAge >= 0 && pingAge < 0.7) {
        const double k = 1 - std::pow(1 - pingAge / 0.7, 3); // ease-out
        QColor ring = dot;
        ring.setAlphaF(float(0.55 * (1 - k)));
        p.setPen(QPen(ring, 1));
        p.setBrush(Qt::NoBrush);
        const double r = 2.5 * (1 + 2.4 * k);
        p.drawEllipse(QPointF(dotX, h / 2), r, r);
    }
    p.setPen(Qt::NoPen);
    p.setBrush(dot);
    p.drawEllipse(QPointF(dotX, h / 2), 2.5, 2.5);
}
