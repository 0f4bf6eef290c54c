#include "canbus/abstractcanprotocol.h"

#include "canbus/abstractcaninterface.h"
#include "canbus/canbuschannel.h"
#include "canbus/vycan_cmds_and_addr.h"
#include "logformatter.h"

#include <QScopedValueRollback>
#include <QTimer>

namespace {

/// What a simulated bus needs to answer, in ms; it stays when another interface follows.
constexpr int s_simulatedTimeoutMs = 200;

} // namespace

AbstractCanProtocol::AbstractCanProtocol(QObject *pParent, bool mode)
    : QObject(pParent)
    , m_mode(mode)
{
    // Queued, so that send() has returned and the channel waits before a loop-back completes.
    connect(this, &AbstractCanProtocol::messageSent, this, &AbstractCanProtocol::onMessageSent,
            Qt::QueuedConnection);
    setCanInterface(nullptr);
}

AbstractCanProtocol::~AbstractCanProtocol()
{
    for (const IncomingCanMessage &entry : qAsConst(m_incomingMessages))
        delete entry.pReceptionTimer;
    qDeleteAll(m_spareTimers);
}

void AbstractCanProtocol::setCanInterface(AbstractCanInterface *pInterface)
{
    if (m_pInterface)
        disconnect(m_pInterface, nullptr, this, nullptr);
    m_pInterface = pInterface;
    if (!pInterface)
        return;
    if (pInterface->isSimulated())
        CanBusChannel::setGlobalTimeoutValue(s_simulatedTimeoutMs);
    // The inherited signal: a variant's own one of that name has not been filtered.
    connect(pInterface, &AbstractCanInterface::frameReceived, this,
            &AbstractCanProtocol::processIncomingFrame);
}

AbstractCanInterface *AbstractCanProtocol::canInterface() const
{
    return m_pInterface;
}

bool AbstractCanProtocol::send(QSharedPointer<const CanMessage> pMessage, CanBusChannel *pChannel)
{
    if (!pChannel->isSupervisedBy(this)) { // saves the search through the connections
        connect(pChannel, &CanBusChannel::timeout, this, &AbstractCanProtocol::onAnswerTimeout,
                Qt::UniqueConnection);
        pChannel->setSupervisor(this);
    }
    pChannel->setResendCounter(0);
    if (!sendMessage(pMessage, pChannel))
        return false;
    if (CanBusChannel::exists(pChannel)) // whoever heard messageSent() may have deleted it
        pChannel->setIsWaitingForAnswer(true);
    return true;
}

bool AbstractCanProtocol::sendMessage(QSharedPointer<const CanMessage> pMessage,
                                      CanBusChannel *pChannel)
{
    LogFormatter(1, Log::CanBus) << Q_FUNC_INFO << "cmd =" << pMessage->command()
                                 << CanVy::commandCanToString(pMessage->command())
                                 << pMessage->dataToString();
    const QScopedValueRollback<int> sending(m_sendings, m_sendings + 1);
    if (pChannel->isLoopBack()) {
        auto pReturned = QSharedPointer<CanMessage>::create(pMessage->source(), pMessage->command(),
                                                            pMessage->data());
        pReturned->setSource(pMessage->destination());
        Q_EMIT messageSent(pChannel, pReturned);
        return !m_isRetired;
    }
    if (!m_pInterface || !m_pInterface->writeToCan(encode(*pMessage))) {
        // Names no slot, on purpose: Qt warns, nothing is called, and the result is the only
        // report.
        QTimer::singleShot(0, this, SLOT(onSendingError(pMessage)));
        return false;
    }
    // Whoever hears the write, or an answer that comes inside it, may have led to that.
    if (m_isRetired || !CanBusChannel::exists(pChannel))
        return false;
    pChannel->setLastMessageSent(pMessage);
    Q_EMIT messageSent(pChannel, pMessage);
    return !m_isRetired;
}

void AbstractCanProtocol::retire()
{
    m_isRetired = true;
    setCanInterface(nullptr);
}

QList<CanFrame> AbstractCanProtocol::encode(const CanMessage &message)
{
    CanVy::writeStream(message, m_stream);
    const CanBytes stream = m_stream; // stays as it is if a subclass encodes another meanwhile
    return splitIntoFrames(stream, message);
}

QList<CanFrame> AbstractCanProtocol::splitIntoFrames(const QList<quint8> &stream,
                                                     const CanMessage &message)
{
    const int source = message.source() < 0 ? m_ownAddress : message.source();
    const int count = (stream.size() + FrameDataMaxSize - 1) / FrameDataMaxSize;
    if (count <= CanVy::MaxFrames) {
        QList<CanFrame> &frames = m_frameLists.at(static_cast<std::size_t>(count));
        CanVy::writeFrames(stream, source, message.destination(), frames);
        return frames;
    }
    LogFormatter(4, Log::CanBus)
        << Q_FUNC_INFO << "Message of" << count
        << "frames: the receiver will not be able to put together more than" << CanVy::MaxFrames;
    QList<CanFrame> frames;
    CanVy::writeFrames(stream, source, message.destination(), frames);
    return frames;
}

void AbstractCanProtocol::onMessageSent(CanBusChannel *pChannel,
                                        QSharedPointer<const CanMessage> pMessage)
{
    // Queued: the channel may be gone by now.
    if (!CanBusChannel::exists(pChannel) || !pChannel->isLoopBack())
        return;
    pChannel->setIsWaitingForAnswer(false);
    Q_EMIT answerReceived(pChannel, CanAnswer::AnswerAck, pMessage);
}

void AbstractCanProtocol::onSendingError(CanBusChannel *pChannel,
                                         QSharedPointer<const CanMessage> pMessage)
{
    pChannel->setIsWaitingForAnswer(false);
    Q_EMIT answerReceived(pChannel, CanAnswer::AnswerSendingError, pMessage);
}

void AbstractCanProtocol::onAnswerTimeout(CanBusChannel *pChannel)
{
    if (!pChannel->isWaitingForAnswer())
        return;
    if (pChannel->resendCounter() < MaxResends && pChannel->lastMessageSent()) {
        pChannel->setResendCounter(pChannel->resendCounter() + 1);
        resend(pChannel);
        return;
    }
    onAnswerTimeoutError(pChannel);
}

bool AbstractCanProtocol::resend(CanBusChannel *pChannel)
{
    const Message pLast = pChannel->lastMessageSent();
    if (!pLast) {
        LogFormatter(3, Log::CanBus) << Q_FUNC_INFO << "Last message is null, can't resend it!";
        return false;
    }
    if (!sendMessage(pLast, pChannel))
        return false;
    if (CanBusChannel::exists(pChannel))
        pChannel->restartAnswerTimer();
    return true;
}

void AbstractCanProtocol::answerMessage(CanAnswer::AnswerType type,
                                        QSharedPointer<const CanMessage> pReceived)
{
    sendAnswerMessage(CanAnswer(type), pReceived);
}

bool AbstractCanProtocol::sendAnswerMessage(const CanAnswer &answer,
                                            QSharedPointer<const CanMessage> pReceived)
{
    if (!m_pInterface)
        return false;
    CanMessage reply;
    reply.setSource(m_ownAddress);
    reply.setDestination(pReceived->source());
    generateAnswerMessage(answer, *pReceived, &reply);
    const QScopedValueRollback<int> sending(m_sendings, m_sendings + 1);
    return m_pInterface->writeToCan(encodeAnswer(answer, *pReceived, reply));
}

void AbstractCanProtocol::generateAnswerMessage(const CanAnswer &answer, const CanMessage &received,
                                                CanMessage *pReply)
{
    if (answer.type() == CanAnswer::AnswerAck) {
        pReply->setCommand(CanVy::CommandAck);
        return;
    }
    LogFormatter(3, Log::CanBus) << Q_FUNC_INFO
                                 << "|ans:Error| messageReceived.cmdID=" << received.command()
                                 << " messageReceived.data=" << received.dataToString();
    pReply->setCommand(CanVy::CommandNack);
}

CanFrame AbstractCanProtocol::encodeAnswer(const CanAnswer & /*answer*/, const CanMessage &received,
                                           const CanMessage &reply)
{
    return CanVy::acknowledgeFrame(reply.source(), reply.destination(), reply.command(),
                                   received.command());
}
