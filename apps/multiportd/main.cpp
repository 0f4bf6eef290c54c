#include "logformatter.h"
#include "multiportd/backends.h"
#include "multiportd/logfile.h"
#include "multiportd/multiportserver.h"
#include "multiportd/options.h"
#include "multiportd/stopsignal.h"
#include "simulator/simulatedmachine.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTextCodec>
#include <iostream>
#include <memory>
#include <systemd/sd-daemon.h>

namespace {

constexpr int s_exitFailure = 1;

int fail(const QString &reason)
{
    LogFormatter(4, Log::Hardware) << Q_FUNC_INFO << "multiportd ends:" << reason;
    return s_exitFailure;
}

MultiportServer::Ports portsFrom(quint16 base)
{
    if (base == 0)
        return {0, 0, 0};
    return {base, static_cast<quint16>(base + 1), static_cast<quint16>(base + 2)};
}

void printPorts(const MultiportServer::Ports &ports)
{
    std::cout << "payment " << ports.payment << "\ncan " << ports.can << "\ncontrol "
              << ports.control << std::endl; // flushed: somebody waits for them
}

/// A link that cannot be had back stays cut, for whoever asks.
void obeyLinkFaults(MultiportServer *pServer, SimulatedMachine *pMachine)
{
    QObject::connect(pMachine, &SimulatedMachine::linkCutAsked, pServer,
                     [pServer, pMachine](bool isCut) {
                         if (!pServer->setCut(isCut))
                             pMachine->setLinkCut(true);
                     });
}

int run(const Options &options)
{
    StopSignal stopSignal;
    QObject::connect(&stopSignal, &StopSignal::raised, qApp, &QCoreApplication::quit);

    Backends backends;
    QString error;
    if (!backends.open(options, &error))
        return fail(error);
    MultiportServer server(backends.can(), backends.payment(), backends.outputs());
    if (!server.listen(options.address, portsFrom(options.portBase), &error))
        return fail(error);
    if (backends.machine() != nullptr)
        obeyLinkFaults(&server, backends.machine());
    const MultiportServer::Ports ports = server.ports();
    LogFormatter(1, Log::Hardware)
        << Q_FUNC_INFO << "Listening on" << options.address.toString() << "payment" << ports.payment
        << "CAN" << ports.can << "control" << ports.control;
    if (options.isPortsPrinted)
        printPorts(ports);
    ::sd_notify(0, "READY=1");
    const int exitCode = QCoreApplication::exec();
    ::sd_notify(0, "STOPPING=1");
    server.stop();
    return exitCode;
}

} // namespace

int main(int argc, char **argv) // NOLINT(bugprone-exception-escape): out of memory, it may end
{
    // File names are UTF-8 on the machine; a "C" locale must not change them.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    int exitCode = 0;
    const std::optional<Options> options = parseOptions(argc, argv, &exitCode);
    if (!options)
        return exitCode;

    // Qt's own event loop: GLib's needs about a fifth more time for each frame.
    if (!qEnvironmentVariableIsSet("QT_NO_GLIB"))
        qputenv("QT_NO_GLIB", "1");
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("vy.*.debug=false"));
    std::unique_ptr<LogFile> pLogFile;
    if (!options->logFile.isEmpty())
        pLogFile = std::make_unique<LogFile>(options->logFile);
    return run(*options);
}
