#include "dataconnection_p.h"

#include "linkrecords.h"
#include "logformatter.h"

#include <QSignalBlocker>
#include <utility>

namespace {

constexpr int s_readBuffer = 64 * 1024;
/// Longer than a server waits for what is claimed.
constexpr auto s_openTimeout = multiportlink::ClaimTimeout + multiportlink::HeartbeatInterval;

} // namespace

DataConnection::DataConnection(LinkQueue *pEvents, LinkEvent::Type data, LinkEvent::Type connected,
                               unsigned int port)
    : m_pEvents(pEvents)
    , m_dataType(data)
    , m_connectedType(connected)
    , m_port(port)
{
    m_socket.setReadBufferSize(s_readBuffer);
    m_pauseTimer.setSingleShot(true);
    connect(&m_pauseTimer, &QTimer::timeout, this, &DataConnection::connectToServer);
    m_openTimer.setSingleShot(true);
    m_openTimer.setInterval(s_openTimeout);
    connect(&m_openTimer, &QTimer::timeout, this,
            [this] { fail(QStringLiteral("not open within 3 s")); });
    connect(&m_socket, &QTcpSocket::connected, this, &DataConnection::onConnected);
    connect(&m_socket, &QTcpSocket::readyRead, this, &DataConnection::readOn);
    connect(&m_socket, &QTcpSocket::errorOccurred, this, [this] { fail(m_socket.errorString()); });
}

void DataConnection::setWanted(bool isWanted)
{
    if (isWanted == m_isWanted)
        return;
    m_isWanted = isWanted;
    if (!isWanted) {
        close();
        return;
    }
    m_backoff.reset();
    connectToServer();
}

void DataConnection::setServer(const QString &host, quint16 port)
{
    m_host = host;
    m_serverPort = port;
    connectToServer();
}

void DataConnection::clearServer()
{
    m_host.clear();
    close();
}

void DataConnection::connectToServer()
{
    if (!m_isWanted || m_host.isEmpty())
        return;
    m_openTimer.start();
    m_socket.connectToHost(m_host, m_serverPort);
}

void DataConnection::onConnected()
{
    m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    Q_EMIT connected(m_socket.localPort());
}

void DataConnection::open()
{
    m_openTimer.stop();
    m_isFailureTold = false;
    m_generation = ++m_openings;
    m_pEvents->put({m_connectedType, 0, 0, {}, m_openings});
    readOn();
}

void DataConnection::settle()
{
    if (m_generation != 0)
        m_backoff.reset();
}

void DataConnection::fail(const QString &reason)
{
    if (!std::exchange(m_isFailureTold, true))
        LogFormatter(3, Log::Hardware)
            << Q_FUNC_INFO << "No connection of port" << m_port << "any more:" << reason;
    close();
    if (m_isWanted && !m_host.isEmpty())
        m_pauseTimer.start(m_backoff.next());
}

/// What was written before still leaves, what has arrived is still told.
void DataConnection::close()
{
    m_pauseTimer.stop();
    m_openTimer.stop();
    const bool wasOpen = m_generation.exchange(0) != 0;
    const QSignalBlocker blocker(&m_socket); // its end is no failure
    QByteArray arrived;
    if (m_socket.isOpen())
        arrived = m_socket.readAll(); // bytes left unread would reset the connection
    if (wasOpen && !arrived.isEmpty())
        m_pEvents->put({m_dataType, 0, 0, arrived});
    m_socket.flush();
    m_socket.abort();
    if (wasOpen)
        m_pEvents->put({m_connectedType, 0, 0, {}});
}

/// Leaves the bytes in the socket while nobody has room for them: the server then waits too.
void DataConnection::readOn()
{
    if (m_generation != 0 && m_socket.bytesAvailable() > 0 && !m_pEvents->isFull())
        m_pEvents->put({m_dataType, 0, 0, m_socket.readAll()});
}

qint64 DataConnection::write(const QByteArray &bytes)
{
    if (generation() == 0)
        return -1;
    if (bytes.size() > multiportlink::MaxBacklog) {
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << bytes.size() << "bytes, expected at most"
                                       << multiportlink::MaxBacklog;
        return -1;
    }
    if (m_socket.bytesToWrite() + bytes.size() > multiportlink::MaxBacklog) {
        fail(QStringLiteral("the server does not read"));
        return -1;
    }
    const qint64 written = m_socket.write(bytes);
    m_socket.flush();
    return written;
}

void DataConnection::writeIf(unsigned int generation, const QByteArray &bytes)
{
    if (generation != m_generation || write(bytes) < 0)
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << "Connection of port" << m_port << "lost,"
                                       << bytes.size() << "bytes not sent";
}
