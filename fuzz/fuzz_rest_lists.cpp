// Any body an endpoint can answer with, through every REST decoder.
#include "Wire/SignalRules.h"
#include "Wire/TarnwickModels.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    if (const auto fills = TwDecode::fills(body))
        for (const TwFill &f : *fills)
            (void)SignalRules::signal(f, nullptr, nullptr);
    if (const auto radar = TwDecode::radars(body))
        for (const TwRadar &r : *radar)
            (void)SignalRules::signal(r, 0);
    if (const auto tokens = TwDecode::tokens(body))
        for (const TwToken &t : *tokens)
            (void)SignalRules::tokenProfile(t, 1.7e9);
    (void)TwDecode::traders(body);
    if (const auto detail = TwDecode::traderDetail(body))
        (void)SignalRules::walletProfile(*detail, nullptr);
    return 0;
}
