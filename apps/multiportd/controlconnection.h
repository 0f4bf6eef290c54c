#ifndef CONTROLCONNECTION_H
#define CONTROLCONNECTION_H

#include "linkrecords.h"

#include <QHostAddress>
#include <QObject>
#include <QTimer>

class ClientSocket;

/// The control connection of one client: greeting, heartbeat, requests. Requests are told one at a
/// time: the next one once the last is answered, so that answers keep their order.
class ControlConnection : public QObject
{
    Q_OBJECT

public:
    /// Takes over the socket.
    ControlConnection(ClientSocket *pSocket, QObject *pParent);

    multiportlink::Role role() const { return m_role; } ///< from greeted() on
    QHostAddress peerAddress() const;
    QString name() const; ///< for the log

    /// The answer to greeted(); goodbye() is the other one.
    void welcome(quint16 canPort, quint16 paymentPort);
    /// Answers the request that was told last.
    void answer(quint8 status);
    /// Says so, with a line in the log unless `isLogged` is false, and closes; ended() comes from
    /// within.
    void goodbye(multiportlink::Reason reason, bool isLogged = true);
    /// The same to a controller whose bytes were sent to a server that stood still.
    void goodbyeStale();

Q_SIGNALS:
    /// The client has introduced itself.
    void greeted();
    /// To be answered with answer(), now or later.
    void requested(const multiportlink::Request &request);
    /// The connection is over; the object deletes itself later.
    void ended();

private:
    void onReceived(const QByteArray &bytes);
    void takeRecords();
    void take(const multiportlink::Record &record);
    void takeHello(const multiportlink::Record &record);
    void takeRequest(const QByteArray &body);
    void onOverflowed(const QString &reason);
    void end();

    enum class State { Greeting, Greeted, Ended };

    ClientSocket *m_pSocket; ///< a child
    State m_state = State::Greeting;
    multiportlink::Role m_role = multiportlink::Role::Observer;
    multiportlink::RecordReader m_reader;
    multiportlink::Request m_request{}; ///< the one that was told last
    bool m_isAnswerDue = false;
    QTimer m_silenceTimer{this}; ///< at first for the hello
    QTimer m_heartbeatTimer{this};
};

#endif // CONTROLCONNECTION_H
