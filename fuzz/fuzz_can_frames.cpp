// Frames and pauses at CanProtocol_Vy: nothing crashes, and memory stays bounded.
//
// Input: records of a head byte and what it asks for.
//   0x00 to 0xef  a frame: 4 bytes of identifier, then (head & 15) data bytes
//   0xf0 to 0xff  a pause in which timers expire

#include "fuzzbus.h"

#include "canbus/canbuschannel.h"
#include "canbus/canprotocol_vy.h"
#include "canbus/vycanframe.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr int s_cpu = 0x4AE;
constexpr int s_board = 0x41B;

/// Lets the time-outs come that would come in a pause: every timer of the protocol is due at once.
class Protocol : public CanProtocol_Vy
{
public:
    Protocol()
        : CanProtocol_Vy(nullptr)
    {
    }

    void expireAll() { QCoreApplication::processEvents(); }
};

struct Input
{
    const std::uint8_t *pBytes;
    std::size_t left;

    std::uint8_t next()
    {
        if (left == 0)
            return 0;
        --left;
        return *pBytes++;
    }
};

CanFrame nextFrame(Input &input, int size)
{
    CanFrame frame;
    quint32 id = 0;
    for (int i = 0; i < 4; ++i)
        id = id << 8U | input.next();
    // Most frames are for this computer, else nearly all would be rejected at once.
    VYCanFrame made;
    made.setId(id);
    if ((id & 0x3U) != 0)
        made.setDestinationAddress(s_cpu);
    if ((id & 0x1800U) != 0)
        made.setSourceAddress(s_board);
    for (int i = 0; i < size; ++i)
        made.appendData(static_cast<char>(input.next()));
    return made;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *pData, std::size_t size)
{
    static int s_count = 0;
    static QCoreApplication s_application(s_count, nullptr);
    turnLogOff();

    CanBusChannel::setGlobalTimeoutValue(0); // a pause is then one turn of the event loop
    Sink sink;
    Protocol protocol;
    protocol.setOwnAddress(s_cpu);
    protocol.setCanInterface(&sink);
    CanBusChannel *const pChannel = CanBusChannel::channel(s_board);
    protocol.send(QSharedPointer<CanMessage>::create(s_board, 0x2A), pChannel);

    Input input{pData, size};
    while (input.left > 0) {
        const std::uint8_t head = input.next();
        if (head >= 0xF0)
            protocol.expireAll();
        else
            sink.onFrameReceived(nextFrame(input, head & 15));
        if (protocol.incomingMessageCount() > AbstractCanProtocol::MaxIncomingMessages)
            std::abort();
    }
    CanBusChannel::deleteChannels();
    return 0;
}
