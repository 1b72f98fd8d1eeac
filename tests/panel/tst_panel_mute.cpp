// Mute and watch through the real QML panel: the context menu on rows and
// cards (mouse and keyboard), the undo, the watched mark and the settings lists.

#include "PanelTestSupport.h"
#include "Table.h"

#include <QTimer>

#include <algorithm>

namespace {
QStringList list(const char *words)
{
    return QString::fromUtf8(words).split(QLatin1Char(','), Qt::SkipEmptyParts);
}

QQuickItem *firstNamed(QQuickItem *root, const char *name)
{
    for (QQuickItem *item : allItems(root))
        if (item->objectName() == QLatin1String(name))
            return item;
    return nullptr;
}

// clang-format off
// Each entry once; the row and the hero bring up the same menu. The lists after.
struct MenuRow { const char *name; bool hero; const char *action, *title, *tokens, *wallets, *watched; };
const MenuRow menuRows[] = {
    {.name = "row: mute wallet", .hero = false, .action = "muteWallet", .title = "Mute @w1", .tokens = "",
     .wallets = "w1", .watched = ""},
    {.name = "row: watch", .hero = false, .action = "watch", .title = "Watch @w1", .tokens = "",
     .wallets = "", .watched = "w1"},
    {.name = "hero: mute token", .hero = true, .action = "muteToken", .title = "Mute $T5", .tokens = "T5",
     .wallets = "", .watched = ""},
};
// clang-format on
} // namespace

class PanelMuteTest : public QObject, private PanelRig {
    Q_OBJECT

    // Six whales: w5, w4, w3 are the heroes (largest), w2, w1, w0 the stream.
    void feed() { store->ingest(whaleRun(6, clock.t)); }
    bool published(const char *id) const
    {
        return std::ranges::any_of(store->signalList(),
                                   [&](const Signal &s) { return s.id == QLatin1String(id); });
    }
    QQuickItem *row(const char *id) const { return summaryOf(window()->contentItem(), QLatin1String(id)); }

private Q_SLOTS:
    void init() { freshPanel(); }
    void cleanup() { dropAll(); }

    // Right-click a stream row or the hero card, choose an entry: the lists change at once.
    void contextMenu_data() { rows(menuRows); }
    void contextMenu()
    {
        const auto &[name, hero, action, title, tokenList, walletList, watchedList] = ::row(menuRows);
        const QStringList tokens = list(tokenList), wallets = list(walletList), watched = list(watchedList);
        feed();
        open();
        const char *id = hero ? "tw-fill-105" : "tw-fill-101";
        click(hero ? on("heroCard") : row(id), Qt::RightButton);
        QQuickItem *menu = waitFor("signalMenu");
        QVERIFY(menu);
        QCOMPARE(menu->property("signalId").toString(), QLatin1String(id));
        QVERIFY(!on("menu-undo")); // nothing muted yet
        click(on(QByteArray("menu-").append(action).constData()));
        QCOMPARE(store->preferences().mutedTokens, tokens);
        QCOMPARE(store->preferences().mutedWallets, wallets);
        QCOMPARE(store->preferences().watchedWallets, watched);
        QVERIFY(QTest::qWaitFor([&] { return !on("signalMenu"); }, 30000));
        const bool muting = QByteArray(action).startsWith("mute");
        QCOMPARE(published(id), !muting); // at once, not at the next rebuild
        if (muting) {
            QCOMPARE(model()->settings()->undoText(),
                     QStringLiteral("Undo mute") + QLatin1String(title).mid(4));
        } else {
            QVERIFY(model()->settings()->undoText().isEmpty());
            QCOMPARE(fieldOf(model()->menuEntries(QLatin1String(id)), "title").last(),
                     QStringLiteral("Stop watching @") + watched.first());
        }
    }

    // The menu belongs to the signal, not to the row: rows arriving and the
    // row itself leaving the list leave it up, and its choice applies to the
    // signal it was opened on. A click outside dismisses it and reaches nothing.
    void menuOutlivesItsRow()
    {
        feed();
        open();
        click(row("tw-fill-101"), Qt::RightButton);
        QVERIFY(waitFor("signalMenu"));
        for (int i = 0; i < 3; ++i) // newcomers at the top, as on a live tape
            store->ingest({whaleFill(300 + i, clock.t + i, 1000 + i, QStringLiteral("n%1").arg(i),
                                     QStringLiteral("N%1").arg(i))});
        Preferences p = store->preferences();
        p.mutedWallets = {QStringLiteral("w1")}; // the row itself goes
        QVERIFY(store->updatePreferences(p));
        QTRY_VERIFY_WITH_TIMEOUT(!row("tw-fill-101"), 30000);
        settleFrame(window());
        QQuickItem *menu = on("signalMenu");
        QVERIFY2(menu, "the menu went with its row");
        QCOMPARE(menu->property("signalId").toString(), QStringLiteral("tw-fill-101"));
        click(on("menu-muteToken"));
        QCOMPARE(store->preferences().mutedTokens, QStringList{QStringLiteral("T1")});
        QTRY_VERIFY_WITH_TIMEOUT(!on("signalMenu"), 30000);

        // Dismissed by a click on a row: the row does not open.
        click(row("tw-fill-100"), Qt::RightButton);
        QVERIFY(waitFor("signalMenu"));
        QQuickItem *other = row("tw-fill-102");
        QVERIFY(other);
        QTest::mouseClick(window(), Qt::LeftButton, {}, centre(other).toPoint());
        QTRY_VERIFY_WITH_TIMEOUT(!on("signalMenu"), 30000);
        QVERIFY2(model()->openId().isEmpty(), "the click fell through the menu");
    }

    // The undo is the first entry of any signal's menu for a few seconds, then gone.
    void undoFromTheMenu()
    {
        feed();
        open();
        QVERIFY(model()->runMenuAction(QStringLiteral("tw-fill-101"), QStringLiteral("muteWallet")));
        QVERIFY(!published("tw-fill-101"));
        click(row("tw-fill-100"), Qt::RightButton);
        QQuickItem *undo = waitFor("menu-undo");
        QVERIFY(undo);
        QCOMPARE(fieldOf(model()->menuEntries(QStringLiteral("tw-fill-100")), "title"),
                 list("Undo mute @w1,Mute $T0,Mute @w0,Watch @w0"));
        click(undo);
        QVERIFY(store->preferences().mutedWallets.isEmpty());
        QVERIFY(published("tw-fill-101"));
        QVERIFY(model()->settings()->undoText().isEmpty());

        model()->settings()->undoTimer()->setInterval(30);
        QVERIFY(model()->settings()->setListed(QStringLiteral("token"), QStringLiteral("T2"), true));
        QVERIFY(!model()->settings()->undoText().isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(model()->settings()->undoText().isEmpty(), 30000);
        QVERIFY(!model()->settings()->undoMute());
        QCOMPARE(store->preferences().mutedTokens, QStringList{QStringLiteral("T2")}); // still muted
    }

    // Menu or Shift+F10 on the open row brings up its menu; arrows and Return choose.
    void keyboardOnTheSelectedRow()
    {
        feed();
        open();
        model()->toggle(QStringLiteral("tw-fill-102"));
        settleFrame(window());
        QTest::keyClick(window(), Qt::Key_F10, Qt::ShiftModifier);
        QQuickItem *menu = waitFor("signalMenu");
        QVERIFY(menu);
        QCOMPARE(menu->property("signalId").toString(), QStringLiteral("tw-fill-102"));
        QTest::keyClick(window(), Qt::Key_Down); // past "Mute $T2" to "Mute @w2"
        QTest::keyClick(window(), Qt::Key_Return);
        QCOMPARE(store->preferences().mutedWallets, QStringList{QStringLiteral("w2")});
        QVERIFY(store->preferences().mutedTokens.isEmpty());
        // Escape closes only the menu, not the panel.
        model()->toggle(QStringLiteral("tw-fill-100"));
        settleFrame(window());
        QTest::keyClick(window(), Qt::Key_Menu);
        QVERIFY(waitFor("signalMenu"));
        QTest::keyClick(window(), Qt::Key_Escape);
        QTRY_VERIFY_WITH_TIMEOUT(!on("signalMenu"), 30000);
        QTest::qWait(50); // the panel would close on the next turn of the loop
        QVERIFY(window()->isVisible());
        QTest::keyClick(window(), Qt::Key_Escape); // the next one folds the open row
        QVERIFY(model()->openId().isEmpty());
        QTest::keyClick(window(), Qt::Key_Escape); // and the next one closes the panel
        QTRY_VERIFY_WITH_TIMEOUT(!window()->isVisible(), 30000);
        QVERIFY(store->preferences().mutedTokens.isEmpty());
    }

    // Right-click on the evidence: inside a row the row's menu, on the detail
    // card the inspector's own; one menu either way.
    void inspectorMenus_data() { eitherWay("detailCard", "open row", "detail card"); }
    void inspectorMenus()
    {
        QFETCH(bool, detailCard);
        feed();
        open();
        const QString id = detailCard ? QStringLiteral("tw-fill-104") : QStringLiteral("tw-fill-101");
        if (detailCard)
            model()->showDetailCard(id);
        else
            model()->toggle(id);
        QQuickItem *evidence = nullptr;
        QVERIFY(QTest::qWaitFor(
            [&] {
                for (QQuickItem *item : allItems(window()->contentItem()))
                    if (item->isVisible() && item->height() > 0 &&
                        item->property("signalId").toString() == id && item->property("hidesChart").isValid())
                        evidence = item;
                return evidence != nullptr;
            },
            2000));
        click(evidence, Qt::RightButton);
        QVERIFY(waitFor("signalMenu"));
        QCOMPARE(shown("signalMenu").size(), 1);
        QCOMPARE(on("signalMenu")->property("signalId").toString(), id);
    }

    void watchedRowsAreMarked()
    {
        feed();
        open();
        const auto mark = [&](const char *id) {
            QQuickItem *summary = row(id);
            QQuickItem *mark =
                summary ? firstNamed(summary->parentItem()->parentItem(), "watchedMark") : nullptr;
            return mark && mark->isVisible();
        };
        QVERIFY(!mark("tw-fill-100"));
        QVERIFY(model()->settings()->setListed(QStringLiteral("watch"), QStringLiteral("w0"), true));
        QTRY_VERIFY_WITH_TIMEOUT(mark("tw-fill-100"), 30000);
        QVERIFY(!mark("tw-fill-101"));
        QVERIFY(model()->settings()->setListed(QStringLiteral("watch"), QStringLiteral("w0"), false));
        QTRY_VERIFY_WITH_TIMEOUT(!mark("tw-fill-100"), 30000);
    }

    // Settings list both kinds below Preferences; removing an entry unmutes or unwatches.
    void settingsSection()
    {
        feed();
        Preferences p = store->preferences();
        p.mutedTokens = {QStringLiteral("T1")};
        p.mutedWallets = {QStringLiteral("w2")};
        p.watchedWallets = {QStringLiteral("w0")};
        QVERIFY(store->updatePreferences(p));
        QVERIFY(!published("tw-fill-101"));
        open();
        model()->setShowSettings(true);
        QQuickItem *section = waitFor("mutedAndWatched");
        QVERIFY(section && on("pauseSwitch"));
        QVERIFY(section->mapToScene({0, 0}).y() > on("pauseSwitch")->mapToScene({0, 0}).y());
        for (const char *name : {"listed-token-T1", "listed-wallet-w2", "listed-watch-w0"})
            QVERIFY2(on(name), name);
        // The page scrolls; bring the section into view before clicking.
        QQuickItem *flick = on("settingsFlick");
        QVERIFY(flick);
        flick->setProperty("contentY",
                           std::max(0.0, flick->property("contentHeight").toDouble() - flick->height()));
        click(firstNamed(on("listed-token-T1"), "removeListed"));
        QVERIFY(store->preferences().mutedTokens.isEmpty());
        QVERIFY(published("tw-fill-101"));
        QTRY_VERIFY_WITH_TIMEOUT(!on("listed-token-T1"), 30000);
        click(firstNamed(on("listed-watch-w0"), "removeListed"));
        QVERIFY(store->preferences().watchedWallets.isEmpty());
        QCOMPARE(store->preferences().mutedWallets, QStringList{QStringLiteral("w2")});
        QCOMPARE(PreferencesStore::load(), store->preferences()); // saved as shown
    }
};

QTEST_MAIN(PanelMuteTest)
#include "tst_panel_mute.moc"
