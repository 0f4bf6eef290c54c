#ifndef CANSENDERRECEIVER_H
#define CANSENDERRECEIVER_H

#include "canbus/canbusnode.h"
#include "vyhardware1_export.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>

class CanBus;
class CanDispatchRule;

/// Base of a board's driver: it sends to one channel, hears the answers, and hears what its rule
/// lets pass of what the boards say on their own. Lives in the bus's thread.
class VYHARDWARE1_EXPORT CanSenderReceiver : public QObject
{
    Q_OBJECT

public:
    /// The rule passes nothing until the driver fills it.
    explicit CanSenderReceiver(int channelId, QObject *pParent = nullptr);
    /// Takes the rule from the bus.
    ~CanSenderReceiver() override;

    // The order of the virtual operations is fixed.
public Q_SLOTS:
    /// A message that the rule let pass.
    virtual void onMessageReceived(QSharedPointer<const CanMessage> pMessage) = 0;
    /// Does nothing here. See CanBusNode's signals.
    virtual void onAnswerReceived(CanAnswer answer, QSharedPointer<const CanMessage> pMessage);

public:
    /// The bus address of the board that is driven.
    virtual int deviceAddress() const = 0;

    /// Registers the rule, which from now on is called "<class of the driver> dispatcher" in the
    /// log. False when there is no bus any more or the rule is registered already.
    bool connectToCanBus();
    bool disconnectFromCanBus();

    /// See CanBus::send(). Without a bus the messages are deleted.
    bool send(CanMessage *pMessage);
    bool send(QList<CanMessage *> messages);

    CanDispatchRule *rule() const { return m_pRule; }
    CanBusNode *node() { return &m_node; }

private:
    QPointer<CanBus> m_pCanBus;
    CanDispatchRule *m_pRule; ///< child
    CanBusNode m_node;
};

#endif // CANSENDERRECEIVER_H
