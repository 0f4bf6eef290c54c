#include "multiportd/controlconnection.h"

#include "logformatter.h"
#include "multiportd/clientsocket.h"

#include <utility>

using multiportlink::Kind;
using multiportlink::Reason;
using multiportlink::Record;
using multiportlink::Role;

namespace {

constexpr auto s_pMagic = "VYMP";

QString textOf(Reason reason)
{
    switch (reason) {
    case Reason::NotThisLink:
        return QStringLiteral("not a hello of the multiport link");
    case Reason::OtherVersion:
        return QStringLiteral("this server speaks version %1").arg(multiportlink::Version);
    case Reason::ControllerTaken:
        return QStringLiteral("there is a controller already");
    case Reason::TooManyClients:
        return QStringLiteral("too many clients");
    case Reason::Malformed:
        return QStringLiteral("malformed record");
    case Reason::TooLong:
        return QStringLiteral("a record has at most %1 bytes").arg(multiportlink::MaxRecordSize);
    case Reason::NoHello:
        return QStringLiteral("no hello within %1 s")
            .arg(std::chrono::duration<double>(multiportlink::HelloTimeout).count());
    case Reason::Silent:
        return QStringLiteral("silent for %1 s")
            .arg(std::chrono::duration<double>(multiportlink::SilenceLimit).count());
    case Reason::Backlog:
        return QStringLiteral("more than %1 bytes wait to be read").arg(multiportlink::MaxBacklog);
    case Reason::ServerStops:
        return QStringLiteral("the server stops");
    }
    return {};
}

} // namespace

ControlConnection::ControlConnection(ClientSocket *pSocket, QObject *pParent)
    : QObject(pParent)
    , m_pSocket(pSocket)
{
    pSocket->setParent(this);
    m_silenceTimer.setSingleShot(true);
    m_silenceTimer.start(multiportlink::HelloTimeout);
    m_heartbeatTimer.setInterval(multiportlink::HeartbeatInterval);
    connect(&m_silenceTimer, &QTimer::timeout, this,
            [this] { goodbye(m_state == State::Greeting ? Reason::NoHello : Reason::Silent); });
    connect(&m_heartbeatTimer, &QTimer::timeout, this,
            [this] { m_pSocket->write(multiportlink::encodeHeartbeat()); });
    connect(pSocket, &ClientSocket::received, this, &ControlConnection::onReceived);
    connect(pSocket, &ClientSocket::overflowed, this, &ControlConnection::onOverflowed);
    connect(pSocket, &ClientSocket::disconnected, this, &ControlConnection::end);
}

QHostAddress ControlConnection::peerAddress() const
{
    return m_pSocket->peerAddress();
}

QString ControlConnection::name() const
{
    return m_pSocket->name();
}

void ControlConnection::welcome(quint16 canPort, quint16 paymentPort)
{
    m_state = State::Greeted;
    m_silenceTimer.start(multiportlink::SilenceLimit);
    m_heartbeatTimer.start();
    if (m_role == Role::Controller)
        m_pSocket->noteStalls();
    LogFormatter(1, Log::Hardware) << Q_FUNC_INFO << name() << "is welcome as"
                                   << (m_role == Role::Controller ? "controller" : "observer");
    m_pSocket->write(multiportlink::encode(
        multiportlink::Welcome{multiportlink::Version, m_role, canPort, paymentPort}));
}

void ControlConnection::goodbye(Reason reason, bool isLogged)
{
    if (m_state == State::Ended)
        return;
    const QString text = textOf(reason);
    const bool isOurs = reason == Reason::ServerStops;
    if (isLogged)
        LogFormatter(isOurs ? 1 : 3, Log::Hardware) << Q_FUNC_INFO << name() << "dropped:" << text;
    m_pSocket->write(
        multiportlink::encode(multiportlink::Goodbye{static_cast<quint8>(reason), text}));
    end();
}

void ControlConnection::goodbyeStale()
{
    if (m_state == State::Ended)
        return;
    LogFormatter(4, Log::Hardware)
        << Q_FUNC_INFO
        << "This server has stood still: what its controller sent meanwhile is not obeyed";
    goodbye(Reason::Silent);
}

/// Nothing can be said to it any more.
void ControlConnection::onOverflowed(const QString &reason)
{
    LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << name() << "dropped:" << reason;
    end();
}

void ControlConnection::end()
{
    if (std::exchange(m_state, State::Ended) == State::Ended)
        return;
    m_silenceTimer.stop();
    m_heartbeatTimer.stop();
    m_pSocket->close();
    deleteLater();
    Q_EMIT ended();
}

void ControlConnection::onReceived(const QByteArray &bytes)
{
    if (m_state == State::Greeted)
        m_silenceTimer.start();
    m_reader.append(bytes);
    takeRecords();
}

/// Stops while an answer is due; the client's further bytes then stay in its socket.
void ControlConnection::takeRecords()
{
    if (m_pSocket->isStale()) {
        goodbyeStale();
        return;
    }
    while (m_state != State::Ended && !m_isAnswerDue) {
        const std::optional<Record> record = m_reader.next();
        if (!record)
            break;
        take(*record);
    }
    if (m_reader.fault())
        goodbye(*m_reader.fault());
    if (m_state == State::Ended)
        return;
    if (m_isAnswerDue) { // nobody listens: the client is not silent
        m_silenceTimer.stop();
        m_pSocket->setPaused(true);
    }
    m_pSocket->flush();
}

void ControlConnection::take(const Record &record)
{
    if (m_state == State::Greeting) {
        takeHello(record);
        return;
    }
    if (record.kind == Kind::Request)
        takeRequest(record.body);
    else if (record.kind != Kind::Heartbeat || !record.body.isEmpty())
        goodbye(Reason::Malformed);
}

void ControlConnection::takeHello(const Record &record)
{
    const bool isHello = record.kind == Kind::Hello && record.body.startsWith(s_pMagic);
    const std::optional<multiportlink::Hello> hello = multiportlink::decodeHello(record.body);
    if (!isHello) {
        goodbye(Reason::NotThisLink);
    } else if (!hello) {
        goodbye(Reason::Malformed);
    } else if (hello->version != multiportlink::Version) {
        goodbye(Reason::OtherVersion);
    } else {
        m_role = hello->role;
        Q_EMIT greeted();
    }
}

void ControlConnection::takeRequest(const QByteArray &body)
{
    const std::optional<multiportlink::Request> request = multiportlink::decodeRequest(body);
    if (!request) {
        goodbye(Reason::Malformed);
        return;
    }
    m_request = *request;
    m_isAnswerDue = true;
    Q_EMIT requested(*request);
}

void ControlConnection::answer(quint8 status)
{
    if (m_state != State::Greeted || !std::exchange(m_isAnswerDue, false))
        return;
    m_pSocket->write(multiportlink::encode(
        multiportlink::Status{m_request.sequence, m_request.command, status}));
    if (m_silenceTimer.isActive())
        return; // from within requested(): takeRecords() goes on
    m_silenceTimer.start();
    m_pSocket->setPaused(false);
    takeRecords();
}
