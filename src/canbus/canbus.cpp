#include "canbus/canbus.h"

#include "assertions.h"
#include "canbus/canbuschannel.h"
#include "canbus/canbusnode.h"
#include "canbus/candispatchrule.h"
#include "canbus/caninterface_dummy.h"
#include "canbus/caninterface_multiport.h"
#include "canbus/canprotocol_test.h"
#include "canbus/canprotocol_vy.h"
#include "canbus/vycan_cmds_and_addr.h"
#include "logformatter.h"

#include <algorithm>

namespace {

constexpr auto s_pFile = "src/canbus/canbus";

} // namespace

CanBus *CanBus::m_pCanBus = nullptr;

CanBus::CanBus()
{
    qRegisterMetaType<CanAnswer>("CanAnswer");
    qRegisterMetaType<CanMessage>("CanMessage");
    qRegisterMetaType<CanFrame>("CanFrame");
    qRegisterMetaType<QSharedPointer<const CanMessage>>("QSharedPointer<const CanMessage>");
    qRegisterMetaType<CanBusChannel *>("CanBusChannel*");
    connect(this, &CanBus::generateSendingErrorAnswerRequested, this,
            &CanBus::generateSendingErrorAnswer);
}

CanBus::~CanBus()
{
    delete m_pCanProtocol;
    CanBusChannel::deleteChannels();
}

CanBus *CanBus::instance()
{
    if (!m_pCanBus)
        m_pCanBus = new CanBus;
    return m_pCanBus;
}

void CanBus::deleteInstance()
{
    delete m_pCanBus;
    m_pCanBus = nullptr;
}

bool CanBus::setup(CanInterfaceType interfaceType, CanProtocolType protocolType)
{
    const bool hasInterface = setInterfaceType(interfaceType);
    const bool hasProtocol = setProtocolType(protocolType);
    return hasInterface && hasProtocol;
}

bool CanBus::setInterfaceType(CanInterfaceType type)
{
    if (isInterfaceBusy()) {
        LogFormatter(3, Log::CanBus)
            << Q_FUNC_INFO << "Interface in use, cannot change to interface" << int(type);
        return false;
    }
    AbstractCanInterface *pInterface = nullptr;
    switch (type) {
    case CanInterfaceDummy:
        pInterface = new CanInterface_Dummy(nullptr, false);
        pInterface->openInterface(QStringLiteral("canBus.txt"));
        break;
    case CanInterfaceMultiport:
        pInterface = new CanInterface_Multiport(nullptr);
        pInterface->openInterface(QString());
        break;
    }
    if (pInterface)
        return setInterface(pInterface);
    LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "Invalid or unavailable interface" << int(type);
    printAssertMsg(QString(), QStringLiteral("Failed to create CAN interface of type %1").arg(type),
                   s_pFile, 273);
    return false;
}

bool CanBus::setInterface(AbstractCanInterface *pInterface)
{
    if (isInterfaceBusy()) {
        LogFormatter(3, Log::CanBus) << Q_FUNC_INFO << "Interface in use, cannot change Interface";
        return false;
    }
    if (pInterface && pInterface == m_pCanInterface)
        return true;
    if (m_pCanProtocol)
        m_pCanProtocol->setCanInterface(nullptr);
    discard(m_pCanInterface);
    m_isInterfaceSimulated = qobject_cast<CanInterface_Dummy *>(pInterface) != nullptr;
    m_pCanInterface = pInterface;
    if (!pInterface)
        return true;
    pInterface->setLogInFile(m_isInterfaceLogInFile);
    pInterface->setLogInDebug(false);
    if (m_pCanProtocol)
        m_pCanProtocol->setCanInterface(pInterface);
    return true;
}

bool CanBus::setProtocolType(CanProtocolType type)
{
    if (isInterfaceBusy()) {
        LogFormatter(3, Log::CanBus)
            << Q_FUNC_INFO << "Protocol in use, cannot change to protocol" << int(type);
        return false;
    }
    AbstractCanProtocol *pProtocol = nullptr;
    switch (type) {
    case CanProtocolTest:
        pProtocol = new CanProtocol_Test(nullptr, true);
        break;
    case CanProtocolVy:
        pProtocol = new CanProtocol_Vy(nullptr);
        break;
    }
    if (!pProtocol) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "Invalid protocol" << int(type);
        return false;
    }
    if (setProtocol(pProtocol))
        return true;
    delete pProtocol;
    return false;
}

bool CanBus::setProtocol(AbstractCanProtocol *pProtocol)
{
    if (isInterfaceBusy()) {
        LogFormatter(3, Log::CanBus) << Q_FUNC_INFO << "Protocol in use, cannot change protocol";
        return false;
    }
    if (!pProtocol)
        return false;
    if (pProtocol == m_pCanProtocol)
        return true;
    if (m_pCanProtocol)
        m_pCanProtocol->retire();
    discard(m_pCanProtocol);
    if (!m_pReplacedProtocol || !m_pReplacedProtocol->isSending())
        m_pReplacedProtocol = m_pCanProtocol; // the first one is using the interface the longest
    m_pCanProtocol = pProtocol;
    connect(pProtocol, &AbstractCanProtocol::answerReceived, this, &CanBus::onAnswerReceived);
    connect(pProtocol, &AbstractCanProtocol::messageReceived, this, &CanBus::onMessageReceived);
    pProtocol->setOwnAddress(CanVy::Address::cpuBoard());
    pProtocol->setCanInterface(m_pCanInterface);
    return true;
}

/// Deletes an interface or protocol; later when it is just being used to send.
void CanBus::discard(QObject *pObject) const
{
    if (!pObject)
        return;
    disconnect(pObject, nullptr, this, nullptr);
    const auto isSending = [](const AbstractCanProtocol *pProtocol) {
        return pProtocol && pProtocol->isSending();
    };
    if (isSending(m_pCanProtocol) || isSending(m_pReplacedProtocol))
        pObject->deleteLater();
    else
        delete pObject;
}

AbstractCanInterface *CanBus::canInterface() const
{
    return m_pCanInterface;
}

AbstractCanProtocol *CanBus::canProtocol() const
{
    return m_pCanProtocol;
}

bool CanBus::isInterfaceBusy() const
{
    const auto &channels = CanBusChannel::channels();
    return std::any_of(channels.cbegin(), channels.cend(), [this](const CanBusChannel *pChannel) {
        return pChannel->hasPendingMessages() || (m_pCanProtocol && pChannel->isWaitingForAnswer());
    });
}

bool CanBus::isAvailable(CanBusChannel *pChannel) const
{
    return pChannel && m_pCanInterface && m_pCanInterface->isOpen() && m_pCanProtocol &&
           !pChannel->hasPendingMessages();
}

bool CanBus::isAvailable(int channelId) const
{
    return isAvailable(CanBusChannel::channel(channelId));
}

bool CanBus::hasPendingMessages(int channelId) const
{
    return CanBusChannel::channel(channelId)->hasPendingMessages();
}

bool CanBus::addDispatchRule(CanDispatchRule *pRule)
{
    if (!pRule) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << ": Rule is NULL";
        return false;
    }
    if (m_dispatchRules.contains(pRule)) {
        LogFormatter(3, Log::CanBus) << Q_FUNC_INFO << ": Rule is already present";
        return false;
    }
    m_dispatchRules.append(pRule);
    connect(pRule, &QObject::destroyed, this, [this, pRule] { m_dispatchRules.removeOne(pRule); });
    return true;
}

bool CanBus::removeDispatchRule(CanDispatchRule *pRule)
{
    if (!pRule) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "Rule is NULL";
        return false;
    }
    if (!m_dispatchRules.removeOne(pRule)) {
        LogFormatter(3, Log::CanBus) << Q_FUNC_INFO << "Rule not found";
        return false;
    }
    disconnect(pRule, &QObject::destroyed, this, nullptr);
    return true;
}

void CanBus::clearDispatchRules()
{
    for (CanDispatchRule *const pRule : qAsConst(m_dispatchRules))
        disconnect(pRule, &QObject::destroyed, this, nullptr);
    m_dispatchRules.clear();
}

void CanBus::onMessageReceived(QSharedPointer<const CanMessage> pMessage)
{
    const auto rules = m_dispatchRules; // a slot may change the list
    for (CanDispatchRule *const pRule : rules) {
        if (m_dispatchRules.contains(pRule))
            pRule->process(pMessage);
    }
}
