#ifndef CANFIXEDFLOOR_H
#define CANFIXEDFLOOR_H

#include "canbus/cananswer.h"
#include "canbus/canframe.h"
#include "canbus/canmessage.h"
#include "canbus/incomingcanmessage.h"
#include "canexchange.h"

#include <QList>
#include <QObject>
#include <QSharedPointer>
#include <QTimer>

#include <vector>

/// What no implementation behind the library's interface can do without, and nothing else: no
/// channels to look up, no virtual operations, no log, no interface, no resends, no nodes.
class CanFixedFloor : public QObject, public CanExchange
{
    Q_OBJECT

public:
    explicit CanFixedFloor(std::size_t payload);
    ~CanFixedFloor() override;
    Q_DISABLE_COPY_MOVE(CanFixedFloor)

    void prepare(std::size_t messages) override;
    void exchange() override;
    std::size_t delivered() const override { return m_delivered; }
    std::size_t acknowledged() const override { return m_acknowledged; }

Q_SIGNALS:
    void messageSent(QObject *pChannel, QSharedPointer<const CanMessage> pMessage);
    void frameReceived(const CanFrame &frame);
    void messageReceived(QSharedPointer<const CanMessage> pMessage);
    void answerReceived(QObject *pChannel, CanAnswer answer,
                        QSharedPointer<const CanMessage> pMessage);

private:
    void send(QList<CanMessage *> &messages);
    void receive();
    void take(const CanFrame &frame);
    void onFrameReceived(const CanFrame &frame);
    void deliver(const QSharedPointer<CanMessage> &pMessage);

    CanBytes m_payload;
    std::vector<CanMessage *> m_messages;
    QList<QSharedPointer<const CanMessage>> m_pending;
    QSharedPointer<const CanMessage> m_pLastSent;
    QTimer m_answerTimer;
    QTimer m_receptionTimer;
    int m_lastFrameToExpiryMs = 0;
    CanBytes m_stream;
    QList<CanFrame> m_frames;
    std::vector<CanFrame> m_wire;
    std::size_t m_wireCount = 0;
    QList<IncomingCanMessage> m_incoming;
    std::size_t m_delivered = 0;
    std::size_t m_acknowledged = 0;
};

#endif // CANFIXEDFLOOR_H
