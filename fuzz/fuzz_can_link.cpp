// The CAN channel's stream, cut anywhere, gives the frames that its records say, whoever reads it:
// the interface those of any length up to 127, the server's reader the same ones until a length
// above 8. What the interface keeps is always less than one record.
//
// Input: 1 byte whose lowest bit lets an event loop run in each frame's handling, then chunks of 1
// byte of length and so many bytes.

#include "fuzzbus.h"
#include "fuzzmachine.h"

#include "canbus/caninterface_multiport.h"
#include "canbus/canrecord.h"

#include <QEvent>
#include <QList>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

void check(bool isTrue)
{
    if (!isTrue)
        std::abort();
}

/// The records as the stream's rules say, one byte after the other.
class Expected
{
public:
    void append(const QByteArray &bytes)
    {
        for (const char byte : bytes) {
            m_waiting.append(byte);
            const int length = m_waiting.size() < 5 ? 0 : static_cast<signed char>(m_waiting.at(4));
            m_isBroken = m_isBroken || length < 0;
            if (m_isBroken) // the rest of the delivery goes too
                break;
            if (m_waiting.size() >= 5 && m_waiting.size() == 5 + length)
                m_records.append(QByteArray(std::exchange(m_waiting, {})));
        }
        if (std::exchange(m_isBroken, false))
            m_waiting.clear();
    }

    const QList<QByteArray> &records() const { return m_records; }
    int waiting() const { return m_waiting.size(); }

private:
    QByteArray m_waiting;
    bool m_isBroken = false;
    QList<QByteArray> m_records;
};

bool areSame(const CanFrame &frame, const QByteArray &record)
{
    return frame.reserved() == 0 && CanRecord::encode(frame) == record;
}

bool areSame(const CanFrame &frame, const CanFrame &other)
{
    return frame.id() == other.id() && frame.data() == other.data();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *pData, std::size_t size)
{
    turnLogOff();
    Multiport &client = Machine::instance().client();
    if (size < 1)
        return 0;
    const bool isLoopRun = (pData[0] & 1U) != 0;
    CanInterface_Multiport interface(nullptr);
    QList<CanFrame> frames;
    QObject::connect(&interface, &CanInterface_Multiport::frameReceived, &interface,
                     [&](const CanFrame &frame) {
                         frames.append(frame);
                         if (isLoopRun)
                             QCoreApplication::sendPostedEvents(&interface, QEvent::MetaCall);
                     });
    Expected expected;
    CanRecord::Reader reader;
    int read = 0;
    forEachChunk(pData + 1, size - 1, [&](const QByteArray &chunk) {
        Q_EMIT client.newDataOnCanBus(chunk);
        expected.append(chunk);
        check(frames.size() == expected.records().size());
        check(expected.waiting() < CanRecord::HeadSize + 127);

        reader.append(chunk);
        CanFrame frame;
        for (; reader.next(frame); ++read)
            check(read < frames.size() && areSame(frames.at(read), frame));
        check(reader.isBroken() || read == frames.size());
    });
    for (int i = 0; i < frames.size(); ++i)
        check(areSame(frames.at(i), expected.records().at(i)));
    return 0;
}
