#pragma once
// The link's intervals shortened for tests on a real socket: watchdog, ping,
// poll and radar in fractions of a second, the reconnect back-off from 0.2 s
// to 1.7 s, so a test waits on events rather than on the shipped timers.

#include "Feed/TarnwickClient.h"

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
