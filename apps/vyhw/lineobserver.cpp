#include "lineobserver.h"

#include "console.h"
#include "interruption.h"
#include "runfor.h"
#include "serverchoice.h"

#include <QTcpSocket>
#include <QTimer>

namespace {

constexpr int s_idleMs = 50;

} // namespace

void observeLine(const multiportlink::ServerAddress &server, Multiport::Interface line,
                 double seconds, Console &console, const std::function<bool(QByteArray)> &take,
                 const std::function<void()> &idle)
{
    const auto answer = askServer(server, multiportlink::Role::Observer, console);
    if (!answer)
        return;
    const bool isCan = line == Multiport::CanBusInterface;
    const quint16 port = isCan ? answer->welcome.canPort : answer->welcome.paymentPort;
    Interruption interruption;
    QTcpSocket socket;
    socket.connectToHost(server.host, port);
    if (!socket.waitForConnected(static_cast<int>(ServerPatience.count()))) {
        console.fail(ExitNo, QStringLiteral("port %1 of the multiport server: %2")
                                 .arg(port)
                                 .arg(socket.errorString()));
        return;
    }
    console.warn(QStringLiteral("%1 of the multiport server %2, from here on")
                     .arg(QLatin1String(isCan ? "CAN bus" : "Payment line"), serverText(server)));
    QObject::connect(&socket, &QTcpSocket::readyRead, &socket, [&socket, &take, &interruption] {
        if (!take(socket.readAll()))
            Q_EMIT interruption.interrupted();
    });
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &timer, [&idle] { idle(); });
    timer.start(s_idleMs);
    QObject::connect(&socket, &QTcpSocket::disconnected, &socket, [&console, &interruption] {
        console.fail(ExitNo, QStringLiteral("the multiport server has closed the connection"));
        Q_EMIT interruption.interrupted();
    });
    runFor(seconds, interruption);
    socket.disconnect();
    take(socket.readAll());
}
