#include "multiportd/clientsocket.h"

#include "linkrecords.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QPointer>
#include <QVector>
#include <algorithm>
#include <chrono>
#include <utility>

namespace {

constexpr int s_readBuffer = 64 * 1024;     ///< bytes of one client that wait to be handled
constexpr int s_collectedSpace = 64 * 1024; ///< bytes; what a turn writes beyond them is rare

} // namespace

/// Flushes what was written when the turn of the event loop ends, whether the loop waits then or is
/// called again and again. An event would wake the loop once more for each answer. Sees also when
/// the loop has not turned for too long, and that all that waits together stays bounded.
class ClientSocket::TurnEnd : public QObject
{
public:
    static TurnEnd &instance()
    {
        static TurnEnd *const pInstance = new TurnEnd; // the application's child
        return *pInstance;
    }

    void add(ClientSocket *pSocket) { m_all.append(pSocket); }
    void remove(ClientSocket *pSocket) { m_all.removeOne(pSocket); }
    void flush(ClientSocket *pSocket) { m_written.append(pSocket); }

    /// How often the loop has not turned for as long as silence lasts, now included.
    quint64 stalls() const { return m_stalls + (isStall() ? 1 : 0); }

private:
    TurnEnd()
        : QObject(qApp)
    {
        m_sinceTurn.start();
        const auto *const pDispatcher = QAbstractEventDispatcher::instance();
        connect(pDispatcher, &QAbstractEventDispatcher::aboutToBlock, this, &TurnEnd::onTurn);
        connect(pDispatcher, &QAbstractEventDispatcher::awake, this, &TurnEnd::onTurn);
    }

    bool isStall() const
    {
        return m_sinceTurn.elapsed() >
               std::chrono::milliseconds(multiportlink::SilenceLimit).count();
    }

    void onTurn()
    {
        m_stalls = stalls();
        m_sinceTurn.start();
        flushAll();
    }

    void flushAll()
    {
        if (m_written.isEmpty())
            return;
        const auto written = std::exchange(m_written, {});
        for (const QPointer<ClientSocket> &pSocket : written) {
            if (pSocket)
                pSocket->flush();
        }
        boundSum();
    }

    void boundSum()
    {
        qint64 sum = 0;
        for (const ClientSocket *const pSocket : std::as_const(m_all))
            sum += pSocket->waiting();
        while (sum > MaxSum) {
            ClientSocket *const pSlowest =
                *std::max_element(m_all.cbegin(), m_all.cend(),
                                  [](const ClientSocket *pOne, const ClientSocket *pOther) {
                                      return pOne->waiting() < pOther->waiting();
                                  });
            sum -= pSlowest->waiting();
            pSlowest->overflow(
                QStringLiteral(
                    "more than %1 bytes wait to be read by all clients, most by this one")
                    .arg(MaxSum));
        }
    }

    QVector<ClientSocket *> m_all;
    QVector<QPointer<ClientSocket>> m_written;
    QElapsedTimer m_sinceTurn;
    quint64 m_stalls = 0;
};

ClientSocket::ClientSocket(QTcpSocket *pSocket, const QString &port, QObject *pParent)
    : QObject(pParent)
    , m_pSocket(pSocket)
    , m_name(QStringLiteral("%1 client %2:%3")
                 .arg(port, pSocket->peerAddress().toString())
                 .arg(pSocket->peerPort()))
{
    pSocket->setParent(nullptr);
    pSocket->setReadBufferSize(s_readBuffer);
    pSocket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    pSocket->setSocketOption(QAbstractSocket::KeepAliveOption,
                             1); // of a line on which nothing goes by
    TurnEnd::instance().add(this);
    connect(pSocket, &QTcpSocket::readyRead, this, &ClientSocket::read);
    connect(pSocket, &QTcpSocket::disconnected, this, [this] {
        read();
        if (!m_isClosed)
            Q_EMIT disconnected();
    });
    post(); // for what arrived, or broke, before anyone listened
}

ClientSocket::~ClientSocket()
{
    TurnEnd::instance().remove(this);
    m_pSocket->disconnect(this);
}

void ClientSocket::noteStalls()
{
    m_stallsSeen = TurnEnd::instance().stalls();
}

bool ClientSocket::isStale() const
{
    return m_stallsSeen && *m_stallsSeen != TurnEnd::instance().stalls();
}

void ClientSocket::write(const QByteArray &bytes)
{
    if (m_isClosed || m_isOverflowed)
        return;
    if (m_collected.isEmpty())
        TurnEnd::instance().flush(this);
    m_collected += bytes;
    if (m_pSocket->bytesToWrite() + m_collected.size() <= multiportlink::MaxBacklog)
        return;
    flush(); // not all of it need be the client's fault
    if (m_pSocket->bytesToWrite() > multiportlink::MaxBacklog)
        overflow(
            QStringLiteral("more than %1 bytes wait to be read").arg(multiportlink::MaxBacklog));
}

void ClientSocket::overflow(const QString &reason)
{
    m_isOverflowed = true;
    m_overflowReason = reason;
    m_collected = QByteArray();
    post();
}

/// Bytes that the client has not taken, unless it is on its way out.
qint64 ClientSocket::waiting() const
{
    return m_isClosed || m_isOverflowed ? 0 : m_pSocket->bytesToWrite();
}

void ClientSocket::flush()
{
    if (m_collected.isEmpty() || m_isClosed)
        return;
    m_pSocket->write(m_collected);
    if (m_collected.size() > s_collectedSpace)
        m_collected = QByteArray();
    else
        m_collected.resize(0); // keeps its memory
    m_pSocket->flush();
}

void ClientSocket::setPaused(bool isPaused)
{
    m_isPaused = isPaused;
    if (!isPaused)
        post();
}

void ClientSocket::close()
{
    if (m_isClosed)
        return;
    flush();
    m_isClosed = true;
    m_pSocket->readAll(); // closed with bytes unread, the connection would be reset and lose ours
    m_pSocket->abort();
    deleteLater();
}

void ClientSocket::read()
{
    if (m_isClosed || m_isPaused || m_pSocket->bytesAvailable() == 0)
        return;
    Q_EMIT received(m_pSocket->readAll());
}

/// Before what others have posted meanwhile, behind what is being delivered.
void ClientSocket::post()
{
    if (!std::exchange(m_isPosted, true))
        QCoreApplication::postEvent(this, new QEvent(QEvent::User), Qt::HighEventPriority);
}

bool ClientSocket::event(QEvent *pEvent)
{
    if (pEvent->type() != QEvent::User)
        return QObject::event(pEvent);
    m_isPosted = false;
    if (m_isClosed)
        return true;
    flush();
    if (m_isOverflowed) {
        if (!std::exchange(m_isOverflowTold, true))
            Q_EMIT overflowed(m_overflowReason);
        return true;
    }
    read();
    if (!m_isClosed && m_pSocket->state() != QAbstractSocket::ConnectedState)
        Q_EMIT disconnected();
    return true;
}
