#include "canbus/canprotocol_vy.h"

#include "canbus/canbuschannel.h"
#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vycanframe.h"
#include "logformatter.h"

CanProtocol_Vy::CanProtocol_Vy(QObject *pParent)
    : AbstractCanProtocol(pParent, false)
{
}

bool CanProtocol_Vy::isFrameAccepted(const CanFrame &frame)
{
    const int destination = VYCanFrame::destinationAddress(frame);
    if (destination == ownAddress() || destination == CanVy::Address::Shared)
        return true;
    LogFormatter(0, Log::CanBus) << Q_FUNC_INFO << "Frame id" << frame.id()
                                 << "rejected (data =" << frame.dataToString() << "), destination"
                                 << destination;
    return false;
}

CanFrame CanProtocol_Vy::decodeMessageHeader(const CanFrame &frame) const
{
    return frame;
}

// NOLINTNEXTLINE(readability-const-return-type): the fixed signature
const CanAnswer CanProtocol_Vy::identifyAnswer(const CanMessage &message, bool *pIsAnswer)
{
    const CanAnswer answer = CanVy::answerOf(message.command());
    if (pIsAnswer)
        *pIsAnswer = answer.type() != CanAnswer::AnswerNone;
    return answer;
}

bool CanProtocol_Vy::decodeNewMessageFrame(const CanFrame &frame, IncomingCanMessage *pEntry)
{
    return decodeFirstFrame(frame, pEntry);
}

bool CanProtocol_Vy::decodeIncompleteMessageFrame(const CanFrame &frame, IncomingCanMessage *pEntry)
{
    const CanVy::Decoded decoded = CanVy::decodeFollowingFrame(frame, *pEntry);
    if (decoded == CanVy::Decoded::Whole)
        return incomingMessageFinalChecks(pEntry);
    if (decoded == CanVy::Decoded::Incomplete)
        return true;
    LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << wrongSizeText(frame, *pEntry);
    return false;
}

void CanProtocol_Vy::onAnswerTimeoutError(CanBusChannel *pChannel)
{
    pChannel->setIsWaitingForAnswer(false);
    Q_EMIT answerReceived(pChannel, CanAnswer::AnswerTimeout, pChannel->lastMessageSent());
}
