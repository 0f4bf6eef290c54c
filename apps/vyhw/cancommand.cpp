#include "cancommand.h"

#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vystream.h"
#include "candecode.h"
#include "canmonitor.h"
#include "cannames.h"
#include "cansend.h"
#include "console.h"
#include "machine.h"
#include "runfor.h"
#include "serverchoice.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <memory>
#include <optional>
#include <string>

namespace {

constexpr int s_maxRepeat = 10000;

struct Arguments
{
    MachineChoice machine;
    std::string destination;
    std::string command;
    std::string bytes;
    int count = 1;
    bool isJson = false;
    bool isInLog = false;
    std::string file;
    std::string server;
    const CLI::Option *pServer = nullptr; ///< of "send": given, with or without an address
    double seconds = 0;
};

/// Commands that contain what was typed as one.
QString likeCommand(const QString &text)
{
    constexpr int s_enough = 8;
    const QStringList names = commandNamesLike(text);
    if (names.isEmpty() || text.isEmpty())
        return {};
    const QString some = QStringList(names.mid(0, s_enough)).join(QStringLiteral(", "));
    return QStringLiteral("; similar: ") + some +
           QLatin1String(names.size() > s_enough ? ", ..." : "");
}

/// What is to be sent; nothing, and told, when the call is wrong.
std::optional<CanSending> sendingOf(const Arguments &arguments, Console &console)
{
    const QString destination = QString::fromStdString(arguments.destination);
    const QString command = QString::fromStdString(arguments.command);
    const std::optional<int> address = boardFrom(destination);
    const std::optional<int> number = commandFrom(command);
    const std::optional<CanBytes> bytes = bytesFrom(QString::fromStdString(arguments.bytes));
    constexpr int maxBytes = CanVy::MaxFrames * CanVy::FrameDataMaxSize - CanVy::StreamOverhead;
    if (!address)
        console.fail(ExitUsage,
                     QStringLiteral("there is no board \"%1\"; expected a name such as DADD, "
                                    "\"actuator\", \"shared\", or an address from 0 to 0x7ff\n"
                                    "The names: %2")
                         .arg(destination, boardNames().join(QStringLiteral(", "))));
    else if (!number)
        console.fail(ExitUsage,
                     QStringLiteral("there is no command \"%1\"; expected a name such as "
                                    "VirtualSelect, or a number from 0 to 0x7ff%2")
                         .arg(command, likeCommand(command)));
    else if (CanVy::isAcknowledge(*number))
        console.fail(ExitUsage, QStringLiteral("%1 is an answer, which nobody acknowledges; "
                                               "expected another command")
                                    .arg(commandText(*number)));
    else if (!bytes)
        console.fail(ExitUsage, QStringLiteral("\"%1\" are no bytes; expected pairs of hexadecimal "
                                               "digits such as \"01 ff\"")
                                    .arg(QString::fromStdString(arguments.bytes)));
    else if (bytes->size() > maxBytes)
        console.fail(ExitUsage, QStringLiteral("%1 bytes are too many for one message; expected at "
                                               "most %2")
                                    .arg(bytes->size())
                                    .arg(maxBytes));
    else
        return CanSending{*address,         *number,           *bytes,      arguments.count,
                          arguments.isJson, arguments.isInLog, std::nullopt};
    return std::nullopt;
}

void send(const Arguments &arguments, Console &console)
{
    const std::unique_ptr<Machine> pMachine = Machine::make(arguments.machine, console);
    if (!pMachine)
        return;
    std::optional<CanSending> sending = sendingOf(arguments, console);
    if (!sending)
        return;
    if (arguments.pServer->count() > 0) {
        sending->server = findServer(arguments.server, console);
        if (!sending->server)
            return;
    }
    sendOnCan(*sending, console);
}

void addSend(CLI::App &can, const std::shared_ptr<Arguments> &pArguments, Console &console)
{
    CLI::App *const pSend = can.add_subcommand(
        "send",
        "Send a message on the simulated bus, whose boards acknowledge everything, or on a\n"
        "multiport server's");
    pSend
        ->add_option("DEST", pArguments->destination,
                     "A board: its name, \"actuator\" for the machine's own, \"shared\" for the "
                     "address that all\nboards take, or its address")
        ->required();
    pSend->add_option("CMD", pArguments->command, "A command: its name or its number")->required();
    pSend->add_option("BYTES", pArguments->bytes, "The payload, such as \"01 ff\"");
    pSend->add_option("--repeat", pArguments->count, "How many times, one after the other")
        ->check(CLI::Range(1, s_maxRepeat));
    pSend->add_flag("--json", pArguments->isJson, "Print one JSON object for each message");
    pSend->add_flag("--log", pArguments->isInLog,
                    "Also write the frames to canBus.txt in VY_PATH_LOGS; without it, in\n"
                    "/var/log/vyhardware");
    pArguments->pServer =
        addServerOption(*pSend, pArguments->server)
            ->expected(0, 1)
            ->description(
                "Send on the bus of the multiport server whose control port this is, HOST or\n"
                "HOST:PORT; without an address, as the last word of the call, VY_MULTIPORT,\n"
                "else 127.0.0.1:4002");
    addSettingsOption(*pSend, pArguments->machine);
    pSend->footer("Ctrl-C ends --repeat after the message under way. Ends with 1 when a message is "
                  "not\nacknowledged, or the frames cannot be logged.\nExample: vyhw can send "
                  "actuator VirtualSelect \"00 07\" --settings "
                  "config/lirenta.json\n         vyhw can send actuator VirtualSelect --settings "
                  "config/lirenta.json --multiport 192.168.7.2\n");
    pSend->callback([pArguments, &console] { send(*pArguments, console); });
}

void addMonitor(CLI::App &can, const std::shared_ptr<Arguments> &pArguments, Console &console)
{
    CLI::App *const pMonitor =
        can.add_subcommand("monitor", "Print the messages of a multiport server's CAN bus");
    addServerOption(*pMonitor, pArguments->server);
    pMonitor->add_flag("--json", pArguments->isJson, "Print one JSON object for each message");
    pMonitor
        ->add_option("--seconds", pArguments->seconds, "End after this time; without it, at Ctrl-C")
        ->check(runTime());
    pMonitor->footer(
        "A message is printed once it is answered, or given up after 3 s. Times are "
        "UTC. Watching\ndisturbs nobody. While nobody is there to answer, reports that "
        "a board repeats are shown as\n\"no answer, sent again\".\n"
        "Example: vyhw can monitor --multiport 192.168.7.2\n");
    pMonitor->callback([pArguments, &console] {
        if (const auto server = findServer(pArguments->server, console))
            monitorCan({*server, pArguments->seconds, pArguments->isJson}, console);
    });
}

void addDecode(CLI::App &can, const std::shared_ptr<Arguments> &pArguments, Console &console)
{
    CLI::App *const pDecode =
        can.add_subcommand("decode", "Print the messages of a file of frames, with their answers");
    pDecode
        ->add_option("FILE", pArguments->file,
                     "A \"canBus.txt\" or a trace; also a pipe, /dev/stdin")
        ->required()
        ->check(notEmpty());
    pDecode->footer(
        "Times are UTC. A message is given up when it is incomplete or unanswered after 3 s, or\n"
        "after 1000 frames where the file has no times.\n"
        "Ends with 1 when the file cannot be read, has no frames or lines that are none, a message "
        "is\n"
        "incomplete or has a wrong checksum, or a frame belongs to no message. A message without\n"
        "answer is no reason.\n"
        "Example: vyhw can decode /var/log/vyhardware/canBus.txt\n");
    pDecode->callback([pArguments, &console] {
        decodeCanFile(QString::fromStdString(pArguments->file), console);
    });
}

} // namespace

void addCanCommand(CLI::App &app, Console &console)
{
    CLI::App *const pCan =
        app.add_subcommand("can", "Send messages on the CAN bus, watch it, read its traces");
    pCan->require_subcommand(1);
    pCan->footer("Examples: vyhw can send DADD GetSwRevRequest --settings config/lirenta.json\n"
                 "          vyhw can monitor\n"
                 "          vyhw can decode /var/log/vyhardware/canBus.txt\n");
    const auto pArguments = std::make_shared<Arguments>();
    addSend(*pCan, pArguments, console);
    addDecode(*pCan, pArguments, console);
    addMonitor(*pCan, pArguments, console);
}
