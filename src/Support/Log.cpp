#include "Support/Log.h"

#include <QDateTime>
#include <QHash>
#include <QMutex>
#include <QTime>

#include <unistd.h>

Q_LOGGING_CATEGORY(lcLink, "larkpin.link", QtWarningMsg)
Q_LOGGING_CATEGORY(lcInput, "larkpin.input", QtWarningMsg)
Q_LOGGING_CATEGORY(lcNotify, "larkpin.notify", QtWarningMsg)
Q_LOGGING_CATEGORY(lcApp, "larkpin.app", QtInfoMsg)

namespace Log {

bool enabledByEnvironment()
{
    return qEnvironmentVariable("LARKPIN_LOG") == QLatin1String("1");
}

QString formatLine(const char *tag, const QString &message, const QString &clock)
{
    // Messages quote wire text (symbols, handles, frame types); a control
    // character or line separator in it must not split or forge a line.
    QString flat = message;
    for (QChar &c : flat)
        if (c.unicode() < 0x20 || c.unicode() == 0x7f || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator)
            c = QLatin1Char(' ');
    return clock + QStringLiteral(" [") + QLatin1String(tag) + QStringLiteral("] ") + flat +
           QLatin1Char('\n');
}

void write(const char *tag, const QString &message)
{
    const QByteArray line =
        formatLine(tag, message, QTime::currentTime().toString(QStringLiteral("HH:mm:ss"))).toUtf8();
    // One write per line, so lines from the store and the client never interleave.
    qsizetype done = 0;
    while (done < line.size()) {
        const ssize_t n = ::write(STDERR_FILENO, line.constData() + done, size_t(line.size() - done));
        if (n <= 0)
            break;
        done += n;
    }
}

namespace {
QString flattened(const QString &message)
{
    return formatLine("", message, QString()).mid(4).chopped(1); // no clock, no " [] ", no newline
}
QString tagged(const QString &message)
{
    return QStringLiteral("[Larkpin] ") + flattened(message);
}
} // namespace

void warning(const QLoggingCategory &category, const QString &message)
{
    if (category.isWarningEnabled())
        QMessageLogger(nullptr, 0, nullptr, category.categoryName()).warning().noquote() << tagged(message);
}

void info(const QLoggingCategory &category, const QString &message)
{
    if (category.isInfoEnabled())
        QMessageLogger(nullptr, 0, nullptr, category.categoryName()).info().noquote() << tagged(message);
}

void critical(const QLoggingCategory &category, const QString &message)
{
    if (category.isCriticalEnabled())
        QMessageLogger(nullptr, 0, nullptr, category.categoryName()).critical().noquote() << tagged(message);
}

bool isTrouble(const QString &traceLine)
{
    return traceLine.contains(QLatin1String("FAILED")) || traceLine.contains(QLatin1String("UNDECODABLE")) ||
           traceLine.contains(QLatin1String(" over "));
}

void trouble(const QLoggingCategory &category, const QString &message)
{
    if (enabledByEnvironment() || !category.isWarningEnabled())
        return;
    struct Window {
        qint64 start = 0;
        int count = 0;
    };
    static QMutex lock;
    static QHash<QByteArray, Window> windows;
    const QMutexLocker locked(&lock);
    Window &w = windows[QByteArray(category.categoryName())];
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (now - w.start >= 60000)
        w = Window{now, 0};
    if (++w.count > troubleBurst + 1)
        return;
    if (w.count == troubleBurst + 1) {
        QMessageLogger(nullptr, 0, nullptr, category.categoryName()).warning().noquote()
            << "more of the same in the next minute held back";
        return;
    }
    QMessageLogger(nullptr, 0, nullptr, category.categoryName()).warning().noquote() << flattened(message);
}

} // namespace Log
