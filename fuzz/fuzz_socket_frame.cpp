// Any bytes a socket can deliver: the frame decoder must answer, never crash.
#include "Feed/TarnwickModels.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    if (const auto frame = TwDecode::socketFrame(bytes); frame && frame->data) {
        volatile qint64 sum = 0;
        for (const TwFill &f : *frame->data)
            sum = sum + f.id + f.flags.size();
    }
    return 0;
}
