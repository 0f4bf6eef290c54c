#include "multiportd/clientsocket.h"

#include "linkrecords.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEvent>
#include <QPointer>
#include <QVector>
#include <utility>

namespace {

constexpr int s_readBuffer = 64 * 1024; ///< bytes of one client that wait to be handled

/// Flushes what was written when the turn of the event loop ends, whether the loop waits then or is
/// called again and again. An event would wake the loop once more for each answer.
class TurnEnd : public QObject
{
public:
    static TurnEnd &instance()
    {
        static TurnEnd *const pInstance = new TurnEnd; // the application's child
        return *pInstance;
    }

    void flush(ClientSocket *pSocket) { m_written.append(pSocket); }

private:
    TurnEnd()
        : QObject(qApp)
    {
        const auto *const pDispatcher = QAbstractEventDispatcher::instance();
        connect(pDispatcher, &QAbstractEventDispatcher::aboutToBlock, this, &TurnEnd::flushAll);
        connect(pDispatcher, &QAbstractEventDispatcher::awake, this, &TurnEnd::flushAll);
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
    }

    QVector<QPointer<ClientSocket>> m_written;
};

} // namespace

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
    m_pSocket->disconnect(this);
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
    m_isOverflowed = m_pSocket->bytesToWrite() > multiportlink::MaxBacklog;
    if (m_isOverflowed)
        post();
}

void ClientSocket::flush()
{
    if (m_collected.isEmpty() || m_isClosed)
        return;
    m_pSocket->write(m_collected);
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
            Q_EMIT overflowed();
        return true;
    }
    read();
    if (!m_isClosed && m_pSocket->state() != QAbstractSocket::ConnectedState)
        Q_EMIT disconnected();
    return true;
}
