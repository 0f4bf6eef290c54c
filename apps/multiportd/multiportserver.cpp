#include "multiportd/multiportserver.h"

#include "logformatter.h"
#include "multiport.h"
#include "multiportd/abstractcanbackend.h"
#include "multiportd/abstractpaymentbackend.h"
#include "multiportd/controlconnection.h"

#include <utility>

using multiportlink::Reason;
using multiportlink::Role;

namespace {

constexpr std::chrono::milliseconds s_reopenInterval{1000};

} // namespace

MultiportServer::MultiportServer(AbstractCanBackend *pCan, AbstractPaymentBackend *pPayment,
                                 AbstractOutputsBackend *pOutputs, QObject *pParent)
    : QObject(pParent)
    , m_pCan(pCan)
    , m_pPayment(pPayment)
    , m_commands(pPayment, pOutputs)
    , m_canPort(QStringLiteral("CAN"), this)
    , m_paymentPort(QStringLiteral("payment"), this)
    , m_controlPort(this)
{
    connect(&m_controlPort, &ControlPort::requested, this, &MultiportServer::onRequested);
    for (DataPort *const pPort : {&m_canPort, &m_paymentPort}) {
        connect(&m_controlPort, &ControlPort::controllerCame, pPort, &DataPort::expectController);
        connect(&m_controlPort, &ControlPort::controllerLeft, pPort, &DataPort::releaseController);
        connect(pPort, &DataPort::controllerOverflowed, this, [this] {
            if (ControlConnection *const pController = m_controlPort.controller())
                pController->goodbye(Reason::Backlog);
        });
        connect(pPort, &DataPort::controllerStale, this, [this] {
            if (ControlConnection *const pController = m_controlPort.controller())
                pController->goodbyeStale();
        });
    }
    connectCan();
    connectPayment();
}

MultiportServer::~MultiportServer()
{
    stop();
}

void MultiportServer::connectCan()
{
    if (m_pCan == nullptr)
        return;
    watch(m_pCan, &m_canPort, &m_canDevice);
    connect(m_pCan, &AbstractCanBackend::ready, this, [this] { onReady(&m_canDevice); });
    if (!m_pCan->isReady())
        m_canDevice.reopenTimer.start();
    connect(&m_canPort, &DataPort::controllerChanged, this, [this] { m_canRecords = {}; });
    connect(&m_canPort, &DataPort::controllerWrote, this, &MultiportServer::onControllerWroteCan);
    connect(m_pCan, &AbstractCanBackend::frameReceived, this,
            [this](const CanFrame &frame) { m_canPort.writeToAll(CanRecord::encode(frame)); });
}

void MultiportServer::connectPayment()
{
    if (m_pPayment == nullptr)
        return;
    watch(m_pPayment, &m_paymentPort, &m_paymentDevice);
    connect(&m_paymentPort, &DataPort::controllerChanged, m_pPayment,
            &AbstractPaymentBackend::startAfresh);
    connect(&m_paymentPort, &DataPort::controllerWrote, this, [this](const QByteArray &bytes) {
        m_paymentPort.writeToObservers(bytes);
        m_pPayment->write(bytes);
    });
    connect(m_pPayment, &AbstractPaymentBackend::dataReceived, &m_paymentPort,
            &DataPort::writeToAll);
}

template <typename Backend>
void MultiportServer::watch(Backend *pBackend, DataPort *pPort, Device *pDevice)
{
    pDevice->reopenTimer.setInterval(s_reopenInterval);
    connect(pBackend, &Backend::failed, this, [pPort, pDevice](const QString &reason) {
        if (!std::exchange(pDevice->isLossTold, true))
            LogFormatter(4, Log::Hardware) << "MultiportServer lost" << reason;
        pDevice->reopenTimer.start();
        pPort->closeController();
    });
    connect(&pDevice->reopenTimer, &QTimer::timeout, this, [pBackend, pDevice] {
        QString error;
        if (pBackend->open(&error) && pBackend->isReady())
            onReady(pDevice);
    });
}

void MultiportServer::onReady(Device *pDevice)
{
    pDevice->reopenTimer.stop();
    if (std::exchange(pDevice->isLossTold, false))
        LogFormatter(1, Log::Hardware) << "MultiportServer has it again";
}

bool MultiportServer::listen(const QHostAddress &address, Ports ports, QString *pError)
{
    if (!m_paymentPort.listen(address, ports.payment, pError) ||
        !m_canPort.listen(address, ports.can, pError) ||
        !m_controlPort.listen(address, ports.control, pError)) {
        stop();
        return false;
    }
    m_address = address;
    m_ports = {m_paymentPort.port(), m_canPort.port(), m_controlPort.port()};
    m_controlPort.setDataPorts(m_ports.can, m_ports.payment);
    return true;
}

void MultiportServer::stop()
{
    m_controlPort.stop();
    m_canPort.stop();
    m_paymentPort.stop();
}

bool MultiportServer::setCut(bool isCut)
{
    stop();
    QString error;
    if (isCut || listen(m_address, m_ports, &error))
        return true;
    LogFormatter(4, Log::Hardware) << Q_FUNC_INFO << error;
    return false;
}

/// Observers see a frame before whatever answers it.
void MultiportServer::onControllerWroteCan(const QByteArray &bytes)
{
    m_canRecords.append(bytes);
    while (m_canRecords.next(m_frame)) {
        if (m_canPort.hasObservers()) // they may come and go between two records
            m_canPort.writeToObservers(CanRecord::encode(m_frame));
        m_pCan->send(m_frame);
    }
    if (!m_canRecords.isBroken())
        return;
    LogFormatter(4, Log::Hardware)
        << Q_FUNC_INFO
        << "The controller's CAN connection is closed: a record says that it has more than 8 bytes";
    m_canPort.closeController();
}

void MultiportServer::onRequested(ControlConnection *pConnection,
                                  const multiportlink::Request &request)
{
    if (pConnection->role() != Role::Controller)
        pConnection->answer(MultiportProtocol::StatusNotPermitted);
    else if (request.command == MultiportProtocol::CommandClaim)
        claim(pConnection, request.payload);
    else
        pConnection->answer(m_commands.carryOut(request));
}

void MultiportServer::claim(ControlConnection *pConnection, const QByteArray &payload)
{
    const std::optional<multiportlink::Claim> claim = multiportlink::decodeClaim(payload);
    DataPort *pPort = nullptr;
    if (claim && claim->interface == Multiport::CanBusInterface)
        pPort = &m_canPort;
    if (claim && claim->interface == Multiport::PaymentInterface)
        pPort = &m_paymentPort;
    if (pPort == nullptr) {
        pConnection->answer(MultiportProtocol::StatusInvalidPayload);
        return;
    }
    if (statusOf(pPort) != MultiportProtocol::StatusDone) {
        pConnection->answer(statusOf(pPort));
        return;
    }
    // The port forgets the claim when the controller leaves.
    pPort->claim(pConnection->peerAddress(), claim->port, [pConnection](bool isDone) {
        pConnection->answer(isDone ? MultiportProtocol::StatusDone
                                   : MultiportProtocol::StatusFailed);
    });
}

/// Whether what is behind the port can be claimed: a MultiportProtocol::Status.
quint8 MultiportServer::statusOf(const DataPort *pPort) const
{
    const bool isCan = pPort == &m_canPort;
    const bool isThere = isCan ? m_pCan != nullptr : m_pPayment != nullptr;
    if (!isThere)
        return MultiportProtocol::StatusNoDevice;
    const QTimer &reopenTimer = (isCan ? m_canDevice : m_paymentDevice).reopenTimer;
    return reopenTimer.isActive() ? MultiportProtocol::StatusFailed : MultiportProtocol::StatusDone;
}
