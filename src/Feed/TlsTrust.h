#pragma once
// What the link trusts when the service speaks TLS: the system's certificate
// authorities, plus those of one extra PEM file when a developer names one
// (LARKPIN_CA_FILE, for a test CA); TLS 1.2 at least; the peer's certificate
// and name always verified. Errors are never ignored: a refused certificate
// ends the connection.

#include <QList>
#include <QSslConfiguration>
#include <QSslError>
#include <QString>

namespace TlsTrust {
// `error` says why an extra CA file could not be used (the system's are then
// trusted alone, so the service is refused rather than trusted blindly).
QSslConfiguration configuration(const QString &extraCaFile, QString *error = nullptr);
// The app's: the build's trust plus LARKPIN_CA_FILE when set; read once.
const QSslConfiguration &forApp();
// A TLS error for a log line or a tooltip: "certificate expired", ...
QString describe(const QList<QSslError> &errors);
// A handshake that failed without a certificate error (an alert, an old
// version): a few words from the backend's text.
QString describeHandshake(const QString &errorString);
} // namespace TlsTrust
