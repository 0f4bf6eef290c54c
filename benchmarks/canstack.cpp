#include "canexchange.h"

#include "canbus/abstractcaninterface.h"
#include "canbus/canbus.h"
#include "canbus/canbuschannel.h"
#include "canbus/canprotocol_vy.h"
#include "canbus/vystream.h"

#include <QCoreApplication>

#include <vector>

namespace {

constexpr int s_cpu = 0x4A8;
constexpr int s_board = 0x419;
constexpr int s_command = 0x2A;

CanBytes payloadOf(std::size_t size)
{
    CanBytes payload;
    payload.reserve(static_cast<int>(size));
    for (std::size_t i = 0; i < size; ++i)
        payload.append(0x5A);
    return payload;
}

/// Keeps frames until they are carried over.
class Wire : public AbstractCanInterface
{
public:
    Wire()
        : AbstractCanInterface(nullptr, false)
    {
    }

    bool openInterface(const QString & /*name*/) override { return true; }
    bool closeInterface() override { return true; }
    bool isOpen() const override { return true; }
    using AbstractCanInterface::writeToCan;
    bool writeToCan(const CanFrame &frame) override
    {
        if (m_count == m_frames.size())
            m_frames.emplace_back();
        CanFrame &kept = m_frames[m_count++];
        kept.setId(frame.id());
        kept.overwriteData(frame.data().cbegin(), frame.data().cend());
        return true;
    }

    void carryTo(AbstractCanInterface &other)
    {
        for (std::size_t i = 0; i < m_count; ++i)
            other.onFrameReceived(m_frames[i]);
        m_count = 0;
    }

private:
    std::vector<CanFrame> m_frames;
    std::size_t m_count = 0;
};

class Stack : public CanExchange
{
public:
    explicit Stack(std::size_t payload)
        : m_payload(payloadOf(payload))
        , m_pWire(new Wire)
    {
        CanBus *const pBus = CanBus::instance();
        auto *const pProtocol = new CanProtocol_Vy(nullptr);
        pBus->setInterface(m_pWire);
        pBus->setProtocol(pProtocol);
        pProtocol->setOwnAddress(s_cpu);
        m_board.setOwnAddress(s_board);
        m_board.setCanInterface(&m_boardWire);
        QObject::connect(&m_board, &AbstractCanProtocol::messageReceived, &m_board,
                         [this] { ++m_delivered; });
        QObject::connect(pProtocol, &AbstractCanProtocol::answerReceived, &m_board,
                         [this] { ++m_acknowledged; });
    }
    ~Stack() override
    {
        CanBus::deleteInstance();
        delete m_pWire;
        qDeleteAll(m_messages);
    }
    Stack(const Stack &) = delete;
    Stack &operator=(const Stack &) = delete;

    void prepare(std::size_t messages) override
    {
        m_messages.reserve(messages);
        while (m_messages.size() < messages)
            m_messages.push_back(new CanMessage(s_board, s_command, m_payload));
    }
    void exchange() override
    {
        CanMessage *const pMessage = m_messages.back();
        m_messages.pop_back();
        CanBus::instance()->send(s_board, pMessage);
        m_pWire->carryTo(m_boardWire);
        m_boardWire.carryTo(*m_pWire);
        QCoreApplication::sendPostedEvents();
    }
    std::size_t delivered() const override { return m_delivered; }
    std::size_t acknowledged() const override { return m_acknowledged; }

private:
    CanBytes m_payload;
    Wire *m_pWire;
    Wire m_boardWire;
    CanProtocol_Vy m_board{nullptr};
    std::vector<CanMessage *> m_messages;
    std::size_t m_delivered = 0;
    std::size_t m_acknowledged = 0;
};

class Codec : public CanExchange
{
public:
    explicit Codec(std::size_t payload)
        : m_message(s_board, s_command, payloadOf(payload))
    {
    }

    void prepare(std::size_t /*messages*/) override {}
    void exchange() override
    {
        CanVy::writeStream(m_message, m_stream);
        CanVy::writeFrames(m_stream, s_cpu, s_board, m_frames);
        IncomingCanMessage entry;
        CanVy::Decoded decoded = CanVy::decodeFirstFrame(m_frames.constFirst(), entry);
        for (int i = 1; i < m_frames.size(); ++i)
            decoded = CanVy::decodeFollowingFrame(m_frames.at(i), entry);
        if (decoded == CanVy::Decoded::Whole && CanVy::takeOffEnvelope(entry.pMessage->data())) {
            ++m_delivered;
            ++m_acknowledged;
        }
    }
    std::size_t delivered() const override { return m_delivered; }
    std::size_t acknowledged() const override { return m_acknowledged; }

private:
    CanMessage m_message;
    CanBytes m_stream;
    QList<CanFrame> m_frames;
    std::size_t m_delivered = 0;
    std::size_t m_acknowledged = 0;
};

} // namespace

std::unique_ptr<CanExchange> makeStack(std::size_t payload)
{
    return std::make_unique<Stack>(payload);
}

std::unique_ptr<CanExchange> makeCodec(std::size_t payload)
{
    return std::make_unique<Codec>(payload);
}
