#pragma once
// The History view's list ("panel.history"): what the history file kept,
// newest first, a page at a time as the list scrolls (fetchMore), filtered by
// the search field ($TOKEN, @handle, a kind, a minimum size) and, when asked,
// by a time range (the "while you were away" summary). Mutes apply; watched
// wallets are marked. Reads go to the history's worker thread; the answers
// come back here, so scrolling never waits on the file.

#include "History/HistoryStore.h"

#include <QAbstractListModel>
#include <QPointer>

class FeedStore;

class HistoryModel : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(bool shown READ shown WRITE setShown NOTIFY shownChanged)
    Q_PROPERTY(QString queryText READ queryText WRITE setQueryText NOTIFY queryChanged)
    Q_PROPERTY(QString rangeText READ rangeText NOTIFY queryChanged)
    Q_PROPERTY(bool loading READ loading NOTIFY stateChanged)
    Q_PROPERTY(bool atEnd READ atEnd NOTIFY stateChanged)
    Q_PROPERTY(int count READ count NOTIFY stateChanged)
    // Below the list: why it is empty or ends ("History is off." ...).
    Q_PROPERTY(QString message READ message NOTIFY stateChanged)
    // The banner at the top of the panel (empty: none).
    Q_PROPERTY(QString awayText READ awayText NOTIFY awayChanged)

public:
    enum Role {
        IdRole = Qt::UserRole + 1,
        KindRole,
        TickerRole,
        BodyRole,
        FigureRole,
        DetailRole,
        TimeRole,
        WatchedRole,
        ChartUrlRole,
    };

    static constexpr int pageSize = 50;

    HistoryModel(FeedStore *store, HistoryStore *history = nullptr, QObject *parent = nullptr);
    // The app's history, when it keeps one (the model starts without).
    void setHistoryStore(HistoryStore *history);
    HistoryStore *historyStore() const { return history_; }

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;
    bool canFetchMore(const QModelIndex &parent) const override;
    void fetchMore(const QModelIndex &parent) override;

    bool shown() const { return shown_; }
    void setShown(bool shown);
    QString queryText() const { return queryText_; }
    void setQueryText(const QString &text);
    QString rangeText() const;
    bool loading() const { return loading_; }
    bool atEnd() const { return !next_ && !loading_; }
    int count() const { return int(entries_.size()); }
    QString message() const;
    QString awayText() const;

    // The time range of a summary: the list shows only [since, until].
    Q_INVOKABLE void showRange(double since, double until);
    Q_INVOKABLE void clearRange();
    // The banner's own actions.
    Q_INVOKABLE void openAway();
    Q_INVOKABLE void dismissAway();
    // Reads the first page again (on opening the view).
    Q_INVOKABLE void reload();
    // What the evidence of a kept signal can show: "" when the service can
    // be asked as for the live stream, otherwise a plain sentence.
    Q_INVOKABLE QString evidenceNote(const QString &id) const;

    const Signal *find(const QString &id) const;
    // "13:02" today, "Nov 24 13:02" before, in local time.
    static QString timeText(double at, double now);
    HistoryQuery query() const;

Q_SIGNALS:
    void shownChanged();
    void queryChanged();
    void stateChanged();
    void awayChanged();

private:
    void request();

    QPointer<FeedStore> store_;
    QPointer<HistoryStore> history_;
    bool shown_ = false;
    QString queryText_;
    std::optional<double> since_;
    std::optional<double> until_;
    QList<HistoryEntry> entries_;
    std::optional<HistoryCursor> next_;
    bool started_ = false; // the first page was asked for
    bool loading_ = false;
    QString error_;
    int generation_ = 0;
};
