#ifndef DATAPORT_H
#define DATAPORT_H

#include "multiportd/portlistener.h"

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QSet>
#include <QTimer>
#include <functional>

class ClientSocket;

/// One interface's port: the connection that the controller has claimed, and the observers.
class DataPort : public QObject
{
    Q_OBJECT

public:
    static constexpr int MaxObservers = 16;

    DataPort(const QString &name, QObject *pParent);

    bool listen(const QHostAddress &address, quint16 port, QString *pError)
    {
        return m_listener.listen(address, port, pError);
    }
    quint16 port() const { return m_listener.port(); }

    /// There is a controller, which may claim a connection: one that comes when all places of
    /// observers are taken is then kept for as long as a claim may take.
    void expectController() { m_isControllerThere = true; }

    /// Gives the controller the connection that comes from this address and port. Waits for it for
    /// 2 s; `done` is told whether it came, at once or later, or never after releaseController().
    void claim(const QHostAddress &address, quint16 port, const std::function<void(bool)> &done);
    /// The controller is gone: closes its connection.
    void releaseController();
    /// Closes the controller's connection only.
    void closeController();

    bool hasObservers() const { return !m_observers.isEmpty(); }
    void writeToObservers(const QByteArray &bytes);
    /// To the controller too.
    void writeToAll(const QByteArray &bytes);

    /// Accepts nobody any more and closes everything.
    void stop();

Q_SIGNALS:
    /// The bytes of another connection follow.
    void controllerChanged();
    void controllerWrote(const QByteArray &bytes);
    void controllerOverflowed();
    /// What it wrote is too old to be passed on: this process has stood still.
    void controllerStale();

private:
    void take(ClientSocket *pSocket);
    void watch(ClientSocket *pSocket);
    void keepForClaim(ClientSocket *pSocket);
    void refuse(ClientSocket *pSocket);
    void setController(ClientSocket *pSocket);
    void onReceived(ClientSocket *pSocket, const QByteArray &bytes);
    void onOverflowed(ClientSocket *pSocket, const QString &reason);
    void forget(ClientSocket *pSocket);
    void drop(ClientSocket *pSocket);
    void endClaim(bool isDone);

    QString m_name;
    PortListener m_listener;
    QList<ClientSocket *> m_observers;
    QList<ClientSocket *> m_kept; ///< beyond the observers' places, in case they are claimed
    QSet<ClientSocket *> m_told;  ///< whose bytes the log has been told to be thrown away
    ClientSocket *m_pController = nullptr;
    bool m_isControllerThere = false;
    bool m_isRefusalTold = false; ///< since all places were taken

    struct Claim
    {
        QHostAddress address;
        quint16 port = 0;
        std::function<void(bool)> done; ///< empty when no claim waits
    };
    Claim m_claim;
    QTimer m_claimTimer{this};
};

#endif // DATAPORT_H
