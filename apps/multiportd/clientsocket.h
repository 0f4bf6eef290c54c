#ifndef CLIENTSOCKET_H
#define CLIENTSOCKET_H

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QString>
#include <QTcpSocket>
#include <memory>
#include <optional>

/// One connection of a client. What one turn of the event loop writes is collected and leaves in
/// one write; what a client does not read waits here, up to 1 MiB, and 16 MiB for all clients of
/// the process together: beyond them the one that has most to read is overflowed. One thread.
class ClientSocket : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 MaxSum = 16 << 20; ///< bytes that may wait for all clients together

    /// Takes over the connected socket; `port` names the server's port in the log.
    ClientSocket(QTcpSocket *pSocket, const QString &port, QObject *pParent);
    ~ClientSocket() override;

    /// For the log.
    QString name() const { return m_name; }
    QHostAddress peerAddress() const { return m_pSocket->peerAddress(); }
    quint16 peerPort() const { return m_pSocket->peerPort(); }

    /// Leaves with the next turn of the event loop, or with flush().
    void write(const QByteArray &bytes);
    void flush();

    /// While paused, what arrives stays in the socket, and beyond that at the client.
    void setPaused(bool isPaused);

    /// From now on something happens in this event loop more often than silence lasts.
    void noteStalls();
    /// The loop has stood still for longer since then, for example because the process was stopped:
    /// what the client has sent may be that old.
    bool isStale() const;

    /// Sends what the client takes at once, closes and says nothing more; deletes itself later.
    void close();

Q_SIGNALS:
    void received(const QByteArray &bytes);
    /// More waits than may; nothing is sent any more. Comes on a later turn of the event loop.
    void overflowed(const QString &reason);
    /// The other side has closed, or the connection is broken.
    void disconnected();

protected:
    bool event(QEvent *pEvent) override;

private:
    class TurnEnd;
    void read();
    void post();
    void overflow(const QString &reason);
    qint64 waiting() const;

    std::unique_ptr<QTcpSocket> m_pSocket;
    QString m_name;
    QByteArray m_collected;
    std::optional<quint64> m_stallsSeen;
    bool m_isPosted = false; ///< an event for this object is on its way
    bool m_isPaused = false;
    bool m_isOverflowed = false;
    QString m_overflowReason;
    bool m_isOverflowTold = false;
    bool m_isClosed = false;
};

#endif // CLIENTSOCKET_H
