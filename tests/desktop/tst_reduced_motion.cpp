// Less motion when the desktop asks: where the wish is read from and how the
// answer reaches the views. What the ticker then draws is in menu.tst_strip_frames.

#include "Look/ReducedMotion.h"
#include "Table.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {
// clang-format off
// "-": not said at all.
struct Source { const char *name, *override, *gnome, *kde; bool reduced; };
const Source sourceRows[] = {
    {.name = "nothing said", .override = "-", .gnome = "-", .kde = "-", .reduced = false},
    {.name = "gnome animations off", .override = "-", .gnome = "false", .kde = "-", .reduced = true},
    {.name = "gnome animations on", .override = "-", .gnome = "true", .kde = "-", .reduced = false},
    {.name = "kde instant", .override = "-", .gnome = "-", .kde = "0", .reduced = true},
    {.name = "kde slower", .override = "-", .gnome = "-", .kde = "2.5", .reduced = false},
    {.name = "kde junk", .override = "-", .gnome = "-", .kde = "fast", .reduced = false},
    {.name = "env asks", .override = "1", .gnome = "true", .kde = "-", .reduced = true},
    {.name = "env overrides the desktop", .override = "0", .gnome = "false", .kde = "0", .reduced = false},
    {.name = "env unclear: desktop decides", .override = "yes", .gnome = "false", .kde = "-",
     .reduced = true},
};

// The environment and kdeglobals are read at once; GNOME's answer comes
// after start-up, from whatever gsettings is on PATH (here a stand-in),
// and reaches the views through changed(); a decisive override never
// starts the process.
const char *const instant = "[General]\nColorScheme=BreezeDark\n\n[KDE]\nAnimationDurationFactor=0\n";
struct Later { const char *name, *override, *gnome, *kdeglobals; bool before, after; int changes; };
const Later laters[] = {
    {.name = "animations off", .override = "", .gnome = "false", .kdeglobals = "", .before = false,
     .after = true, .changes = 1},
    {.name = "animations on", .override = "", .gnome = "true", .kdeglobals = "", .before = false,
     .after = false, .changes = 0},
    {.name = "kde instant", .override = "", .gnome = "true", .kdeglobals = instant, .before = true,
     .after = true, .changes = 0},
    {.name = "override 0 wins", .override = "0", .gnome = "false", .kdeglobals = instant, .before = false,
     .after = false, .changes = 0},
    {.name = "override 1 wins", .override = "1", .gnome = "true", .kdeglobals = "", .before = true,
     .after = true, .changes = 0},
};
// clang-format on

std::optional<QString> opt(const char *s)
{
    return qstrcmp(s, "-") ? std::optional<QString>(QString::fromLatin1(s)) : std::nullopt;
}
} // namespace

class ReducedMotionTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sources_data() { rows(sourceRows); }
    void sources()
    {
        const Source &r = row(sourceRows);
        QCOMPARE(ReducedMotion::reducedFrom({opt(r.override), opt(r.gnome), opt(r.kde)}), r.reduced);
    }

    void answerArrivesLater_data() { rows(laters); }
    void answerArrivesLater()
    {
        const auto [name, override, gnome, kdeglobalsText, before, after, changes] = row(laters);
        const QByteArray kdeglobals(kdeglobalsText);
        QTemporaryDir bin; // the stand-in gsettings, and the config folder
        QFile tool(bin.filePath(QStringLiteral("gsettings")));
        QVERIFY(tool.open(QIODevice::WriteOnly));
        tool.write(QByteArray("#!/bin/sh\necho ") + gnome + "\n");
        tool.close();
        tool.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        if (!kdeglobals.isEmpty()) {
            QFile kde(bin.filePath(QStringLiteral("kdeglobals")));
            QVERIFY(kde.open(QIODevice::WriteOnly) && kde.write(kdeglobals) == kdeglobals.size());
        }
        const QByteArray path = qgetenv("PATH"), config = qgetenv("XDG_CONFIG_HOME");
        const auto restore = qScopeGuard([&] {
            qputenv("PATH", path);
            qputenv("XDG_CONFIG_HOME", config);
            qunsetenv("LARKPIN_REDUCE_MOTION");
        });
        qputenv("PATH", bin.path().toLocal8Bit() + ':' + path);
        qputenv("XDG_CONFIG_HOME", bin.path().toLocal8Bit());
        if (*override)
            qputenv("LARKPIN_REDUCE_MOTION", override);
        else
            qunsetenv("LARKPIN_REDUCE_MOTION");

        ReducedMotion::Watcher watcher(nullptr, 0);
        QSignalSpy spy(&watcher, &ReducedMotion::Watcher::changed);
        QCOMPARE(watcher.reduced(), before);
        if (changes)
            QVERIFY(spy.wait(30000));
        else
            QVERIFY(!spy.wait(800));
        QCOMPARE(watcher.reduced(), after);
        QCOMPARE(spy.size(), changes);
    }
};

QTEST_GUILESS_MAIN(ReducedMotionTest)
#include "tst_reduced_motion.moc"
