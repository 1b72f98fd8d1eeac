// Mute and watch through the real QML panel: the context menu on rows and
// cards (mouse and keyboard), the undo, the watched mark and the settings lists.

#include "Panel/PanelController.h"
#include "Panel/PanelModel.h"
#include "PanelTestSupport.h"

#include <QQuickItem>
#include <QQuickWindow>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <memory>

namespace {
// Popups live in the window's overlay, outside the panel's own tree: search the whole window.
QQuickItem *shown(QQuickWindow *window, const QString &name)
{
    for (QQuickItem *item : allItems(window->contentItem()))
        if (item->objectName() == name && item->isVisible() && item->width() > 0)
            return item;
    return nullptr;
}

void settleFrame(QQuickWindow *window)
{
    QSignalSpy frame(window, &QQuickWindow::afterRendering);
    window->update();
    frame.wait(300);
}

void clickAt(QQuickItem *item, Qt::MouseButton button = Qt::LeftButton)
{
    QVERIFY(item);
    settleFrame(item->window());
    const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
    QTest::mouseClick(item->window(), button, {}, centre.toPoint());
}

QQuickItem *summaryOf(QQuickWindow *window, const QString &id)
{
    for (QQuickItem *summary : allItems(window->contentItem())) {
        if (summary->objectName() != QLatin1String("summary"))
            continue;
        QQuickItem *row = summary->parentItem() ? summary->parentItem()->parentItem() : nullptr;
        if (row && row->property("signalId").toString() == id)
            return summary;
    }
    return nullptr;
}

QStringList titles(const QVariantList &entries)
{
    QStringList out;
    for (const QVariant &e : entries)
        out << e.toMap().value(QStringLiteral("title")).toString();
    return out;
}
} // namespace

class PanelMuteTest : public QObject, private PanelRig {
    Q_OBJECT

    // Six whales: w5, w4, w3 are the heroes (largest), w2, w1, w0 the stream.
    void feed()
    {
        QList<TwFill> fills;
        for (int i = 0; i < 6; ++i)
            fills << whaleFill(100 + i, clock.t - 30 * (6 - i), 2000.0 * (i + 1),
                               QStringLiteral("w%1").arg(i), QStringLiteral("T%1").arg(i));
        store->ingest(fills);
    }
    QQuickWindow *window() const { return panel->window(); }
    PanelModel *model() const { return panel->model(); }
    void open()
    {
        panel->show(QRect(900, 0, 24, 24));
        QVERIFY(panel->rootItem());
        QVERIFY(QTest::qWaitForWindowExposed(panel->window()));
        model()->setAnimated(false);
    }
    QQuickItem *waitShown(const char *name)
    {
        QQuickItem *found = nullptr;
        (void)QTest::qWaitFor([&] { return (found = shown(window(), QLatin1String(name))) != nullptr; },
                              1000);
        return found;
    }
    QStringList published() const
    {
        QStringList out;
        for (const Signal &s : store->signalList())
            out << s.id;
        return out;
    }

private Q_SLOTS:
    void init()
    {
        freshStore();
        panel = std::make_unique<PanelController>(store.get());
    }
    void cleanup() { dropAll(); }

    // Right-click a stream row or the hero card, choose an entry: the lists change at once.
    void contextMenu_data()
    {
        QTest::addColumn<QString>("where"); // "row" or "hero"
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QStringList>("tokens");
        QTest::addColumn<QStringList>("wallets");
        QTest::addColumn<QStringList>("watched");
        const QStringList none;
        QTest::newRow("row: mute token") << "row"
                                         << "muteToken"
                                         << "Mute $T1" << QStringList{QStringLiteral("T1")} << none << none;
        QTest::newRow("row: mute wallet") << "row"
                                          << "muteWallet"
                                          << "Mute @w1" << none << QStringList{QStringLiteral("w1")} << none;
        QTest::newRow("row: watch") << "row"
                                    << "watch"
                                    << "Watch @w1" << none << none << QStringList{QStringLiteral("w1")};
        QTest::newRow("hero: mute token") << "hero"
                                          << "muteToken"
                                          << "Mute $T5" << QStringList{QStringLiteral("T5")} << none << none;
        QTest::newRow("hero: watch") << "hero"
                                     << "watch"
                                     << "Watch @w5" << none << none << QStringList{QStringLiteral("w5")};
    }
    void contextMenu()
    {
        QFETCH(QString, where);
        QFETCH(QString, action);
        QFETCH(QString, title);
        QFETCH(QStringList, tokens);
        QFETCH(QStringList, wallets);
        QFETCH(QStringList, watched);
        feed();
        open();
        const QString id =
            where == QLatin1String("row") ? QStringLiteral("tw-fill-101") : QStringLiteral("tw-fill-105");
        QQuickItem *target = where == QLatin1String("row") ? summaryOf(window(), id)
                                                           : shown(window(), QStringLiteral("heroCard"));
        QVERIFY(target);
        clickAt(target, Qt::RightButton);
        QQuickItem *menu = waitShown("signalMenu");
        QVERIFY(menu);
        QCOMPARE(menu->property("signalId").toString(), id);
        QVERIFY(!shown(window(), QStringLiteral("menu-undo"))); // nothing muted yet
        QQuickItem *entry = shown(window(), QStringLiteral("menu-") + action);
        QVERIFY(entry);
        clickAt(entry);
        QCOMPARE(store->preferences().mutedTokens, tokens);
        QCOMPARE(store->preferences().mutedWallets, wallets);
        QCOMPARE(store->preferences().watchedWallets, watched);
        QVERIFY(QTest::qWaitFor([&] { return !shown(window(), QStringLiteral("signalMenu")); }, 1000));
        const bool muting = action.startsWith(QLatin1String("mute"));
        QCOMPARE(published().contains(id), !muting); // at once, not at the next rebuild
        QCOMPARE(model()->settings()->undoText().isEmpty(), !muting);
        if (muting)
            QCOMPARE(model()->settings()->undoText(),
                     QStringLiteral("Undo ") + title.toLower().left(4) + title.mid(4));
        else
            QCOMPARE(titles(model()->menuEntries(id)).last(),
                     QStringLiteral("Stop watching @") + watched.first());
    }

    // The undo is the first entry of any signal's menu for a few seconds, then gone.
    void undoFromTheMenu()
    {
        feed();
        open();
        QVERIFY(model()->runMenuAction(QStringLiteral("tw-fill-101"), QStringLiteral("muteWallet")));
        QVERIFY(!published().contains(QStringLiteral("tw-fill-101")));
        clickAt(summaryOf(window(), QStringLiteral("tw-fill-100")), Qt::RightButton);
        QQuickItem *undo = waitShown("menu-undo");
        QVERIFY(undo);
        QCOMPARE(titles(model()->menuEntries(QStringLiteral("tw-fill-100"))),
                 (QStringList{QStringLiteral("Undo mute @w1"), QStringLiteral("Mute $T0"),
                              QStringLiteral("Mute @w0"), QStringLiteral("Watch @w0")}));
        clickAt(undo);
        QVERIFY(store->preferences().mutedWallets.isEmpty());
        QVERIFY(published().contains(QStringLiteral("tw-fill-101")));
        QVERIFY(model()->settings()->undoText().isEmpty());

        model()->settings()->undoTimer()->setInterval(30);
        QVERIFY(model()->settings()->setListed(QStringLiteral("token"), QStringLiteral("T2"), true));
        QVERIFY(!model()->settings()->undoText().isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(model()->settings()->undoText().isEmpty(), 1000);
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
        QQuickItem *menu = waitShown("signalMenu");
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
        QVERIFY(waitShown("signalMenu"));
        QTest::keyClick(window(), Qt::Key_Escape);
        QTRY_VERIFY_WITH_TIMEOUT(!shown(window(), QStringLiteral("signalMenu")), 1000);
        QTest::qWait(50); // the panel would close on the next turn of the loop
        QVERIFY(panel->window()->isVisible());
        QTest::keyClick(window(), Qt::Key_Escape); // the next one closes the panel
        QTRY_VERIFY_WITH_TIMEOUT(!panel->window()->isVisible(), 1000);
        QVERIFY(store->preferences().mutedTokens.isEmpty());
    }

    // Right-click on the evidence: inside a row the row's menu, on the detail
    // card the inspector's own; one menu either way.
    void inspectorMenus_data()
    {
        QTest::addColumn<bool>("detailCard");
        QTest::newRow("open row") << false;
        QTest::newRow("detail card") << true;
    }
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
        clickAt(evidence, Qt::RightButton);
        QVERIFY(waitShown("signalMenu"));
        int menus = 0;
        for (QQuickItem *item : allItems(window()->contentItem()))
            if (item->objectName() == QLatin1String("signalMenu") && item->isVisible())
                ++menus;
        QCOMPARE(menus, 1);
        QCOMPARE(shown(window(), QStringLiteral("signalMenu"))->property("signalId").toString(), id);
    }

    void watchedRowsAreMarked()
    {
        feed();
        open();
        const auto mark = [&](const QString &id) {
            QQuickItem *summary = summaryOf(window(), id);
            QQuickItem *row = summary ? summary->parentItem()->parentItem() : nullptr;
            for (QQuickItem *item : allItems(row))
                if (item->objectName() == QLatin1String("watchedMark"))
                    return item->isVisible();
            return false;
        };
        QVERIFY(!mark(QStringLiteral("tw-fill-100")));
        QVERIFY(model()->settings()->setListed(QStringLiteral("watch"), QStringLiteral("w0"), true));
        QTRY_VERIFY_WITH_TIMEOUT(mark(QStringLiteral("tw-fill-100")), 1000);
        QVERIFY(!mark(QStringLiteral("tw-fill-101")));
        QVERIFY(model()->settings()->setListed(QStringLiteral("watch"), QStringLiteral("w0"), false));
        QTRY_VERIFY_WITH_TIMEOUT(!mark(QStringLiteral("tw-fill-100")), 1000);
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
        QVERIFY(!published().contains(QStringLiteral("tw-fill-101")));
        open();
        model()->setShowSettings(true);
        QQuickItem *section = waitShown("mutedAndWatched");
        QVERIFY(section);
        QQuickItem *preferencesSwitch = shown(window(), QStringLiteral("pauseSwitch"));
        QVERIFY(preferencesSwitch);
        QVERIFY(section->mapToScene({0, 0}).y() > preferencesSwitch->mapToScene({0, 0}).y());
        for (const char *name : {"listed-token-T1", "listed-wallet-w2", "listed-watch-w0"})
            QVERIFY2(shown(window(), QLatin1String(name)), name);

        const auto removeButton = [&](const char *name) {
            QQuickItem *row = shown(window(), QLatin1String(name));
            for (QQuickItem *item : allItems(row))
                if (item->objectName() == QLatin1String("removeListed"))
                    return item;
            return static_cast<QQuickItem *>(nullptr);
        };
        // The page scrolls; bring the section into view before clicking.
        QQuickItem *flick = shown(window(), QStringLiteral("settingsFlick"));
        QVERIFY(flick);
        flick->setProperty("contentY",
                           std::max(0.0, flick->property("contentHeight").toDouble() - flick->height()));
        QQuickItem *button = removeButton("listed-token-T1");
        QVERIFY(button);
        clickAt(button);
        QVERIFY(store->preferences().mutedTokens.isEmpty());
        QVERIFY(published().contains(QStringLiteral("tw-fill-101")));
        QTRY_VERIFY_WITH_TIMEOUT(!shown(window(), QStringLiteral("listed-token-T1")), 1000);
        clickAt(removeButton("listed-watch-w0"));
        QVERIFY(store->preferences().watchedWallets.isEmpty());
        QCOMPARE(store->preferences().mutedWallets, QStringList{QStringLiteral("w2")});

        QCOMPARE(PreferencesStore::load(), store->preferences()); // saved as shown
    }
};

QTEST_MAIN(PanelMuteTest)
#include "tst_panel_mute.moc"
