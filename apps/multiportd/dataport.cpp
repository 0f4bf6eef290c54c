#include "multiportd/dataport.h"

#include "linkrecords.h"
#include "logformatter.h"
#include "multiportd/clientsocket.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int s_maxKept = 16;

bool isFrom(const ClientSocket *pSocket, const QHostAddress &address, quint16 port)
{
    return pSocket->peerPort() == port && pSocket->peerAddress() == address;
}

} // namespace

DataPort::DataPort(const QString &name, QObject *pParent)
    : QObject(pParent)
    , m_name(name)
    , m_listener(name, this)
{
    m_claimTimer.setSingleShot(true);
    m_claimTimer.setInterval(multiportlink::ClaimTimeout);
    connect(&m_claimTimer, &QTimer::timeout, this, [this] { endClaim(false); });
    connect(&m_listener, &PortListener::accepted, this, &DataPort::take);
}

void DataPort::take(ClientSocket *pSocket)
{
    const bool isClaimed = m_claim.done && isFrom(pSocket, m_claim.address, m_claim.port);
    const bool mayBeClaimed = m_isControllerThere && m_pController == nullptr;
    if (isClaimed) {
        watch(pSocket);
        setController(pSocket);
        endClaim(true);
    } else if (m_observers.size() < MaxObservers) {
        watch(pSocket);
        m_observers.append(pSocket);
    } else if (mayBeClaimed) {
        watch(pSocket);
        keepForClaim(pSocket);
    } else {
        refuse(pSocket);
    }
}

void DataPort::watch(ClientSocket *pSocket)
{
    connect(pSocket, &ClientSocket::received, this,
            [this, pSocket](const QByteArray &bytes) { onReceived(pSocket, bytes); });
    connect(pSocket, &ClientSocket::overflowed, this,
            [this, pSocket](const QString &reason) { onOverflowed(pSocket, reason); });
    connect(pSocket, &ClientSocket::disconnected, this, [this, pSocket] { drop(pSocket); });
}

/// The oldest makes room: a claim follows its connection closely.
void DataPort::keepForClaim(ClientSocket *pSocket)
{
    if (m_kept.size() == s_maxKept)
        refuse(m_kept.constFirst());
    m_kept.append(pSocket);
    QTimer::singleShot(multiportlink::ClaimTimeout, pSocket, [this, pSocket] {
        if (m_kept.contains(pSocket))
            refuse(pSocket);
    });
}

void DataPort::refuse(ClientSocket *pSocket)
{
    if (!std::exchange(m_isRefusalTold, true))
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << pSocket->name() << "refused:"
                                       << "there are" << MaxObservers << "observers";
    drop(pSocket);
}

void DataPort::claim(const QHostAddress &address, quint16 port,
                     const std::function<void(bool)> &done)
{
    endClaim(false);
    m_claim = {address, port, done};
    m_claimTimer.start();
    const QList<ClientSocket *> all = m_observers + m_kept;
    const auto found = std::find_if(all.cbegin(), all.cend(), [&](const ClientSocket *pSocket) {
        return isFrom(pSocket, address, port);
    });
    const bool isTheirs = m_pController != nullptr && isFrom(m_pController, address, port);
    if (found != all.cend())
        setController(*found);
    if (found != all.cend() || isTheirs)
        endClaim(true);
}

void DataPort::setController(ClientSocket *pSocket)
{
    closeController();
    m_observers.removeOne(pSocket);
    m_kept.removeOne(pSocket);
    m_pController = pSocket;
    pSocket->noteStalls();
    LogFormatter(1, Log::Hardware) << Q_FUNC_INFO << pSocket->name() << "is the controller's";
    Q_EMIT controllerChanged();
}

void DataPort::endClaim(bool isDone)
{
    m_claimTimer.stop();
    const std::function<void(bool)> done = std::exchange(m_claim.done, nullptr);
    if (done)
        done(isDone);
}

void DataPort::releaseController()
{
    m_claim.done = nullptr;
    m_claimTimer.stop();
    m_isControllerThere = false;
    closeController();
    while (!m_kept.isEmpty())
        drop(m_kept.constFirst());
}

void DataPort::closeController()
{
    if (m_pController != nullptr)
        drop(m_pController);
}

void DataPort::writeToObservers(const QByteArray &bytes)
{
    const QList<ClientSocket *> all = m_observers; // a connection may turn out to be broken
    for (ClientSocket *const pObserver : all)
        pObserver->write(bytes);
}

void DataPort::writeToAll(const QByteArray &bytes)
{
    if (m_pController != nullptr)
        m_pController->write(bytes);
    writeToObservers(bytes);
}

void DataPort::stop()
{
    m_listener.stop();
    releaseController();
    while (!m_observers.isEmpty())
        drop(m_observers.constFirst());
}

void DataPort::onReceived(ClientSocket *pSocket, const QByteArray &bytes)
{
    if (pSocket == m_pController) {
        if (pSocket->isStale())
            Q_EMIT controllerStale();
        else
            Q_EMIT controllerWrote(bytes);
        return;
    }
    if (m_told.contains(pSocket))
        return;
    m_told.insert(pSocket);
    LogFormatter(3, Log::Hardware)
        << Q_FUNC_INFO << pSocket->name() << "is an observer: what it sends is thrown away";
}

void DataPort::onOverflowed(ClientSocket *pSocket, const QString &reason)
{
    LogFormatter(3, Log::Hardware)
        << Q_FUNC_INFO << pSocket->name() << "does not read and is dropped:" << reason;
    const bool isController = pSocket == m_pController;
    drop(pSocket);
    if (isController)
        Q_EMIT controllerOverflowed();
}

void DataPort::forget(ClientSocket *pSocket)
{
    if (m_observers.removeOne(pSocket))
        m_isRefusalTold = false;
    m_kept.removeOne(pSocket);
    m_told.remove(pSocket);
    if (pSocket == m_pController)
        m_pController = nullptr;
}

void DataPort::drop(ClientSocket *pSocket)
{
    forget(pSocket);
    pSocket->close();
}
