#ifndef CANPROTOCOL_VY_H
#define CANPROTOCOL_VY_H

#include "canbus/abstractcanprotocol.h"

/// The protocol that the machine's boards speak: takes frames for this computer's address and for
/// CanVy::Address::Shared.
class VYHARDWARE1_EXPORT CanProtocol_Vy : public AbstractCanProtocol
{
    Q_OBJECT

public:
    explicit CanProtocol_Vy(QObject *pParent);

    /// Reports AnswerTimeout with the message that was sent.
    void onAnswerTimeoutError(CanBusChannel *pChannel) override;

protected:
    CanFrame decodeMessageHeader(const CanFrame &frame) const override;
    bool decodeNewMessageFrame(const CanFrame &frame, IncomingCanMessage *pEntry) override;
    bool decodeIncompleteMessageFrame(const CanFrame &frame, IncomingCanMessage *pEntry) override;
    bool isFrameAccepted(const CanFrame &frame) override;
    const CanAnswer identifyAnswer(const CanMessage &message, bool *pIsAnswer) override;
};

#endif // CANPROTOCOL_VY_H
