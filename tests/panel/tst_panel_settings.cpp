// The settings page's model over a real store: edits save once and persist,
// launch at login shows what the desktop holds, and the muted and watched
// lists with the undo of the last mute.

#include "Model/Preferences.h"
#include "Panel/SettingsModel.h"
#include "PanelTestSupport.h"

#include <QFile>

#include <limits>

namespace {
const double notANumber = std::numeric_limits<double>::quiet_NaN();
using Edit = std::function<bool(SettingsModel &, bool same)>;
using Saved = std::function<bool(const Preferences &)>;

QStringList labels(const QVariantList &entries)
{
    QStringList out;
    for (const QVariant &e : entries)
        out << e.toMap().value(QStringLiteral("label")).toString();
    return out;
}
} // namespace

Q_DECLARE_METATYPE(Edit)
Q_DECLARE_METATYPE(Saved)

class PanelSettingsTest : public QObject, private PanelRig {
    Q_OBJECT

private Q_SLOTS:
    void init() { freshStore(); }
    void cleanup() { dropAll(); }

    // Each edit saves once and persists; pressing the selected value or
    // passing nonsense saves nothing.
    void edits_data()
    {
        QTest::addColumn<Edit>("edit");
        QTest::addColumn<Saved>("saved");
        QTest::newRow("minimum size")
            << Edit([](SettingsModel &m, bool same) { return m.setMinimumSize(same ? 1000 : 5000); })
            << Saved([](const Preferences &p) { return p.minTradeUsd == 5000; });
        QTest::newRow("focus size") << Edit([](SettingsModel &m, bool same) {
            return m.setFocusSize(same ? 25000 : 0);
        }) << Saved([](const Preferences &p) { return p.focalUsd == 0; });
        QTest::newRow("stream switch") << Edit([](SettingsModel &m, bool same) {
            return m.setStreamEnabled(QStringLiteral("spike"), same);
        }) << Saved([](const Preferences &p) { return !p.shows(SignalKind::spike); });
        QTest::newRow("pause") << Edit([](SettingsModel &m, bool same) { return m.setPaused(!same); })
                               << Saved([](const Preferences &p) { return p.paused; });
        QTest::newRow("tray only") << Edit([](SettingsModel &m, bool same) { return m.setTrayOnly(!same); })
                                   << Saved([](const Preferences &p) { return p.trayOnly; });
        QTest::newRow("notify") << Edit([](SettingsModel &m, bool same) {
            return m.setNotifyTakeovers(same);
        }) << Saved([](const Preferences &p) { return !p.notifyTakeovers; });
    }
    void edits()
    {
        QFETCH(Edit, edit);
        QFETCH(Saved, saved);
        SettingsModel model(store.get());
        QSettings settings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin"));
        // A marker in the settings file shows whether anything was written.
        settings.setValue(QStringLiteral("minTradeUsd"), 777.0);
        settings.sync();
        QSignalSpy prefs(&model, &SettingsModel::preferencesChanged);
        QVERIFY(!edit(model, true));
        QCOMPARE(prefs.count(), 0);
        settings.sync();
        QCOMPARE(settings.value(QStringLiteral("minTradeUsd")).toDouble(), 777.0);

        QVERIFY(edit(model, false));
        QCOMPARE(prefs.count(), 1);
        QCOMPARE(PreferencesStore::load(), store->preferences());
        QVERIFY(saved(PreferencesStore::load()));

        QVERIFY(!model.setMinimumSize(-5));
        QVERIFY(!model.setFocusSize(notANumber));
        QVERIFY(!model.setStreamEnabled(QStringLiteral("nonsense"), false));
        QCOMPARE(prefs.count(), 1);
    }

    // The switch shows what the system holds, not what was asked for.
    void launchAtLogin()
    {
        SettingsModel model(store.get());
        model.setLaunchAtLogin(true);
        QVERIFY(model.launchAtLogin());
        QVERIFY(QFile::exists(PreferencesStore::autostartPath()));
        model.setLaunchAtLogin(false);
        QVERIFY(!model.launchAtLogin());
        QVERIFY(!QFile::exists(PreferencesStore::autostartPath()));

        model.setLaunchAtLoginHook = [](bool) {}; // the system refuses
        model.launchAtLoginHook = [] { return false; };
        QSignalSpy changed(&model, &SettingsModel::launchAtLoginChanged);
        model.setLaunchAtLogin(true);
        QVERIFY(!model.launchAtLogin());
        QCOMPARE(changed.count(), 1); // so a switch already flipped flips back
    }

    // Mutes and watches land in their own lists; only a mute can be undone,
    // and taking it back from the settings leaves nothing to undo.
    void listsAndUndo()
    {
        SettingsModel model(store.get());
        QVERIFY(model.setListed(QStringLiteral("token"), QStringLiteral("WIF"), true));
        QCOMPARE(model.undoText(), QStringLiteral("Undo mute $WIF"));
        QVERIFY(model.setListed(QStringLiteral("watch"), QStringLiteral("ansem"), true));
        QCOMPARE(model.undoText(), QStringLiteral("Undo mute $WIF")); // a watch is no mute
        QVERIFY(model.setListed(QStringLiteral("wallet"), QStringLiteral("degen"), true));
        QCOMPARE(model.undoText(), QStringLiteral("Undo mute @degen"));
        QCOMPARE(labels(model.mutedList()), (QStringList{QStringLiteral("$WIF"), QStringLiteral("@degen")}));
        QCOMPARE(labels(model.watchedList()), QStringList{QStringLiteral("@ansem")});

        QVERIFY(!model.setListed(QStringLiteral("wallet"), QStringLiteral("degen"), true)); // already
        QVERIFY(model.setListed(QStringLiteral("wallet"), QStringLiteral("degen"), false));
        QVERIFY(!model.canUndo());
        QVERIFY(!model.undoMute());
        QCOMPARE(store->preferences().mutedTokens, QStringList{QStringLiteral("WIF")});

        QVERIFY(model.setListed(QStringLiteral("token"), QStringLiteral("BONK"), true));
        QVERIFY(model.undoMute());
        QCOMPARE(store->preferences().mutedTokens, QStringList{QStringLiteral("WIF")});
        QVERIFY(model.undoText().isEmpty());
        QCOMPARE(PreferencesStore::load(), store->preferences());

        // Nothing saved, nothing to undo, for a list or a name that cannot be.
        QSignalSpy prefs(&model, &SettingsModel::preferencesChanged);
        QVERIFY(!model.setListed(QStringLiteral("friends"), QStringLiteral("ansem"), true));
        QVERIFY(!model.setListed(QStringLiteral("token"), QStringLiteral("dog wif"), true));
        QCOMPARE(prefs.count(), 0);
        QVERIFY(!model.canUndo());
    }
};

QTEST_MAIN(PanelSettingsTest)
#include "tst_panel_settings.moc"
