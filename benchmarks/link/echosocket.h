#ifndef ECHOSOCKET_H
#define ECHOSOCKET_H

#include <QHostAddress>
#include <QTcpSocket>

/// What a program would write that has nothing but a QTcpSocket.
class EchoSocket : public QObject
{
    Q_OBJECT

public:
    EchoSocket()
    {
        connect(&m_socket, &QTcpSocket::readyRead, this,
                [this] { Q_EMIT received(m_socket.readAll()); });
    }

    void open(quint16 port)
    {
        m_socket.connectToHost(QHostAddress::LocalHost, port);
        m_socket.waitForConnected();
        m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    }

    void write(const QByteArray &bytes)
    {
        m_socket.write(bytes);
        m_socket.flush();
    }

Q_SIGNALS:
    void received(QByteArray bytes);

private:
    QTcpSocket m_socket{this};
};

#endif // ECHOSOCKET_H
