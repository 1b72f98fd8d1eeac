#pragma once
// Larkpin's ticker for QML (Qt 5, for a Plasma 5 applet): the state the app
// publishes on the session bus as properties, kept current by the app's own
// change signals, and its requests as invokable methods. Nothing is polled:
// the name's owner is watched, everything is read once when it appears and
// then only what PropertiesChanged says.

#include <QDBusServiceWatcher>
#include <QObject>
#include <QVariantMap>

class TickerSource : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool available READ available NOTIFY availableChanged)
    Q_PROPERTY(QVariantMap row READ row NOTIFY rowChanged)
    Q_PROPERTY(QVariantMap takeover READ takeover NOTIFY takeoverChanged)
    Q_PROPERTY(int takeoverRemainingMs READ takeoverRemainingMs NOTIFY takeoverChanged)
    Q_PROPERTY(QString link READ link NOTIFY linkChanged)
    Q_PROPERTY(QVariantMap counts READ counts NOTIFY countsChanged)
    Q_PROPERTY(bool paused READ paused NOTIFY pausedChanged)
    Q_PROPERTY(QString status READ status NOTIFY statusChanged)
    Q_PROPERTY(QVariantMap accents READ accents NOTIFY accentsChanged)
    // While true (the default) and the app runs, the app hides its own strip.
    Q_PROPERTY(bool attach READ attach WRITE setAttach NOTIFY attachChanged)
public:
    explicit TickerSource(QObject *parent = nullptr);
    ~TickerSource() override;

    bool available() const { return available_; }
    QVariantMap row() const { return props_.value(QStringLiteral("Row")).toMap(); }
    QVariantMap takeover() const { return props_.value(QStringLiteral("Takeover")).toMap(); }
    int takeoverRemainingMs() const { return props_.value(QStringLiteral("TakeoverRemainingMs")).toInt(); }
    QString link() const { return props_.value(QStringLiteral("Link")).toString(); }
    QVariantMap counts() const { return props_.value(QStringLiteral("Counts")).toMap(); }
    bool paused() const { return props_.value(QStringLiteral("Paused")).toBool(); }
    QString status() const { return props_.value(QStringLiteral("Status")).toString(); }
    QVariantMap accents() const { return props_.value(QStringLiteral("Accents")).toMap(); }
    bool attach() const { return attach_; }
    void setAttach(bool attach);

    // Screen coordinates of the applet (or of the click).
    Q_INVOKABLE void togglePanel(int x, int y, int width, int height);
    Q_INVOKABLE void showMenu(int x, int y);
    Q_INVOKABLE void setPaused(bool paused);

Q_SIGNALS:
    void availableChanged();
    void rowChanged();
    void takeoverChanged();
    void linkChanged();
    void countsChanged();
    void pausedChanged();
    void statusChanged();
    void accentsChanged();
    void attachChanged();

private Q_SLOTS:
    void propertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &invalidated);

private:
    void appeared();
    void vanished();
    void merge(const QVariantMap &changed);
    void call(const QString &method, const QVariantList &args);

    QDBusServiceWatcher watcher_;
    QVariantMap props_;
    bool available_ = false;
    bool attach_ = true;
    quint64 generation_ = 0; // answers for an owner that has gone are dropped
};
