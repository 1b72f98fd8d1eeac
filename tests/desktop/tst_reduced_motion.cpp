// Less motion when the desktop asks: where the wish is read from, and the
// ticker's still frames (a flip lands at once; a takeover stands at its final
// frame without entrance, growing blur or counting figure).

#include "Menu/StatusStreamView.h"
#include "Look/ReducedMotion.h"
#include "Look/Motion.h"

#include <QFile>
#include <QPainter>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {
StreamSegment segment(const char *ticker)
{
    return StreamSegment{SignalKind::whale, Headline{QLatin1String(ticker), QStringLiteral("@kai aped"),
                                                     std::nullopt, std::nullopt}};
}
QImage frame(const StatusStreamView &view, double t)
{
    QImage img(QSize(340, 48), QImage::Format_ARGB32_Premultiplied);
    img.setDevicePixelRatio(2);
    img.fill(Qt::black);
    QPainter p(&img);
    view.paintAt(p, QSizeF(170, 24), t);
    return img;
}
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

    void readsKdeglobalsAndEnvironment()
    {
        QTemporaryDir config;
        const QByteArray oldConfig = qgetenv("XDG_CONFIG_HOME");
        qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
        qputenv("LARKPIN_REDUCE_MOTION", "1");
        QFile kde(config.filePath(QStringLiteral("kdeglobals")));
        QVERIFY(kde.open(QIODevice::WriteOnly));
        kde.write("[General]\nColorScheme=BreezeDark\n\n[KDE]\nAnimationDurationFactor=0\n");
        kde.close();
        const auto s = ReducedMotion::readSystem();
        qputenv("XDG_CONFIG_HOME", oldConfig);
        qunsetenv("LARKPIN_REDUCE_MOTION");
        QCOMPARE(s.kdeAnimationDurationFactor, opt("0"));
        QCOMPARE(s.override, opt("1"));
    }

    // Two frames 0.1 s apart right after a flip: equal only when reduced.
    // The desktop's answer comes after start-up, from whatever gsettings is
    // on PATH (here a stand-in), and reaches the views through changed();
    // a decisive override never starts the process.
    void answerArrivesLater_data()
    {
        QTest::addColumn<QString>("override");
        QTest::addColumn<QString>("gnome");
        QTest::addColumn<bool>("before");
        QTest::addColumn<bool>("after");
        QTest::addColumn<int>("changes");
        QTest::newRow("animations off") << QString() << QStringLiteral("false") << false << true << 1;
        QTest::newRow("animations on") << QString() << QStringLiteral("true") << false << false << 0;
        QTest::newRow("override 0 wins") << QStringLiteral("0") << QStringLiteral("false") << false << false << 0;
        QTest::newRow("override 1 wins") << QStringLiteral("1") << QStringLiteral("true") << true << true << 0;
    }
    void answerArrivesLater()
    {
        QFETCH(QString, override);
        QFETCH(QString, gnome);
        QFETCH(bool, before);
        QFETCH(bool, after);
        QFETCH(int, changes);
        QTemporaryDir bin;
        QFile tool(bin.filePath(QStringLiteral("gsettings")));
        QVERIFY(tool.open(QIODevice::WriteOnly));
        tool.write("#!/bin/sh\necho " + gnome.toLatin1() + "\n");
        tool.close();
        tool.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", bin.path().toLocal8Bit() + ':' + path);
        const QByteArray config = qgetenv("XDG_CONFIG_HOME");
        qputenv("XDG_CONFIG_HOME", bin.path().toLocal8Bit()); // no kdeglobals there
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
        qputenv("PATH", path);
        qunsetenv("LARKPIN_REDUCE_MOTION");
        qputenv("XDG_CONFIG_HOME", config);
    }

    void flipLandsAtOnce_data()
    {
        QTest::addColumn<bool>("reduced");
        QTest::newRow("full motion") << false;
        QTest::newRow("reduced") << true;
    }
    void flipLandsAtOnce()
    {
        QFETCH(bool, reduced);
        StatusStreamView view;
        view.setReduceMotion(reduced);
        view.update({segment("$A"), segment("$B")}, false);
        view.flip();
        QCOMPARE(view.isFlipping(), !reduced);
        const double t = view.now();
        QCOMPARE(frame(view, t + 0.05) == frame(view, t + 1), reduced);
    }

    void takeoverStandsStill_data()
    {
        QTest::addColumn<bool>("reduced");
        QTest::newRow("full motion") << false;
        QTest::newRow("reduced") << true;
    }
    void takeoverStandsStill()
    {
        QFETCH(bool, reduced);
        StatusStreamView view;
        view.setReduceMotion(reduced);
        view.update({segment("$A"), segment("$B")}, false);
        view.snap(Focal{segment("$BIG"), 48200});
        const double t = view.now();
        // The lane is dimmed and blurred in full from the first frame...
        QCOMPARE(qFuzzyCompare(view.laneOpacityAt(t), StatusStreamView::dimmedOpacity), reduced);
        QCOMPARE(qFuzzyCompare(view.blurRadiusAt(t), StatusStreamView::focalBlurRadius), reduced);
        // ...the figure does not count up, and the badge does not pop in.
        QCOMPARE(frame(view, t + 0.02) == frame(view, t + 2), reduced);

        // Released: gone at once rather than fading.
        view.snap(std::nullopt);
        const double r = view.now();
        QCOMPARE(qFuzzyCompare(view.laneOpacityAt(r), 1.0), reduced);
        QCOMPARE(frame(view, r + 0.02) == frame(view, r + 2), reduced);
    }
};

QTEST_MAIN(ReducedMotionTest)
#include "tst_reduced_motion.moc"
