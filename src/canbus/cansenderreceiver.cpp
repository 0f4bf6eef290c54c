#include "canbus/cansenderreceiver.h"

#include "canbus/canbus.h"
#include "canbus/candispatchrule.h"
#include "logformatter.h"

CanSenderReceiver::CanSenderReceiver(int channelId, QObject *pParent)
    : QObject(pParent)
    , m_pCanBus(CanBus::instance())
    , m_pRule(new CanDispatchRule(this))
    , m_node(channelId)
{
    connect(m_pRule, &CanDispatchRule::messageMatched, this, &CanSenderReceiver::onMessageReceived);
    connect(&m_node, &CanBusNode::answerAcknowledged, this, &CanSenderReceiver::onAnswerReceived);
    connect(&m_node, &CanBusNode::answerError, this, &CanSenderReceiver::onAnswerReceived);
}

CanSenderReceiver::~CanSenderReceiver()
{
    if (m_pCanBus)
        m_pCanBus->removeDispatchRule(m_pRule);
}

void CanSenderReceiver::onAnswerReceived(CanAnswer /*answer*/,
                                         QSharedPointer<const CanMessage> /*pMessage*/)
{
}

bool CanSenderReceiver::connectToCanBus()
{
    // Here, because a constructor does not know the class of the whole object yet.
    m_pRule->setObjectName(
        QStringLiteral("%1 dispatcher").arg(QLatin1String(metaObject()->className())));
    return m_pCanBus && m_pCanBus->addDispatchRule(m_pRule);
}

bool CanSenderReceiver::disconnectFromCanBus()
{
    return m_pCanBus && m_pCanBus->removeDispatchRule(m_pRule);
}

bool CanSenderReceiver::send(CanMessage *pMessage)
{
    return send(QList<CanMessage *>{pMessage});
}

bool CanSenderReceiver::send(QList<CanMessage *> messages)
{
    if (m_pCanBus)
        return m_pCanBus->send(messages, &m_node);
    LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "There is no CAN bus any more,"
                                 << messages.size() << "messages not sent";
    qDeleteAll(messages);
    return false;
}
