#include "canbus/canprotocol_test.h"

#include "canbus/canbuschannel.h"
#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vycanframe.h"
#include "logformatter.h"

namespace {

/// What was sent last on the channel with the lowest number; an empty message when there is none.
CanBusChannel::Message lastMessageOfFirstChannel()
{
    const auto &channels = CanBusChannel::channels();
    const CanBusChannel::Message pLast =
        channels.isEmpty() ? nullptr : channels.first()->lastMessageSent();
    return pLast ? pLast : CanBusChannel::Message::create();
}

} // namespace

CanProtocol_Test::CanProtocol_Test(QObject *pParent, bool isRealMode)
    : AbstractCanProtocol(pParent, isRealMode)
{
}

// NOLINTNEXTLINE(readability-const-return-type): the fixed signature
const CanAnswer CanProtocol_Test::identifyAnswer(const CanMessage &message, bool *pIsAnswer)
{
    CanAnswer answer = CanVy::answerOf(message.command());
    bool isAnswer = answer.type() != CanAnswer::AnswerNone;
    if (!isRealMode()) {
        LogFormatter(1, Log::CanBus)
            << Q_FUNC_INFO << "m_answerTypeTest:" << m_answerTypeTest
            << " m_incomingMessagesTypeTest:" << m_incomingMessagesTypeTest;
        isAnswer = m_incomingMessagesTypeTest == 0 && m_answerTypeTest != CanAnswer::AnswerTimeout;
        const bool isKnown =
            m_answerTypeTest == CanAnswer::AnswerAck || m_answerTypeTest == CanAnswer::AnswerAckNot;
        answer = isAnswer && isKnown ? static_cast<CanAnswer::AnswerType>(m_answerTypeTest)
                                     : CanAnswer::AnswerNone;
    }
    if (pIsAnswer)
        *pIsAnswer = isAnswer;
    return answer;
}

CanFrame CanProtocol_Test::decodeMessageHeader(const CanFrame &frame) const
{
    if (isRealMode())
        return frame;
    VYCanFrame header(frame);
    header.setFrameIndex(0);
    const CanBusChannel::Message pLast = lastMessageOfFirstChannel();
    CanBytes stream;
    CanVy::writeStream(*pLast, stream);
    header.setData(stream.mid(0, FrameDataMaxSize));
    return header;
}

bool CanProtocol_Test::decodeNewMessageFrame(const CanFrame &frame, IncomingCanMessage *pEntry)
{
    if (isRealMode())
        return decodeFirstFrame(frame, pEntry);
    const CanBusChannel::Message pLast = lastMessageOfFirstChannel();
    CanMessage &message = *pEntry->pMessage;
    message.setCommand(pLast->command());
    message.setData(pLast->data());
    message.setSource(VYCanFrame::sourceAddress(frame));
    message.setDestination(VYCanFrame::destinationAddress(frame));
    pEntry->totalSize = message.dataSize();
    pEntry->isComplete = true;
    return true;
}

bool CanProtocol_Test::decodeIncompleteMessageFrame(const CanFrame &frame,
                                                    IncomingCanMessage *pEntry)
{
    if (!isRealMode()) {
        pEntry->pMessage->data().append(frame.data());
        pEntry->isComplete = true;
        return true;
    }
    const CanVy::Decoded decoded = CanVy::decodeFollowingFrame(frame, *pEntry);
    if (decoded == CanVy::Decoded::Whole)
        return incomingMessageFinalChecks(pEntry);
    if (decoded == CanVy::Decoded::Incomplete) {
        LogFormatter(1, Log::CanBus) << Q_FUNC_INFO << "-> still missing one or more frames";
        return true;
    }
    LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << wrongSizeText(frame, *pEntry);
    return false;
}

void CanProtocol_Test::onMessageSent(CanBusChannel * /*pChannel*/,
                                     QSharedPointer<const CanMessage> pMessage)
{
    if (!isRealMode() || !m_isAutomaticAcknowledge)
        return;
    CanMessage acknowledge(CanVy::Address::cpuBoard(), CanVy::CommandAck);
    acknowledge.appendDataUnsignedShort(static_cast<unsigned short>(pMessage->command()));
    simulateIncomingMessage(acknowledge);
}

void CanProtocol_Test::onAnswerTimeoutError(CanBusChannel *pChannel)
{
    pChannel->setIsWaitingForAnswer(false);
    Q_EMIT answerReceived(pChannel, CanAnswer::AnswerTimeout, {});
}
