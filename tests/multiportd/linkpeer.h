#ifndef LINKPEER_H
#define LINKPEER_H

#include "linkrecords.h"

#include <QByteArray>
#include <QHostAddress>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

constexpr int s_patienceMs = 10000; ///< for what must come

/// Runs the event loop until it holds.
inline bool comes(const std::function<bool()> &condition)
{
    return QTest::qWaitFor(condition, s_patienceMs);
}

/// A client that knows nothing but bytes. Reads all the time, unless told otherwise.
class LinkPeer : public QObject
{
public:
    explicit LinkPeer(quint16 port, const QHostAddress &address = QHostAddress::LocalHost)
    {
        connect(&m_socket, &QTcpSocket::readyRead, this, [this] {
            if (m_isReading)
                m_received += m_socket.readAll();
        });
        m_socket.connectToHost(address, port);
        m_socket.waitForConnected(s_patienceMs);
        m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
        m_localPort = m_socket.localPort();
    }

    QTcpSocket &socket() { return m_socket; }
    quint16 localPort() const { return m_localPort; }
    const QByteArray &received() const { return m_received; }
    void forget() { m_received.clear(); }

    /// From here on nothing is read, and little fits on the way.
    void stopReading()
    {
        m_isReading = false;
        m_socket.setReadBufferSize(1);
        m_socket.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 4096);
    }

    void send(const QByteArray &bytes)
    {
        m_socket.write(bytes);
        m_socket.flush();
    }
    void sendHex(const char *pHex) { send(QByteArray::fromHex(pHex)); }

    bool isConnected() const { return m_socket.state() == QAbstractSocket::ConnectedState; }
    bool hears(const QByteArray &bytes)
    {
        return comes([this, &bytes] { return m_received.contains(bytes); });
    }
    bool isClosed()
    {
        return comes([this] { return !isConnected(); });
    }

private:
    QTcpSocket m_socket;
    quint16 m_localPort = 0;
    QByteArray m_received;
    bool m_isReading = true;
};

/// A client of the control port, which sends no heartbeat unless told to.
class ControlPeer : public LinkPeer
{
public:
    using LinkPeer::LinkPeer;

    void keepAlive()
    {
        connect(&m_heartbeat, &QTimer::timeout, this,
                [this] { send(multiportlink::encodeHeartbeat()); });
        m_heartbeat.start(500);
    }

    bool greets(multiportlink::Role role)
    {
        send(multiportlink::encode(multiportlink::Hello{multiportlink::Version, role}));
        return comes([this] { return !records(multiportlink::Kind::Welcome).empty(); });
    }

    /// The status; -1 when none comes.
    int asks(quint8 command, const QByteArray &payload)
    {
        send(multiportlink::encode(multiportlink::Request{++m_sequence, command, payload}));
        return status(m_sequence);
    }
    int claims(quint8 interface, const LinkPeer &connection)
    {
        return asks(10,
                    multiportlink::encode(multiportlink::Claim{interface, connection.localPort()}));
    }
    int status(quint16 sequence)
    {
        int found = -1;
        comes([this, sequence, &found] {
            for (const QByteArray &body : records(multiportlink::Kind::Status)) {
                const auto status = multiportlink::decodeStatus(body);
                if (status && status->sequence == sequence)
                    found = status->status;
            }
            return found >= 0 || !isConnected();
        });
        return found;
    }

    /// The reason of the goodbye before the server closes; -1 when there is none.
    int goodbye()
    {
        isClosed();
        const std::vector<QByteArray> bodies = records(multiportlink::Kind::Goodbye);
        return bodies.size() == 1 ? static_cast<quint8>(bodies.front().at(0)) : -1;
    }

    /// The bodies of all records of this kind that have come.
    std::vector<QByteArray> records(multiportlink::Kind kind) const
    {
        std::vector<QByteArray> bodies;
        multiportlink::RecordReader reader;
        reader.append(received());
        while (const auto record = reader.next()) {
            if (record->kind == kind)
                bodies.push_back(record->body);
        }
        EXPECT_FALSE(reader.fault().has_value());
        return bodies;
    }

private:
    QTimer m_heartbeat;
    quint16 m_sequence = 0;
};

#endif // LINKPEER_H
