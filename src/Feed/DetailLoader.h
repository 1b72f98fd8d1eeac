#pragma once
// The inspector's detail of a signal, loaded on demand: the fill it came from
// (from the tape), the trader behind its wallet, its token from the
// enrichment tables. Each id is in at most one of loading and failed; a
// failed id may be asked for again.

#include "Feed/TarnwickClient.h"
#include "Model/Clock.h"
#include "Model/Signal.h"

#include <QHash>
#include <QObject>
#include <QSet>

class DetailLoader : public QObject {
    Q_OBJECT
public:
    DetailLoader(TarnwickClient &client, Clock now, QObject *parent);

    void load(const Signal &signal);

    const QHash<QString, SignalDetail> &details() const { return details_; }
    const QSet<QString> &loading() const { return loading_; }
    const QSet<QString> &failed() const { return failed_; }

Q_SIGNALS:
    void detailsChanged();
    void loadingChanged();
    void failedChanged();

private:
    TarnwickClient &client_;
    Clock now_;
    QHash<QString, SignalDetail> details_;
    QSet<QString> loading_;
    QSet<QString> failed_;
};
