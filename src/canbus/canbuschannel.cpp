#include "canbus/canbuschannel.h"

#include "canbus/abstractcanprotocol.h"
#include "canbus/canbusnode.h"
#include "logformatter.h"

#include <QDateTime>
#include <QSet>

namespace {

QSet<const CanBusChannel *> &livingChannels()
{
    static QSet<const CanBusChannel *> s_living;
    return s_living;
}

} // namespace

QMap<int, CanBusChannel *> CanBusChannel::s_channels;
int CanBusChannel::s_timeout = 1200;

CanBusChannel::CanBusChannel(int id, QObject *pParent)
    : QObject(pParent)
    , m_id(id)
{
    m_answerTimer.setTimerType(Qt::PreciseTimer); // a coarse one may fire 5 % early
    m_answerTimer.setInterval(s_timeout);
    connect(&m_answerTimer, &QTimer::timeout, this, &CanBusChannel::onTimeout);
    livingChannels().insert(this);
}

CanBusChannel::~CanBusChannel()
{
    livingChannels().remove(this);
    if (s_channels.value(m_id) == this)
        s_channels.remove(m_id);
}

CanBusChannel *CanBusChannel::channel(int id)
{
    CanBusChannel *&pChannel = s_channels[id];
    if (!pChannel)
        pChannel = new CanBusChannel(id);
    return pChannel;
}

void CanBusChannel::deleteChannels()
{
    const auto channels = s_channels;
    s_channels.clear(); // first: whoever hears of a deletion finds none of them
    qDeleteAll(channels);
}

bool CanBusChannel::exists(const CanBusChannel *pChannel)
{
    return livingChannels().contains(pChannel);
}

void CanBusChannel::setGlobalTimeoutValue(int timeoutMs)
{
    if (timeoutMs < 0) {
        LogFormatter(4, Log::CanBus)
            << Q_FUNC_INFO << "Invalid time-out" << timeoutMs << "expected 0 ms or more";
        return;
    }
    s_timeout = timeoutMs;
    for (CanBusChannel *const pChannel : qAsConst(s_channels)) {
        if (pChannel->timeoutValue() != timeoutMs)
            pChannel->setTimeoutValue(timeoutMs);
    }
}

void CanBusChannel::setTimeoutValue(int timeoutMs)
{
    if (timeoutMs < 0) {
        LogFormatter(4, Log::CanBus)
            << Q_FUNC_INFO << "Invalid time-out" << timeoutMs << "expected 0 ms or more";
        return;
    }
    m_answerTimer.setInterval(timeoutMs);
}

void CanBusChannel::setIsWaitingForAnswer(bool isWaiting)
{
    m_isWaitingForAnswer = isWaiting;
    if (isWaiting)
        m_answerTimer.start();
    else
        m_answerTimer.stop();
}

void CanBusChannel::setLastMessageSent(const Message &pMessage)
{
    m_pLastMessageSent = pMessage;
    m_lastSendMs = QDateTime::currentMSecsSinceEpoch();
}

QTime CanBusChannel::lastSendTime() const
{
    return m_lastSendMs < 0 ? QTime() : QDateTime::fromMSecsSinceEpoch(m_lastSendMs).time();
}

void CanBusChannel::setNode(CanBusNode *pNode)
{
    m_pNode = pNode;
}

CanBusNode *CanBusChannel::node() const
{
    return m_pNode;
}

void CanBusChannel::setSupervisor(AbstractCanProtocol *pProtocol)
{
    m_pSupervisor = pProtocol;
}

bool CanBusChannel::isSupervisedBy(const AbstractCanProtocol *pProtocol) const
{
    return m_pSupervisor == pProtocol;
}

void CanBusChannel::onTimeout()
{
    if (!m_isWaitingForAnswer) // a late refusal was answered by a resend: nobody waits for that
        m_answerTimer.stop();
    Q_EMIT timeout(this);
}
