// How CanBus queues, sends and hears answers; the rest of it stands in canbus.cpp.

#include "assertions.h"
#include "canbus/abstractcaninterface.h"
#include "canbus/abstractcanprotocol.h"
#include "canbus/canbus.h"
#include "canbus/canbuschannel.h"
#include "canbus/canbusnode.h"
#include "canbus/vycan_cmds_and_addr.h"
#include "logformatter.h"

#include <QEventLoop>
#include <QScopedValueRollback>
#include <QTimer>

#include <cstdlib>

namespace {

constexpr auto s_pFile = "src/canbus/canbus";

/// Refusals are told to these; nodes of another type are refused without a word.
bool isToldOfRefusals(const CanBusNode *pNode)
{
    return !pNode || pNode->type() == 0;
}

/// An empty message where there is none.
CanMessage firstOf(const QList<CanMessage *> &messages)
{
    const CanMessage *const pFirst = messages.value(0);
    return pFirst ? *pFirst : CanMessage();
}

} // namespace

bool CanBus::send(QList<CanMessage *> &messages, CanBusNode *pNode)
{
    if (!pNode) {
        printAssertMsg(QStringLiteral("pCanBusNode"), QStringLiteral("CanBusNode cannot be null"),
                       s_pFile, 330);
        qDeleteAll(messages);
        messages.clear();
        return false;
    }
    return _send(pNode->channelId(), messages, pNode, true);
}

bool CanBus::send(CanMessage *pMessage, CanBusNode *pNode)
{
    QList<CanMessage *> messages{pMessage};
    return send(messages, pNode);
}

bool CanBus::send(int channelId, QList<CanMessage *> &messages)
{
    return _send(channelId, messages, nullptr, true);
}

bool CanBus::send(int channelId, CanMessage *pMessage)
{
    QList<CanMessage *> messages{pMessage};
    return send(channelId, messages);
}

bool CanBus::canSendMessages(const QList<CanMessage *> &messages, const CanBusNode *pNode,
                             CanBusChannel *pChannel) const
{
    if (isAvailable(pChannel)) {
        if (!messages.contains(nullptr))
            return true;
        LogFormatter(4, Log::CanBus)
            << Q_FUNC_INFO << "Tried to send a NULL message. Aborting sending";
        return false;
    }
    const bool isTold = isToldOfRefusals(pNode);
    if (const char *const pReason = whyUnavailable(pChannel, isTold))
        LogFormatter(3, Log::CanBus) << Q_FUNC_INFO << pReason;
    if (isTold)
        LogFormatter(3, Log::CanBus)
            << Q_FUNC_INFO << "CanBus not available for sending. Aborting.";
    return false;
}

/// The first reason that applies; null when none is told.
const char *CanBus::whyUnavailable(const CanBusChannel *pChannel, bool isBusyTold) const
{
    if (!m_pCanInterface)
        return "Interface not set. Call CanBus::setup or CanBus::setInterface";
    if (!m_pCanInterface->isOpen())
        return "Interface is not opened (call ::open())";
    if (!m_pCanProtocol)
        return "Protocol not set. Call CanBus::setup or CanBus::setProtocol";
    if (pChannel->isWaitingForAnswer() && isBusyTold)
        return "Protocol is busy sending or waiting for an answer";
    if (!pChannel->hasPendingMessages()) // never: the bus would have been available
        return "Channel has pending messages to send";
    return nullptr;
}

bool CanBus::_send(int channelId, QList<CanMessage *> &messages, CanBusNode *pNode,
                   bool isDeletedOnFailure)
{
    if (pNode && channelId != pNode->channelId()) {
        printReleaseAssertMsg(
            QStringLiteral("(channelId == pCanBusNode->channelId())"),
            QStringLiteral("Channel Id parameter and for Can bus node are different"), s_pFile,
            377);
        std::exit(EXIT_FAILURE); // NOLINT(concurrency-mt-unsafe): required to end here
    }
    CanBusChannel *const pChannel = CanBusChannel::channel(channelId);
    if (canSendMessages(messages, pNode, pChannel)) {
        if (!messages.isEmpty()) {
            m_isBatchStarting = true;
            m_pBatchNode = pNode;
        }
        for (CanMessage *const pMessage : qAsConst(messages))
            pChannel->appendPendingMessage(CanBusChannel::Message(pMessage));
        messages.clear();
        if (!pChannel->isWaitingForAnswer())
            sendNextMessage(pChannel);
        return true;
    }
    if (isToldOfRefusals(pNode)) {
        const CanMessage first = firstOf(messages);
        LogFormatter(3, Log::CanBus)
            << Q_FUNC_INFO << "CAN Bus not available, command"
            << CanVy::commandCanToString(first.command()) << "(" << first.command() << ") toward"
            << CanVy::Address::toString(first.destination()) << "and subsequent messages not sent";
    }
    if (isDeletedOnFailure) {
        qDeleteAll(messages);
        messages.clear();
    }
    return false;
}

// NOLINTNEXTLINE(readability-function-cognitive-complexity): each line to log counts as a branch
bool CanBus::sendNextMessage(CanBusChannel *pChannel)
{
    if (!pChannel->hasPendingMessages()) {
        if (pChannel->isWaitingForAnswer()) { // the spelling is the log's own
            LogFormatter(1, Log::CanBus)
                << Q_FUNC_INFO << ": No more messages to send but waiting for answser";
            return false;
        }
        LogFormatter(0, Log::CanBus) << Q_FUNC_INFO << ": No more messages to send";
        stopSending(pChannel);
        Q_EMIT dequedAllmessages();
        return false;
    }
    if (!m_pCanProtocol || pChannel->isWaitingForAnswer()) {
        if (m_isInterfaceSimulated) {
            printAssertMsg(
                QStringLiteral("m_pCanProtocol && (!pChannel->isWaitingForAnswer())"),
                QStringLiteral("Can protocol not instanciated, or channel waiting for can answer"),
                s_pFile, 478);
            return false;
        }
        LogFormatter(4, Log::CanBus)
            << Q_FUNC_INFO
            << (m_pCanProtocol ? "ERROR: Failed to send message, chanell waiting for can answer"
                               : "ERROR: Failed to send message, protocol not set");
        Q_EMIT generateSendingErrorAnswerRequested(pChannel->id());
        return false;
    }
    if (m_pCanProtocol->send(takeNextMessage(pChannel), pChannel))
        return true;
    LogFormatter(3, Log::CanBus) << Q_FUNC_INFO << ": Sending failed.";
    if (CanBusChannel::exists(pChannel))
        stopSending(pChannel);
    return false;
}

QSharedPointer<const CanMessage> CanBus::takeNextMessage(CanBusChannel *pChannel)
{
    if (m_isBatchStarting) {
        m_isBatchStarting = false;
        pChannel->setNode(m_pBatchNode);
        m_pBatchNode = nullptr;
    }
    CanBusChannel::Message pMessage = pChannel->takeFirstPendingMessage();
    if (CanBusNode *const pNode = pChannel->node())
        pNode->setMessageBeingAnswered(pMessage);
    return pMessage;
}

void CanBus::stopSending(CanBusChannel *pChannel)
{
    if (!pChannel)
        return;
    pChannel->setNode(nullptr);
    clearPendingMessagesToSend(pChannel);
    pChannel->setIsWaitingForAnswer(false);
}

void CanBus::clearPendingMessagesToSend(CanBusChannel *pChannel)
{
    if (pChannel)
        pChannel->clearPendingMessages();
}

void CanBus::onAnswerReceived(CanBusChannel *pChannel, CanAnswer answer,
                              QSharedPointer<const CanMessage> pMessage)
{
    if (!pChannel)
        return;
    const QPointer<CanBusNode> pNode = pChannel->node();
    pChannel->setIsWaitingForAnswer(false);
    const bool isFailure = answer.type() > CanAnswer::AnswerAck;
    if (isFailure) {
        stopSending(pChannel);
        if (answer.type() == CanAnswer::AnswerTimeout)
            Q_EMIT communicationTimeout(answer, pMessage);
    }
    if (pNode)
        pNode->notifyAnswerReception(answer, pMessage);
    if (isFailure && m_isBatchStarting) { // a batch that was queued behind never starts
        m_isBatchStarting = false;
        CanBusNode *const pBatchNode = m_pBatchNode;
        m_pBatchNode = nullptr;
        if (pBatchNode)
            pBatchNode->notifyAnswerReception(answer, pMessage);
    }
    if (CanBusChannel::exists(pChannel)) // whoever heard the answer may have deleted it
        sendNextMessage(pChannel);
}

void CanBus::generateSendingErrorAnswer(int channelId)
{
    // A node that sends a batch whenever it hears of an error would never let us return.
    constexpr int maxNested = 8;
    if (m_generatedErrors >= maxNested) {
        QTimer::singleShot(0, this, [this, channelId] {
            if (CanBusChannel::channel(channelId)->isWaitingForAnswer())
                generateSendingErrorAnswer(channelId);
        });
        return;
    }
    const QScopedValueRollback<int> telling(m_generatedErrors, m_generatedErrors + 1);
    onAnswerReceived(CanBusChannel::channel(channelId), CanAnswer::AnswerSendingError, {});
}

bool CanBus::waitForExpectedAnswer(const CanMessage &expected, int timeoutMs) const
{
    QEventLoop loop;
    bool isReceived = false;
    if (m_pCanProtocol) {
        connect(m_pCanProtocol, &AbstractCanProtocol::messageReceived, &loop,
                [&](const QSharedPointer<const CanMessage> &pMessage) {
                    if (pMessage->data() != expected.data())
                        return;
                    isReceived = true;
                    loop.quit();
                });
    }
    QTimer::singleShot(qMax(0, timeoutMs), Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
    return isReceived;
}
