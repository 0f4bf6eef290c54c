// What a server may send at the client's end of the control connection: nothing crashes, records
// come out the same wherever the stream is cut, and what decodes is what its encoding gives.
//
// Input: 1 byte of the cut's place, then the stream.

#include "fuzzlink.h"

#include <cstddef>
#include <cstdint>

using namespace multiportlink;

namespace {

void checkBody(const Record &record)
{
    switch (record.kind) {
    case Kind::Welcome:
        if (const auto welcome = decodeWelcome(record.body); welcome && welcome->version == Version)
            check(encode(*welcome) == recordOf(record));
        break;
    case Kind::Status:
        if (const auto status = decodeStatus(record.body))
            check(encode(*status) == recordOf(record));
        break;
    case Kind::Event:
        if (const auto event = decodeEvent(record.body))
            check(encode(*event) == recordOf(record));
        break;
    case Kind::Goodbye:
        if (const auto goodbye = decodeGoodbye(record.body))
            check(decodeGoodbye(encode(*goodbye).mid(3))->reason == goodbye->reason);
        break;
    case Kind::Hello:
    case Kind::Request:
    case Kind::Heartbeat:
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *pData, std::size_t size)
{
    for (const Record &record : recordsOf(pData, size))
        checkBody(record);
    return 0;
}
