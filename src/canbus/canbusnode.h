#ifndef CANBUSNODE_H
#define CANBUSNODE_H

#include "canbus/cananswer.h"
#include "canbus/canmessage.h"
#include "vyhardware1_export.h"

#include <QList>
#include <QObject>
#include <QSharedPointer>

class CanBus;

/// A sender on the bus: it hears what became of its messages. It may be destroyed at any time.
/// Lives in the bus's thread.
class VYHARDWARE1_EXPORT CanBusNode : public QObject
{
    Q_OBJECT

public:
    explicit CanBusNode(int channelId, QObject *pParent = nullptr);

    // The order of the virtual operations is fixed.
    /// See CanBus::send(): the bus takes the messages in any case, and the list is then empty.
    /// Without a bus they are deleted.
    virtual bool send(CanBus *pBus, QList<CanMessage *> &messages);
    virtual bool send(CanBus *pBus, CanMessage *pMessage);
    /// 0; when a node of another type is refused, the log says at most what the bus lacks.
    virtual int type() const { return 0; }

    int channelId() const { return m_channelId; }

    /// The bus could take messages for the node's channel.
    bool isAvailable() const;

    /// The last message that the bus began to send for this node; null before the first.
    QSharedPointer<const CanMessage> messageBeingAnswered() const
    {
        return m_pMessageBeingAnswered;
    }

    // Called by the bus.
    void setMessageBeingAnswered(const QSharedPointer<const CanMessage> &pMessage);
    void notifyAnswerReception(const CanAnswer &answer,
                               const QSharedPointer<const CanMessage> &pMessage);

Q_SIGNALS:
    /// With the acknowledge that came.
    void answerAcknowledged(CanAnswer answer, QSharedPointer<const CanMessage> pMessage);
    /// The message failed, and the rest of its batch is dropped. With the refusal that came, with
    /// the message that timed out, or with null.
    void answerError(CanAnswer answer, QSharedPointer<const CanMessage> pMessage);
    /// For nodes of the application; the bus tells it by CanBus::dequedAllmessages() alone.
    void dequedAllmessages();

private:
    int m_channelId;
    QSharedPointer<const CanMessage> m_pMessageBeingAnswered;
};

#endif // CANBUSNODE_H
