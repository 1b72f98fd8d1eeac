#pragma once
// A list of signals for QML (the stream rows, the mini heroes). Updates keep
// the rows of signals that stay, so their delegates keep hover and open state.

#include "Model/Signal.h"

#include <QAbstractListModel>
#include <QVariantMap>

class FeedStore;

class SignalListModel : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(int count READ count NOTIFY countChanged)
public:
    enum Role {
        IdRole = Qt::UserRole + 1,
        KindRole,
        KindLabelRole,
        TickerRole,
        BodyRole,
        FigureRole,
        HeadlineRole,
        DetailRole,
        MetaRole,
        AgeRole,
        AmountRole,
        HasWinRateRole,
        WinRateRole, // 0..1; 0 also when unknown, so read HasWinRateRole first
        WinRateTextRole,
        ChartUrlRole,
        WatchedRole, // by a wallet the user watches
    };

    explicit SignalListModel(const FeedStore *store, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    void setSignals(const QList<Signal> &signals, double now);
    void setNow(double now); // ages change
    void detailsChanged();   // chart links change
    void watchedChanged();   // the watch list changed
    int count() const { return int(signals_.size()); }
    const QList<Signal> &signalList() const { return signals_; }
    QStringList ids() const;
    // The row of signal `id`, or -1: the list finds its reader's row again.
    Q_INVOKABLE int indexOf(const QString &id) const;

    // What a role holds for one signal: data() and describe() both read this,
    // so a row and a hero card of the same signal cannot disagree.
    static QVariant value(const Signal &signal, int role, double now, const FeedStore *store);
    // Every role of one signal by its name (the hero card, the detail card).
    static QVariantMap describe(const Signal &signal, double now, const FeedStore *store);
    static QString chartUrl(const QString &id, const FeedStore *store);

Q_SIGNALS:
    void countChanged();

private:
    const FeedStore *store_;
    QList<Signal> signals_;
    double now_ = 0;
};
