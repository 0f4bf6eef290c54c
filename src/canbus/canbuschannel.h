#ifndef CANBUSCHANNEL_H
#define CANBUSCHANNEL_H

#include "canbus/canmessage.h"
#include "vyhardware1_export.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>
#include <QTime>
#include <QTimer>

class AbstractCanProtocol;
class CanBusNode;

/// What is going on between this computer and one destination: the messages that wait to be sent,
/// the one that waits for its answer, and the timer of that answer. Lives in the bus's thread.
class VYHARDWARE1_EXPORT CanBusChannel : public QObject
{
    Q_OBJECT

public:
    using Message = QSharedPointer<const CanMessage>;

    explicit CanBusChannel(int id, QObject *pParent = nullptr);
    ~CanBusChannel() override;

    /// The channel with this number, made if there is none yet; valid until deleteChannels().
    static CanBusChannel *channel(int id);
    static void deleteChannels();
    /// In ascending order of their numbers.
    static const QMap<int, CanBusChannel *> &channels() { return s_channels; }
    /// False for a channel that has been deleted; true also for one that is in no list.
    static bool exists(const CanBusChannel *pChannel);

    /// How long an answer is awaited on all channels, those made later included, and how long a
    /// receiver waits for the next frame of a message. In ms; 1200 at first. A negative one is
    /// refused with a log line.
    static void setGlobalTimeoutValue(int timeoutMs);
    static int globalTimeoutValue() { return s_timeout; }
    /// For this channel alone, until the next setGlobalTimeoutValue(). In ms.
    void setTimeoutValue(int timeoutMs);
    int timeoutValue() const { return m_answerTimer.interval(); }

    int id() const { return m_id; }

    /// True starts the answer timer anew, false stops it.
    void setIsWaitingForAnswer(bool isWaiting);
    bool isWaitingForAnswer() const { return m_isWaitingForAnswer; }
    void restartAnswerTimer() { m_answerTimer.start(); }

    /// With it on a message goes nowhere and is acknowledged on the next turn of the event loop,
    /// but not by CanProtocol_Test. Off at first.
    void setLoopBack(bool isLoopBack) { m_isLoopBack = isLoopBack; }
    bool isLoopBack() const { return m_isLoopBack; }

    /// How often the last message was sent again.
    void setResendCounter(int count) { m_resendCounter = count; }
    int resendCounter() const { return m_resendCounter; }

    /// Keeps the message for answers and resends, and notes the time.
    void setLastMessageSent(const Message &pMessage);
    const Message &lastMessageSent() const { return m_pLastMessageSent; }
    QTime lastSendTime() const; ///< local time; null before the first
    /// No later answer matches any more.
    void resetLastCommandMessageSent() { m_pLastMessageSent = m_pResetPlaceholder; }

    bool hasPendingMessages() const { return !m_pendingMessages.isEmpty(); }
    const QList<Message> &pendingMessages() const { return m_pendingMessages; }
    void appendPendingMessage(const Message &pMessage) { m_pendingMessages.append(pMessage); }
    Message takeFirstPendingMessage() { return m_pendingMessages.takeFirst(); }
    void clearPendingMessages() { m_pendingMessages.clear(); }

    /// Whose messages are being sent; borrowed, null when nobody's.
    void setNode(CanBusNode *pNode);
    CanBusNode *node() const;

    /// The protocol that hears timeout(); it connects itself.
    void setSupervisor(AbstractCanProtocol *pProtocol);
    bool isSupervisedBy(const AbstractCanProtocol *pProtocol) const;

Q_SIGNALS:
    /// The answer has not come in time. Comes again each time until the waiting ends.
    void timeout(CanBusChannel *pChannel);

private Q_SLOTS:
    void onTimeout();

private:
    static QMap<int, CanBusChannel *> s_channels;
    static int s_timeout; ///< ms; the boards' own

    int m_id;
    bool m_isWaitingForAnswer = false;
    bool m_isLoopBack = false;
    int m_resendCounter = 0;
    qint64 m_lastSendMs = -1; ///< since 1970; what time of day that is costs more than a message
    QTimer m_answerTimer{this};
    Message m_pLastMessageSent = Message::create();
    QSharedPointer<CanMessage> m_pResetPlaceholder = QSharedPointer<CanMessage>::create(0xFFFF, -1);
    QList<Message> m_pendingMessages;
    QPointer<CanBusNode> m_pNode;
    QPointer<AbstractCanProtocol> m_pSupervisor;
};
Q_DECLARE_METATYPE(CanBusChannel *)

#endif // CANBUSCHANNEL_H
