// Any bytes a socket can deliver: the frame decoder must answer, never crash,
// and whatever fills it lets through must survive the rules and the telemetry.
#include "Wire/SignalRules.h"
#include "Wire/TarnwickModels.h"
#include "Wire/Telemetry.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    if (const auto frame = TwDecode::socketFrame(bytes); frame && frame->data) {
        TelemetryWindow window;
        double newest = 0;
        for (const TwFill &f : *frame->data) {
            (void)SignalRules::signal(f, nullptr, nullptr);
            window.append(f.ts, f.usd, f.side == QLatin1String("buy"));
            newest = std::max(newest, f.ts);
        }
        (void)window.snapshot(newest, 0, 0);
    }
    return 0;
}
