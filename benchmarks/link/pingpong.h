#ifndef PINGPONG_H
#define PINGPONG_H

#include <QObject>
#include <functional>

/// Sends something and hears the answer, again and again.
class PingPong : public QObject
{
    Q_OBJECT

public:
    /// Sends the next; answered() comes on a later turn of the event loop.
    virtual void send() = 0;

Q_SIGNALS:
    void answered();
};

/// One record over a QTcpSocket, echoed: in this thread, or with the socket in a thread of its own
/// and one queued signal each way.
class EchoPingPong : public PingPong
{
    Q_OBJECT

public:
    EchoPingPong(quint16 port, bool isInThread);
    ~EchoPingPong() override;
    void send() override;

Q_SIGNALS:
    void sendAsked(QByteArray bytes);
    void received(QByteArray bytes);

private:
    void take(const QByteArray &bytes);

    class EchoSocket *m_pSocket;
    class QThread *m_pThread = nullptr;
    int m_waiting = 0; ///< bytes of the answer that have arrived
};

/// A message to a simulated board of a multiport server and its acknowledge, through the bus.
class BusPingPong : public PingPong
{
    Q_OBJECT

public:
    /// \param dataSize bytes of the message
    BusPingPong(class CanBus *pBus, int address, int command, int dataSize);
    ~BusPingPong() override;
    void send() override;
    int failures() const { return m_failures; }

private:
    class CanBus *m_pBus;
    class CanBusNode *m_pNode;
    int m_address;
    int m_command;
    int m_dataSize;
    int m_failures = 0;
};

#endif // PINGPONG_H
