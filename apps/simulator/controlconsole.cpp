#include "simulator/controlconsole.h"

#include "logformatter.h"
#include "simulator/controlcommands.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>

#include <sys/stat.h>

namespace {

constexpr int s_connectMs = 1000;

/// Removes a socket that nobody listens on any more; false, with the reason, when the path is in
/// use.
bool clearPath(const QString &path, QString *pError)
{
    struct stat info = {};
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0)
        return true; // whatever else is wrong with the path is found when it is listened on
    if (!S_ISSOCK(info.st_mode)) {
        *pError = QStringLiteral("%1: is there already and no socket").arg(path);
        return false;
    }
    QLocalSocket other;
    other.connectToServer(path);
    if (other.waitForConnected(s_connectMs)) {
        *pError = QStringLiteral("%1: another process listens on it").arg(path);
        return false;
    }
    QLocalServer::removeServer(path);
    return true;
}

QByteArray lineOf(const QJsonObject &answer)
{
    return QJsonDocument(answer).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace

ControlConsole::ControlConsole(SimulatedMachine *pMachine, QObject *pParent)
    : QObject(pParent)
    , m_pMachine(pMachine)
{
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &ControlConsole::onNewConnection);
}

ControlConsole::~ControlConsole() = default;

bool ControlConsole::listen(const QString &path, QString *pError)
{
    const QString absolute = QFileInfo(path).absoluteFilePath(); // else it would be in /tmp
    if (!clearPath(absolute, pError))
        return false;
    if (m_server.listen(absolute))
        return true;
    *pError = QStringLiteral("%1: %2").arg(absolute, m_server.errorString());
    return false;
}

void ControlConsole::onNewConnection()
{
    while (QLocalSocket *const pClient = m_server.nextPendingConnection()) {
        connect(pClient, &QLocalSocket::disconnected, pClient, &QObject::deleteLater);
        ++m_clients;
        connect(pClient, &QObject::destroyed, this, [this] { --m_clients; });
        if (m_clients > MaxClients) {
            drop(pClient, QStringLiteral("too many clients; expected at most %1").arg(MaxClients));
            continue;
        }
        pClient->setReadBufferSize(MaxLine);
        connect(pClient, &QLocalSocket::readyRead, this, [this, pClient] { readLines(pClient); });
        readLines(pClient);
    }
}

void ControlConsole::readLines(QLocalSocket *pClient)
{
    // An answer may have ended the connection, or found it ended.
    const auto isConnected = [pClient] { return pClient->state() == QLocalSocket::ConnectedState; };
    while (isConnected() && pClient->canReadLine())
        answer(pClient, pClient->readLine());
    if (isConnected() && pClient->bytesAvailable() >= MaxLine)
        drop(pClient, QStringLiteral("endless line; expected at most %1 bytes").arg(MaxLine));
}

void ControlConsole::answer(QLocalSocket *pClient, const QByteArray &line)
{
    pClient->write(lineOf(obeyControlLine(*m_pMachine, line)));
    pClient->flush();
    if (pClient->bytesToWrite() > MaxBacklog)
        drop(pClient, QStringLiteral("the answers are not read"));
}

void ControlConsole::drop(QLocalSocket *pClient, const QString &reason)
{
    LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << reason;
    pClient->write(lineOf(
        {{QStringLiteral("error"), reason}, {QStringLiteral("kind"), QStringLiteral("call")}}));
    pClient->flush(); // as much as the client takes
    pClient->abort();
}
