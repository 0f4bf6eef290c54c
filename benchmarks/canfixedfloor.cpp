#include "canfixedfloor.h"

#include <QCoreApplication>

#include <algorithm>
#include <array>

namespace {

constexpr quint32 s_cpu = 0x4A8;
constexpr quint32 s_board = 0x419;
constexpr int s_command = 0x2A;
constexpr int s_frameSize = 8;
constexpr int s_overhead = 6;
constexpr int s_timeoutMs = 1200;

unsigned char checksum(const CanBytes &bytes)
{
    unsigned char sum = 0;
    for (const unsigned char byte : bytes)
        sum ^= byte;
    return sum;
}

} // namespace

CanFixedFloor::CanFixedFloor(std::size_t payload)
{
    for (std::size_t i = 0; i < payload; ++i)
        m_payload.append(0x5A);
    m_answerTimer.setInterval(s_timeoutMs);
    m_answerTimer.setTimerType(Qt::PreciseTimer);
    m_receptionTimer.setSingleShot(true);
    m_receptionTimer.setInterval(s_timeoutMs);
    m_receptionTimer.setTimerType(Qt::PreciseTimer);
    connect(
        this, &CanFixedFloor::messageSent, this, [] {}, Qt::QueuedConnection);
    connect(this, &CanFixedFloor::frameReceived, this, &CanFixedFloor::onFrameReceived);
    connect(this, &CanFixedFloor::messageReceived, this, [this] { ++m_delivered; });
    connect(this, &CanFixedFloor::answerReceived, this, [this] { ++m_acknowledged; });
}

CanFixedFloor::~CanFixedFloor()
{
    qDeleteAll(m_messages);
}

void CanFixedFloor::prepare(std::size_t messages)
{
    m_messages.reserve(messages);
    while (m_messages.size() < messages)
        m_messages.push_back(new CanMessage(s_board, s_command, m_payload));
}

void CanFixedFloor::exchange()
{
    QList<CanMessage *> messages{m_messages.back()};
    m_messages.pop_back();
    send(messages);
    receive(); // the board
    receive(); // this computer: the acknowledge
    QCoreApplication::sendPostedEvents();
}

void CanFixedFloor::send(QList<CanMessage *> &messages)
{
    for (CanMessage *const pMessage : qAsConst(messages))
        m_pending.append(QSharedPointer<const CanMessage>(pMessage));
    const QSharedPointer<const CanMessage> pMessage = m_pending.takeFirst();

    m_stream.erase(m_stream.begin(), m_stream.end());
    const int size = pMessage->dataSize();
    for (const int byte : {2, s_command >> 8, s_command, size >> 8, size})
        m_stream.append(static_cast<unsigned char>(byte));
    m_stream.append(pMessage->data());
    m_stream.append(checksum(m_stream));

    const int count = (m_stream.size() + s_frameSize - 1) / s_frameSize;
    while (m_frames.size() < count)
        m_frames.append(CanFrame());
    quint32 index = 0;
    auto from = m_stream.cbegin();
    for (CanFrame &frame : m_frames) {
        const auto to = std::min(from + s_frameSize, m_stream.cend());
        frame.setId(s_board | s_cpu << 11U | index++ << 22U);
        frame.overwriteData(from, to);
        from = to;
    }
    for (const CanFrame &frame : qAsConst(m_frames))
        take(frame);
    m_pLastSent = pMessage;
    Q_EMIT messageSent(this, pMessage);
    m_answerTimer.start();
}

/// The wire keeps a frame of its own, as the other side's wire does.
void CanFixedFloor::take(const CanFrame &frame)
{
    if (m_wireCount == m_wire.size())
        m_wire.emplace_back();
    CanFrame &kept = m_wire[m_wireCount++];
    kept.setId(frame.id());
    kept.overwriteData(frame.data().cbegin(), frame.data().cend());
}

void CanFixedFloor::receive()
{
    const std::size_t count = m_wireCount;
    m_wireCount = 0;
    for (std::size_t i = 0; i < count; ++i)
        Q_EMIT frameReceived(m_wire[i]);
}

void CanFixedFloor::onFrameReceived(const CanFrame &frame)
{
    const auto index = static_cast<int>(frame.id() >> 22U);
    if (index == 0) {
        IncomingCanMessage entry;
        const CanBytes &data = frame.data();
        entry.lastFrameIndex = 0;
        entry.totalSize =
            data.at(2) == 1 ? s_overhead : (data.at(3) << 8 | data.at(4)) + s_overhead;
        entry.pMessage->setCommand(data.at(1) << 8 | data.at(2));
        entry.pMessage->setSource(static_cast<int>(frame.id() >> 11U & 0x7FFU));
        entry.pMessage->setDestination(static_cast<int>(frame.id() & 0x7FFU));
        entry.pMessage->data().reserve(entry.totalSize);
        entry.pMessage->data().append(data);
        if (entry.totalSize <= s_frameSize) {
            deliver(entry.pMessage);
            return;
        }
        m_receptionTimer.start();
        m_lastFrameToExpiryMs = s_timeoutMs;
        m_incoming.append(entry);
        return;
    }
    IncomingCanMessage &entry = m_incoming.first();
    entry.lastFrameIndex = index;
    entry.pMessage->data().append(frame.data());
    if (entry.pMessage->dataSize() < entry.totalSize) {
        m_lastFrameToExpiryMs = m_receptionTimer.remainingTime();
        return;
    }
    m_receptionTimer.stop();
    const QSharedPointer<CanMessage> pMessage = entry.pMessage;
    m_incoming.removeFirst();
    deliver(pMessage);
}

void CanFixedFloor::deliver(const QSharedPointer<CanMessage> &pMessage)
{
    CanBytes &data = pMessage->data();
    if (checksum(data) != 0)
        return;
    data.removeLast();
    data.erase(data.begin(), data.begin() + 3);
    if (pMessage->command() == 1) {
        m_answerTimer.stop();
        Q_EMIT answerReceived(this, CanAnswer::AnswerAck, pMessage);
        return;
    }
    std::array<unsigned char, s_overhead> acknowledge{2, 0, 1, 0, s_command, 0};
    for (int i = 0; i < s_overhead - 1; ++i)
        acknowledge.back() ^= acknowledge.at(static_cast<std::size_t>(i));
    CanFrame frame;
    frame.setId(s_cpu | s_board << 11U);
    frame.overwriteData(acknowledge.cbegin(), acknowledge.cend());
    take(frame);
    Q_EMIT messageReceived(pMessage);
}

std::unique_ptr<CanExchange> makeFixedFloor(std::size_t payload)
{
    return std::make_unique<CanFixedFloor>(payload);
}
