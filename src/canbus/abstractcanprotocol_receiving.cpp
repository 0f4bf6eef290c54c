// How AbstractCanProtocol receives; how it sends and answers stands in abstractcanprotocol.cpp.

#include "canbus/abstractcaninterface.h"
#include "canbus/abstractcanprotocol.h"
#include "canbus/canbuschannel.h"
#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vycanframe.h"
#include "logformatter.h"

#include <QTimer>

#include <algorithm>

namespace {

int answeredCommand(const CanMessage &answer)
{
    return answer.data().value(0) << 8 | answer.data().value(1);
}

/// The channel whose last message the answer is for; null when there is none.
CanBusChannel *answeredChannel(const CanMessage &answer, int command)
{
    for (CanBusChannel *const pChannel : CanBusChannel::channels()) {
        const CanBusChannel::Message pLast = pChannel->lastMessageSent();
        if (pLast && pLast->command() == command &&
            (pLast->destination() == answer.source() ||
             pLast->destination() == CanVy::Address::Shared))
            return pChannel;
    }
    return nullptr;
}

void forgetSharedMessage(CanBusChannel *pChannel)
{
    if (!CanBusChannel::exists(pChannel)) // whoever heard the answer may have deleted it
        return;
    const CanBusChannel::Message pLast = pChannel->lastMessageSent();
    if (pLast && pLast->destination() == CanVy::Address::Shared)
        pChannel->resetLastCommandMessageSent();
}

} // namespace

void AbstractCanProtocol::processIncomingFrame(const CanFrame &frame)
{
    LogFormatter(0, Log::CanBus) << Q_FUNC_INFO << "data" << frame.dataToString();
    LogFormatter(0, Log::CanBus) << Q_FUNC_INFO << "header"
                                 << QString::number(decodeMessageHeader(frame).id(), 16);
    if (m_pInterface && m_pInterface->isIncomingTraced())
        m_pInterface->traceFile(frame, true, QStringLiteral("->SimulatedIncomingFrame"));
    if (!isFrameAccepted(frame))
        return;
    const int place = findMatchingIncompleteMessage(frame);
    processDecodedIncomingMessage(place >= 0 ? continueMessage(place, frame) : beginMessage(frame));
}

int AbstractCanProtocol::findMatchingIncompleteMessage(const CanFrame &frame) const
{
    const int index = VYCanFrame::frameIndex(frame);
    const int source = VYCanFrame::sourceAddress(frame);
    const int destination = VYCanFrame::destinationAddress(frame);
    for (int place = 0; place < m_incomingMessages.size(); ++place) {
        const IncomingCanMessage &entry = m_incomingMessages.at(place);
        if (entry.lastFrameIndex + 1 == index && entry.pMessage->source() == source &&
            entry.pMessage->destination() == destination)
            return place;
    }
    return -1;
}

/// The message when the frame was its last, else null.
AbstractCanProtocol::Message AbstractCanProtocol::continueMessage(int place, const CanFrame &frame)
{
    IncomingCanMessage &entry = m_incomingMessages[place];
    if (!decodeIncompleteMessageFrame(frame, &entry)) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "multiple frames CAN message decoding FAIL";
        removeIncomingMessage(place);
        return {};
    }
    if (!entry.isComplete) {
        noteFrame(entry);
        return {};
    }
    Message pMessage = entry.pMessage;
    removeIncomingMessage(place);
    return pMessage;
}

AbstractCanProtocol::Message AbstractCanProtocol::beginMessage(const CanFrame &frame)
{
    IncomingCanMessage entry;
    if (!decodeNewMessageFrame(frame, &entry)) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "new CAN message decoding FAIL";
        return {};
    }
    if (entry.isComplete)
        return entry.pMessage;
    startReceptionTimer(entry);
    addIncomingMessage(entry);
    return {};
}

void AbstractCanProtocol::noteFrame(IncomingCanMessage &entry)
{
    if (!entry.pReceptionTimer)
        return;
    if (entry.receptionTimeoutMs < 0)
        entry.pReceptionTimer->start();
    else
        entry.lastFrameToExpiryMs = entry.pReceptionTimer->remainingTime();
}

void AbstractCanProtocol::startReceptionTimer(IncomingCanMessage &entry)
{
    if (m_spareTimers.empty()) {
        auto *const pTimer = new QTimer;
        pTimer->setSingleShot(true);
        pTimer->setTimerType(Qt::PreciseTimer);
        connect(pTimer, &QTimer::timeout, this, &AbstractCanProtocol::onReceptionTimeout);
        m_spareTimers.push_back(pTimer);
    }
    entry.pReceptionTimer = m_spareTimers.back();
    m_spareTimers.pop_back();
    entry.receptionTimeoutMs = CanBusChannel::globalTimeoutValue();
    entry.lastFrameToExpiryMs = entry.receptionTimeoutMs;
    entry.pReceptionTimer->start(entry.receptionTimeoutMs);
}

void AbstractCanProtocol::addIncomingMessage(const IncomingCanMessage &entry)
{
    if (m_incomingMessages.size() >= MaxIncomingMessages) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "More than" << MaxIncomingMessages
                                     << "incomplete messages, the oldest is dropped: command"
                                     << m_incomingMessages.first().pMessage->command();
        removeIncomingMessage(0);
    }
    m_incomingMessages.append(entry);
}

void AbstractCanProtocol::removeIncomingMessage(int place)
{
    const IncomingCanMessage entry = m_incomingMessages.takeAt(place);
    if (!entry.pReceptionTimer)
        return;
    entry.pReceptionTimer->stop();
    if (entry.receptionTimeoutMs >= 0) {
        m_spareTimers.push_back(entry.pReceptionTimer);
        return;
    }
    entry.pReceptionTimer->setParent(this);
    entry.pReceptionTimer->deleteLater(); // not now: it may be its slot that we are in
}

bool AbstractCanProtocol::incomingMessageFinalChecks(IncomingCanMessage *pEntry)
{
    if (!CanVy::takeOffEnvelope(pEntry->pMessage->data())) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "CHECKSUM Error";
        return false;
    }
    pEntry->isComplete = true;
    return true;
}

bool AbstractCanProtocol::decodeFirstFrame(const CanFrame &frame, IncomingCanMessage *pEntry)
{
    const CanVy::Decoded decoded = CanVy::decodeFirstFrame(frame, *pEntry);
    if (decoded == CanVy::Decoded::Whole)
        return incomingMessageFinalChecks(pEntry);
    return decoded == CanVy::Decoded::Incomplete;
}

QString AbstractCanProtocol::wrongSizeText(const CanFrame &frame, const IncomingCanMessage &entry)
{
    return QStringLiteral("message: %1 size( %2 )!= thisFrameDataSize( %3 ) - FrameDataMaxSize: %4 "
                          "dataSize: %5 lastFrameNumber: %6")
        .arg(entry.pMessage->dataToString())
        .arg(frame.dataSize())
        .arg(CanVy::followingFrameSize(entry))
        .arg(FrameDataMaxSize)
        .arg(entry.totalSize)
        .arg(entry.lastFrameIndex);
}

void AbstractCanProtocol::onReceptionTimeout()
{
    // The slot has no argument, so only the sender tells which message is meant.
    const auto isExpired = [pTimer = sender()](const IncomingCanMessage &entry) {
        return entry.pReceptionTimer && entry.pReceptionTimer == pTimer;
    };
    const auto found =
        std::find_if(m_incomingMessages.begin(), m_incomingMessages.end(), isExpired);
    if (found == m_incomingMessages.end())
        return;
    const int restMs = found->receptionTimeoutMs - found->lastFrameToExpiryMs;
    if (restMs > 0) {
        found->lastFrameToExpiryMs = found->receptionTimeoutMs;
        found->pReceptionTimer->start(restMs);
        return;
    }
    const Message pMessage = found->pMessage;
    LogFormatter(3, Log::CanBus) << Q_FUNC_INFO
                                 << "incomingcanMessage cmdID:" << pMessage->command();
    removeIncomingMessage(static_cast<int>(found - m_incomingMessages.begin()));
    sendAnswerMessage(CanAnswer::AnswerTimeout, pMessage);
}

void AbstractCanProtocol::processDecodedIncomingMessage(QSharedPointer<const CanMessage> pMessage)
{
    if (!pMessage)
        return;
    bool isAnswer = false;
    CanAnswer answer;
    if (!pMessage->isSimulated())
        answer = identifyAnswer(*pMessage, &isAnswer);
    if (!isAnswer) {
        answerMessage(CanAnswer::AnswerAck, pMessage);
        Q_EMIT messageReceived(pMessage);
        return;
    }
    processAnswer(answer, pMessage);
}

void AbstractCanProtocol::processAnswer(const CanAnswer &answer, const Message &pMessage)
{
    const int command = answeredCommand(*pMessage);
    CanBusChannel *const pChannel = answeredChannel(*pMessage, command);
    if (!pChannel) {
        LogFormatter(3, Log::CanBus)
            << Q_FUNC_INFO
            << QStringLiteral(
                   "Corresponding channel not found for a CAN answer: answer to command: "
                   "%1, ignoring it")
                   .arg(command);
        return;
    }
    const int sentCommand = pChannel->lastMessageSent()->command();
    if (answer.type() == CanAnswer::AnswerAck) {
        LogFormatter(1, Log::CanBus)
            << Q_FUNC_INFO
            << QStringLiteral("Received ACK for command: %1 | answer command: %2")
                   .arg(sentCommand)
                   .arg(command);
        pChannel->setIsWaitingForAnswer(false);
    } else {
        LogFormatter(3, Log::CanBus)
            << Q_FUNC_INFO
            << QStringLiteral(
                   "Sent command: %2 | answer command: %1 | Received an ACK NOT, handled "
                   "as timeout, resending last message")
                   .arg(command)
                   .arg(sentCommand);
        if (pChannel->resendCounter() < MaxResends) {
            pChannel->setResendCounter(pChannel->resendCounter() + 1);
            resend(pChannel);
            return;
        }
        // The channel is left waiting: its timer ends the exchange.
    }
    Q_EMIT answerReceived(pChannel, answer, pMessage);
    forgetSharedMessage(pChannel);
}

bool AbstractCanProtocol::isFrameAccepted(const CanFrame & /*frame*/)
{
    return true;
}

bool AbstractCanProtocol::simulateIncomingMessage(const CanMessage &message)
{
    LogFormatter(1, Log::CanBus) << Q_FUNC_INFO;
    const auto pCopy = QSharedPointer<CanMessage>::create(message);
    pCopy->setSimulated(true);
    if (m_pInterface) {
        m_pInterface->traceFile(
            CanFrame(), true,
            QStringLiteral("->SimulatedIncomingMessage commandId: %1").arg(message.command()));
    }
    processDecodedIncomingMessage(pCopy);
    return true;
}
