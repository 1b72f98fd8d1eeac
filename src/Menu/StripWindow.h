#pragma once
// The strip's own window: a frameless, never-focused tool window that takes
// the clicks (the stream view inside it is transparent to them), draws the
// strip's face on the bar's colour and speaks to screen readers as a button.
// It decides nothing: what a click, a reader's action or a new theme means is
// its owner's, through the callbacks below. Its place is the desktop's to
// decide, so it is not dragged around.

#include <QColor>
#include <QImage>
#include <QWidget>

#include <functional>

class QPainter;

class StripWindow : public QWidget {
public:
    static constexpr int markWidth = 13;

    StripWindow();

    QColor bar{24, 25, 29}; // the desktop bar's colour, when it could be read
    bool rounded = true;    // false while no compositor blends the corners

    // A mouse button released over the strip.
    std::function<void(Qt::MouseButton, const QPoint &)> onClick;
    // A screen reader's press, and its "show menu" (at the strip's bottom-left).
    std::function<void()> onPress;
    std::function<void(const QPoint &)> onShowMenu;
    // A new desktop theme, palette or style: the bar's colour may have changed.
    std::function<void()> onThemeChange;

    // The strip as drawn on a bar of the given colour: background and brand mark
    // (the stream view draws over it from x = 22).
    // Square corners where no compositor blends the translucent ones.
    static void paintFace(QPainter &p, const QSizeF &size, const QColor &bar, bool rounded = true);
    // The brand mark alone, for the tray: monochrome, light on a dark panel
    // and dark on a light one.
    static QImage trayMark(bool darkPanel, int size = 32);

protected:
    void paintEvent(QPaintEvent *) override;
    bool event(QEvent *e) override;
    void mouseReleaseEvent(QMouseEvent *e) override;

private:
    QImage face_;
    QSize faceSize_;
    QColor faceBar_;
    bool faceRounded_ = true;
};
