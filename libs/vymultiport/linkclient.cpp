#include "linkclient_p.h"

#include "logformatter.h"
#include "multiport.h"

#include <QSignalBlocker>
#include <utility>

using multiportlink::Kind;
using multiportlink::Record;

namespace {

constexpr int s_readBuffer = 64 * 1024;

} // namespace

LinkClient::LinkClient(LinkQueue *pEvents)
    : m_pEvents(pEvents)
    , m_pCanBus(makeConnection(LinkEvent::Type::CanData, LinkEvent::Type::CanConnected,
                               Multiport::CanBusInterface, multiportlink::CanPort))
    , m_pPayment(makeConnection(LinkEvent::Type::PaymentData, LinkEvent::Type::PaymentConnected,
                                Multiport::PaymentInterface, MultiportInterface::PaymentPort))
{
    m_socket.setReadBufferSize(s_readBuffer);
    m_pauseTimer.setSingleShot(true);
    m_silenceTimer.setSingleShot(true);
    m_silenceTimer.setInterval(multiportlink::SilenceLimit);
    m_heartbeatTimer.setInterval(multiportlink::HeartbeatInterval);
    connect(&m_pauseTimer, &QTimer::timeout, this, &LinkClient::connectToServer);
    connect(&m_silenceTimer, &QTimer::timeout, this, &LinkClient::onSilence);
    connect(&m_heartbeatTimer, &QTimer::timeout, this, &LinkClient::onHeartbeat);
    connect(&m_socket, &QTcpSocket::connected, this, &LinkClient::onConnected);
    connect(&m_socket, &QTcpSocket::readyRead, this, &LinkClient::readOn);
    connect(&m_socket, &QTcpSocket::errorOccurred, this, [this] { lose(m_socket.errorString()); });
}

DataConnection *LinkClient::makeConnection(LinkEvent::Type data, LinkEvent::Type connected,
                                           quint8 interface, unsigned int port)
{
    auto *const pConnection = new DataConnection(m_pEvents, data, connected, port);
    pConnection->setParent(this);
    connect(pConnection, &DataConnection::connected, this,
            [this, pConnection, interface](quint16 localPort) {
                claim(pConnection, interface, localPort);
            });
    return pConnection;
}

void LinkClient::start(const QString &host, quint16 port)
{
    if (m_host == host && m_port == port)
        return;
    stop();
    m_host = host;
    m_port = port;
    m_isFailureTold = false;
    m_backoff.reset();
    connectToServer();
}

void LinkClient::stop()
{
    m_host.clear();
    close();
}

void LinkClient::connectToServer()
{
    m_silenceTimer.start();
    m_socket.connectToHost(m_host, m_port);
}

void LinkClient::onConnected()
{
    m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_reader = {};
    write(multiportlink::encode(
        multiportlink::Hello{multiportlink::Version, multiportlink::Role::Controller}));
}

/// Leaves the records in the socket while nobody has room for what they say.
void LinkClient::readOn()
{
    if (m_socket.bytesAvailable() > 0 && !m_pEvents->isFull()) {
        m_silenceTimer.start();
        m_reader.append(m_socket.readAll());
        while (const std::optional<Record> record = m_reader.next())
            take(*record);
        if (m_reader.fault())
            lose(QStringLiteral("the server sends what is no record"));
    }
    m_pCanBus->readOn();
    m_pPayment->readOn();
}

/// A link that has lived that long counts as one; after it the next pause is a short one.
void LinkClient::onHeartbeat()
{
    m_backoff.reset();
    m_pCanBus->settle();
    m_pPayment->settle();
    write(multiportlink::encodeHeartbeat());
}

void LinkClient::onSilence()
{
    if (m_socket.bytesAvailable() > 0)
        m_silenceTimer.start(); // it is we who do not listen
    else
        lose(QStringLiteral("the server is silent"));
}

void LinkClient::take(const Record &record)
{
    const bool isLinked = m_generation != 0;
    switch (record.kind) {
    case Kind::Welcome:
        welcome(record.body);
        return;
    case Kind::Goodbye:
        if (const auto goodbye = multiportlink::decodeGoodbye(record.body)) {
            lose(QStringLiteral("the server says: %1").arg(goodbye->text));
            return;
        }
        break;
    case Kind::Heartbeat:
        if (record.body.isEmpty())
            return;
        break;
    case Kind::Status:
        if (const auto status = multiportlink::decodeStatus(record.body)) {
            if (isLinked)
                takeStatus(*status);
            return;
        }
        break;
    case Kind::Event:
        if (const auto event = multiportlink::decodeEvent(record.body)) {
            if (isLinked)
                m_pEvents->put({LinkEvent::Type::Reported, event->event, 0, event->payload});
            return;
        }
        break;
    case Kind::Hello:
    case Kind::Request:
        break;
    }
    lose(QStringLiteral("the server sends kind %1 with %2 bytes")
             .arg(static_cast<int>(record.kind))
             .arg(record.body.size()));
}

void LinkClient::welcome(const QByteArray &body)
{
    const auto welcome = multiportlink::decodeWelcome(body);
    if (!welcome || welcome->version != multiportlink::Version ||
        welcome->role != multiportlink::Role::Controller || m_generation != 0) {
        lose(
            QStringLiteral("not a controller's welcome of version %1").arg(multiportlink::Version));
        return;
    }
    LogFormatter(1, Log::Hardware)
        << Q_FUNC_INFO << "Connected to the multiport server" << m_host << "port" << m_port;
    m_isFailureTold = false;
    m_generation = ++m_links;
    m_heartbeatTimer.start();
    m_pEvents->put({LinkEvent::Type::ServerConnected, 1, 0, {}});
    m_pCanBus->setServer(m_host, welcome->canPort);
    m_pPayment->setServer(m_host, welcome->paymentPort);
}

void LinkClient::takeStatus(const multiportlink::Status &status)
{
    if (m_claims.contains(status.sequence))
        onClaimed(m_claims.take(status.sequence), status.status);
    else if (m_ownSetups.contains(status.sequence))
        onSetUpAgain(m_ownSetups.take(status.sequence), status.status);
    else
        m_pEvents->put({LinkEvent::Type::Terminated, status.command, status.status, {}});
}

void LinkClient::onClaimed(const Claimed &claimed, quint8 status)
{
    DataConnection *const pConnection = claimed.pConnection;
    if (pConnection->localPort() != claimed.localPort)
        return;
    if (status != MultiportProtocol::StatusDone) {
        pConnection->fail(QStringLiteral("claim refused, status %1").arg(status));
        return;
    }
    if (pConnection == m_pPayment && !m_serialLine.isEmpty())
        sendOwnSetup();
    else
        pConnection->open();
}

/// What is written on the line now cannot overtake its setup.
void LinkClient::onSetUpAgain(quint16 localPort, quint8 status)
{
    LogFormatter(status == MultiportProtocol::StatusDone ? 0 : 3, Log::Hardware)
        << Q_FUNC_INFO << "Serial line set up again, status" << status;
    if (m_pPayment->localPort() == localPort)
        m_pPayment->open();
}

void LinkClient::claim(DataConnection *pConnection, quint8 interface, quint16 localPort)
{
    m_claims.insert(++m_sequence,
                    {pConnection, localPort}); // first: a link that is lost forgets it
    send(m_sequence, MultiportProtocol::CommandClaim,
         encode(multiportlink::Claim{interface, localPort}));
}

void LinkClient::sendOwnSetup()
{
    // First: a link that is lost forgets it.
    m_ownSetups.insert(++m_sequence, m_pPayment->localPort());
    send(m_sequence, MultiportProtocol::CommandSetSerialLine, m_serialLine);
}

void LinkClient::request(unsigned int generation, quint8 command, const QByteArray &payload)
{
    if (generation == m_generation)
        send(++m_sequence, command, payload);
    else
        LogFormatter(3, Log::Hardware)
            << Q_FUNC_INFO << "Link to the multiport server lost, command" << command << "not sent";
}

void LinkClient::setSerialLine(unsigned int generation, const QByteArray &payload)
{
    m_serialLine = payload;
    if (generation != 0)
        request(generation, MultiportProtocol::CommandSetSerialLine, payload);
}

void LinkClient::send(quint16 sequence, quint8 command, const QByteArray &payload)
{
    write(multiportlink::encode(multiportlink::Request{sequence, command, payload}));
}

void LinkClient::write(const QByteArray &record)
{
    if (m_socket.bytesToWrite() + record.size() > multiportlink::MaxBacklog) {
        lose(QStringLiteral("the server does not read"));
        return;
    }
    m_socket.write(record);
    m_socket.flush();
}

void LinkClient::lose(const QString &reason)
{
    if (!std::exchange(m_isFailureTold, true))
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << "No link to the multiport server" << m_host
                                       << "port" << m_port << "but trying again:" << reason;
    close();
    if (!m_host.isEmpty())
        m_pauseTimer.start(m_backoff.next());
}

void LinkClient::close()
{
    const bool wasLinked = m_generation.exchange(0) != 0;
    m_pauseTimer.stop();
    m_heartbeatTimer.stop();
    m_silenceTimer.stop();
    m_claims.clear();
    m_ownSetups.clear();
    m_pCanBus->clearServer();
    m_pPayment->clearServer();
    const QSignalBlocker blocker(&m_socket); // its end is no failure
    if (m_socket.isOpen())
        m_socket.readAll(); // bytes left unread would reset the connection and lose ours
    m_socket.flush();
    m_socket.abort();
    m_reader = {};
    if (wasLinked)
        m_pEvents->put({LinkEvent::Type::ServerConnected, 0, 0, {}});
}
