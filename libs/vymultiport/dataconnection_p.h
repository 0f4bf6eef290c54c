#ifndef DATACONNECTION_P_H
#define DATACONNECTION_P_H

#include "backoff_p.h"
#include "linkqueue_p.h"
#include "multiportinterface.h"

#include <QTcpSocket>
#include <QTimer>
#include <atomic>

/// The raw connection of one interface. It is kept up while it is wanted and its server is known.
/// Whoever owns it claims it at the server once it is `connected` and says so with open().
class DataConnection : public MultiportInterface
{
    Q_OBJECT

public:
    /// \param port the server's usual port, told with the data
    DataConnection(LinkQueue *pEvents, LinkEvent::Type data, LinkEvent::Type connected,
                   unsigned int port);

    unsigned int port() const { return m_port; }

    quint16 localPort() const { return m_socket.localPort(); } ///< 0 while there is no connection

    void setWanted(bool isWanted);
    /// The server is there.
    void setServer(const QString &host, quint16 port);
    /// The server is gone, and this connection with it.
    void clearServer();

    /// The server takes our bytes and sends its own.
    void open();
    /// Closes and, while wanted, tries again after a pause.
    void fail(const QString &reason);
    void readOn(); ///< there is room again
    /// The link has been up for a while: the next pause is a short one.
    void settle();

    qint64 write(const QByteArray &bytes) override;
    /// The same, for what was asked for while this was the generation().
    void writeIf(unsigned int generation, const QByteArray &bytes);

    /// Which of its openings this is, counted from 1; 0 while it is not open, and until that has
    /// been told: who does not know of an outage does not write after it. Any thread.
    unsigned int generation() const
    {
        const unsigned int generation = m_generation;
        return generation == m_told ? generation : 0;
    }
    /// The opening that is now known to all. In the thread of Multiport.
    void setTold(unsigned int generation) { m_told = generation; }

Q_SIGNALS:
    void connected(quint16 localPort);

private:
    void connectToServer();
    void onConnected();
    void close();

    LinkQueue *m_pEvents;
    const LinkEvent::Type m_dataType;
    const LinkEvent::Type m_connectedType;
    const unsigned int m_port;
    bool m_isWanted = false;
    QString m_host; ///< empty while there is no server
    quint16 m_serverPort = 0;
    unsigned int m_openings = 0;
    std::atomic<unsigned int> m_generation = 0;
    std::atomic<unsigned int> m_told = 0;
    QTcpSocket m_socket{this};
    QTimer m_pauseTimer{this};
    QTimer m_openTimer{this}; ///< from the beginning of a connection to its opening
    Backoff m_backoff;
    bool m_isFailureTold = false; ///< of this episode without a connection
};

#endif // DATACONNECTION_P_H
