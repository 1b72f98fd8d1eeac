#include "Support/Log.h"

#include <QTime>

#include <unistd.h>

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

} // namespace Log
