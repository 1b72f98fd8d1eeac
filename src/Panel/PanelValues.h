#pragma once
// What the panel model hands its views as typed values rather than maps: the
// QML tooling knows every field a view reads, so a misspelt one is a lint
// error and not a silent `undefined`.

#include "Model/Signal.h"

#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <optional>

class FeedStore;

// A signal's kind as the views compare it (SignalKind.Whale, …). The wire's
// own names ("whale", "spike", "stocks") stay on the wire and in the texts.
namespace PanelKind {
Q_NAMESPACE
QML_NAMED_ELEMENT(SignalKind)
enum Kind { NoKind = 0, Whale, Spike, Stocks };
Q_ENUM_NS(Kind)

Kind of(std::optional<SignalKind> kind);
Kind fromRaw(const QString &raw);
std::optional<SignalKind> toModel(int kind);
} // namespace PanelKind

// One signal as a card shows it (the hero, the detail card): the same fields
// as a row of SignalListModel, read from the same place.
class SignalCard {
    Q_GADGET
    QML_VALUE_TYPE(signalCard)
    // False for "no card": the detail card is hidden then.
    Q_PROPERTY(bool valid MEMBER valid)
    Q_PROPERTY(QString signalId MEMBER signalId)
    // A SignalKind value (an int, as the views' kind properties and the
    // lists' kind role hold it).
    Q_PROPERTY(int kind MEMBER kind)
    Q_PROPERTY(QString kindLabel MEMBER kindLabel)
    Q_PROPERTY(QString ticker MEMBER ticker)
    Q_PROPERTY(QString body MEMBER body)
    Q_PROPERTY(QString figure MEMBER figure)
    Q_PROPERTY(QString headline MEMBER headline)
    Q_PROPERTY(QString detail MEMBER detail)
    Q_PROPERTY(QString meta MEMBER meta)
    Q_PROPERTY(QString age MEMBER age)
    Q_PROPERTY(QString amount MEMBER amount)
    Q_PROPERTY(bool hasWinRate MEMBER hasWinRate)
    Q_PROPERTY(double winRate MEMBER winRate)
    Q_PROPERTY(QString winRateText MEMBER winRateText)
    Q_PROPERTY(QString chartUrl MEMBER chartUrl)
    Q_PROPERTY(bool watched MEMBER watched)
public:
    static SignalCard of(const Signal &signal, double now, const FeedStore *store);
    bool operator==(const SignalCard &) const = default;

    bool valid = false;
    QString signalId;
    int kind = PanelKind::NoKind;
    QString kindLabel;
    QString ticker;
    QString body;
    QString figure;
    QString headline;
    QString detail;
    QString meta;
    QString age;
    QString amount;
    bool hasWinRate = false;
    double winRate = 0;
    QString winRateText;
    QString chartUrl;
    bool watched = false;
};

// Everything the inspector shows for one signal. The modules keep the shape
// Evidence documents ({eyebrow, title, stats, …}); which of them are there
// is named here.
class InspectorInfo {
    Q_GADGET
    QML_VALUE_TYPE(inspectorInfo)
    // details, blank, failed or loading
    Q_PROPERTY(QString state MEMBER state)
    Q_PROPERTY(bool hasWallet MEMBER hasWallet)
    Q_PROPERTY(bool hasToken MEMBER hasToken)
    Q_PROPERTY(bool hasEquity MEMBER hasEquity)
    Q_PROPERTY(QVariantMap wallet MEMBER wallet)
    Q_PROPERTY(QVariantMap token MEMBER token)
    Q_PROPERTY(QVariantMap equity MEMBER equity)
    Q_PROPERTY(QVariantList links MEMBER links)
public:
    // From Evidence::inspector's map.
    static InspectorInfo fromMap(const QVariantMap &map);
    bool operator==(const InspectorInfo &) const = default;

    QString state;
    bool hasWallet = false;
    bool hasToken = false;
    bool hasEquity = false;
    QVariantMap wallet;
    QVariantMap token;
    QVariantMap equity;
    QVariantList links;
};
