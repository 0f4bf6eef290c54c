#include "multiportd/portlistener.h"

#include "logformatter.h"
#include "multiportd/clientsocket.h"

#include <QTcpSocket>
#include <chrono>
#include <utility>

namespace {

constexpr int s_acceptsPerTurn = 16;
constexpr std::chrono::milliseconds s_resumeAfter{200};

} // namespace

PortListener::PortListener(QString name, QObject *pParent)
    : QObject(pParent)
    , m_name(std::move(name))
{
    m_server.setMaxPendingConnections(s_acceptsPerTurn);
    m_resumeTimer.setSingleShot(true);
    m_resumeTimer.setInterval(s_resumeAfter);
    // Queued, because the server would else go on accepting while there is anyone.
    connect(&m_server, &QTcpServer::newConnection, this, &PortListener::acceptPending,
            Qt::QueuedConnection);
    connect(&m_server, &QTcpServer::acceptError, this, &PortListener::onAcceptError);
    connect(&m_resumeTimer, &QTimer::timeout, &m_server, &QTcpServer::resumeAccepting);
}

bool PortListener::listen(const QHostAddress &address, quint16 port, QString *pError)
{
    if (m_server.listen(address, port))
        return true;
    *pError = QStringLiteral("cannot listen on %1 port %2 (%3): %4")
                  .arg(address.toString())
                  .arg(port)
                  .arg(m_name, m_server.errorString());
    return false;
}

void PortListener::stop()
{
    m_resumeTimer.stop();
    m_server.close();
}

void PortListener::acceptPending()
{
    while (QTcpSocket *const pSocket = m_server.nextPendingConnection())
        Q_EMIT accepted(new ClientSocket(pSocket, m_name, this));
}

/// No descriptor is left, for example.
void PortListener::onAcceptError()
{
    LogFormatter(4, Log::Hardware)
        << Q_FUNC_INFO << "The" << m_name << "port accepts nobody:" << m_server.errorString();
    m_resumeTimer.start();
}
