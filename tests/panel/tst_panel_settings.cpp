// The settings page's model over a real store: edits save once and persist,
// launch at login shows what the desktop holds, and the muted and watched
// lists with the undo of the last mute.

#include "Model/Preferences.h"
#include "Panel/SettingsModel.h"
#include "PanelTestSupport.h"
#include "Table.h"

#include <QFile>

#include <limits>

namespace {
const double notANumber = std::numeric_limits<double>::quiet_NaN();
using SM = SettingsModel;
using P = Preferences;

// clang-format off
// An edit to the value already selected (same) or to another one, and what is saved after the latter.
struct Edit { const char *name; bool (*edit)(SM &, bool same); bool (*saved)(const P &); };
const Edit editRows[] = {
    {.name = "minimum size", .edit = [](SM &m, bool same) { return m.setMinimumSize(same ? 1000 : 5000); },
     .saved = [](const P &p) { return p.minTradeUsd == 5000; }},
    {.name = "focus size", .edit = [](SM &m, bool same) { return m.setFocusSize(same ? 25000 : 0); },
     .saved = [](const P &p) { return p.focalUsd == 0; }},
    {.name = "stream switch",
     .edit = [](SM &m, bool same) { return m.setStreamEnabled(QStringLiteral("spike"), same); },
     .saved = [](const P &p) { return !p.shows(SignalKind::spike); }},
    {.name = "pause", .edit = [](SM &m, bool same) { return m.setPaused(!same); },
     .saved = [](const P &p) { return p.paused; }},
    {.name = "tray only", .edit = [](SM &m, bool same) { return m.setTrayOnly(!same); },
     .saved = [](const P &p) { return p.trayOnly; }},
    {.name = "notify", .edit = [](SM &m, bool same) { return m.setNotifyTakeovers(same); },
     .saved = [](const P &p) { return !p.notifyTakeovers; }},
};
// clang-format on
} // namespace

class PanelSettingsTest : public QObject, private PanelRig {
    Q_OBJECT

private Q_SLOTS:
    void init() { freshStore(); }
    void cleanup() { dropAll(); }

    // Each edit saves once and persists; pressing the selected value or
    // passing nonsense saves nothing.
    void edits_data() { rows(editRows); }
    void edits()
    {
        const auto &[name, edit, saved] = row(editRows);
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
        QCOMPARE(fieldOf(model.mutedList(), "label"),
                 (QStringList{QStringLiteral("$WIF"), QStringLiteral("@degen")}));
        QCOMPARE(fieldOf(model.watchedList(), "label"), QStringList{QStringLiteral("@ansem")});

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
