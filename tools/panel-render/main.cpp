// Renders the panel at 400 × 620 points against an in-process tape service:
// the main view, settings, the inspector in each state, an opened hero, the
// detail card and the empty states. Usage: panel-render [dir] [scale]
// (scale 1 or 2, 2 by default).

#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"
#include "History/HistoryStore.h"
#include "Model/Preferences.h"
#include "Panel/PanelModel.h"
#include "Panel/PanelSnapshots.h"
#include "TarnwickSim.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QTemporaryDir>
#include <QGuiApplication>
#include <QQuickItem>
#include <QQuickWindow>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <functional>

namespace {
bool waitFor(const std::function<bool()> &done, int ms)
{
    QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

void pause(int ms)
{
    waitFor([] { return false; }, ms);
}

QString outDir;
int failures = 0;

// After a change made between two grabs the software renderer would draw
// only what changed: hiding and showing the whole scene makes all of it new.
void repaintAll(OffscreenPanel &panel)
{
    QQuickItem *content = panel.window()->contentItem();
    content->setVisible(false);
    panel.grab();
    content->setVisible(true);
}

void save(OffscreenPanel &panel, const QString &name)
{
    const QImage image = panel.grab();
    const QString file = QDir(outDir).filePath(name);
    if (image.isNull() || !image.save(file, "PNG")) {
        std::fprintf(stderr, "panel-render: cannot write %s\n", qUtf8Printable(file));
        ++failures;
        return;
    }
    std::printf("%s %dx%d\n", qUtf8Printable(file), image.width(), image.height());
}

std::optional<Signal> richest(const QList<Signal> &signals, const FeedStore &store, bool unloaded)
{
    for (const Signal &s : signals)
        if (s.kind == SignalKind::whale && s.wallet && s.wallet->label &&
            (!unloaded || (!store.details().contains(s.id) && !store.loadingDetail().contains(s.id))))
            return s;
    for (const Signal &s : signals)
        if (!unloaded || !store.details().contains(s.id))
            return s;
    return std::nullopt;
}

bool settled(const FeedStore &store, const QString &id);

// The History view over a scratch history: today's live signals and the same
// again a day and two days back, the away banner on the main view, a range
// applied, and a kept row opened into its evidence.
void historyScenes(OffscreenPanel &panel, FeedStore &live)
{
    QTemporaryDir scratch;
    HistoryStore::Options options;
    options.path = scratch.filePath(QStringLiteral("history.sqlite"));
    options.startDelayMs = 0;
    options.batchIntervalMs = 10;
    HistoryStore history(options);
    QList<Signal> kept;
    for (int day = 2; day >= 0; --day)
        for (Signal s : live.signalList()) {
            s.id += QStringLiteral("-d%1").arg(day);
            s.createdAt -= day * 86400.0 + (day ? 3 * 3600.0 : 0.0);
            kept.prepend(s);
        }
    std::stable_sort(kept.begin(), kept.end(), [](const Signal &a, const Signal &b) { return a.createdAt > b.createdAt; });
    history.notePublished(kept);
    history.flush();
    waitFor([&] { return history.rowsWritten() >= kept.size(); }, 8000);
    const double now = live.now();
    history.setAway({now - 3 * 3600, now - 60, QStringLiteral("While you were away: 4 whales, largest $1.2M on $DOGO")});

    PanelModel *model = panel.open();
    model->history()->setHistoryStore(&history);
    pause(200);
    save(panel, QStringLiteral("away-banner.png"));

    model = panel.open();
    model->history()->setHistoryStore(&history);
    model->history()->setShown(true);
    waitFor([&] { return !model->history()->loading() && model->history()->count() > 0; }, 5000);
    pause(PanelSnapshots::settleMs);
    repaintAll(panel);
    save(panel, QStringLiteral("history.png"));

    // Found by a search, then opened into its evidence.
    model->history()->setQueryText(QStringLiteral("whale"));
    waitFor([&] { return !model->history()->loading() && model->history()->count() > 0; }, 5000);
    const QVariant first = model->history()->data(model->history()->index(0), HistoryModel::IdRole);
    if (first.isValid()) {
        model->toggle(first.toString());
        waitFor([&] { return settled(live, first.toString()); }, PanelSnapshots::detailWaitMs);
        pause(PanelSnapshots::settleMs);
        repaintAll(panel);
        save(panel, QStringLiteral("history-open.png"));
        model->toggle(first.toString());
    }
    model->history()->setQueryText(QString());
    model->history()->openAway();
    waitFor([&] { return !model->history()->loading(); }, 5000);
    pause(PanelSnapshots::settleMs);
    repaintAll(panel);
    save(panel, QStringLiteral("history-away.png"));
    panel.closeTree();
}

bool settled(const FeedStore &store, const QString &id)
{
    return store.details().contains(id) || store.failedDetail().contains(id);
}
} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QUICK_BACKEND", "software");
    QGuiApplication app(argc, argv);
    outDir = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("panel-shots");
    const double scale = argc > 2 ? QString::fromLocal8Bit(argv[2]).toDouble() : 2.0;
    if (scale != 1.0 && scale != 2.0) {
        std::fprintf(stderr, "panel-render: scale is 1 or 2\n");
        return 2;
    }
    if (!QDir().mkpath(outDir)) {
        std::fprintf(stderr, "panel-render: cannot create %s\n", qUtf8Printable(outDir));
        return 1;
    }

    tarnwick::SimOptions options;
    options.port = 0;
    options.ratePerMinute = 240;
    options.seed = 11;
    tarnwick::SimServer sim(options);
    QString error;
    if (!sim.start(&error)) {
        std::fprintf(stderr, "panel-render: the tape service did not start: %s\n", qUtf8Printable(error));
        return 1;
    }

    // Preferences of this run stay in memory.
    const Clock now = systemNow;
    FeedStore live(new TarnwickClient(sim.httpBase(), sim.socketURL(), TarnwickTiming{}, now), now);
    live.setPreferences(Preferences::defaults());
    live.start();
    waitFor([&] { return live.signalList().size() >= 10 && live.link() == LinkState::live; }, 9000);
    pause(1500);

    OffscreenPanel panel(&live, scale);
    if (!panel.isValid()) {
        std::fprintf(stderr, "panel-render: %s\n", qUtf8Printable(panel.errorString()));
        return 1;
    }

    panel.open();
    pause(200);
    save(panel, QStringLiteral("main.png"));

    panel.open()->setShowSettings(true);
    save(panel, QStringLiteral("settings.png"));
    {
        // Both lists filled, the page scrolled down to them.
        const Preferences before = live.preferences();
        Preferences listed = before;
        listed.mutedTokens = {QStringLiteral("BONK"), QStringLiteral("WIF")};
        listed.mutedWallets = {QStringLiteral("mm_desk")};
        listed.watchedWallets = {QStringLiteral("ansem"), QStringLiteral("cobie")};
        live.setPreferences(listed);
        live.rebuild();
        panel.open()->setShowSettings(true);
        panel.grab(); // lays the page out
        if (auto *flick = panel.rootItem()->findChild<QQuickItem *>(QStringLiteral("settingsFlick"))) {
            const double end = flick->property("contentHeight").toDouble() - flick->height();
            flick->setProperty("contentY", std::max(0.0, end));
        }
        repaintAll(panel);
        save(panel, QStringLiteral("settings-muted.png"));
        live.setPreferences(before);
        live.rebuild();
    }
    {
        // The context menu of the second stream row, with an undo pending.
        PanelModel *model = panel.open();
        panel.grab();
        QList<QQuickItem *> hooks;
        std::function<void(QQuickItem *)> collect = [&](QQuickItem *item) {
            if (item->objectName() == QLatin1String("menuHook") && item->isVisible() && item->width() > 0)
                hooks << item;
            for (QQuickItem *child : item->childItems())
                collect(child);
        };
        collect(panel.rootItem());
        const QList<Signal> stream = model->stream()->signalList();
        if (stream.size() > 2) {
            model->runMenuAction(stream.first().id, QStringLiteral("muteToken"));
            panel.grab();
            const QString target = model->stream()->signalList().value(1).id;
            // The top row's wallet watched, to show its mark.
            if (const auto handle = FeedStore::handleOf(model->stream()->signalList().value(0)))
                model->settings()->setListed(QStringLiteral("watch"), *handle, true);
            hooks.clear();
            collect(panel.rootItem());
            bool shown = false;
            for (QQuickItem *hook : std::as_const(hooks)) {
                if (hook->property("signalId").toString() != target)
                    continue;
                // Opened after the scene is made new: hiding the scene would close it.
                repaintAll(panel);
                QVariant menu;
                shown = QMetaObject::invokeMethod(hook, "popup", Q_RETURN_ARG(QVariant, menu),
                                                  Q_ARG(QVariant, 150), Q_ARG(QVariant, 12));
                pause(250); // the popup finishes opening (and fading in) on the event loop
                save(panel, QStringLiteral("menu.png"));
                break;
            }
            if (!shown) {
                std::fprintf(stderr, "panel-render: no menu for %s\n", qUtf8Printable(target));
                ++failures;
            }
            model->settings()->undoMute();
            live.setPreferences(Preferences::defaults());
            live.rebuild();
        }
    }

    {
        PanelModel *model = panel.open();
        if (const auto pick = richest(model->stream()->signalList(), live, true)) {
            model->toggle(pick->id);
            save(panel, QStringLiteral("inspector-loading.png"));
        }
    }
    {
        PanelModel *model = panel.open();
        if (const auto pick = richest(model->stream()->signalList(), live, false)) {
            model->toggle(pick->id);
            waitFor([&] { return settled(live, pick->id); }, 5000);
            save(panel, QStringLiteral("inspector-loaded.png"));
        }
    }
    {
        PanelModel *model = panel.open();
        const QList<Signal> heroes = live.heroSignals();
        if (!heroes.isEmpty()) {
            model->toggle(heroes.first().id);
            waitFor([&] { return settled(live, heroes.first().id); }, 5000);
            save(panel, QStringLiteral("hero-open.png"));
            // A mini hero opens onto the detail card; with none, ask for the top one's.
            PanelModel *again = panel.open();
            if (heroes.size() > 1) {
                again->toggle(heroes.at(1).id);
                waitFor([&] { return settled(live, heroes.at(1).id); }, 5000);
            } else {
                again->showDetailCard(heroes.first().id);
            }
            save(panel, QStringLiteral("hero-detail.png"));
        }
    }
    // Filtered to a kind with few signals: heroes only, or nothing on the wire.
    for (SignalKind kind : SignalKinds::allCases) {
        const int n = live.count(FeedFilter::of(kind));
        const bool heroesOnly = n >= 1 && n <= 3;
        if (n == 0 || heroesOnly) {
            live.setFilter(FeedFilter::of(kind));
            panel.open();
            save(panel,
                 heroesOnly ? QStringLiteral("empty-heroes-only.png") : QStringLiteral("empty-live.png"));
            live.setFilter(FeedFilter::all());
        }
    }
    {
        Preferences none = live.preferences();
        for (SignalKind k : SignalKinds::allCases)
            none.streams[k] = false;
        const Preferences before = live.preferences();
        live.setPreferences(none);
        live.rebuild();
        panel.open();
        save(panel, QStringLiteral("empty-all-off.png"));
        live.setPreferences(before);
        live.rebuild();
    }
    panel.closeTree();

    // A service that is not there: connecting, then down, and failed loads.
    TarnwickTiming quick;
    quick.openWatchdogMs = 300;
    quick.requestTimeoutMs = 800;
    FeedStore dead(new TarnwickClient(QStringLiteral("http://127.0.0.1:1/api"),
                                      QStringLiteral("ws://127.0.0.1:1/ws"), quick, now),
                   now);
    dead.setPreferences(Preferences::defaults());
    OffscreenPanel offline(&dead, scale);
    offline.open();
    save(offline, QStringLiteral("empty-connecting.png"));
    dead.start();
    // The client decides between polling and down; the picture is named after what it chose.
    waitFor([&] { return dead.link() == LinkState::down; }, 8000);
    offline.open();
    save(offline, QStringLiteral("empty-") + LinkStates::caseName(dead.link()) + QStringLiteral(".png"));
    {
        QList<TwFill> fills;
        for (int i = 0; i < 5; ++i) {
            TwFill f;
            f.id = 9000 + i;
            f.ts = now() - 40 * i;
            f.side = i % 2 ? QStringLiteral("sell") : QStringLiteral("buy");
            f.usd = 3000.0 * (i + 1);
            f.handle = QStringLiteral("<b>wallet%1</b>").arg(i);
            f.wallet = QStringLiteral("W%1").arg(i);
            f.token = QStringLiteral("T%1").arg(i);
            f.symbol = QStringLiteral("SYM%1").arg(i);
            fills << f;
        }
        dead.ingest(fills);
        PanelModel *model = offline.open();
        if (!model->stream()->signalList().isEmpty()) {
            const QString id = model->stream()->signalList().first().id;
            model->toggle(id);
            waitFor([&] { return dead.failedDetail().contains(id); }, 8000);
            save(offline, QStringLiteral("inspector-failed.png"));
        }
        // Hostile text in the hero: a ticker far too long for its line and a
        // handle with a line break in it.
        TwFill lead = fills.first();
        lead.id = 9100;
        lead.ts = now() - 1;
        lead.usd = 9'876'543;
        lead.handle = QStringLiteral("first\nsecond");
        lead.token = QStringLiteral("TLONG");
        lead.symbol = QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEFGHIJKLMN");
        dead.ingest({lead});
        offline.open();
        pause(300);
        save(offline, QStringLiteral("hero-long-ticker.png"));
    }
    offline.closeTree();
    dead.stop();

    // A link that was live and dropped, with nothing held yet: the offline
    // empty state. The service answers no tape and no radar, so nothing is
    // held when its sockets go.
    tarnwick::SimOptions emptyOptions;
    emptyOptions.port = 0;
    emptyOptions.autoTape = false;
    tarnwick::SimServer emptySim(emptyOptions);
    tarnwick::EndpointFault refused;
    refused.kind = tarnwick::EndpointFaultKind::Status500;
    emptySim.setEndpointFault(QStringLiteral("/tape"), refused);
    emptySim.setEndpointFault(QStringLiteral("/radar"), refused);
    if (emptySim.start(&error)) {
        FeedStore dropped(
            new TarnwickClient(emptySim.httpBase(), emptySim.socketURL(), TarnwickTiming{}, now), now);
        dropped.setPreferences(Preferences::defaults());
        dropped.start();
        waitFor([&] { return dropped.link() == LinkState::live; }, 8000);
        emptySim.dropAllSockets();
        waitFor([&] { return dropped.link() == LinkState::down; }, 8000);
        OffscreenPanel droppedPanel(&dropped, scale);
        droppedPanel.open();
        save(droppedPanel, QStringLiteral("empty-dropped-") + LinkStates::caseName(dropped.link()) +
                               QStringLiteral(".png"));
        droppedPanel.closeTree();
        dropped.stop();
    } else {
        std::fprintf(stderr, "panel-render: a second tape service did not start: %s\n",
                     qUtf8Printable(error));
        ++failures;
    }
    historyScenes(panel, live);
    live.stop();
    return failures == 0 ? 0 : 1;
}
