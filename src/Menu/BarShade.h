#pragma once
// The colour of the desktop's bar beside the strip, which the strip's fill,
// its ink and the tray mark follow. The bar's shade is looked at (a small
// read of the bar above the strip) on the ticker's flips, when the process is
// awake anyway, so a light/dark switch shows within seconds. When the flips
// stop (a takeover holds the strip, the ticker is paused or down to one row)
// it is looked at once more, and then only on a theme, palette or placement
// change and at the next flip: a ticker at rest wakes nothing for it.

#include <QColor>
#include <QElapsedTimer>
#include <QObject>
#include <QRect>

#include <functional>
#include <optional>

class QScreen;
class QTimer;

class BarShade : public QObject {
    Q_OBJECT
public:
    static constexpr int lookMs = 3000; // how often the bar's shade is looked at while the ticker flips

    // Where the strip is: its screen and its rectangle there.
    struct Spot {
        QScreen *screen = nullptr;
        QRect strip;
    };

    explicit BarShade(QObject *parent = nullptr);

    // The strip's spot now; none while there is no strip to look beside.
    std::function<std::optional<Spot>()> where;
    // Each look's answer: none where the screen could not be read.
    std::function<void(const std::optional<QColor> &)> onLook;

    // Reads the bar's colour; without `now`, at most every two minutes.
    void look(bool now = false);
    // A first look, and one more once the ticker may have stopped flipping.
    void start();
    // The ticker flipped: a look when the last is lookMs old, and one more
    // after the flips stop.
    void flipped();

    // The part of the screen the bar colour is read from: the top bar above the
    // strip, or a bottom bar at the same columns; empty without a bar.
    static QRect sampleRegion(const QRect &screen, const QRect &available, const QRect &strip);
    // The bar's colour read off the screen; none where the screen cannot be read.
    static std::optional<QColor> sample(QScreen *screen, const QRect &region);
    static bool isDark(const QColor &colour);

private:
    QElapsedTimer sampled_;
    QTimer *watch_ = nullptr; // one look after the ticker stops flipping
};
