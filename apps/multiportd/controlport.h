#ifndef CONTROLPORT_H
#define CONTROLPORT_H

#include "linkrecords.h"
#include "multiportd/portlistener.h"

#include <QHostAddress>
#include <QList>
#include <QObject>

class ControlConnection;

/// The control port: who may be a client, and who is the controller.
class ControlPort : public QObject
{
    Q_OBJECT

public:
    static constexpr int MaxObservers = 16;
    static constexpr int MaxGreeting = 32; ///< connections that have not said hello yet

    explicit ControlPort(QObject *pParent);

    bool listen(const QHostAddress &address, quint16 port, QString *pError)
    {
        return m_listener.listen(address, port, pError);
    }
    quint16 port() const { return m_listener.port(); }
    /// What a welcome names.
    void setDataPorts(quint16 canPort, quint16 paymentPort);

    /// Null while there is none.
    ControlConnection *controller() const { return m_pController; }

    /// Accepts nobody any more and says goodbye to everybody.
    void stop();

Q_SIGNALS:
    void controllerCame();
    void controllerLeft();
    void requested(ControlConnection *pConnection, const multiportlink::Request &request);

private:
    void take(ClientSocket *pSocket);
    void greet(ControlConnection *pConnection);
    void onEnded(ControlConnection *pConnection);

    PortListener m_listener;
    quint16 m_canPort = 0;
    quint16 m_paymentPort = 0;
    QList<ControlConnection *> m_greeting; ///< oldest first
    QList<ControlConnection *> m_observers;
    ControlConnection *m_pController = nullptr;
    bool m_isFloodTold = false; ///< since somebody was welcome
};

#endif // CONTROLPORT_H
