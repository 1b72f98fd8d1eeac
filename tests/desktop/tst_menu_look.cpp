// The menus in the panel's dark look even under a light widget palette: the
// menu is drawn off screen and its pixels are read. LARKPIN_MENU_PNG=<file>
// keeps the picture.

#include "Menu/MenuLook.h"

#include <QApplication>
#include <QMenu>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>

namespace {
double luminance(QRgb c)
{
    return (0.2126 * qRed(c) + 0.7152 * qGreen(c) + 0.0722 * qBlue(c)) / 255.0;
}
} // namespace

class MenuLookTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void darkUnderALightPalette()
    {
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
        QApplication::setPalette(QApplication::style()->standardPalette()); // Fusion's light one
        QMenu menu;
        menu.addAction(QStringLiteral("3 whales · 1 spike"))->setEnabled(false);
        menu.addSeparator();
        menu.addAction(QStringLiteral("Open Larkpin"));
        menu.addAction(QStringLiteral("Pause ticker"));
        menu.addSeparator();
        menu.addAction(QStringLiteral("Quit Larkpin"))->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
        MenuLook::apply(&menu);
        menu.popup(QPoint(0, 0));
        QVERIFY(QTest::qWaitForWindowExposed(&menu));
        const QImage shot = menu.grab().toImage();
        menu.close();
        if (qEnvironmentVariableIsSet("LARKPIN_MENU_PNG"))
            shot.save(qEnvironmentVariable("LARKPIN_MENU_PNG"));

        // Mostly dark, with light text on it.
        int dark = 0, light = 0, all = 0;
        for (int y = 0; y < shot.height(); ++y)
            for (int x = 0; x < shot.width(); ++x, ++all) {
                const double l = luminance(shot.pixel(x, y));
                dark += l < 0.15;
                light += l > 0.6;
            }
        QVERIFY2(dark > all * 0.7, qPrintable(QStringLiteral("%1 of %2 dark").arg(dark).arg(all)));
        QVERIFY2(light > 20, qPrintable(QStringLiteral("%1 light pixels").arg(light)));
        // The hovered row stays dark too.
        QVERIFY(luminance(menu.palette().color(QPalette::Highlight).rgb()) < 0.2);
    }
};

QTEST_MAIN(MenuLookTest)
#include "tst_menu_look.moc"
