#ifndef PROTOCOLTEST_H
#define PROTOCOLTEST_H

#include "canbus/abstractcanprotocol.h"
#include "canbus/canbuschannel.h"
#include "canbus/canmessages.h"
#include "canbus/recordinginterface.h"

#include "support/virtualtime.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace ProtocolAddress {
constexpr int Own = 0x4A8;
constexpr int Board = 0x419;
constexpr int OtherBoard = 0x721;
constexpr int Shared = 0x301;
} // namespace ProtocolAddress

/// The bytes and the exclusive-or of them behind.
inline CanBytes withChecksum(CanBytes stream)
{
    unsigned char checksum = 0;
    for (const unsigned char byte : qAsConst(stream))
        checksum = static_cast<unsigned char>(checksum ^ byte);
    stream.append(checksum);
    return stream;
}

inline CanBytes bigEndian(int value)
{
    return {static_cast<unsigned char>(value >> 8 & 0xFF),
            static_cast<unsigned char>(value & 0xFF)};
}

/// The stream of a message, written down here once more and not by the code under test.
inline CanBytes streamOf(int command, const CanBytes &payload)
{
    return withChecksum(CanBytes{2} + bigEndian(command) + bigEndian(payload.size()) + payload);
}

/// The stream of an acknowledge.
inline CanBytes answerStream(int command, int answered)
{
    return withChecksum(CanBytes{2} + bigEndian(command) + bigEndian(answered));
}

/// So many bytes that count up from `first`.
inline CanBytes countingBytes(int size, int first = 1)
{
    CanBytes counting;
    counting.reserve(size);
    for (int i = 0; i < size; ++i)
        counting.append(static_cast<unsigned char>(first + i));
    return counting;
}

/// A bus that also keeps what goes to its trace.
class TracingInterface : public RecordingInterface
{
    Q_OBJECT

public:
    struct Trace
    {
        CanFrame frame;
        bool isReceived;
        QString comment;
    };

    using RecordingInterface::RecordingInterface;

    int traceFile(const CanFrame &frame, bool isReceived, QString comment) override
    {
        m_traces.append({frame, isReceived, comment});
        return 0;
    }
    const QList<Trace> &traces() const { return m_traces; }

private:
    QList<Trace> m_traces;
};

/// The protocol with what it keeps for variants.
template <typename Protocol>
class Exposed : public Protocol
{
public:
    using Protocol::Protocol;

    using Protocol::answerMessage;
    using Protocol::decodeIncompleteMessageFrame;
    using Protocol::decodeMessageHeader;
    using Protocol::decodeNewMessageFrame;
    using Protocol::encode;
    using Protocol::encodeAnswer;
    using Protocol::findMatchingIncompleteMessage;
    using Protocol::generateAnswerMessage;
    using Protocol::identifyAnswer;
    using Protocol::incomingMessageFinalChecks;
    using Protocol::isFrameAccepted;
    using Protocol::processDecodedIncomingMessage;
    using Protocol::resend;
    using Protocol::sendAnswerMessage;
    using Protocol::sendMessage;
    using Protocol::splitIntoFrames;
};

/// A protocol on a bus, with the time at which each thing happened since the test began.
template <typename Protocol>
class ProtocolFixture : public ::testing::Test
{
public:
    ~ProtocolFixture() override
    {
        CanBusChannel::deleteChannels();
        CanBusChannel::setGlobalTimeoutValue(1200);
    }
    Q_DISABLE_COPY_MOVE(ProtocolFixture)

protected:
    using Message = QSharedPointer<const CanMessage>;
    using Timeline = std::vector<std::string>;

    struct Answer
    {
        CanBusChannel *pChannel;
        CanAnswer::AnswerType type;
        Message pMessage;
    };

    template <typename... Arguments>
    explicit ProtocolFixture(Arguments... arguments)
        : m_start(VirtualTime::instance()->now())
        , m_pInterface(std::make_unique<TracingInterface>())
        , m_pProtocol(std::make_unique<Exposed<Protocol>>(nullptr, arguments...))
    {
        listen();
        m_pProtocol->setOwnAddress(ProtocolAddress::Own);
        m_pProtocol->setCanInterface(m_pInterface.get());
    }

    static CanBusChannel *channel(int id = 5) { return CanBusChannel::channel(id); }

    static Message outgoing(int command, const CanBytes &payload = {},
                            int destination = ProtocolAddress::Board)
    {
        return QSharedPointer<CanMessage>::create(destination, command, payload);
    }

    bool send(int command = 42, CanBusChannel *pChannel = channel())
    {
        return m_pProtocol->send(outgoing(command), pChannel);
    }

    /// A board acknowledges (1) or refuses (2).
    void answer(int answerCommand, int answered = 42, int source = ProtocolAddress::Board)
    {
        receive(frame(source, ProtocolAddress::Own, 0, answerStream(answerCommand, answered)));
    }

    void receive(const CanFrame &received) { m_pInterface->onFrameReceived(received); }

    void receive(int source, int index, const CanBytes &data)
    {
        receive(frame(source, ProtocolAddress::Own, index, data));
    }

    static void advance(int ms) { VirtualTime::instance()->advance(std::chrono::milliseconds(ms)); }

    /// Delivers what is posted; the clock stands.
    static void turn() { advance(0); }

    /// What has happened since the last call: "1200 writes 42" for a message's first frame, "writes
    /// #1" for a following one, "sent", "received" and "answer" with command or type.
    Timeline timeline() { return std::exchange(m_timeline, {}); }

    std::chrono::milliseconds m_start;
    std::unique_ptr<TracingInterface> m_pInterface;
    std::unique_ptr<Exposed<Protocol>> m_pProtocol;
    QList<Answer> m_answers;
    QList<Message> m_received;
    QList<Message> m_sent;

private:
    void listen()
    {
        m_pInterface->setOnWrite([this](const CanFrame &written) {
            const int index = VYCanFrame::frameIndex(written);
            if (index > 0 || written.dataSize() < 3)
                note("writes #" + std::to_string(index));
            else
                note("writes " + std::to_string(written.data().at(1) * 256 + written.data().at(2)));
        });
        QObject::connect(
            m_pProtocol.get(), &AbstractCanProtocol::answerReceived, m_pProtocol.get(),
            [this](CanBusChannel *pChannel, CanAnswer answer, const Message &pMessage) {
                m_answers.append({pChannel, answer.type(), pMessage});
                note("answer " + std::to_string(answer.type()));
            });
        QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::messageReceived,
                         m_pProtocol.get(), [this](const Message &pMessage) {
                             m_received.append(pMessage);
                             note("received " + std::to_string(pMessage->command()));
                         });
        QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::messageSent, m_pProtocol.get(),
                         [this](CanBusChannel *, const Message &pMessage) {
                             m_sent.append(pMessage);
                             note("sent " + std::to_string(pMessage->command()));
                         });
    }

    void note(const std::string &what)
    {
        const auto now = VirtualTime::instance()->now() - m_start;
        m_timeline.push_back(std::to_string(now.count()) + " " + what);
    }

    Timeline m_timeline;
};

#endif // PROTOCOLTEST_H
