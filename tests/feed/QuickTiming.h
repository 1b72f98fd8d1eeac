#pragma once
// The link's intervals shortened for tests on a real socket: watchdog, ping,
// poll and radar in fractions of a second, the reconnect back-off from 0.2 s
// to 1.7 s, so a test waits on events rather than on the shipped timers.

#include "Feed/TarnwickClient.h"
#include "TarnwickSim.h"

#include <QTest>

#include <memory>

inline TarnwickTiming quickTiming()
{
    return {.requestTimeoutMs = 800,
            .requestDeadlineMs = 1500,
            .openWatchdogMs = 400,
            .handshakeTimeoutMs = 1000,
            .pingIntervalMs = 300,
            .pollIntervalMs = 200,
            .radarIntervalMs = 1000,
            .reconnectScale = 0.05};
}

// A tape service on a free port that sends nothing until a test says so, and
// the trace on (tests read its lines). QVERIFY-style: call through
// QVERIFY(startQuietSim(sim)).
inline bool startQuietSim(std::unique_ptr<tarnwick::SimServer> &sim)
{
    sim = std::make_unique<tarnwick::SimServer>(tarnwick::SimOptions{.port = 0, .seed = 3, .autoTape = false});
    QString error;
    if (!sim->start(&error)) {
        qWarning("tape service did not start: %s", qPrintable(error));
        return false;
    }
    qputenv("LARKPIN_LOG", "1");
    return true;
}
