#include "SimScenario.h"

#include "TarnwickSim.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <limits>

namespace tarnwick {

bool SimScenario::load(SimServer &server, const QString &file, QString *error)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("cannot read scenario ") + file + QStringLiteral(": ") + f.errorString();
        return false;
    }
    QJsonParseError parse{};
    const QJsonDocument doc = QJsonDocument::fromJson(f.readAll(), &parse);
    if (!doc.isArray()) {
        if (error)
            *error = QStringLiteral("scenario ") + file + QStringLiteral(" is not a JSON list: ") +
                     parse.errorString();
        return false;
    }
    for (const QJsonValue &v : doc.array()) {
        const QJsonObject step = v.toObject();
        QTimer::singleShot(int(step.value(QStringLiteral("at")).toDouble() * 1000), &server,
                           [&server, step] { apply(server, step); });
    }
    return true;
}

void SimScenario::apply(SimServer &server, const QJsonObject &step)
{
    server.log(QStringLiteral("scenario: ") +
               QString::fromUtf8(QJsonDocument(step).toJson(QJsonDocument::Compact)));
    if (step.contains(QStringLiteral("endpoint"))) {
        const QString fault = step.value(QStringLiteral("fault")).toString();
        EndpointFault f;
        const int status = step.value(QStringLiteral("status")).toInt();
        f.kind = status == 500                            ? EndpointFaultKind::Status500
                 : status == 204                          ? EndpointFaultKind::Status204
                 : status == 304                          ? EndpointFaultKind::Status304
                 : fault == QLatin1String("bad_body")     ? EndpointFaultKind::BadBody
                 : fault == QLatin1String("delay")        ? EndpointFaultKind::Delay
                 : fault == QLatin1String("endless")      ? EndpointFaultKind::Endless
                 : fault == QLatin1String("huge")         ? EndpointFaultKind::Huge
                 : fault == QLatin1String("drip")         ? EndpointFaultKind::Drip
                 : fault == QLatin1String("socket_first") ? EndpointFaultKind::SocketFirst
                                                          : EndpointFaultKind::None;
        f.delayMs = step.value(QStringLiteral("delay_ms"))
                        .toInt(f.kind == EndpointFaultKind::Drip          ? 3000
                               : f.kind == EndpointFaultKind::SocketFirst ? 300
                                                                          : 15000);
        f.bytes = qint64(step.value(QStringLiteral("bytes")).toDouble(300.0 * 1024 * 1024));
        f.declareLength = step.value(QStringLiteral("declare_length")).toBool(true);
        server.setEndpointFault(step.value(QStringLiteral("endpoint")).toString(), f);
    }
    const QString handshake = step.value(QStringLiteral("handshake")).toString();
    if (handshake == QLatin1String("refuse"))
        server.setHandshakeMode(HandshakeMode::Refuse);
    else if (handshake == QLatin1String("hang"))
        server.setHandshakeMode(HandshakeMode::Hang);
    else if (handshake == QLatin1String("accept"))
        server.setHandshakeMode(HandshakeMode::Accept);
    const QString fault = step.value(QStringLiteral("fault")).toString();
    if (fault == QLatin1String("drop_sockets"))
        server.dropAllSockets();
    else if (fault == QLatin1String("silent"))
        server.setSilent(true);
    else if (fault == QLatin1String("speak"))
        server.setSilent(false);
    else if (fault == QLatin1String("clear"))
        server.clearFaults();
    else if (fault == QLatin1String("restart_socket_server"))
        server.restartSocketServer();
    else if (fault == QLatin1String("non_json"))
        server.sendRawFrame("this is not json");
    else if (fault == QLatin1String("binary_json"))
        server.sendRawFrame(R"({"type":"stats","data":{}})", true);
    else if (fault == QLatin1String("broken_fills"))
        server.sendRawFrame(R"({"type":"fills","data":{"oops":true}})");
    else if (fault == QLatin1String("oversized_message"))
        server.sendOversizedMessage(qint64(step.value(QStringLiteral("bytes")).toDouble(100.0 * 1024 * 1024)),
                                    qint64(step.value(QStringLiteral("frame_bytes")).toDouble(0)));
    else if (fault == QLatin1String("restart_lower_ids"))
        server.restartTape(qint64(step.value(QStringLiteral("first_id")).toDouble(1000)));
    else if (fault == QLatin1String("look_alikes"))
        server.sendLookAlikes(step.value(QStringLiteral("count")).toInt(20));
    else if (fault == QLatin1String("absurd_id"))
        server.injectFillId(std::numeric_limits<qint64>::max());
    else if (fault == QLatin1String("stamps_ahead"))
        server.setStampShift(step.value(QStringLiteral("seconds")).toDouble(10 * 365.25 * 86400));
    else if (fault == QLatin1String("clock_skew"))
        server.setClockSkew(step.value(QStringLiteral("seconds")).toDouble(2 * 86400));
    else if (fault == QLatin1String("flood"))
        server.startFlood(step.value(QStringLiteral("per_frame")).toInt(2000),
                          step.value(QStringLiteral("frames_per_second")).toDouble(2),
                          step.value(QStringLiteral("seconds")).toDouble(60));
    else if (fault == QLatin1String("huge_frame"))
        server.sendRawFrame(R"({"type":"noise","data":")" + QByteArray(4 * 1024 * 1024, 'x') + "\"}");
    if (step.contains(QStringLiteral("drop_after_frames")))
        server.dropSocketsAfterFrames(step.value(QStringLiteral("drop_after_frames")).toInt());
}

} // namespace tarnwick
