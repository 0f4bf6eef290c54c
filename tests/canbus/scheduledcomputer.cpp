#include "scheduledcomputer.h"

#include "canbus/abstractcanprotocol.h"
#include "canbus/canbus.h"
#include "canbus/canbuschannel.h"
#include "support/virtualtime.h"

#include <algorithm>

namespace {

int virtualNow()
{
    return static_cast<int>(VirtualTime::instance()->now().count());
}

std::string text(const QSharedPointer<const CanMessage> &pMessage)
{
    return pMessage ? World::text(*pMessage) : "null";
}

} // namespace

ScheduledComputer::ScheduledComputer(World &world)
    : m_world(world)
    , m_startMs(virtualNow())
    , m_pInterface(new Interface(*this, world.isSimulated()))
{
    world.setComputer(this);
    CanBusChannel::setGlobalTimeoutValue(1200); // the world before may have had a simulated bus
    CanBus::instance()->setInterface(m_pInterface);
    CanBus::instance()->setProtocolType(CanBus::CanProtocolVy);
    for (int channel = 0; channel < World::Channels; ++channel)
        m_nodes.push_back(std::make_unique<CanBusNode>(channel));
    listen();
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &ScheduledComputer::step);
    armTimer();
}

ScheduledComputer::~ScheduledComputer()
{
    CanBus *const pBus = CanBus::instance();
    for (CanBusChannel *const pChannel : CanBusChannel::channels())
        pBus->stopSending(pChannel);
    pBus->setInterface(nullptr);
    CanBus::deleteInstance();
}

void ScheduledComputer::listen()
{
    using Message = QSharedPointer<const CanMessage>;
    CanBus *const pBus = CanBus::instance();
    for (const auto &pNode : m_nodes) {
        const auto hears = [this, id = pNode->channelId()](const CanAnswer &answer,
                                                           const Message &pMessage) {
            m_world.nodeHears(id, answer.type(), text(pMessage));
        };
        connect(pNode.get(), &CanBusNode::answerAcknowledged, this, hears);
        connect(pNode.get(), &CanBusNode::answerError, this, hears);
    }
    connect(pBus, &CanBus::dequedAllmessages, this, [this] { m_world.note("bus has no more"); });
    connect(pBus, &CanBus::communicationTimeout, this,
            [this](const CanAnswer &, const Message &pMessage) {
                m_world.note("bus timed out " + text(pMessage));
            });
    connect(pBus->canProtocol(), &AbstractCanProtocol::messageReceived, this,
            [this](const Message &pMessage) { m_world.note("received " + text(pMessage)); });
}

int ScheduledComputer::nowMs() const
{
    return virtualNow() - m_startMs;
}

bool ScheduledComputer::send(int channelId, bool isNode, const QList<CanMessage> &messages)
{
    QList<CanMessage *> list;
    for (const CanMessage &message : messages)
        list.append(new CanMessage(message)); // the bus takes them
    CanBus *const pBus = CanBus::instance();
    if (isNode)
        return m_nodes[static_cast<std::size_t>(channelId)]->send(pBus, list);
    return pBus->send(channelId, list);
}

void ScheduledComputer::receive(const CanFrame &frame)
{
    m_pInterface->onFrameReceived(frame);
}

int ScheduledComputer::underWay() const
{
    return CanBus::instance()->canProtocol()->incomingMessageCount();
}

bool ScheduledComputer::write(const CanFrame &frame)
{
    const bool isWritten = m_world.write(frame);
    armTimer();
    return isWritten;
}

void ScheduledComputer::step()
{
    m_world.step();
    m_mostUnderWay = std::max(m_mostUnderWay, underWay());
    lookAtChannels();
    armTimer();
}

void ScheduledComputer::armTimer()
{
    if (m_world.nextMs() >= 0)
        m_timer.start(std::max(0, m_world.nextMs() - nowMs()));
    else
        m_timer.stop();
}

void ScheduledComputer::lookAtChannels()
{
    for (const CanBusChannel *const pChannel : CanBusChannel::channels()) {
        if (pChannel->isWaitingForAnswer() && !pChannel->findChild<QTimer *>()->isActive())
            m_hasWaitedWithoutTimer = true;
    }
}
