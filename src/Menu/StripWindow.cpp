#include "Menu/StripWindow.h"

#include "Menu/BarShade.h"
#include "Menu/Paint.h"
#include "Menu/StripPlacement.h"
#include "Support/Log.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

namespace {
// The strip for a screen reader: a button named for what it is, described by
// what it shows (its tooltip, the ticker's first signal), that opens the panel
// or its menu as a click does.
class StripAccessible : public QAccessibleWidget {
public:
    explicit StripAccessible(StripWindow *strip)
        : QAccessibleWidget(strip, QAccessible::Button), strip_(strip)
    {
    }
    QStringList actionNames() const override { return {pressAction(), showMenuAction()}; }
    QString localizedActionDescription(const QString &name) const override
    {
        if (name == pressAction())
            return QStringLiteral("Open or close the Larkpin panel");
        if (name == showMenuAction())
            return QStringLiteral("Show the Larkpin menu");
        return QAccessibleWidget::localizedActionDescription(name);
    }
    void doAction(const QString &name) override
    {
        const QRect r(widget()->mapToGlobal(QPoint(0, 0)), widget()->size());
        if (name == pressAction()) {
            if (strip_->onPress)
                strip_->onPress();
        } else if (name == showMenuAction()) {
            if (strip_->onShowMenu)
                strip_->onShowMenu(r.bottomLeft());
        }
    }
    QAccessible::State state() const override
    {
        QAccessible::State s = QAccessibleWidget::state();
        s.focusable = false; // it never takes the focus from the user's window
        return s;
    }

private:
    StripWindow *strip_;
};

// Three bars as wide as the box, each a sixth of its height with round ends,
// two sixths apart around the middle: the 13 × 12 design at any size.
void paintMark(QPainter &p, const QRectF &box, const QColor &colour)
{
    const double unit = box.height() / 6;
    p.setPen(Qt::NoPen);
    p.setBrush(colour);
    const double mid = box.center().y();
    for (double dy : {-2.5, -0.5, 1.5})
        p.drawRoundedRect(QRectF(box.left(), mid + dy * unit, box.width(), unit), unit / 2, unit / 2);
}

QColor markInk(bool dark)
{
    return dark ? QColor(237, 241, 244) : QColor(20, 22, 28);
}
} // namespace

StripWindow::StripWindow()
    : QWidget(nullptr,
              Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus)
{
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_X11DoNotAcceptFocus);
    setAttribute(Qt::WA_TranslucentBackground);
    // A window that never takes focus is never active: without this Qt
    // shows it no tooltip at all.
    setAttribute(Qt::WA_AlwaysShowToolTips);
    setFixedSize(StripPlacement::itemWidth, StripPlacement::defaultBarHeight);
    setAccessibleName(QStringLiteral("Larkpin ticker"));
    static const bool factory = [] {
        QAccessible::installFactory([](const QString &, QObject *o) -> QAccessibleInterface * {
            auto *strip = dynamic_cast<StripWindow *>(o);
            return strip ? new StripAccessible(strip) : nullptr;
        });
        return true;
    }();
    Q_UNUSED(factory);
    // With a reader running, QWidget's own constructor (and the name just
    // set) already made a plain interface for it, when it was no
    // StripWindow yet: replace it with ours.
    QAccessibleInterface *made = QAccessible::queryAccessibleInterface(this);
    if (made && !dynamic_cast<StripAccessible *>(made)) {
        QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(made));
        made = QAccessible::queryAccessibleInterface(this);
        if (!dynamic_cast<StripAccessible *>(made))
            Log::write("Larkpin", QStringLiteral("the strip has no accessible interface of its own"));
    }
}

void StripWindow::paintEvent(QPaintEvent *)
{
    // Every frame of the ticker repaints the strip beneath it (the strip is
    // translucent at its corners), so its face is drawn once and reused.
    const qreal scale = devicePixelRatioF();
    if (faceSize_ != size() || face_.devicePixelRatio() != scale || faceBar_ != bar ||
        faceRounded_ != rounded) {
        face_ = clearImage(size(), scale);
        faceSize_ = size();
        QPainter fp(&face_);
        paintFace(fp, size(), bar, rounded);
        faceBar_ = bar;
        faceRounded_ = rounded;
    }
    QPainter p(this);
    p.drawImage(QPointF(0, 0), face_);
}

// A new desktop theme or palette usually comes with a new bar colour, and
// is the moment to look rather than waiting for the next check.
bool StripWindow::event(QEvent *e)
{
    if ((e->type() == QEvent::ThemeChange || e->type() == QEvent::PaletteChange ||
         e->type() == QEvent::StyleChange) &&
        onThemeChange)
        onThemeChange();
    return QWidget::event(e);
}

void StripWindow::mouseReleaseEvent(QMouseEvent *e)
{
    if (onClick)
        onClick(e->button(), e->globalPosition().toPoint());
}

void StripWindow::paintFace(QPainter &p, const QSizeF &size, const QColor &bar, bool rounded)
{
    p.setRenderHint(QPainter::Antialiasing);
    QColor background = bar;
    background.setAlpha(255);
    QPainterPath bg;
    const double radius = rounded ? 6 : 0;
    bg.addRoundedRect(QRectF(QPointF(0, 0), size), radius, radius);
    p.fillPath(bg, background);
    paintMark(p, QRectF(4, size.height() / 2 - 6, markWidth, 12), markInk(BarShade::isDark(background)));
}

QImage StripWindow::trayMark(bool darkPanel, int size)
{
    QImage image(QSize(size, size), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    const double w = size * 13.0 / 16, h = size * 12.0 / 16;
    paintMark(p, QRectF((size - w) / 2, (size - h) / 2, w, h), markInk(darkPanel));
    return image;
}
