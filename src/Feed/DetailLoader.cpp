#include "Feed/DetailLoader.h"

#include "Wire/SignalRules.h"

#include <memory>

DetailLoader::DetailLoader(TarnwickClient &client, Clock now, QObject *parent)
    : QObject(parent), client_(client), now_(std::move(now))
{
}

void DetailLoader::load(const Signal &signal)
{
    const QString id = signal.id;
    if (details_.contains(id) || loading_.contains(id))
        return;
    // Both sets change before anyone hears of it: an id is never seen in
    // both at once.
    loading_.insert(id);
    const bool wasFailed = failed_.remove(id);
    Q_EMIT loadingChanged();
    if (wasFailed)
        Q_EMIT failedChanged();

    struct Work {
        Signal signal;
        std::optional<TwToken> token;
        std::optional<TwFill> fill;
    };
    auto work = std::make_shared<Work>();
    work->signal = signal;
    if (signal.asset && signal.asset->address)
        if (const TwToken *t = client_.token(*signal.asset->address))
            work->token = *t;

    auto fail = [this, id] {
        loading_.remove(id);
        failed_.insert(id);
        Q_EMIT failedChanged();
        Q_EMIT loadingChanged();
    };
    auto finish = [this, id, work](std::optional<WalletProfile> wallet, const TwTrader *trader) {
        SignalDetail detail;
        detail.signalId = id;
        detail.fetchedAt = now_();
        detail.wallet = std::move(wallet);
        const double now = now_();
        if (work->token)
            detail.token = SignalRules::tokenProfile(*work->token, now);
        if (work->signal.asset && work->signal.asset->isStock) {
            EquityMove move;
            move.ticker = work->signal.asset->symbol;
            move.session = SignalRules::marketSession(now);
            if (work->token && work->token->change24)
                move.change = *work->token->change24 / 100.0;
            if (work->token)
                move.lastPrice = work->token->mark;
            detail.equity = move;
        }
        if (work->token && work->token->pairURL)
            detail.links.chart = SignalRules::webLink(work->token->pairURL);
        else if (work->fill)
            detail.links.chart = SignalRules::webLink(work->fill->pairURL);
        if (trader)
            detail.links.profile = SignalRules::webLink(trader->profileURL);
        details_.insert(id, detail);
        loading_.remove(id);
        Q_EMIT detailsChanged();
        Q_EMIT loadingChanged();
    };
    auto walletStep = [this, work, fail, finish] {
        const auto &wallet = work->signal.wallet;
        if (!wallet || !wallet->label || !wallet->label->startsWith(QLatin1Char('@'))) {
            finish(std::nullopt, nullptr);
            return;
        }
        const QString handle = wallet->label->mid(1);
        // Asked for as sent: the cleaned label of a handle that held a line
        // break names no trader the service knows.
        const QString asked = wallet->handleSent.isEmpty() ? handle : wallet->handleSent;
        client_.traderDetail(asked, this,
                             [this, handle, fail, finish](std::optional<TwTraderDetail> detail, QString) {
                                 if (!detail)
                                     return fail();
                                 const TwTrader *trader = client_.trader(handle);
                                 finish(SignalRules::walletProfile(*detail, trader), trader);
                             });
    };
    if (signal.kind == SignalKind::spike) {
        // Even a load that needs no request finishes later, never inside this
        // call: the caller always sees the loading state first.
        QMetaObject::invokeMethod(this, walletStep, Qt::QueuedConnection);
        return;
    }
    client_.tape(200, this, [work, fail, walletStep](std::optional<QList<TwFill>> fills, QString) {
        if (!fills)
            return fail();
        for (const TwFill &f : *fills) {
            if (QStringLiteral("tw-fill-") + QString::number(f.id) == work->signal.id) {
                work->fill = f;
                break;
            }
        }
        walletStep();
    });
}
