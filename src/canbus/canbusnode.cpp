#include "canbus/canbusnode.h"

#include "canbus/canbus.h"

#include <QtAlgorithms>

CanBusNode::CanBusNode(int channelId, QObject *pParent)
    : QObject(pParent)
    , m_channelId(channelId)
{
}

bool CanBusNode::send(CanBus *pBus, QList<CanMessage *> &messages)
{
    if (pBus)
        return pBus->send(messages, this);
    qDeleteAll(messages);
    messages.clear();
    return false;
}

bool CanBusNode::send(CanBus *pBus, CanMessage *pMessage)
{
    QList<CanMessage *> messages{pMessage};
    return CanBusNode::send(pBus, messages);
}

bool CanBusNode::isAvailable() const
{
    return CanBus::instance()->isAvailable(m_channelId);
}

void CanBusNode::setMessageBeingAnswered(const QSharedPointer<const CanMessage> &pMessage)
{
    m_pMessageBeingAnswered = pMessage;
}

void CanBusNode::notifyAnswerReception(const CanAnswer &answer,
                                       const QSharedPointer<const CanMessage> &pMessage)
{
    if (answer.type() == CanAnswer::AnswerAck)
        Q_EMIT answerAcknowledged(answer, pMessage);
    else
        Q_EMIT answerError(answer, pMessage);
}
