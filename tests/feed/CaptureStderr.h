#pragma once
// Standard error into a file for the length of a scope, so that log lines can
// be read back.

#include <QRegularExpression>
#include <QStringList>
#include <QTemporaryFile>

#include <unistd.h>

class CaptureStderr {
public:
    CaptureStderr()
    {
        file_.open();
        saved_ = ::dup(STDERR_FILENO);
        ::dup2(file_.handle(), STDERR_FILENO);
    }
    ~CaptureStderr() { restore(); }

    // The messages of the lines that carry `tag` ("tw" or "Larkpin"), with the
    // "HH:mm:ss [tag] " prefix taken off; standard error is back from here on.
    QStringList messages(const QString &tag)
    {
        restore();
        file_.seek(0);
        const QString mark = QStringLiteral(" [") + tag + QStringLiteral("] ");
        QStringList out;
        for (const QByteArray &bytes : file_.readAll().split('\n')) {
            const QString line = QString::fromUtf8(bytes);
            if (line.size() > 8 && line.mid(8, mark.size()) == mark && line.at(2) == QLatin1Char(':') &&
                line.at(5) == QLatin1Char(':'))
                out << line.mid(8 + mark.size());
        }
        return out;
    }
    // Whether a message of `tag` matches `pattern`.
    bool logged(const char *tag, const char *pattern)
    {
        return !messages(QLatin1String(tag)).filter(QRegularExpression(QString::fromUtf8(pattern))).isEmpty();
    }

private:
    void restore()
    {
        if (saved_ < 0)
            return;
        ::dup2(saved_, STDERR_FILENO);
        ::close(saved_);
        saved_ = -1;
    }
    QTemporaryFile file_;
    int saved_ = -1;
};
