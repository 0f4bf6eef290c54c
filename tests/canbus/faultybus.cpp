#include "faultybus.h"

#include "canmessages.h"
#include "support/virtualtime.h"

#include <QTimer>

#include <algorithm>

namespace {

int virtualNow()
{
    return static_cast<int>(VirtualTime::instance()->now().count());
}

void flipBit(CanFrame &frame, int byte, unsigned char mask)
{
    CanBytes data = frame.data();
    data[byte] = static_cast<unsigned char>(data.at(byte) ^ mask);
    frame.setData(data);
}

void cut(CanFrame &frame, int size)
{
    frame.setData(frame.data().mid(0, size));
}

/// A message of its own in the first place, else nothing that could begin one.
CanFrame foreignFrame(int source, int destination, int index)
{
    return frame(source, destination, index,
                 bytes(index == 0 ? "02 00 30 00 00 32" : "55 55 55 55 55 55 55 55"));
}

void garbleFrame(CanFrame &frame, Fault fault)
{
    constexpr quint32 lowestBitOfSource = 1U << 11U;
    constexpr quint32 lowestBitOfIndex = 1U << 22U;
    switch (fault) {
    case Fault::CorruptedData:
        return flipBit(frame, frame.dataSize() - 1, 1);
    case Fault::CorruptedStart:
        return flipBit(frame, 0, 1);
    case Fault::CorruptedCommand:
        return flipBit(frame, 2, 1);
    case Fault::CorruptedLengthUp:
        return flipBit(frame, 4, 1);
    case Fault::CorruptedLengthDown:
        return flipBit(frame, 4, 2);
    case Fault::CorruptedIndex:
        return frame.setId(frame.id() ^ lowestBitOfIndex);
    case Fault::CorruptedSource:
        return frame.setId(frame.id() ^ lowestBitOfSource);
    case Fault::CorruptedDestination:
        return frame.setId(frame.id() ^ 1U);
    case Fault::Truncated:
        return cut(frame, frame.dataSize() - 1);
    case Fault::TruncatedToFour:
        return cut(frame, 4);
    case Fault::TruncatedToNothing:
        return cut(frame, 0);
    default:
        return; // no matter of the frame alone
    }
}

/// `place` counts arrivals.
void reorder(Transmission &arrivals, std::size_t place, int gapMs)
{
    if (arrivals.size() == 1) { // its neighbour is a message of another sender
        const int destination = VYCanFrame::destinationAddress(arrivals.front().frame);
        arrivals.insert(arrivals.begin(), {0, foreignFrame(s_otherBoard, destination, 0)});
        arrivals.back().afterMs = gapMs;
        return;
    }
    const std::size_t first = std::min(place, arrivals.size() - 2);
    std::swap(arrivals[first].frame, arrivals[first + 1].frame);
}

QList<int> instantsOf(const std::vector<std::pair<int, int>> &events, int command)
{
    QList<int> instants;
    for (const auto &[ms, of] : events) {
        if (of == command)
            instants.append(ms);
    }
    return instants;
}

} // namespace

CanBytes payloadOf(int frames)
{
    const int size = frames * CanVy::FrameDataMaxSize - CanVy::StreamOverhead;
    CanBytes payload;
    payload.reserve(size);
    for (int i = 0; i < size; ++i) // nothing that could begin a message
        payload.append(static_cast<unsigned char>(0x41 + i % 50));
    return payload;
}

Transmission garbled(const QList<CanFrame> &frames, const FaultCase &fault, int gapMs, int delayMs)
{
    Transmission arrivals;
    arrivals.reserve(static_cast<std::size_t>(frames.size()) * 2);
    for (int i = 0; i < frames.size(); ++i)
        arrivals.push_back({gapMs * i, frames.at(i)});
    if (fault.place >= frames.size()) // a shorter message behind the one that is hit
        return arrivals;
    const auto place = arrivals.begin() + fault.place;
    const int placeMs = place->afterMs;
    const int source = VYCanFrame::sourceAddress(place->frame);
    const int destination = VYCanFrame::destinationAddress(place->frame);
    switch (fault.fault) {
    case Fault::Dropped:
        arrivals.erase(place);
        break;
    case Fault::Duplicated:
        arrivals.insert(place, Delivery(*place));
        break;
    case Fault::Reordered:
        reorder(arrivals, static_cast<std::size_t>(fault.place), gapMs);
        break;
    case Fault::ForeignSource:
        arrivals.insert(place, {placeMs, foreignFrame(s_otherBoard, destination, fault.place)});
        break;
    case Fault::ForeignDestination:
        arrivals.insert(place, {placeMs, foreignFrame(source, s_otherBoard, fault.place)});
        break;
    case Fault::DelayedBelow:
    case Fault::DelayedAbove:
        std::for_each(place, arrivals.end(), [=](Delivery &late) { late.afterMs += delayMs; });
        break;
    case Fault::Mute:
        arrivals.erase(place, arrivals.end());
        break;
    default:
        garbleFrame(place->frame, fault.fault);
    }
    return arrivals;
}

FaultyBus::FaultyBus(const FaultCase &fault, bool isSimulated)
    : AbstractCanInterface(nullptr, isSimulated)
    , m_fault(fault)
    , m_startMs(virtualNow())
{
}

int FaultyBus::nowMs() const
{
    return virtualNow() - m_startMs;
}

bool FaultyBus::writeToCan(const QList<CanFrame> &frames)
{
    m_sends.emplace_back(nowMs(), VYCanFrame::messageCommandInFirstFrame(frames.first()));
    FaultCase fault = m_fault;
    if (!std::exchange(m_isFirstMessage, false))
        fault.fault = Fault::None;
    // The answer, not the last frame, comes just before or just after the time-out.
    const int delayMs = timeoutMs() - s_replyMs + (fault.fault == Fault::DelayedBelow ? -1 : 1);
    const bool isRestarting = fault.fault == Fault::Restarted;
    int index = 0;
    for (const Delivery &delivery : garbled(frames, fault, 0, delayMs)) {
        const bool isRestartingHere = isRestarting && index++ == fault.place;
        QTimer::singleShot(delivery.afterMs, Qt::PreciseTimer, this,
                           [=] { deliverToBoard(delivery.frame, isRestartingHere); });
    }
    m_isMute = m_isMute || fault.fault == Fault::Mute;
    return true;
}

bool FaultyBus::writeToCan(const CanFrame &frame)
{
    m_answers.push_back({nowMs(), frame});
    CanFrame arriving = frame;
    int times = 1;
    if (isFault(Fault::AckLost))
        times = 0;
    else if (isFault(Fault::AckDoubled))
        times = 2;
    else if (isFault(Fault::AckOfOtherBoard))
        arriving = CanVy::acknowledgeFrame(s_computer, s_otherBoard, 1, s_command);
    else if (isFault(Fault::AckOfOtherCommand))
        arriving = CanVy::acknowledgeFrame(s_computer, s_board, 1, s_nextCommand);
    for (int i = 0; i < times; ++i)
        QTimer::singleShot(0, this, [=] { deliverToBoard(arriving, false); });
    return true;
}

void FaultyBus::deliverToBoard(const CanFrame &frame, bool isRestarting)
{
    if (m_isMute)
        return;
    const auto pMessage = m_receiver.take(frame);
    if (isRestarting)
        return m_receiver.forget();
    if (!pMessage)
        return;
    if (CanVy::answerOf(pMessage->command()).type() == CanAnswer::AnswerNone) {
        m_heard.emplace_back(nowMs(), pMessage->command());
        return answer(*pMessage);
    }
    const int answered = pMessage->dataUnsignedShortAt(0);
    if (pMessage->command() == 1 && answered == s_command)
        m_acknowledged.append(nowMs());
}

void FaultyBus::answer(const CanMessage &message)
{
    const int to = message.source();
    const int command = message.command();
    const int given = m_answersGiven++;
    const int refusals = isFault(Fault::RefusedOnce)     ? 1
                         : isFault(Fault::RefusedTwice)  ? 2
                         : isFault(Fault::RefusedThrice) ? 3
                                                         : 0;
    if (given < refusals)
        return acknowledge(s_board, to, 2, command);
    if (given > 0)
        return acknowledge(s_board, to, 1, command);
    if (isFault(Fault::AckLost))
        return;
    if (isFault(Fault::AckOfOtherBoard))
        return acknowledge(s_otherBoard, to, 1, command);
    if (isFault(Fault::AckOfOtherCommand))
        return acknowledge(s_board, to, 1, command + 1);
    acknowledge(s_board, to, 1, command);
    if (isFault(Fault::AckDoubled))
        acknowledge(s_board, to, 1, command);
    if (isFault(Fault::RefusedLate))
        acknowledge(s_board, to, 2, command, s_replyMs);
}

void FaultyBus::acknowledge(int source, int destination, int command, int answered, int laterMs)
{
    const CanFrame frame = CanVy::acknowledgeFrame(source, destination, command, answered);
    QTimer::singleShot(s_replyMs + laterMs, Qt::PreciseTimer, this,
                       [=] { onFrameReceived(frame); });
}

void FaultyBus::sendFromBoard()
{
    QList<CanFrame> frames = framesOf(s_board, s_computer, s_command, payloadOf(m_fault.frames));
    if (isFault(Fault::Restarted))
        frames = frames.mid(0, m_fault.place + 1) + frames;
    // The frame comes just before or just after the time-out that its predecessor has started.
    const int delayMs = timeoutMs() - s_gapMs + (isFault(Fault::DelayedBelow) ? -1 : 1);
    for (const Delivery &delivery : garbled(frames, m_fault, s_gapMs, delayMs))
        QTimer::singleShot(delivery.afterMs, Qt::PreciseTimer, this,
                           [=] { onFrameReceived(delivery.frame); });
}

QList<int> FaultyBus::sends(int command) const
{
    return instantsOf(m_sends, command);
}

QList<int> FaultyBus::heard(int command) const
{
    return instantsOf(m_heard, command);
}
