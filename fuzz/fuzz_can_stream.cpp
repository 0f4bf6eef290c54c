// Encoding and decoding a message gives the message back, behind the two bytes of its length.
//
// Input: 2 bytes of command, then the payload.

#include "fuzzbus.h"

#include "canbus/vycanframe.h"
#include "canbus/vystream.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

void check(bool isTrue)
{
    if (!isTrue)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *pData, std::size_t size)
{
    turnLogOff();
    if (size < 2)
        return 0;
    // More than these cannot be numbered; the acknowledges have no length field.
    constexpr std::size_t maxPayload =
        CanVy::MaxFrames * CanVy::FrameDataMaxSize - CanVy::StreamOverhead;
    int command = (pData[0] << 8 | pData[1]) & CanMessage::MaxCommand;
    if (command == 1 || command == 2)
        command = 0;
    CanBytes payload;
    for (std::size_t at = 2; at < size && at < maxPayload + 2; ++at)
        payload.append(pData[at]);

    static CanBytes s_stream; // used again, as the engine does
    static QList<CanFrame> s_frames;
    CanVy::writeStream(CanMessage(0x419, command, payload), s_stream);
    CanVy::writeFrames(s_stream, 0x4A8, 0x419, s_frames);

    IncomingCanMessage entry;
    CanVy::Decoded decoded = CanVy::decodeFirstFrame(s_frames.constFirst(), entry);
    for (int i = 1; i < s_frames.size(); ++i) {
        check(decoded == CanVy::Decoded::Incomplete);
        decoded = CanVy::decodeFollowingFrame(s_frames.at(i), entry);
    }
    check(decoded == CanVy::Decoded::Whole);
    CanBytes &data = entry.pMessage->data();
    check(CanVy::takeOffEnvelope(data));
    check(entry.pMessage->command() == command && entry.pMessage->source() == 0x4A8 &&
          entry.pMessage->destination() == 0x419);
    check((data.at(0) << 8 | data.at(1)) == payload.size() && data.mid(2) == payload);
    return 0;
}
