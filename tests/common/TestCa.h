#pragma once
// A throw-away certificate authority and server certificates for one test
// run, made by scripts/make-test-ca into a temporary folder (see the script
// for the files it makes). Nothing of it outlives the run.

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

class TestCa {
public:
    // False, with the script's output in `error`, when the files could not be made.
    bool make(QString *error)
    {
        const QString script =
            qEnvironmentVariable("LARKPIN_TEST_SOURCE_DIR") + QStringLiteral("/scripts/make-test-ca");
        QProcess p;
        p.setProcessChannelMode(QProcess::MergedChannels);
        p.start(script, {dir_.path()});
        // openssl makes a few EC keys: well under a second, unless the machine is loaded.
        if (!p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
            *error = script + QStringLiteral(": ") + QString::fromUtf8(p.readAll()) + p.errorString();
            return false;
        }
        return true;
    }
    QString file(const char *name) const { return dir_.filePath(QLatin1String(name)); }
    QString ca() const { return file("ca.pem"); }
    QString cert(const char *name) const { return file(name) + QStringLiteral(".pem"); }
    QString key(const char *name) const { return file(name) + QStringLiteral(".key"); }

private:
    QTemporaryDir dir_;
};
