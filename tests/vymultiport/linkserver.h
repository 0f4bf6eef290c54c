#ifndef LINKSERVER_H
#define LINKSERVER_H

#include "linkrecords.h"

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <array>
#include <functional>
#include <memory>
#include <optional>

/// A multiport server that does what a test tells it, on real sockets and free ports. Untold it
/// does as docs/multiport-link.md says: it welcomes the hello, beats, opens what is claimed and
/// answers "done" to each request. Lives in the thread of its creator, which runs an event loop.
class LinkServer : public QObject
{
    Q_OBJECT

public:
    enum Line : unsigned { CanBus = 0, Payment = 1 };

    /// The ports belong to this object until it goes, whether it listens or not.
    explicit LinkServer(const QHostAddress &address = QHostAddress::LocalHost);
    ~LinkServer() override;

    bool start(); ///< false when it cannot listen; the ports are always the same
    void stop();  ///< the listening sockets and all connections end, as those of a killed process

    /// For the constructor of Multiport.
    QString address() const;
    quint16 controlPort() const { return m_controlPort.number; }
    quint16 port(Line line) const { return m_lines.at(line).port.number; }

    // -- what it does ---------------------------------------------------------------------------

    /// What follows a hello; null is nothing at all. Whole records.
    void setGreeting(const QByteArray &greeting) { m_greeting = greeting; }
    void welcome();                               ///< what it does untold
    void refuse(quint8 reason, const char *text); ///< says goodbye and closes

    /// Nothing leaves on the control connection from now on, or it does again. What comes in is
    /// still read.
    void setSilent(bool isSilent) { m_isSilent = isSilent; }

    /// Takes nothing out of any socket, or takes it again.
    void setReading(bool isReading);

    /// What is answered to a request, claims too; nothing is no answer yet, see answer(). A claim
    /// is asked about once its connection has come.
    using Answer = std::function<std::optional<quint8>(const multiportlink::Request &)>;
    void setAnswer(const Answer &answer) { m_answer = answer; }
    void answer(const multiportlink::Request &request, quint8 status);

    void sendEvent(quint8 event, const QByteArray &payload);
    void sendControl(const QByteArray &bytes); ///< as they are
    /// On the line's claimed connection; without one on the latest.
    void send(Line line, const QByteArray &bytes);

    void dropControl();
    void resetControl(); ///< the same by a reset, behind what was sent
    void drop(Line line);

    // -- what it has seen -----------------------------------------------------------------------

    bool hasController() const { return m_pControl != nullptr && m_isGreeted; }
    /// A claimed connection is there.
    bool isOpen(Line line) const { return socket(line) != nullptr; }
    /// Of the line's claimed connection; null without one.
    QTcpSocket *socket(Line line) const;

    int controlConnections() const { return m_controlConnections; } ///< ever
    int connections(Line line) const { return m_lines.at(line).connections; }
    const QByteArray &hello() const { return m_hello; } ///< the last one, the whole record
    /// In their order, claims too.
    const QList<multiportlink::Request> &requests() const { return m_requests; }
    QList<multiportlink::Request> requests(quint8 command) const;
    int heartbeats() const { return m_heartbeats; }
    /// On all connections of the line together.
    const QByteArray &received(Line line) const { return m_lines.at(line).received; }
    /// Of it what came on a connection before its claim was answered.
    int receivedEarly(Line line) const { return m_lines.at(line).receivedEarly; }
    /// TCP segments with data that the claimed connection has got: at least one for each write.
    int segments(Line line) const;

Q_SIGNALS:
    void requested(const multiportlink::Request &request);

private:
    struct Port
    {
        quint16 number = 0;
        int reservation = -1; ///< descriptor of a socket that never listens
    };
    struct Connection
    {
        QTcpSocket *pSocket;
        bool isClaimed;
    };
    struct LineState
    {
        Port port;
        std::unique_ptr<QTcpServer> pServer;
        QList<Connection> open;
        int connections = 0;
        QByteArray received;
        int receivedEarly = 0;
    };

    Port reserve() const;
    void acceptControl();
    void accept(Line line);
    void readControl();
    void read(Line line, QTcpSocket *pSocket);
    void take(const multiportlink::Record &record);
    void takeRequest(const multiportlink::Request &request);
    Connection *claimed(const multiportlink::Request &request);
    void answerClaims();
    void decide(const multiportlink::Request &request);
    void beat();

    QHostAddress m_address;
    Port m_controlPort;
    QTcpServer m_controlServer;
    QTcpSocket *m_pControl = nullptr; ///< the latest
    multiportlink::RecordReader m_reader;
    std::array<LineState, 2> m_lines;
    QTimer m_heartbeat;

    QByteArray m_greeting;
    bool m_isGoodbye = false;
    bool m_isSilent = false;
    bool m_isReading = true;
    Answer m_answer;

    bool m_isGreeted = false;
    int m_controlConnections = 0;
    QByteArray m_hello;
    QList<multiportlink::Request> m_requests;
    QList<multiportlink::Request> m_claims; ///< whose connection has not come
    int m_heartbeats = 0;
};

/// Runs the event loop until it holds; false when that takes longer than this many milliseconds.
bool waitUntil(const std::function<bool()> &holds, int timeoutMs = 5000);

#endif // LINKSERVER_H
