#include "canconversation.h"

#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vycanframe.h"
#include "canbus/vystream.h"
#include "cannames.h"

#include <QDate>
#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

constexpr std::size_t s_maxParts = 64;
constexpr std::size_t s_maxLines = 10000; ///< held back; a bus has not so many frames in 3 s
constexpr qint64 s_patienceMs = 3000;     ///< the library sends again after 1200 ms
constexpr qint64 s_patienceFrames = 1000; ///< where there are no times
constexpr qint64 s_dayMs = 86400000;
constexpr int s_headSize = 5;     ///< bytes of the start, the command and the next field
constexpr int s_answeredSize = 2; ///< bytes of the length, or of the command that is answered

void writeDigits(QString &text, int place, int count, qint64 number)
{
    for (int i = place + count - 1; i >= place; --i, number /= 10)
        text[i] = QLatin1Char(static_cast<char>('0' + number % 10));
}

/// "05:25:46.507 "; by hand, because every line has one.
QString timeText(qint64 time)
{
    const qint64 ms = time % s_dayMs;
    QString text = QStringLiteral("hh:mm:ss.zzz ");
    writeDigits(text, 0, 2, ms / 3600000);
    writeDigits(text, 3, 2, ms / 60000 % 60);
    writeDigits(text, 6, 2, ms / 1000 % 60);
    writeDigits(text, 9, 3, ms % 1000);
    return text;
}

quint64 keyOf(int command, int source, int destination)
{
    return static_cast<quint64>(command) << 32U | static_cast<quint64>(source) << 16U |
           static_cast<quint64>(destination);
}

} // namespace

CanConversation::CanConversation(Printer print)
    : m_print(std::move(print))
{
}

void CanConversation::take(const CanFrame &frame, const Time &time)
{
    m_now = {time, m_now.frame + 1};
    flush(); // what is over is not continued or answered any more
    if (VYCanFrame::isFirstFrame(frame))
        takeFirst(frame);
    else
        takeFollowing(frame);
    flush();
}

void CanConversation::wait(const Time &time)
{
    m_now.time = time;
    flush();
}

void CanConversation::takeFirst(const CanFrame &frame)
{
    Part part{{}, 0};
    // The library would log each frame that is too short.
    const CanVy::Decoded decoded = frame.dataSize() < s_headSize
                                       ? CanVy::Decoded::Bad
                                       : CanVy::decodeFirstFrame(frame, part.entry);
    CanMessage &message = *part.entry.pMessage;
    const int source = VYCanFrame::sourceAddress(frame);
    const int destination = VYCanFrame::destinationAddress(frame);
    // An acknowledge is one frame, which a board may well put between those of a message.
    const bool isAcknowledge =
        decoded == CanVy::Decoded::Whole && CanVy::isAcknowledge(message.command());
    if (!isAcknowledge)
        endPartOf(source, destination);
    if (decoded == CanVy::Decoded::Bad) {
        addFault(frame, QStringLiteral("begins no message"));
        return;
    }
    if (isAcknowledge && CanVy::takeOffEnvelope(message.data())) {
        takeAcknowledge(message);
        return;
    }
    part.number = addLine(source, destination, State::Growing, commandText(message.command()));
    line(part.number).command = message.command();
    if (decoded == CanVy::Decoded::Whole) {
        takeWhole(part.number, message);
        return;
    }
    if (m_parts.size() >= s_maxParts)
        giveUp(m_parts.front().number);
    m_parts.push_back(part);
}

void CanConversation::takeFollowing(const CanFrame &frame)
{
    const auto continues = [&frame](const Part &part) {
        return part.entry.lastFrameIndex + 1 == VYCanFrame::frameIndex(frame) &&
               part.entry.pMessage->source() == VYCanFrame::sourceAddress(frame) &&
               part.entry.pMessage->destination() == VYCanFrame::destinationAddress(frame);
    };
    const auto part = std::find_if(m_parts.begin(), m_parts.end(), continues);
    if (part == m_parts.end()) {
        addFault(frame, QStringLiteral("continues no message"));
        return;
    }
    const CanVy::Decoded decoded = CanVy::decodeFollowingFrame(frame, part->entry);
    if (decoded == CanVy::Decoded::Incomplete)
        return;
    const Part ended = *part;
    if (decoded == CanVy::Decoded::Whole) {
        m_parts.erase(part);
        takeWhole(ended.number, *ended.entry.pMessage);
        return;
    }
    giveUp(ended.number);
    addFault(frame, QStringLiteral("has not the size that its message needs"));
}

/// \param number of the message's line
void CanConversation::takeWhole(qint64 number, CanMessage &message)
{
    Line &whole = line(number);
    if (!CanVy::takeOffEnvelope(message.data())) {
        spoil(whole, QStringLiteral("wrong checksum"));
        return;
    }
    const QString payload = bytesText(message.data().mid(s_answeredSize));
    whole.payload = payload;
    if (!payload.isEmpty())
        whole.what += QLatin1String("  ") + payload;
    await(number, message.command());
}

/// The library keeps the last message of a channel only: one before it is not answered any more.
void CanConversation::await(qint64 number, int command)
{
    Line &newer = line(number);
    newer.command = command;
    newer.state = State::Waiting;
    const quint64 key = keyOf(command, newer.source, newer.destination);
    const qint64 olderNumber = m_requests.value(key, -1);
    if (olderNumber >= 0) { // it is not over, so the newer one follows soon enough to be a resend
        Line &older = line(olderNumber);
        decide(older,
               QLatin1String(older.what == newer.what ? "no answer, sent again" : "no answer"));
    }
    m_requests.insert(key, number);
}

void CanConversation::takeAcknowledge(const CanMessage &answer)
{
    const bool isRefusal = answer.command() == CanVy::CommandNack;
    if (answer.dataSize() < s_answeredSize) {
        spoil(line(addLine(answer.source(), answer.destination(), State::Growing,
                           commandText(answer.command()))),
              QStringLiteral("does not say what it answers"));
        return;
    }
    const int command = answer.dataUnsignedShortAt(0);
    const qint64 number = requestFor(answer, command);
    if (number < 0) {
        addLine(answer.source(), answer.destination(), State::Decided,
                QLatin1String(isRefusal ? "refuses " : "acknowledges ") + commandText(command) +
                    QLatin1String(", for which no message waits"));
        return;
    }
    Line &request = line(number);
    m_requests.remove(keyOf(command, request.source, request.destination));
    QString outcome = QLatin1String(isRefusal ? "refused" : "acknowledged");
    if (request.destination == CanVy::Address::Shared)
        outcome += QLatin1String(" by ") + board(answer.source());
    if (request.began.time && m_now.time && *m_now.time >= *request.began.time)
        outcome += QStringLiteral(" after %1 ms").arg(*m_now.time - *request.began.time);
    decide(request, outcome);
}

/// The number of the newest line that the answer may be for; -1 when there is none.
qint64 CanConversation::requestFor(const CanMessage &answer, int command)
{
    const auto last = [&](int board) {
        return m_requests.value(keyOf(command, answer.destination(), board), -1);
    };
    return std::max(last(answer.source()), last(CanVy::Address::Shared));
}

qint64 CanConversation::addLine(int source, int destination, State state, const QString &what)
{
    m_lines.push_back({m_now, source, destination, -1, state, what, {}, {}, false});
    return m_firstNumber + static_cast<qint64>(m_lines.size()) - 1;
}

void CanConversation::addFault(const CanFrame &frame, const QString &what)
{
    const qint64 number = addLine(VYCanFrame::sourceAddress(frame),
                                  VYCanFrame::destinationAddress(frame), State::Growing, QString());
    Line &fault = line(number);
    fault.payload = bytesText(frame.data());
    spoil(fault, what);
}

void CanConversation::decide(Line &line, const QString &outcome)
{
    line.outcome = outcome;
    line.state = State::Decided;
}

void CanConversation::spoil(Line &line, const QString &outcome)
{
    ++m_faults;
    line.isFault = true;
    decide(line, outcome);
}

void CanConversation::endPartOf(int source, int destination)
{
    const auto isOfPair = [&](const Part &part) {
        return part.entry.pMessage->source() == source &&
               part.entry.pMessage->destination() == destination;
    };
    const auto part = std::find_if(m_parts.begin(), m_parts.end(), isOfPair);
    if (part != m_parts.end())
        giveUp(part->number);
}

/// A clock that was set back ends what was before.
bool CanConversation::isOver(const Line &line) const
{
    if (line.began.time && m_now.time)
        return std::abs(*m_now.time - *line.began.time) > s_patienceMs;
    return m_now.frame - line.began.frame > s_patienceFrames;
}

void CanConversation::giveUp(qint64 number)
{
    Line &given = line(number);
    const auto isMeant = [number](const Part &part) { return part.number == number; };
    switch (given.state) {
    case State::Growing:
        m_parts.erase(std::remove_if(m_parts.begin(), m_parts.end(), isMeant), m_parts.end());
        spoil(given, QStringLiteral("incomplete"));
        break;
    case State::Waiting:
        m_requests.remove(keyOf(given.command, given.source, given.destination));
        decide(given, QStringLiteral("no answer"));
        break;
    case State::Decided:
        break;
    }
}

/// Prints from the front what is decided, or over.
void CanConversation::flush()
{
    while (!m_lines.empty()) {
        const Line &first = m_lines.front();
        if (first.state != State::Decided && !isOver(first) && m_lines.size() <= s_maxLines)
            return;
        printFirst();
    }
}

void CanConversation::finish()
{
    while (!m_lines.empty())
        printFirst();
}

void CanConversation::printFirst()
{
    giveUp(m_firstNumber);
    const Line first = std::move(m_lines.front());
    m_lines.pop_front();
    ++m_firstNumber;
    m_print({first.began.time, first.source, first.destination, first.command, first.payload,
             first.outcome, first.isFault, textOf(first)});
}

QString CanConversation::textOf(const Line &line)
{
    QString text;
    if (line.began.time) {
        const qint64 day = *line.began.time / s_dayMs;
        if (std::exchange(m_day, day) != day)
            text = QDate::fromJulianDay(day).toString(Qt::ISODate) + QLatin1Char('\n');
        text += timeText(*line.began.time);
    }
    text +=
        board(line.source) + QLatin1String(" -> ") + board(line.destination) + QLatin1String("  ");
    const bool isMessage = !line.what.isEmpty();
    const QString &first = isMessage ? line.what : line.outcome;
    const QString &second = isMessage ? line.outcome : line.payload;
    text += first;
    if (!second.isEmpty())
        text += QLatin1String("  ") + second;
    return text;
}

QString CanConversation::board(int address)
{
    QString &text = m_boards[address];
    if (text.isEmpty())
        text = boardText(address);
    return text;
}
