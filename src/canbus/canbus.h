#ifndef CANBUS_H
#define CANBUS_H

#include "canbus/cananswer.h"
#include "canbus/canmessage.h"
#include "vyhardware1_export.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>

class AbstractCanInterface;
class AbstractCanProtocol;
class CanBusChannel;
class CanBusNode;
class CanDispatchRule;

/// The process's way to the boards. Messages for a channel are queued and sent one at a time, the
/// next when the one before has been acknowledged; a failure drops what is left in the queue. What
/// the boards say on their own goes through the dispatch rules. One thread, with an event loop.
///
///     CanBus *const pBus = CanBus::instance();
///     pBus->setup(CanBus::CanInterfaceDummy, CanBus::CanProtocolVy);
///     pBus->send(new CanMessage(CanVy::Address::actuatorBoard(), 0x24), &node);
class VYHARDWARE1_EXPORT CanBus : public QObject
{
    Q_OBJECT

public:
    enum CanInterfaceType : int {
        CanInterfaceDummy = 1,     ///< see CanInterface_Dummy; not traced
        CanInterfaceMultiport = 4, ///< see CanInterface_Multiport
    };
    Q_ENUM(CanInterfaceType)

    enum CanProtocolType : int {
        CanProtocolTest = 1, ///< see CanProtocol_Test; in real mode
        CanProtocolVy = 2,   ///< see CanProtocol_Vy
    };
    Q_ENUM(CanProtocolType)

    /// Made when it is first asked for; lives until deleteInstance().
    static CanBus *instance();
    /// Also deletes the protocol and all channels, but neither the interface nor the rules. Not
    /// from a slot that hears the bus.
    static void deleteInstance();
    ~CanBus() override; ///< called by deleteInstance()

    // Interface and protocol can be exchanged while no channel is busy. False, with a log line,
    // when they are not.
    /// Tries both, whatever becomes of the first.
    bool setup(CanInterfaceType interfaceType, CanProtocolType protocolType);
    /// Whether the new interface could be opened is not part of the result: see isAvailable().
    bool setInterfaceType(CanInterfaceType type);
    /// Takes the interface and deletes the one before; null leaves the bus without one.
    bool setInterface(AbstractCanInterface *pInterface);
    bool setProtocolType(CanProtocolType type);
    /// Takes the protocol, deletes the one before and gives the new one this computer's address.
    /// False for null.
    bool setProtocol(AbstractCanProtocol *pProtocol);
    AbstractCanInterface *canInterface() const;
    AbstractCanProtocol *canProtocol() const;

    /// A channel has messages to send or awaits an answer.
    bool isInterfaceBusy() const;
    /// Messages for the channel would be taken.
    bool isAvailable(CanBusChannel *pChannel) const;
    bool isAvailable(int channelId) const;
    bool hasPendingMessages(int channelId) const;

    // The bus takes the messages in any case and empties the list; what it refuses is deleted. True
    // says that they were taken; what became of them is told to the node, but for one that the
    // interface refuses to write: it is logged, and the rest of its batch dropped, without a
    // signal. A node given with messages for an idle channel serves until its queue is empty; a
    // batch that is queued behind a message that still awaits its answer begins after it. Only one
    // such batch is remembered for the whole bus, with its node.
    bool send(QList<CanMessage *> &messages, CanBusNode *pNode);
    bool send(CanMessage *pMessage, CanBusNode *pNode);
    bool send(int channelId, QList<CanMessage *> &messages);
    bool send(int channelId, CanMessage *pMessage);
    /// Forgets the channel's node, its queue, and the answer that it awaits.
    void stopSending(CanBusChannel *pChannel);
    void clearPendingMessagesToSend(CanBusChannel *pChannel);

    /// Runs an event loop until a board sends a message with exactly these data, or the time has
    /// passed: false. Received data begin with the two bytes of their length. Command and addresses
    /// are not compared. In ms.
    bool waitForExpectedAnswer(const CanMessage &expected, int timeoutMs) const;

    // Rules are borrowed, and asked in the order in which they were added. Adding, removing and
    // destroying them is safe at any time. False, with a log line, when nothing was done.
    bool addDispatchRule(CanDispatchRule *pRule);
    bool removeDispatchRule(CanDispatchRule *pRule);
    void clearDispatchRules();

public Q_SLOTS:
    void onAnswerReceived(CanBusChannel *pChannel, CanAnswer answer,
                          QSharedPointer<const CanMessage> pMessage);
    void onMessageReceived(QSharedPointer<const CanMessage> pMessage);
    /// Lets the channel's message fail, with a null message.
    void generateSendingErrorAnswer(int channelId);

Q_SIGNALS:
    /// A message was not answered, though it was sent, or tried, three times.
    void communicationTimeout(CanAnswer answer, QSharedPointer<const CanMessage> pMessage);
    void generateSendingErrorAnswerRequested(int channelId);
    /// A channel has nothing left to send.
    void dequedAllmessages();

private:
    CanBus();

    bool canSendMessages(const QList<CanMessage *> &messages, const CanBusNode *pNode,
                         CanBusChannel *pChannel) const;
    bool _send(int channelId, QList<CanMessage *> &messages, CanBusNode *pNode,
               bool isDeletedOnFailure);
    const char *whyUnavailable(const CanBusChannel *pChannel, bool isBusyTold) const;
    QSharedPointer<const CanMessage> takeNextMessage(CanBusChannel *pChannel);
    bool sendNextMessage(CanBusChannel *pChannel);
    void discard(QObject *pObject) const;

    static CanBus *m_pCanBus;

    bool m_isInterfaceSimulated = false;
    bool m_isInterfaceLogInFile = false;
    QPointer<AbstractCanInterface> m_pCanInterface;    ///< owned
    QPointer<AbstractCanProtocol> m_pCanProtocol;      ///< owned
    QPointer<AbstractCanProtocol> m_pReplacedProtocol; ///< may still be sending
    QList<CanDispatchRule *> m_dispatchRules;
    bool m_isBatchStarting = false;
    QPointer<CanBusNode> m_pBatchNode;
    int m_generatedErrors = 0; ///< sending errors that are just being told, one inside the other
};

#endif // CANBUS_H
