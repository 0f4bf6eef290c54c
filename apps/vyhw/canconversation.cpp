#include "canconversation.h"

#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vycanframe.h"
#include "canbus/vystream.h"
#include "cannames.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t s_maxParts = 64;
constexpr std::size_t s_maxRequests = 1000;

QString timeText(const QDateTime &time)
{
    return time.isValid() ? time.toString(QStringLiteral("HH:mm:ss.zzz ")) : QString();
}

QString line(const QDateTime &time, int source, int destination, const QString &what)
{
    return timeText(time) + boardText(source) + QLatin1String(" -> ") + boardText(destination) +
           QLatin1String("  ") + what;
}

QString frameLine(const CanFrame &frame, const QDateTime &time, const QString &what)
{
    return line(time, VYCanFrame::sourceAddress(frame), VYCanFrame::destinationAddress(frame),
                what + QLatin1String("  ") + bytesText(frame.data()));
}

} // namespace

CanConversation::CanConversation(Printer print)
    : m_print(std::move(print))
{
}

void CanConversation::take(const CanFrame &frame, const QDateTime &time)
{
    if (!VYCanFrame::isFirstFrame(frame)) {
        takeFollowing(frame, time);
        return;
    }
    Part part{{}, time};
    switch (CanVy::decodeFirstFrame(frame, part.entry)) {
    case CanVy::Decoded::Whole:
        takeWhole(part.entry, time);
        break;
    case CanVy::Decoded::Incomplete:
        if (m_parts.size() >= s_maxParts)
            m_parts.erase(m_parts.begin());
        m_parts.push_back(part);
        break;
    case CanVy::Decoded::Bad:
        m_print(frameLine(frame, time, QStringLiteral("begins no message")));
        break;
    }
}

void CanConversation::takeFollowing(const CanFrame &frame, const QDateTime &time)
{
    const auto continues = [&frame](const Part &part) {
        return part.entry.lastFrameIndex + 1 == VYCanFrame::frameIndex(frame) &&
               part.entry.pMessage->source() == VYCanFrame::sourceAddress(frame) &&
               part.entry.pMessage->destination() == VYCanFrame::destinationAddress(frame);
    };
    const auto part = std::find_if(m_parts.begin(), m_parts.end(), continues);
    if (part == m_parts.end()) {
        m_print(frameLine(frame, time, QStringLiteral("continues no message")));
        return;
    }
    const CanVy::Decoded decoded = CanVy::decodeFollowingFrame(frame, part->entry);
    if (decoded == CanVy::Decoded::Incomplete)
        return;
    Part whole = *part;
    m_parts.erase(part);
    if (decoded == CanVy::Decoded::Whole)
        takeWhole(whole.entry, whole.time);
    else
        m_print(frameLine(frame, time, QStringLiteral("has not the size that its message needs")));
}

void CanConversation::takeWhole(IncomingCanMessage &entry, const QDateTime &time)
{
    const CanMessage &message = *entry.pMessage;
    if (!CanVy::takeOffEnvelope(entry.pMessage->data())) {
        m_print(line(time, message.source(), message.destination(),
                     commandText(message.command()) + QLatin1String("  wrong checksum")));
        return;
    }
    if (CanVy::isAcknowledge(message.command())) {
        pair(message, time);
        return;
    }
    QString what = commandText(message.command());
    const QString payload = bytesText(message.data().mid(2)); // behind the length
    if (!payload.isEmpty())
        what += QLatin1String("  ") + payload;
    m_requests.push_back({message.source(), message.destination(), message.command(), time,
                          line(time, message.source(), message.destination(), what), false,
                          QStringLiteral("no answer")});
    flush(s_maxRequests);
}

void CanConversation::pair(const CanMessage &answer, const QDateTime &time)
{
    const int command = answer.dataUnsignedShortAt(0);
    const auto isMeant = [&](const Request &request) {
        return !request.isAnswered && request.command == command &&
               request.source == answer.destination() && request.destination == answer.source();
    };
    const auto request = std::find_if(m_requests.begin(), m_requests.end(), isMeant);
    const bool isRefusal = answer.command() == CanVy::CommandNack;
    if (request == m_requests.end()) {
        m_print(line(time, answer.source(), answer.destination(),
                     QLatin1String(isRefusal ? "refuses " : "acknowledges ") +
                         commandText(command) + QLatin1String(", which was not seen")));
        return;
    }
    request->isAnswered = true;
    request->outcome = QLatin1String(isRefusal ? "refused" : "acknowledged");
    if (time.isValid() && request->time.isValid())
        request->outcome += QStringLiteral(" after %1 ms").arg(request->time.msecsTo(time));
    flush(s_maxRequests);
}

/// Prints from the front what is decided, and what is more than `kept`.
void CanConversation::flush(std::size_t kept)
{
    while (!m_requests.empty() && (m_requests.front().isAnswered || m_requests.size() > kept)) {
        m_print(m_requests.front().text + QLatin1String("  ") + m_requests.front().outcome);
        m_requests.pop_front();
    }
}

void CanConversation::finish()
{
    flush(0);
    for (const Part &part : m_parts) {
        const CanMessage &message = *part.entry.pMessage;
        m_print(line(part.time, message.source(), message.destination(),
                     commandText(message.command()) + QLatin1String("  incomplete")));
    }
    m_parts.clear();
}
