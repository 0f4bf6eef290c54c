#ifndef PORTLISTENER_H
#define PORTLISTENER_H

#include <QHostAddress>
#include <QObject>
#include <QString>
#include <QTcpServer>
#include <QTimer>

class ClientSocket;

/// Accepts the connections of one port, a few on each turn of the event loop, so that a flood of
/// them does not keep the server from its clients.
class PortListener : public QObject
{
    Q_OBJECT

public:
    /// `name` is what the log calls the port.
    PortListener(QString name, QObject *pParent);

    /// Port 0 takes a free one. False, with a reason for people, when it cannot be had.
    bool listen(const QHostAddress &address, quint16 port, QString *pError);
    quint16 port() const { return m_server.serverPort(); }
    void stop();

Q_SIGNALS:
    /// The slot takes the socket over.
    void accepted(ClientSocket *pSocket);

private:
    void acceptPending();
    void onAcceptError();

    QString m_name;
    QTcpServer m_server{this};
    QTimer m_resumeTimer{this};
};

#endif // PORTLISTENER_H
