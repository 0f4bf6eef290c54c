#include "multiportd/controlport.h"

#include "multiportd/clientsocket.h"
#include "multiportd/controlconnection.h"

#include <utility>

using multiportlink::Reason;
using multiportlink::Role;

ControlPort::ControlPort(QObject *pParent)
    : QObject(pParent)
    , m_listener(QStringLiteral("control"), this)
{
    connect(&m_listener, &PortListener::accepted, this, &ControlPort::take);
}

void ControlPort::setDataPorts(quint16 canPort, quint16 paymentPort)
{
    m_canPort = canPort;
    m_paymentPort = paymentPort;
}

/// The oldest that has not introduced itself makes room: a flood of connections that say nothing
/// then keeps nobody away who says hello at once.
void ControlPort::take(ClientSocket *pSocket)
{
    if (m_greeting.size() == MaxGreeting)
        m_greeting.constFirst()->goodbye(Reason::TooManyClients,
                                         !std::exchange(m_isFloodTold, true));
    auto *const pConnection = new ControlConnection(pSocket, this);
    m_greeting.append(pConnection);
    connect(pConnection, &ControlConnection::greeted, this,
            [this, pConnection] { greet(pConnection); });
    connect(pConnection, &ControlConnection::requested, this,
            [this, pConnection](const multiportlink::Request &request) {
                Q_EMIT requested(pConnection, request);
            });
    connect(pConnection, &ControlConnection::ended, this,
            [this, pConnection] { onEnded(pConnection); });
}

void ControlPort::greet(ControlConnection *pConnection)
{
    const bool isController = pConnection->role() == Role::Controller;
    if (isController && m_pController != nullptr) {
        pConnection->goodbye(Reason::ControllerTaken);
        return;
    }
    if (!isController && m_observers.size() == MaxObservers) {
        pConnection->goodbye(Reason::TooManyClients);
        return;
    }
    m_isFloodTold = false;
    m_greeting.removeOne(pConnection);
    pConnection->welcome(m_canPort, m_paymentPort);
    if (!isController) {
        m_observers.append(pConnection);
        return;
    }
    m_pController = pConnection;
    Q_EMIT controllerCame();
}

void ControlPort::onEnded(ControlConnection *pConnection)
{
    m_greeting.removeOne(pConnection);
    m_observers.removeOne(pConnection);
    if (pConnection != m_pController)
        return;
    m_pController = nullptr;
    Q_EMIT controllerLeft();
}

void ControlPort::stop()
{
    m_listener.stop();
    QList<ControlConnection *> all = m_greeting + m_observers;
    if (m_pController != nullptr)
        all.append(m_pController);
    for (ControlConnection *const pConnection : std::as_const(all))
        pConnection->goodbye(Reason::ServerStops);
}
