#include "simcommand.h"

#include "console.h"
#include "simulator/consolepath.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <memory>
#include <optional>
#include <string>

namespace {

constexpr int s_answerMs = 5000;
constexpr int s_maxAnswer = 64 * 1024;

struct Arguments
{
    std::string path;
    std::string what;
    std::string value;
    bool isJson = false;
};

QString textOf(const QJsonObject &object, const char *pKey)
{
    return object.value(QLatin1String(pKey)).toVariant().toString();
}

bool isOn(const QJsonObject &object, const char *pKey)
{
    return object.value(QLatin1String(pKey)).toBool();
}

/// The line that answers `line`; nothing, with the reason, when none comes.
std::optional<QByteArray> lineAnswering(const QString &path, const QByteArray &line,
                                        QString *pReason)
{
    const QDeadlineTimer deadline(s_answerMs);
    const auto left = [&deadline] { return static_cast<int>(deadline.remainingTime()); };
    QLocalSocket socket;
    socket.connectToServer(path);
    if (!socket.waitForConnected(left())) {
        const bool isDenied = socket.error() == QLocalSocket::SocketAccessError;
        *pReason = isDenied ? QStringLiteral("belongs to another user")
                            : QStringLiteral("no simulator listens there; expected a running "
                                             "multiportd --simulate, or its console's path in "
                                             "--console");
        return std::nullopt;
    }
    socket.write(line);
    while (!socket.canReadLine() && socket.bytesAvailable() < s_maxAnswer) {
        if (!socket.waitForReadyRead(left())) {
            *pReason = QStringLiteral("the simulator does not answer");
            return std::nullopt;
        }
    }
    return socket.readLine();
}

/// The console's answer; nothing, and told, when there is none or it is an error.
std::optional<QJsonObject> ask(const Arguments &arguments, const QJsonObject &command,
                               Console &console)
{
    const QString given =
        arguments.path.empty() ? defaultConsolePath() : QString::fromStdString(arguments.path);
    const QString path = QFileInfo(given).absoluteFilePath(); // Qt looks for others in /tmp
    QString reason;
    const std::optional<QByteArray> line =
        lineAnswering(path, QJsonDocument(command).toJson(QJsonDocument::Compact) + '\n', &reason);
    if (!line) {
        console.fail(ExitNo, QStringLiteral("%1: %2").arg(path, reason));
        return std::nullopt;
    }
    const QJsonDocument answer = QJsonDocument::fromJson(*line);
    if (!answer.isObject()) {
        console.fail(ExitNo, QStringLiteral("%1: the answer is not a simulator's").arg(path));
        return std::nullopt;
    }
    const QJsonObject object = answer.object();
    if (!object.contains(QLatin1String("error")))
        return object;
    const bool isCallWrong = textOf(object, "kind") == QLatin1String("call");
    console.fail(isCallWrong ? ExitUsage : ExitNo, textOf(object, "error"));
    return std::nullopt;
}

/// "42" is a number, as the console wants it, anything else a text.
QJsonValue valueFrom(const std::string &text)
{
    const QString value = QString::fromStdString(text);
    bool isNumber = false;
    const int number = value.toInt(&isNumber);
    return isNumber ? QJsonValue(number) : QJsonValue(value);
}

void change(const char *pVerb, const Arguments &arguments, Console &console)
{
    ask(arguments,
        {{QStringLiteral("do"), QLatin1String(pVerb)},
         {QStringLiteral("what"), QString::fromStdString(arguments.what)},
         {QStringLiteral("value"), valueFrom(arguments.value)}},
        console);
}

QString outputsText(const QJsonArray &outputs)
{
    QStringList texts;
    for (const QJsonValue &value : outputs) {
        const QJsonObject output = value.toObject();
        texts.append(textOf(output, "output") +
                     QLatin1String(isOn(output, "blinking") ? " blinking" : " on"));
    }
    return texts.isEmpty() ? QStringLiteral("none on") : texts.join(QStringLiteral(", "));
}

/// What is not as it should be.
QString faultsText(const QJsonObject &status)
{
    const QJsonObject actuator = status.value(QLatin1String("actuator")).toObject();
    const QJsonObject payment = status.value(QLatin1String("payment")).toObject();
    QStringList faults;
    if (textOf(actuator, "answers") != QLatin1String("given"))
        faults.append(QStringLiteral("actuator.answers ") + textOf(actuator, "answers"));
    if (actuator.value(QLatin1String("delayMs")).toInt() != 0)
        faults.append(QStringLiteral("actuator.delay ") + textOf(actuator, "delayMs"));
    if (isOn(actuator, "restarting"))
        faults.append(QStringLiteral("actuator.restart"));
    for (const char *const pFault : {"silence", "checksum", "mode", "repeat"}) {
        if (isOn(payment, pFault))
            faults.append(QStringLiteral("payment.") + QLatin1String(pFault));
    }
    if (textOf(status, "link") != QLatin1String("up"))
        faults.append(QStringLiteral("link ") + textOf(status, "link"));
    return faults.isEmpty() ? QStringLiteral("none") : faults.join(QStringLiteral(", "));
}

void printStatus(const QJsonObject &status, QTextStream &out)
{
    const QJsonObject actuator = status.value(QLatin1String("actuator")).toObject();
    const QJsonObject payment = status.value(QLatin1String("payment")).toObject();
    const int address = actuator.value(QLatin1String("address")).toInt();
    out << "actuator board  0x" << QString::number(address, 16) << ", cup "
        << textOf(actuator, "cup") << ", messages taken " << textOf(actuator, "messages") << '\n'
        << "outputs         " << outputsText(status.value(QLatin1String("outputs")).toArray())
        << '\n'
        << "card reader     " << textOf(payment, "state") << ", " << textOf(payment, "dataBits")
        << " data bits, funds " << textOf(payment, "funds") << ", vends "
        << textOf(payment, "vends") << '\n'
        << "faults          " << faultsText(status) << '\n';
}

void showStatus(const Arguments &arguments, Console &console)
{
    const std::optional<QJsonObject> status =
        ask(arguments, {{QStringLiteral("do"), QStringLiteral("status")}}, console);
    if (!status)
        return;
    if (arguments.isJson)
        console.out() << QString::fromUtf8(QJsonDocument(*status).toJson());
    else
        printStatus(*status, console.out());
}

CLI::App *addPart(CLI::App &sim, const char *pName, const char *pText, Arguments &arguments)
{
    CLI::App *const pPart = sim.add_subcommand(pName, pText);
    pPart->add_option("--console", arguments.path,
                      "The console's socket; without it VY_SIM_CONSOLE, else vy-sim.sock in\n"
                      "XDG_RUNTIME_DIR, else /tmp/vy-sim-<user number>.sock");
    return pPart;
}

void addChange(CLI::App &sim, const char *pName, const char *pText, const char *pFooter,
               const std::shared_ptr<Arguments> &pArguments, Console &console)
{
    CLI::App *const pChange = addPart(sim, pName, pText, *pArguments);
    pChange->add_option("WHAT", pArguments->what, "See below")->required();
    pChange->add_option("VALUE", pArguments->value, "A number or a word")->required();
    pChange->footer(pFooter);
    pChange->callback([pName, pArguments, &console] { change(pName, *pArguments, console); });
}

} // namespace

void addSimCommand(CLI::App &app, Console &console)
{
    CLI::App *const pSim =
        app.add_subcommand("sim", "Look at the simulated machine of multiportd, and disturb it");
    pSim->require_subcommand(1);
    pSim->footer("Example: vyhw sim set cup 42\n");
    const auto pArguments = std::make_shared<Arguments>();

    CLI::App *const pStatus = addPart(*pSim, "status", "Show how the machine stands", *pArguments);
    pStatus->add_flag("--json", pArguments->isJson, "Print one JSON object");
    pStatus->footer("Example: vyhw sim status --json\n");
    pStatus->callback([pArguments, &console] { showStatus(*pArguments, console); });

    addChange(*pSim, "set", "Put a cup into the machine, or a card to its reader",
              "cup    the reading, 0 to 65535; 0 is no cup\n"
              "card   what is on it in cents, 1 to 65534; 0 takes it away\n"
              "Example: vyhw sim set card 150\n",
              pArguments, console);
    addChange(
        *pSim, "fault", "Let something go wrong, or right again",
        "actuator.answers   given, refused or lost\n"
        "actuator.delay     of the answers, in ms, 0 to 60000\n"
        "actuator.restart   is silent for so many ms, 1 to 60000\n"
        "payment.silence    on or off; likewise payment.checksum, payment.mode and\n"
        "                   payment.repeat: wrong checksums, wrong mode bytes, all said twice\n"
        "link               cut or up\n"
        "Example: vyhw sim fault actuator.answers lost\n",
        pArguments, console);
}
