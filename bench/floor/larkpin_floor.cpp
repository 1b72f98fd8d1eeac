// The least a tray app of this shape can cost: a tray icon and a 196x24
// always-on-top strip, painted once, then nothing. scripts/measure runs it
// beside the app, in the same conditions, so the app's figures read as a
// multiple of what Qt itself takes on this machine.
//
// Prints "floor → painted" on stderr once the strip's first frame is drawn,
// the mark the start-up figure is taken at.

#include <QApplication>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QWidget>

#include <cstdio>

namespace {
class Strip : public QWidget {
public:
    Strip()
        : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                               Qt::WindowDoesNotAcceptFocus)
    {
        setAttribute(Qt::WA_ShowWithoutActivating);
        setFixedSize(196, 24);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter p(this);
        p.fillRect(rect(), QColor(24, 25, 29));
        p.setPen(Qt::white);
        p.drawText(rect().adjusted(8, 0, 0, 0), Qt::AlignVCenter, QStringLiteral("floor"));
        if (!painted_) {
            painted_ = true;
            // After this paint has reached the window, like the app's first live frame.
            QTimer::singleShot(0, [] { std::fprintf(stderr, "floor → painted\n"); });
        }
    }

private:
    bool painted_ = false;
};
} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);

    QPixmap mark(22, 22);
    mark.fill(Qt::transparent);
    {
        QPainter p(&mark);
        p.setRenderHint(QPainter::Antialiasing);
        p.setBrush(Qt::white);
        p.setPen(Qt::NoPen);
        p.drawEllipse(QRectF(4, 4, 14, 14));
    }
    QSystemTrayIcon tray{QIcon(mark)};
    if (QSystemTrayIcon::isSystemTrayAvailable())
        tray.show();

    Strip strip;
    strip.move(0, 0);
    strip.show();
    return app.exec();
}
