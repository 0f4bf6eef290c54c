// What a client may send at the server's end of the control connection: nothing crashes, records
// come out the same wherever the stream is cut, and what decodes is what its encoding gives.
//
// Input: 1 byte of the cut's place, then the stream.

#include "fuzzlink.h"

#include <cstddef>
#include <cstdint>

using namespace multiportlink;

namespace {

void checkPayload(const QByteArray &payload)
{
    if (const auto claim = decodeClaim(payload))
        check(encode(*claim) == payload);
    if (const auto line = decodeSerialLine(payload))
        check(encode(*line) == payload);
}

void checkBody(const Record &record)
{
    if (record.kind == Kind::Hello) {
        if (const auto hello = decodeHello(record.body); hello && hello->version == Version)
            check(encode(*hello) == recordOf(record));
    }
    if (record.kind != Kind::Request)
        return;
    if (const auto request = decodeRequest(record.body)) {
        check(encode(*request) == recordOf(record));
        checkPayload(request->payload);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *pData, std::size_t size)
{
    for (const Record &record : recordsOf(pData, size))
        checkBody(record);
    return 0;
}
