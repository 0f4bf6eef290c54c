#include "controllerlink.h"

#include "console.h"
#include "interruption.h"
#include "multiport.h"
#include "runfor.h"
#include "serverchoice.h"

#include <QMetaEnum>
#include <optional>

namespace {

constexpr double s_patience = ServerPatience.count() / 1000.0; ///< seconds

} // namespace

bool waitForLink(Multiport &client, const multiportlink::ServerAddress &server, bool withCan,
                 Console &console)
{
    // The client would try again and again, and tell the reason to the log only.
    if (!askServer(server, multiportlink::Role::Controller, console))
        return false;
    Interruption interruption;
    const auto isThere = [&] {
        return withCan ? client.isCanBusConnected() : client.isServerConnected();
    };
    const auto end = [&] {
        if (isThere())
            Q_EMIT interruption.interrupted();
    };
    QObject::connect(&client, &Multiport::canBusConnectedChanged, &interruption, end);
    QObject::connect(&client, &Multiport::multiportServerConnectedChanged, &interruption, end);
    client.init(true);
    if (!isThere())
        runFor(s_patience, interruption);
    if (!isThere())
        console.fail(ExitNo, QStringLiteral("no link to the multiport server %1 as its controller")
                                 .arg(serverText(server)));
    return isThere();
}

bool waitForDone(Multiport &client, Console &console)
{
    Interruption interruption;
    std::optional<int> ended;
    const auto end = [&](unsigned char /*command*/, unsigned char status) {
        ended = status;
        Q_EMIT interruption.interrupted();
    };
    QObject::connect(&client, &Multiport::lastCommandTerminationStatus, &interruption, end);
    runFor(s_patience, interruption);
    if (!ended) {
        console.fail(
            ExitNo,
            QStringLiteral("the multiport server has not answered within %1 s").arg(s_patience));
        return false;
    }
    if (*ended == MultiportProtocol::StatusDone)
        return true;
    const char *const pName = QMetaEnum::fromType<MultiportProtocol::Status>().valueToKey(*ended);
    console.fail(ExitNo, QStringLiteral("the multiport server answers %1 (%2)")
                             .arg(*ended)
                             .arg(QLatin1String(pName ? pName : "unknown")));
    return false;
}
