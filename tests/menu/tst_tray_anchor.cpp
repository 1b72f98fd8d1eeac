// Where the panel hangs from after a click on the tray icon: the icon when
// the tray host says where it is, the pointer that clicked it when not (a
// StatusNotifierItem host never says), and on native Wayland, where no one
// knows the pointer, the middle of the top of the screen. Never a corner.

#include "Table.h"

#include "Menu/StripPlacement.h"

#include <QTest>

namespace {
const QRect hd(0, 0, 1920, 1080);
// clang-format off
struct Anchor { const char *name; QRect icon; std::optional<QPoint> pointer; QRect available, anchor; };
const Anchor anchors[] = {
    {.name = "XEmbed host says where the icon is", .icon = {1800, 1050, 24, 24},
     .pointer = QPoint(1810, 1060), .available = {0, 0, 1920, 1044}, .anchor = {1800, 1050, 24, 24}},
    {.name = "KDE: bottom panel, icon at the pointer", .icon = {}, .pointer = QPoint(1700, 1060),
     .available = {0, 0, 1920, 1036}, .anchor = {1700, 1060, 1, 1}},
    {.name = "Xfce: top panel, icon at the pointer", .icon = {}, .pointer = QPoint(1850, 12),
     .available = {0, 28, 1920, 1052}, .anchor = {1850, 12, 1, 1}},
    {.name = "second screen on the left", .icon = {}, .pointer = QPoint(-300, 5),
     .available = {-1280, 24, 1280, 1000}, .anchor = {-300, 5, 1, 1}},
    {.name = "Wayland: centred under the top bar", .icon = {}, .pointer = std::nullopt,
     .available = {0, 32, 1920, 1048}, .anchor = {770, 32, 380, 1}},
    {.name = "Wayland on a second screen", .icon = {}, .pointer = std::nullopt,
     .available = {1920, 0, 1280, 1024}, .anchor = {2370, 0, 380, 1}},
};
// clang-format on
} // namespace

class TrayAnchorTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void anchor_data() { rows(anchors); }
    void anchor()
    {
        const auto &[name, icon, pointer, available, expected] = row(anchors);
        const QRect got = StripPlacement::trayAnchor(icon, pointer, available);
        QCOMPARE(got, expected);
        if (!pointer) {
            // The panel (400 wide) opens with its right edge 10 past the
            // anchor's: its middle is the screen's.
            const int panelLeft = got.x() + got.width() - 400 + 10;
            QCOMPARE(panelLeft + 200, available.center().x() + 1);
        }
    }
};

QTEST_GUILESS_MAIN(TrayAnchorTest)
#include "tst_tray_anchor.moc"
