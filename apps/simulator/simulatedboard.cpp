#include "simulator/simulatedboard.h"

#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vycanframe.h"
#include "canbus/vystream.h"
#include "logformatter.h"

#include <QPointer>

#include <algorithm>
#include <numeric>
#include <utility>

using namespace std::chrono_literals;

namespace {

/// Null when the checksum is wrong.
QSharedPointer<CanMessage> wholeMessage(const IncomingCanMessage &part)
{
    if (CanVy::takeOffEnvelope(part.pMessage->data()))
        return part.pMessage;
    LogFormatter(1, Log::Hardware)
        << Q_FUNC_INFO << "wrong checksum, command" << part.pMessage->command();
    return {};
}

} // namespace

SimulatedBoard::SimulatedBoard(int address, QObject *pParent)
    : QObject(pParent)
    , m_address(address)
{
    m_restartTimer.setSingleShot(true);
    m_restartTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_restartTimer, &QTimer::timeout, this, [this] { onRestarted(); });
}

void SimulatedBoard::setAnswerDelay(std::chrono::milliseconds delay)
{
    m_answerDelay = std::max(delay, 0ms);
}

void SimulatedBoard::restart(std::chrono::milliseconds duration)
{
    ++m_life;
    m_waiting = 0;
    m_isLossTold = false;
    m_parts.clear();
    m_restartTimer.start(std::max(duration, 0ms));
}

int SimulatedBoard::taken() const
{
    return std::accumulate(m_taken.cbegin(), m_taken.cend(), 0);
}

void SimulatedBoard::hear(const CanFrame &frame)
{
    const int destination = VYCanFrame::destinationAddress(frame);
    const bool isForMe = destination == m_address || destination == CanVy::Address::Shared;
    if (!isForMe || isRestarting() || VYCanFrame::sourceAddress(frame) == m_address)
        return;
    if (const QSharedPointer<CanMessage> pMessage = assemble(frame))
        take(*pMessage);
}

/// The message when the frame was its last, else null.
QSharedPointer<CanMessage> SimulatedBoard::assemble(const CanFrame &frame)
{
    return VYCanFrame::isFirstFrame(frame) ? begin(frame) : proceed(frame);
}

QSharedPointer<CanMessage> SimulatedBoard::begin(const CanFrame &frame)
{
    IncomingCanMessage part;
    const CanVy::Decoded decoded = CanVy::decodeFirstFrame(frame, part);
    // An acknowledge is one frame, which may stand between those of a message.
    if (decoded == CanVy::Decoded::Whole && CanVy::isAcknowledge(part.pMessage->command()))
        return wholeMessage(part);
    const auto interrupted = partOf(frame);
    if (interrupted != m_parts.end())
        m_parts.erase(interrupted);
    if (decoded == CanVy::Decoded::Whole)
        return wholeMessage(part);
    if (decoded == CanVy::Decoded::Bad)
        return {};
    if (m_parts.size() >= MaxParts)
        m_parts.pop_front();
    m_parts.push_back(part);
    return {};
}

QSharedPointer<CanMessage> SimulatedBoard::proceed(const CanFrame &frame)
{
    const auto found = partOf(frame);
    if (found == m_parts.end() || VYCanFrame::frameIndex(frame) != found->lastFrameIndex + 1)
        return {};
    const CanVy::Decoded decoded = CanVy::decodeFollowingFrame(frame, *found);
    if (decoded == CanVy::Decoded::Incomplete)
        return {};
    const IncomingCanMessage part = *found;
    m_parts.erase(found);
    return decoded == CanVy::Decoded::Whole ? wholeMessage(part) : nullptr;
}

SimulatedBoard::Parts::iterator SimulatedBoard::partOf(const CanFrame &frame)
{
    return std::find_if(m_parts.begin(), m_parts.end(), [&frame](const IncomingCanMessage &part) {
        return part.pMessage->source() == VYCanFrame::sourceAddress(frame) &&
               part.pMessage->destination() == VYCanFrame::destinationAddress(frame);
    });
}

void SimulatedBoard::take(const CanMessage &message)
{
    if (CanVy::isAcknowledge(message.command()))
        return; // nobody answers an answer
    const bool isAccepted = m_answers != Answers::Refused && isAcceptable(message);
    if (m_answers != Answers::Lost)
        say({CanVy::acknowledgeFrame(m_address, message.source(),
                                     isAccepted ? CanVy::CommandAck : CanVy::CommandNack,
                                     message.command())},
            m_answerDelay);
    if (!isAccepted)
        return;
    ++m_taken[message.command()];
    onMessage(message);
}

void SimulatedBoard::speak(int destination, int command, const CanBytes &payload)
{
    CanBytes stream;
    CanVy::writeStream(CanMessage(destination, command, payload), stream);
    QList<CanFrame> frames;
    CanVy::writeFrames(stream, m_address, destination, frames);
    say(frames, 0ms);
}

void SimulatedBoard::say(const QList<CanFrame> &frames, std::chrono::milliseconds delay)
{
    if (isRestarting())
        return;
    if (m_waiting >= MaxWaiting) {
        if (!std::exchange(m_isLossTold, true))
            LogFormatter(3, Log::Hardware)
                << Q_FUNC_INFO << "board" << m_address
                << "has too much to say, messages are lost until all that waits is said";
        return;
    }
    ++m_waiting;
    QTimer::singleShot(delay, Qt::PreciseTimer, this, [this, frames, life = m_life] {
        if (life != m_life)
            return;
        if (--m_waiting == 0)
            m_isLossTold = false;
        const QPointer<SimulatedBoard> pThis(this);
        for (const CanFrame &frame : frames) {
            Q_EMIT spoke(frame);
            if (!pThis || life != m_life) // whoever heard it has ended the board, or this life
                return;
        }
    });
}

bool SimulatedBoard::isAcceptable(const CanMessage & /*message*/) const
{
    return true;
}

void SimulatedBoard::onMessage(const CanMessage & /*message*/) {}

void SimulatedBoard::onRestarted() {}
