#pragma once
// A scenario for demos and soak runs: a JSON list of {"at": seconds, ...}
// steps (see README), each switching the service's faults at its time.

#include <QJsonObject>
#include <QString>

namespace tarnwick {

class SimServer;

class SimScenario {
public:
    // Schedules every step on the server; false (with `error`) when the file
    // cannot be read or is not a JSON list.
    static bool load(SimServer &server, const QString &file, QString *error);
    static void apply(SimServer &server, const QJsonObject &step);
};

} // namespace tarnwick
