#ifndef ABSTRACTCANPROTOCOL_H
#define ABSTRACTCANPROTOCOL_H

#include "canbus/cananswer.h"
#include "canbus/canframe.h"
#include "canbus/canmessage.h"
#include "canbus/incomingcanmessage.h"
#include "canbus/vystream.h"
#include "vyhardware1_export.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>

#include <array>
#include <vector>

class AbstractCanInterface;
class CanBusChannel;

/// Turns messages into frames and back, awaits answers, and answers what the boards say on their
/// own. Lives in the bus's thread, and keeps its interface and channels borrowed.
///
/// Sending: a message goes on the bus at most three times, when it is sent and again after each of
/// two time-outs or refusals; then the time-out is reported. What an application can meet:
/// - An answer is matched to the first channel, by number, whose last message has the answered
///   command and was for the answering board, whether that channel still waits or not. A refusal
///   that comes late is therefore answered by a resend, and a second acknowledge is reported again.
/// - After an answer to a message for CanVy::Address::Shared no later answer matches it. A message
///   to that address which was sent from the slot that hears the answer is forgotten with it, and
///   then runs into its time-out.
/// - No message is recognised as one that came before.
///
/// Receiving: the frames of a message must follow one another by their index; a frame that does not
/// follow on begins a message of its own. A message that is not whole when no frame has come for
/// CanBusChannel::globalTimeoutValue() is refused.
class VYHARDWARE1_EXPORT AbstractCanProtocol : public QObject
{
    Q_OBJECT

public:
    using Message = QSharedPointer<const CanMessage>;

    /// Bytes of one frame, at most.
    static constexpr int FrameDataMaxSize = CanVy::FrameDataMaxSize;
    /// Messages whose frames are still arriving; chosen here, far above what the boards of a
    /// machine can have under way. The oldest goes when there is one more.
    static constexpr int MaxIncomingMessages = 64;

    AbstractCanProtocol(QObject *pParent, bool mode);
    ~AbstractCanProtocol() override;

    // The order of the virtual operations is fixed, here and further down.
public Q_SLOTS:
    virtual void processIncomingFrame(const CanFrame &frame);

public:
    /// Writes the message and lets the channel wait for the answer. False when it could not be
    /// written.
    virtual bool send(QSharedPointer<const CanMessage> pMessage, CanBusChannel *pChannel);
    /// Delivers a copy as if a board had sent it on its own; it is acknowledged on the bus. Always
    /// true.
    virtual bool simulateIncomingMessage(const CanMessage &message);

public Q_SLOTS:
    virtual void onAnswerTimeout(CanBusChannel *pChannel);

public:
    /// No answer has come, and the message is not sent again.
    virtual void onAnswerTimeoutError(CanBusChannel *pChannel) = 0;

public Q_SLOTS:
    virtual void onSendingError(CanBusChannel *pChannel, QSharedPointer<const CanMessage> pMessage);
    virtual void onReceptionTimeout();
    virtual void onMessageSent(CanBusChannel *pChannel, QSharedPointer<const CanMessage> pMessage);

protected:
    virtual QList<CanFrame> encode(const CanMessage &message);
    /// A message of more than CanVy::MaxFrames frames is cut all the same, and the log says so.
    virtual QList<CanFrame> splitIntoFrames(const QList<quint8> &stream, const CanMessage &message);
    virtual CanFrame encodeAnswer(const CanAnswer &answer, const CanMessage &received,
                                  const CanMessage &reply);
    virtual bool resend(CanBusChannel *pChannel);
    virtual bool sendMessage(QSharedPointer<const CanMessage> pMessage, CanBusChannel *pChannel);
    /// For the log, and therefore only called while that is on.
    virtual CanFrame decodeMessageHeader(const CanFrame &frame) const = 0;
    /// The place of the message that the frame continues; -1 when it continues none.
    virtual int findMatchingIncompleteMessage(const CanFrame &frame) const;
    virtual bool incomingMessageFinalChecks(IncomingCanMessage *pEntry);
    /// False when the frame begins no message.
    virtual bool decodeNewMessageFrame(const CanFrame &frame, IncomingCanMessage *pEntry) = 0;
    /// False when the frame makes the message worthless.
    virtual bool decodeIncompleteMessageFrame(const CanFrame &frame,
                                              IncomingCanMessage *pEntry) = 0;
    virtual void processDecodedIncomingMessage(QSharedPointer<const CanMessage> pMessage);
    virtual bool isFrameAccepted(const CanFrame &frame);
    /// \param pIsAnswer set to whether the message is an answer; may be null
    virtual const CanAnswer identifyAnswer(const CanMessage &message, // NOLINT: fixed signature
                                           bool *pIsAnswer) = 0;
    virtual void generateAnswerMessage(const CanAnswer &answer, const CanMessage &received,
                                       CanMessage *pReply);
    virtual void answerMessage(CanAnswer::AnswerType type,
                               QSharedPointer<const CanMessage> pReceived);
    virtual bool sendAnswerMessage(const CanAnswer &answer,
                                   QSharedPointer<const CanMessage> pReceived);

public:
    /// Messages that are not whole yet outlive the interface that they came from. A simulated one
    /// sets the time-out of all channels to 200 ms, and no other sets it back.
    void setCanInterface(AbstractCanInterface *pInterface);
    AbstractCanInterface *canInterface() const;

    /// Takes the entry with its timer, if it has one: it is started anew by each frame, and should
    /// be connected to onReceptionTimeout().
    void addIncomingMessage(const IncomingCanMessage &entry);
    /// The interface is taking frames, or messageSent() is being told.
    bool isSending() const { return m_sendings > 0; }
    /// Lets go of the interface for good; what is being sent fails.
    void retire();

    int incomingMessageCount() const { return m_incomingMessages.size(); }

    /// The source of answers and of messages that name none. 0 until it is set.
    void setOwnAddress(int address) { m_ownAddress = address; }
    int ownAddress() const { return m_ownAddress; }

Q_SIGNALS:
    /// An acknowledge, the third refusal, a time-out (with the message that was sent, or null) or a
    /// sending error.
    void answerReceived(CanBusChannel *pChannel, CanAnswer answer,
                        QSharedPointer<const CanMessage> pMessage);
    /// A board has sent a message on its own; it is acknowledged.
    void messageReceived(QSharedPointer<const CanMessage> pMessage);
    /// Every time a message has been written, or would have been without loop-back.
    void messageSent(CanBusChannel *pChannel, QSharedPointer<const CanMessage> pMessage);

protected:
    bool mode() const { return m_mode; }

    /// Begins a message as the boards' protocol does.
    bool decodeFirstFrame(const CanFrame &frame, IncomingCanMessage *pEntry);

    /// What the log says of a following frame that has not the size that its message needs.
    static QString wrongSizeText(const CanFrame &frame, const IncomingCanMessage &entry);

private:
    static constexpr int MaxResends = 2;

    Message continueMessage(int place, const CanFrame &frame);
    Message beginMessage(const CanFrame &frame);
    void noteFrame(IncomingCanMessage &entry);
    void startReceptionTimer(IncomingCanMessage &entry);
    void removeIncomingMessage(int place);
    void processAnswer(const CanAnswer &answer, const Message &pMessage);

    const bool m_mode;
    int m_ownAddress = 0;
    QList<IncomingCanMessage> m_incomingMessages;
    QPointer<AbstractCanInterface> m_pInterface;
    int m_sendings = 0; ///< that have not returned
    bool m_isRetired = false;

    // Memory that is used again, so that neither frame nor timer costs an allocation.
    std::vector<QTimer *> m_spareTimers; ///< owned, connected, stopped
    CanBytes m_stream;
    std::array<QList<CanFrame>, CanVy::MaxFrames + 1> m_frameLists; ///< by their number of frames
};

#endif // ABSTRACTCANPROTOCOL_H
