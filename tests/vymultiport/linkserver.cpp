#include "vymultiport/linkserver.h"

#include "multiport.h"
#include "multiportprotocol.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <arpa/inet.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace multiportlink;

namespace {

constexpr int s_ownBuffer = 1;       ///< bytes that a socket takes that is not to be read
constexpr int s_kernelBuffer = 4096; ///< bytes that the kernel then takes, about

/// Binds to the port, 0 for a free one, and says which; 0 when that fails.
quint16 bindTo(int descriptor, bool isV6)
{
    sockaddr_in v4 = {};
    v4.sin_family = AF_INET;
    v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_in6 v6 = {};
    v6.sin6_family = AF_INET6;
    v6.sin6_addr = in6addr_loopback;
    auto *const pAddress =
        isV6 ? reinterpret_cast<sockaddr *>(&v6) : reinterpret_cast<sockaddr *>(&v4);
    socklen_t size = isV6 ? sizeof v6 : sizeof v4;
    if (::bind(descriptor, pAddress, size) != 0 || ::getsockname(descriptor, pAddress, &size) != 0)
        return 0;
    return ntohs(isV6 ? v6.sin6_port : v4.sin_port);
}

void keepSmall(QTcpSocket *pSocket)
{
    pSocket->setReadBufferSize(s_ownBuffer);
    pSocket->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, s_kernelBuffer);
}

void close(QTcpSocket *pSocket)
{
    pSocket->disconnect();
    pSocket->abort();
    pSocket->deleteLater();
}

} // namespace

LinkServer::LinkServer(const QHostAddress &address)
    : m_address(address)
    , m_controlPort(reserve())
{
    for (LineState &line : m_lines)
        line.port = reserve();
    welcome();
    m_answer = [](const Request &) { return quint8{MultiportProtocol::StatusDone}; };
    connect(&m_controlServer, &QTcpServer::newConnection, this, &LinkServer::acceptControl);
    for (const Line line : {CanBus, Payment}) {
        m_lines.at(line).pServer = std::make_unique<QTcpServer>();
        connect(m_lines.at(line).pServer.get(), &QTcpServer::newConnection, this,
                [this, line] { accept(line); });
    }
    connect(&m_heartbeat, &QTimer::timeout, this, &LinkServer::beat);
    m_heartbeat.setInterval(HeartbeatInterval);
}

LinkServer::~LinkServer()
{
    stop();
    ::close(m_controlPort.reservation);
    for (const LineState &line : m_lines)
        ::close(line.port.reservation);
}

// A bound socket keeps the port from everyone else while none listens there, and lets this server
// listen beside it: both are reusable.
LinkServer::Port LinkServer::reserve() const
{
    const bool isV6 = m_address.protocol() == QAbstractSocket::IPv6Protocol;
    Port port;
    port.reservation = ::socket(isV6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int isReusable = 1;
    ::setsockopt(port.reservation, SOL_SOCKET, SO_REUSEADDR, &isReusable, sizeof isReusable);
    port.number = bindTo(port.reservation, isV6);
    return port;
}

QString LinkServer::address() const
{
    const bool isV6 = m_address.protocol() == QAbstractSocket::IPv6Protocol;
    return QString(isV6 ? QStringLiteral("[%1]:%2") : QStringLiteral("%1:%2"))
        .arg(m_address.toString())
        .arg(m_controlPort.number);
}

bool LinkServer::start()
{
    bool isListening = m_controlServer.listen(m_address, m_controlPort.number);
    for (LineState &line : m_lines)
        isListening = line.pServer->listen(m_address, line.port.number) && isListening;
    return isListening;
}

void LinkServer::stop()
{
    m_controlServer.close();
    for (LineState &line : m_lines)
        line.pServer->close();
    dropControl();
    drop(CanBus);
    drop(Payment);
}

// -- what it does ---------------------------------------------------------------------------------

void LinkServer::welcome()
{
    m_isGoodbye = false;
    m_greeting = encode(Welcome{Version, Role::Controller, port(CanBus), port(Payment)});
}

void LinkServer::refuse(quint8 reason, const char *pText)
{
    m_isGoodbye = true;
    m_greeting = encode(Goodbye{reason, QString::fromUtf8(pText)});
}

void LinkServer::setReading(bool isReading)
{
    m_isReading = isReading;
    const auto apply = [isReading](QTcpSocket *pSocket) {
        if (isReading)
            pSocket->setReadBufferSize(0);
        else
            keepSmall(pSocket);
    };
    for (const Line line : {CanBus, Payment}) {
        for (const Connection &connection : qAsConst(m_lines.at(line).open)) {
            apply(connection.pSocket);
            read(line, connection.pSocket);
        }
    }
    if (m_pControl == nullptr)
        return;
    apply(m_pControl);
    readControl();
}

void LinkServer::answer(const Request &request, quint8 status)
{
    if (request.command == MultiportProtocol::CommandClaim && status == 0) {
        if (Connection *const pConnection = claimed(request))
            pConnection->isClaimed = true;
    }
    sendControl(encode(Status{request.sequence, request.command, status}));
}

void LinkServer::sendEvent(quint8 event, const QByteArray &payload)
{
    sendControl(encode(Event{event, payload}));
}

void LinkServer::sendControl(const QByteArray &bytes)
{
    if (m_pControl != nullptr && !m_isSilent)
        m_pControl->write(bytes);
}

void LinkServer::send(Line line, const QByteArray &bytes)
{
    const QList<Connection> &open = m_lines.at(line).open;
    if (QTcpSocket *const pSocket = socket(line))
        pSocket->write(bytes);
    else if (!open.isEmpty())
        open.last().pSocket->write(bytes);
}

void LinkServer::dropControl()
{
    m_heartbeat.stop();
    m_isGreeted = false;
    m_claims.clear();
    m_reader = RecordReader();
    if (m_pControl != nullptr)
        close(m_pControl);
    m_pControl = nullptr;
}

void LinkServer::resetControl()
{
    if (m_pControl == nullptr)
        return;
    m_pControl->flush();
    const linger reset = {1, 0};
    ::setsockopt(static_cast<int>(m_pControl->socketDescriptor()), SOL_SOCKET, SO_LINGER, &reset,
                 sizeof reset);
    dropControl();
}

void LinkServer::drop(Line line)
{
    for (const Connection &connection : qAsConst(m_lines.at(line).open))
        close(connection.pSocket);
    m_lines.at(line).open.clear();
}

// -- what it has seen -----------------------------------------------------------------------------

QTcpSocket *LinkServer::socket(Line line) const
{
    for (const Connection &connection : m_lines.at(line).open) {
        if (connection.isClaimed)
            return connection.pSocket;
    }
    return nullptr;
}

QList<Request> LinkServer::requests(quint8 command) const
{
    QList<Request> found;
    for (const Request &request : m_requests) {
        if (request.command == command)
            found.append(request);
    }
    return found;
}

int LinkServer::segments(Line line) const
{
    const QTcpSocket *const pSocket = socket(line);
    if (pSocket == nullptr)
        return -1;
    tcp_info info = {};
    socklen_t size = sizeof info;
    if (::getsockopt(static_cast<int>(pSocket->socketDescriptor()), IPPROTO_TCP, TCP_INFO, &info,
                     &size) != 0)
        return -1;
    return static_cast<int>(info.tcpi_data_segs_in);
}

// -- connections ----------------------------------------------------------------------------------

void LinkServer::acceptControl()
{
    while (QTcpSocket *const pSocket = m_controlServer.nextPendingConnection()) {
        ++m_controlConnections;
        dropControl();
        m_pControl = pSocket;
        pSocket->setParent(this);
        pSocket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        if (!m_isReading)
            keepSmall(pSocket);
        connect(pSocket, &QTcpSocket::readyRead, this, &LinkServer::readControl);
        connect(pSocket, &QTcpSocket::disconnected, this, &LinkServer::dropControl);
        readControl();
    }
}

void LinkServer::accept(Line line)
{
    LineState &state = m_lines.at(line);
    while (QTcpSocket *const pSocket = state.pServer->nextPendingConnection()) {
        ++state.connections;
        state.open.append({pSocket, false});
        pSocket->setParent(this);
        pSocket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        if (!m_isReading)
            keepSmall(pSocket);
        connect(pSocket, &QTcpSocket::readyRead, this, [=] { read(line, pSocket); });
        connect(pSocket, &QTcpSocket::disconnected, this, [=] {
            QList<Connection> &open = m_lines.at(line).open;
            for (int i = open.size() - 1; i >= 0; --i) {
                if (open.at(i).pSocket == pSocket)
                    open.removeAt(i);
            }
            pSocket->deleteLater();
        });
        read(line, pSocket);
        answerClaims();
    }
}

void LinkServer::read(Line line, QTcpSocket *pSocket)
{
    if (!m_isReading)
        return;
    LineState &state = m_lines.at(line);
    const QByteArray bytes = pSocket->readAll();
    state.received += bytes;
    for (const Connection &connection : qAsConst(state.open)) {
        if (connection.pSocket == pSocket && !connection.isClaimed)
            state.receivedEarly += bytes.size();
    }
}

void LinkServer::readControl()
{
    if (!m_isReading)
        return;
    m_reader.append(m_pControl->readAll());
    // A slot of requested() may have dropped the connection.
    while (m_pControl != nullptr) {
        const std::optional<Record> record = m_reader.next();
        if (!record)
            return;
        take(*record);
    }
}

// -- records --------------------------------------------------------------------------------------

void LinkServer::take(const Record &record)
{
    if (record.kind == Kind::Heartbeat)
        ++m_heartbeats;
    if (record.kind == Kind::Request) {
        if (const std::optional<Request> request = decodeRequest(record.body))
            takeRequest(*request);
    }
    if (record.kind != Kind::Hello)
        return;
    const auto size = static_cast<char>(record.body.size() + 1);
    m_hello = QByteArray("\0", 1) + size + static_cast<char>(Kind::Hello) + record.body;
    sendControl(m_greeting);
    if (m_isGoodbye) {
        m_pControl->flush();
        dropControl();
        return;
    }
    m_isGreeted = !m_greeting.isEmpty();
    if (m_isGreeted)
        m_heartbeat.start();
}

void LinkServer::takeRequest(const Request &request)
{
    m_requests.append(request);
    if (request.command == MultiportProtocol::CommandClaim && claimed(request) == nullptr)
        m_claims.append(request);
    else
        decide(request);
    Q_EMIT requested(request);
}

/// The connection that the request names, open already.
LinkServer::Connection *LinkServer::claimed(const Request &request)
{
    const std::optional<Claim> claim = decodeClaim(request.payload);
    if (!claim)
        return nullptr;
    const Line line = claim->interface == Multiport::CanBusInterface ? CanBus : Payment;
    for (Connection &connection : m_lines.at(line).open) {
        if (connection.pSocket->peerPort() == claim->port)
            return &connection;
    }
    return nullptr;
}

void LinkServer::answerClaims()
{
    for (int i = m_claims.size() - 1; i >= 0; --i) {
        if (claimed(m_claims.at(i)) != nullptr)
            decide(m_claims.takeAt(i));
    }
}

void LinkServer::decide(const Request &request)
{
    if (const std::optional<quint8> status = m_answer(request))
        answer(request, *status);
}

void LinkServer::beat()
{
    sendControl(encodeHeartbeat());
}

// -- waiting --------------------------------------------------------------------------------------

bool waitUntil(const std::function<bool()> &holds, int timeoutMs)
{
    QElapsedTimer elapsed;
    elapsed.start();
    while (!holds()) {
        if (elapsed.hasExpired(timeoutMs))
            return false;
        QEventLoop loop; // sleeps until something happens, 5 ms at most
        QTimer::singleShot(5, &loop, &QEventLoop::quit);
        loop.processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}
