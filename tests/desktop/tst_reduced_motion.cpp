// Less motion when the desktop asks: where the wish is read from and how the
// answer reaches the views. What the ticker then draws is in menu.tst_strip_frames.

#include "Look/ReducedMotion.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {
std::optional<QString> opt(const char *s)
{
    return s ? std::optional<QString>(QString::fromLatin1(s)) : std::nullopt;
}
} // namespace

class ReducedMotionTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sources_data()
    {
        QTest::addColumn<std::optional<QString>>("override");
        QTest::addColumn<std::optional<QString>>("gnome");
        QTest::addColumn<std::optional<QString>>("kde");
        QTest::addColumn<bool>("reduced");
        QTest::newRow("nothing said") << opt(nullptr) << opt(nullptr) << opt(nullptr) << false;
        QTest::newRow("gnome animations off") << opt(nullptr) << opt("false") << opt(nullptr) << true;
        QTest::newRow("gnome animations on") << opt(nullptr) << opt("true") << opt(nullptr) << false;
        QTest::newRow("kde instant") << opt(nullptr) << opt(nullptr) << opt("0") << true;
        QTest::newRow("kde slower") << opt(nullptr) << opt(nullptr) << opt("2.5") << false;
        QTest::newRow("kde junk") << opt(nullptr) << opt(nullptr) << opt("fast") << false;
        QTest::newRow("env asks") << opt("1") << opt("true") << opt(nullptr) << true;
        QTest::newRow("env overrides the desktop") << opt("0") << opt("false") << opt("0") << false;
        QTest::newRow("env unclear: desktop decides") << opt("yes") << opt("false") << opt(nullptr) << true;
    }
    void sources()
    {
        QFETCH(std::optional<QString>, override);
        QFETCH(std::optional<QString>, gnome);
        QFETCH(std::optional<QString>, kde);
        QFETCH(bool, reduced);
        QCOMPARE(ReducedMotion::reducedFrom({override, gnome, kde}), reduced);
    }

    // The environment and kdeglobals are read at once; GNOME's answer comes
    // after start-up, from whatever gsettings is on PATH (here a stand-in),
    // and reaches the views through changed(); a decisive override never
    // starts the process.
    void answerArrivesLater_data()
    {
        QTest::addColumn<QString>("override");
        QTest::addColumn<QString>("gnome");
        QTest::addColumn<QByteArray>("kdeglobals");
        QTest::addColumn<bool>("before");
        QTest::addColumn<bool>("after");
        QTest::addColumn<int>("changes");
        const QByteArray instant = "[General]\nColorScheme=BreezeDark\n\n[KDE]\nAnimationDurationFactor=0\n";
        QTest::newRow("animations off")
            << QString() << QStringLiteral("false") << QByteArray() << false << true << 1;
        QTest::newRow("animations on")
            << QString() << QStringLiteral("true") << QByteArray() << false << false << 0;
        QTest::newRow("kde instant") << QString() << QStringLiteral("true") << instant << true << true << 0;
        QTest::newRow("override 0 wins")
            << QStringLiteral("0") << QStringLiteral("false") << instant << false << false << 0;
        QTest::newRow("override 1 wins")
            << QStringLiteral("1") << QStringLiteral("true") << QByteArray() << true << true << 0;
    }
    void answerArrivesLater()
    {
        QFETCH(QString, override);
        QFETCH(QString, gnome);
        QFETCH(QByteArray, kdeglobals);
        QFETCH(bool, before);
        QFETCH(bool, after);
        QFETCH(int, changes);
        QTemporaryDir bin; // the stand-in gsettings, and the config folder
        QFile tool(bin.filePath(QStringLiteral("gsettings")));
        QVERIFY(tool.open(QIODevice::WriteOnly));
        tool.write("#!/bin/sh\necho " + gnome.toLatin1() + "\n");
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
        if (override.isEmpty())
            qunsetenv("LARKPIN_REDUCE_MOTION");
        else
            qputenv("LARKPIN_REDUCE_MOTION", override.toLatin1());

        ReducedMotion::Watcher watcher(nullptr, 0);
        QSignalSpy spy(&watcher, &ReducedMotion::Watcher::changed);
        QCOMPARE(watcher.reduced(), before);
        if (changes)
            QVERIFY(spy.wait(5000));
        else
            QVERIFY(!spy.wait(800));
        QCOMPARE(watcher.reduced(), after);
        QCOMPARE(spy.size(), changes);
    }
};

QTEST_GUILESS_MAIN(ReducedMotionTest)
#include "tst_reduced_motion.moc"
