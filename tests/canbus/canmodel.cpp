#include "canmodel.h"

#include <algorithm>

namespace {

constexpr int s_shared = 0x301;
constexpr int s_filtered = 0x705;
constexpr int s_frameSize = 8;

unsigned char low(int number)
{
    return static_cast<unsigned char>(number & 0xFF);
}

unsigned char high(int number)
{
    return low(number >> 8);
}

unsigned char exclusiveOr(const CanBytes &bytes)
{
    unsigned char sum = 0;
    for (const unsigned char byte : bytes)
        sum = static_cast<unsigned char>(sum ^ byte);
    return sum;
}

CanFrame frameOf(int source, int destination, int index, const CanBytes &data)
{
    CanFrame frame;
    frame.setId(static_cast<quint32>((index & 0x3F) << 22 | (source & 0x7FF) << 11 |
                                     (destination & 0x7FF)));
    frame.setData(data);
    return frame;
}

/// A whole stream without its checksum and what stands before the length; nothing if it is wrong.
std::optional<CanMessage> checked(CanMessage message)
{
    if (exclusiveOr(message.data()) != 0)
        return {};
    message.setData(message.data().mid(3, message.dataSize() - 4));
    return message;
}

bool isAcknowledge(int command)
{
    return command == 1 || command == 2;
}

} // namespace

CanModel::CanModel(World &world)
    : m_world(world)
{
    world.setComputer(this);
}

void CanModel::run()
{
    for (;;) {
        Channel *const pChannel = nextChannel();
        const int incoming = nextIncoming();
        const int channelMs = pChannel ? pChannel->dueMs : Never;
        const int incomingMs =
            incoming < 0 ? Never : m_incoming[static_cast<std::size_t>(incoming)].dueMs;
        const int worldMs = m_world.nextMs();
        int next = Never;
        for (const int ms : {channelMs, incomingMs, worldMs}) {
            if (ms == Never)
                continue;
            m_isOverlapping = m_isOverlapping || ms == next;
            if (next == Never || ms < next)
                next = ms;
        }
        if (next == Never)
            return;
        m_nowMs = next;
        if (next == worldMs)
            m_world.step();
        else if (next == channelMs)
            answerTimeOut(*pChannel);
        else
            receptionTimeOut(static_cast<std::size_t>(incoming));
    }
}

bool CanModel::isIdle() const
{
    return m_incoming.empty() &&
           std::none_of(m_channels.cbegin(), m_channels.cend(), [](const auto &item) {
               return item.second.isWaiting || !item.second.pending.empty();
           });
}

CanModel::Channel *CanModel::nextChannel()
{
    Channel *pNext = nullptr;
    for (auto &[id, channel] : m_channels) {
        if (!channel.isWaiting) // whatever its timer does, nobody notices
            continue;
        if (!pNext || channel.dueMs < pNext->dueMs ||
            (channel.dueMs == pNext->dueMs && channel.started < pNext->started))
            pNext = &channel;
    }
    return pNext;
}

int CanModel::nextIncoming() const
{
    const auto next =
        std::min_element(m_incoming.cbegin(), m_incoming.cend(),
                         [](const Incoming &a, const Incoming &b) { return a.dueMs < b.dueMs; });
    return next == m_incoming.cend() ? -1 : static_cast<int>(next - m_incoming.cbegin());
}

// The bus

bool CanModel::send(int channelId, bool isNode, const QList<CanMessage> &messages)
{
    Channel &channel = m_channels[channelId];
    if (!channel.pending.empty())
        return false;
    if (!messages.isEmpty()) {
        m_isBatchStarting = true;
        m_batchNode = isNode ? channelId : Nobody;
    }
    channel.pending.assign(messages.cbegin(), messages.cend());
    if (!channel.isWaiting)
        sendNext(channel);
    return true;
}

void CanModel::sendNext(Channel &channel)
{
    if (channel.pending.empty()) {
        if (channel.isWaiting)
            return;
        stopSending(channel);
        m_world.note("bus has no more");
        return;
    }
    if (channel.isWaiting)
        return answered(channel, SendingError, {});
    if (m_isBatchStarting) {
        m_isBatchStarting = false;
        channel.node = m_batchNode;
    }
    const CanMessage message = channel.pending.front();
    channel.pending.pop_front();
    channel.resends = 0;
    if (writeMessage(channel, message))
        setWaiting(channel, true);
    else
        stopSending(channel);
}

void CanModel::stopSending(Channel &channel)
{
    channel.node = Nobody;
    channel.pending.clear();
    setWaiting(channel, false);
}

void CanModel::setWaiting(Channel &channel, bool isWaiting)
{
    channel.isWaiting = isWaiting;
    if (isWaiting)
        startTimer(channel);
}

void CanModel::startTimer(Channel &channel)
{
    channel.dueMs = m_nowMs + m_world.timeoutMs();
    channel.started = ++m_starts;
}

void CanModel::answered(Channel &channel, int answer, const MaybeMessage &message)
{
    const int node = channel.node;
    setWaiting(channel, false);
    const bool isFailure = answer > Ack;
    if (isFailure)
        stopSending(channel);
    if (answer == Timeout)
        m_world.note("bus timed out " + World::text(*message));
    tellNode(node, answer, message);
    if (isFailure && m_isBatchStarting) {
        m_isBatchStarting = false;
        tellNode(m_batchNode, answer, message);
    }
    sendNext(channel);
}

void CanModel::tellNode(int node, int answer, const MaybeMessage &message)
{
    if (node != Nobody)
        m_world.nodeHears(node, answer, message ? World::text(*message) : "null");
}

// Sending

bool CanModel::writeMessage(Channel &channel, const CanMessage &message)
{
    const int command = message.command();
    const int size = message.dataSize();
    CanBytes stream{2, high(command), low(command), high(size), low(size)};
    stream.append(message.data());
    stream.append(exclusiveOr(stream));
    for (int i = 0; i * s_frameSize < stream.size(); ++i) {
        if (!m_world.write(frameOf(World::OwnAddress, message.destination(), i,
                                   stream.mid(i * s_frameSize, s_frameSize))))
            return false;
    }
    channel.last = message;
    return true;
}

void CanModel::resend(Channel &channel)
{
    ++channel.resends;
    const CanMessage last = channel.last;
    if (writeMessage(channel, last))
        startTimer(channel);
}

void CanModel::answerTimeOut(Channel &channel)
{
    channel.dueMs += m_world.timeoutMs(); // it goes on until it is stopped or started anew
    if (channel.resends < 2)
        return resend(channel);
    setWaiting(channel, false);
    const CanMessage last = channel.last;
    answered(channel, Timeout, last);
}

// Receiving

CanModel::Header CanModel::headerOf(const CanFrame &frame)
{
    const quint32 id = frame.id();
    return {static_cast<int>(id >> 11 & 0x7FF), static_cast<int>(id & 0x7FF),
            static_cast<int>(id >> 22 & 0x3F)};
}

void CanModel::receive(const CanFrame &frame)
{
    const Header header = headerOf(frame);
    if (header.destination != World::OwnAddress && header.destination != s_shared)
        return; // those for the filtered address among them
    static_assert(s_filtered != World::OwnAddress && s_filtered != s_shared);
    const auto found =
        std::find_if(m_incoming.begin(), m_incoming.end(), [&](const Incoming &incoming) {
            return incoming.message.source() == header.source &&
                   incoming.message.destination() == header.destination &&
                   incoming.lastIndex + 1 == header.index;
        });
    const MaybeMessage message =
        found == m_incoming.end()
            ? begun(header, frame)
            : continued(static_cast<std::size_t>(found - m_incoming.begin()), header, frame);
    if (message)
        finished(*message);
}

CanModel::MaybeMessage CanModel::begun(const Header &header, const CanFrame &frame)
{
    const CanBytes &data = frame.data();
    if (header.index != 0 || data.size() < 5 || data.at(0) != 2)
        return {};
    const int command = data.at(1) * 256 + data.at(2);
    const int total = isAcknowledge(command) ? 6 : data.at(3) * 256 + data.at(4) + 6;
    CanMessage message(header.destination, command > 2047 ? -1 : command, data);
    message.setSource(header.source);
    if (total <= s_frameSize)
        return checked(message);
    m_incoming.push_back({message, 0, total, m_nowMs + m_world.timeoutMs()});
    return {};
}

CanModel::MaybeMessage CanModel::continued(std::size_t place, const Header &header,
                                           const CanFrame &frame)
{
    Incoming &incoming = m_incoming[place];
    incoming.lastIndex = header.index;
    incoming.dueMs = m_nowMs + m_world.timeoutMs();
    incoming.message.data().append(frame.data());
    const CanMessage message = incoming.message;
    const int size = std::min(incoming.totalSize - s_frameSize * header.index, s_frameSize);
    const bool isRight = frame.dataSize() == size;
    if (isRight && message.dataSize() != incoming.totalSize)
        return {};
    m_incoming.erase(m_incoming.begin() + static_cast<std::ptrdiff_t>(place));
    return isRight ? checked(message) : MaybeMessage();
}

void CanModel::receptionTimeOut(std::size_t place)
{
    const CanMessage message = m_incoming[place].message;
    m_incoming.erase(m_incoming.begin() + static_cast<std::ptrdiff_t>(place));
    answerBoard(message, 2);
}

void CanModel::answerBoard(const CanMessage &message, int command)
{
    CanBytes data{2, 0, low(command), high(message.command()), low(message.command())};
    data.append(exclusiveOr(data));
    m_world.write(frameOf(World::OwnAddress, message.source(), 0, data));
}

void CanModel::finished(const CanMessage &message)
{
    if (isAcknowledge(message.command()))
        return finishedAnswer(message);
    answerBoard(message, 1);
    m_world.note("received " + World::text(message));
}

void CanModel::finishedAnswer(const CanMessage &message)
{
    const int command = message.data().value(0) * 256 + message.data().value(1);
    const auto found = std::find_if(m_channels.begin(), m_channels.end(), [&](const auto &item) {
        const CanMessage &last = item.second.last;
        return last.command() == command &&
               (last.destination() == message.source() || last.destination() == s_shared);
    });
    if (found == m_channels.end())
        return;
    Channel &channel = found->second;
    if (message.command() == 1) {
        setWaiting(channel, false);
        answered(channel, Ack, message);
    } else if (channel.resends < 2) {
        return resend(channel);
    } else {
        answered(channel, AckNot, message);
    }
    if (channel.last.destination() == s_shared)
        channel.last = CanMessage(0xFFFF, -1);
}
