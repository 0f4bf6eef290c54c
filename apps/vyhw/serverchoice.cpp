#include "serverchoice.h"

#include "console.h"
#include "envvars.h"
#include "machinechoice.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QTcpSocket>

namespace {

/// The first record; nothing when none comes in time, or something else.
std::optional<multiportlink::Record> firstRecord(QTcpSocket &socket, const QDeadlineTimer &deadline)
{
    multiportlink::RecordReader reader;
    while (!reader.fault()) {
        if (const auto record = reader.next())
            return record;
        if (!socket.waitForReadyRead(static_cast<int>(deadline.remainingTime())))
            return std::nullopt;
        reader.append(socket.readAll());
    }
    return std::nullopt;
}

} // namespace

CLI::Option *addServerOption(CLI::App &command, std::string &server)
{
    return command
        .add_option("--multiport", server,
                    "HOST or HOST:PORT of the multiport server's control port; without it\n"
                    "VY_MULTIPORT, else 127.0.0.1:4002")
        ->check(notEmpty());
}

std::optional<multiportlink::ServerAddress> findServer(const std::string &server, Console &console)
{
    QString text = QString::fromStdString(server);
    const bool isFromVariable = text.isEmpty();
    if (isFromVariable)
        text = vytools::envvar::EnvVars::MultiportServer;
    if (text.isEmpty())
        text = QStringLiteral("127.0.0.1");
    const auto address = multiportlink::serverAddress(text);
    if (!address)
        console.fail(ExitUsage,
                     QStringLiteral("%1\"%2\" is no server; expected a host such as "
                                    "127.0.0.1, or host:port with a port up to 65535")
                         .arg(QLatin1String(isFromVariable ? "VY_MULTIPORT: " : ""), text));
    return address;
}

QString serverText(const multiportlink::ServerAddress &address)
{
    const bool isIPv6 = address.host.contains(QLatin1Char(':'));
    return (isIPv6 ? QStringLiteral("[%1]:%2") : QStringLiteral("%1:%2"))
        .arg(address.host)
        .arg(address.port);
}

std::optional<ServerAnswer> askServer(const multiportlink::ServerAddress &address,
                                      multiportlink::Role role, Console &console)
{
    QTcpSocket socket;
    const QDeadlineTimer deadline(ServerPatience);
    socket.connectToHost(address.host, address.port);
    if (!socket.waitForConnected(static_cast<int>(deadline.remainingTime()))) {
        console.fail(ExitNo, QStringLiteral("no multiport server at %1: %2")
                                 .arg(serverText(address), socket.errorString()));
        return std::nullopt;
    }
    QElapsedTimer time;
    time.start();
    socket.write(encode(multiportlink::Hello{multiportlink::Version, role}));
    const auto record = firstRecord(socket, deadline);
    if (record && record->kind == multiportlink::Kind::Welcome) {
        const auto welcome = multiportlink::decodeWelcome(record->body);
        if (welcome && welcome->version == multiportlink::Version)
            return ServerAnswer{*welcome, static_cast<double>(time.nsecsElapsed()) / 1e6};
    }
    QString reason = QStringLiteral("no welcome of version %1; is it the control port?")
                         .arg(multiportlink::Version);
    if (record && record->kind == multiportlink::Kind::Goodbye) {
        if (const auto goodbye = multiportlink::decodeGoodbye(record->body))
            reason = QStringLiteral("it says: %1").arg(goodbye->text);
    }
    console.fail(ExitNo,
                 QStringLiteral("multiport server %1: %2").arg(serverText(address), reason));
    return std::nullopt;
}
