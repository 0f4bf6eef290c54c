#ifndef CONTROLCONSOLE_H
#define CONTROLCONSOLE_H

#include <QLocalServer>
#include <QObject>
#include <QString>

class QLocalSocket;
class SimulatedMachine;

/// The simulated machine's control console: a Unix socket that only its owner can open, on which
/// each line is a command and is answered by a line; see docs/simulator.md. A client with a line
/// that is too long, or one that does not read its answers, is told so and dropped; the others
/// notice nothing.
class ControlConsole : public QObject
{
    Q_OBJECT

public:
    static constexpr int MaxLine = 4096; ///< bytes, the line end included
    static constexpr int MaxClients = 8;
    static constexpr int MaxBacklog = 64 * 1024; ///< bytes of answers that nobody reads

    /// The machine is borrowed and outlives the console.
    ControlConsole(SimulatedMachine *pMachine, QObject *pParent);
    ~ControlConsole() override;

    /// \param path of the socket, which goes with the console; one that nobody listens on any more
    /// is replaced. False, with the reason, when another process listens there, or something else
    /// is in the way.
    bool listen(const QString &path, QString *pError);

private:
    void onNewConnection();
    void readLines(QLocalSocket *pClient);
    void answer(QLocalSocket *pClient, const QByteArray &line);
    void drop(QLocalSocket *pClient, const QString &reason);

    SimulatedMachine *m_pMachine; ///< borrowed
    QLocalServer m_server{this};
    int m_clients = 0;
};

#endif // CONTROLCONSOLE_H
