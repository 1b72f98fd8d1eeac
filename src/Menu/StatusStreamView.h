#pragma once
// The ticker inside the strip: one segment at a time, flipping every 3 s, the
// rail of recent trades beneath and a link dot that pings on every frame.
// Frames are painted as a function of time; a 30 Hz pump runs only for a
// bounded time after an event, so nothing wakes while nothing moves.

#include "Feed/LinkState.h"
#include "Feed/Telemetry.h"
#include "Menu/StreamComposer.h"

#include <QElapsedTimer>
#include <QWidget>

class QTimer;

class StatusStreamView : public QWidget {
    Q_OBJECT
public:
    static constexpr double hold = 3.0;
    static constexpr double flipDuration = 0.28;
    static constexpr double railStep = 19.0;

    explicit StatusStreamView(QWidget *parent = nullptr);

    void update(const QList<StreamSegment> &rows, bool paused);
    void setRail(const QList<RailTick> &rail);
    const QList<RailTick> &rail() const { return rail_; }
    void setLinkState(LinkState state);
    LinkState linkState() const { return link_; }
    void setDark(bool dark);
    void ping();
    void flip();

    // Draws the view as it looks `t` seconds into the current animation.
    void paintAt(QPainter &p, const QSizeF &size, double t) const;

    // State, for tests.
    bool hasFlipTimer() const;
    bool hasPumpTimer() const;
    int index() const { return index_; }
    const QList<StreamSegment> &rows() const { return rows_; }

protected:
    void paintEvent(QPaintEvent *) override;

private:
    void rescheduleFlip();
    void pump(double seconds);
    double now() const { return double(clock_.nsecsElapsed()) / 1e9; }

    QList<StreamSegment> rows_;
    QList<RailTick> rail_;
    int index_ = 0;
    int previous_ = -1;
    bool paused_ = false;
    bool dark_ = true;
    LinkState link_ = LinkState::connecting;
    double flipStarted_ = -10;
    double pingStarted_ = -10;
    double pumpUntil_ = 0;
    QElapsedTimer clock_;
    QTimer *flipTimer_ = nullptr;
    QTimer *pumpTimer_ = nullptr;
};
