#ifndef LINKCLIENT_P_H
#define LINKCLIENT_P_H

#include "backoff_p.h"
#include "dataconnection_p.h"
#include "linkqueue_p.h"
#include "linkrecords.h"

#include <QHash>
#include <QTcpSocket>
#include <QTimer>
#include <atomic>

/// The control connection to the multiport server, kept up while it is started, and the data
/// connections that depend on it. Lives in the client's thread.
class LinkClient : public QObject
{
    Q_OBJECT

public:
    explicit LinkClient(LinkQueue *pEvents);

    DataConnection *canBus() { return m_pCanBus; }
    DataConnection *payment() { return m_pPayment; }

    void start(const QString &host, quint16 port); ///< nothing when it is started there already
    void stop(); ///< closes everything; what was written still leaves

    /// Which link this is, counted from 1; 0 while there is none. Any thread.
    unsigned int generation() const { return m_generation; }

    /// For what was asked for while this was the generation().
    void request(unsigned int generation, quint8 command, const QByteArray &payload);
    /// Sets the line up, now while there is a link, and at each opening of the payment line.
    void setSerialLine(unsigned int generation, const QByteArray &payload);
    void readOn(); ///< there is room again

private:
    void connectToServer();
    void onConnected();
    void onHeartbeat();
    void onSilence();
    void take(const multiportlink::Record &record);
    void welcome(const QByteArray &body);
    void takeStatus(const multiportlink::Status &status);
    struct Claimed
    {
        DataConnection *pConnection;
        quint16 localPort; ///< a connection that was made again since has another
    };
    void onClaimed(const Claimed &claimed, quint8 status);
    void claim(DataConnection *pConnection, quint8 interface, quint16 localPort);
    void onSetUpAgain(quint16 localPort, quint8 status);
    void sendOwnSetup();
    void send(quint16 sequence, quint8 command, const QByteArray &payload);
    void write(const QByteArray &record);
    void lose(const QString &reason);
    void close();
    DataConnection *makeConnection(LinkEvent::Type data, LinkEvent::Type connected,
                                   quint8 interface, unsigned int port);

    LinkQueue *m_pEvents;
    DataConnection *m_pCanBus;
    DataConnection *m_pPayment;
    QString m_host; ///< empty while it is stopped
    quint16 m_port = 0;
    unsigned int m_links = 0;
    std::atomic<unsigned int> m_generation = 0;
    bool m_isFailureTold = false;     ///< of this episode without a link
    QByteArray m_serialLine;          ///< payload of the last setup; empty before the first
    quint16 m_sequence = 0;           ///< of the last request
    QHash<quint16, Claimed> m_claims; ///< by the sequence number of the request
    /// Setups that nobody else asked for: sequence number, and port of the connection that waits.
    QHash<quint16, quint16> m_ownSetups;
    multiportlink::RecordReader m_reader;
    QTcpSocket m_socket{this};
    QTimer m_pauseTimer{this};
    QTimer m_heartbeatTimer{this};
    QTimer m_silenceTimer{this};
    Backoff m_backoff;
};

#endif // LINKCLIENT_P_H
