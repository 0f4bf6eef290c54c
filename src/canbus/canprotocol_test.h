#ifndef CANPROTOCOL_TEST_H
#define CANPROTOCOL_TEST_H

#include "canbus/abstractcanprotocol.h"

/// Runs the whole CAN stack without boards. In real mode it speaks as CanProtocol_Vy does. In pure
/// test mode every received frame becomes a copy of what the channel with the lowest number sent
/// last, taken as the answer that m_answerTypeTest names. Both modes take frames for any address.
///
/// What steers it is protected: a subclass sets it.
class VYHARDWARE1_EXPORT CanProtocol_Test : public AbstractCanProtocol
{
    Q_OBJECT

public:
    CanProtocol_Test(QObject *pParent, bool isRealMode);

    /// Reports AnswerTimeout without a message.
    void onAnswerTimeoutError(CanBusChannel *pChannel) override;

public Q_SLOTS:
    /// Simulates the acknowledge, where that is asked for. It is delivered as a message of its own
    /// and is no answer to the channel; and a loop-back channel gets no answer from this protocol.
    void onMessageSent(CanBusChannel *pChannel, QSharedPointer<const CanMessage> pMessage) override;

protected:
    CanFrame decodeMessageHeader(const CanFrame &frame) const override;
    bool decodeNewMessageFrame(const CanFrame &frame, IncomingCanMessage *pEntry) override;
    bool decodeIncompleteMessageFrame(const CanFrame &frame, IncomingCanMessage *pEntry) override;
    const CanAnswer identifyAnswer(const CanMessage &message, bool *pIsAnswer) override;

    bool isRealMode() const { return mode(); }

    /// In real mode every message sent is followed by a simulated acknowledge. Off at first.
    void setAutomaticAcknowledge(bool isOn) { m_isAutomaticAcknowledge = isOn; }

    /// Pure test mode: not 0 makes every message a spontaneous one.
    int m_incomingMessagesTypeTest = 0;
    /// Pure test mode: the CanAnswer::AnswerType that a message is taken for; 4 makes it a
    /// spontaneous one, so that the sender runs into its time-out.
    int m_answerTypeTest = CanAnswer::AnswerAck;

private:
    bool m_isAutomaticAcknowledge = false;
};

#endif // CANPROTOCOL_TEST_H
