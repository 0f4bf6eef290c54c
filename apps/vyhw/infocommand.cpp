#include "infocommand.h"

#include "canbus/vycan_cmds_and_addr.h"
#include "cannames.h"
#include "console.h"
#include "machine.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <memory>

namespace {

struct Arguments
{
    MachineChoice machine;
    bool isJson = false;
};

/// Every module but "none", with whether it is on.
QJsonObject modulesOf(const HardwareEnvironment &environment)
{
    QJsonObject modules;
    const auto meta = QMetaEnum::fromType<HardwareEnvironment::HardwareModules>();
    for (int i = 0; i < meta.keyCount(); ++i) {
        const auto module = static_cast<HardwareEnvironment::HardwareModule>(meta.value(i));
        if (module != HardwareEnvironment::NoHardwareModule)
            modules.insert(QString::fromLatin1(meta.key(i)),
                           environment.enabledModules().testFlag(module));
    }
    return modules;
}

QJsonObject addresses()
{
    return {{QStringLiteral("cpuBoard"), CanVy::Address::cpuBoard()},
            {QStringLiteral("actuatorBoard"), CanVy::Address::actuatorBoard()},
            {QStringLiteral("coffeeToGoBoard"), CanVy::Address::coffeeToGoBoard()},
            {QStringLiteral("daddBoard"), CanVy::Address::daddBoard()}};
}

QJsonObject infoOf(const Machine &machine)
{
    const HardwareEnvironment &environment = machine.environment();
    const VersionNumber systemKey = HardwareEnvironment::systemKeyVersion();
    const bool isUpdated = systemKey.size() > 0 && environment.hasCpuInfoUpdated();
    return {{QStringLiteral("model"), environment.modelName()},
            {QStringLiteral("subtype"), static_cast<int>(environment.modelSubtype())},
            {QStringLiteral("databaseModel"), environment.databaseModelName()},
            {QStringLiteral("modules"), modulesOf(environment)},
            {QStringLiteral("addresses"), addresses()},
            {QStringLiteral("library"), environment.applicationVersionString()},
            {QStringLiteral("qt"), QString::fromLatin1(qVersion())},
            {QStringLiteral("platform"), environment.platform()},
            {QStringLiteral("operatingSystem"), HardwareEnvironment::getOperatingSystemVariable()},
            {QStringLiteral("systemKeyFamily"), HardwareEnvironment::systemKeyFamily()},
            {QStringLiteral("systemKeyVersion"), systemKey.toString()},
            {QStringLiteral("hasCpuInfoUpdated"), isUpdated},
            {QStringLiteral("revision"), HardwareEnvironment::revisionString()}};
}

QString orUnknown(const QJsonValue &value)
{
    return value.toString().isEmpty() ? QStringLiteral("not known") : value.toString();
}

void printText(const Machine &machine, const QJsonObject &info, QTextStream &out)
{
    const bool isDesktop = info.value(QStringLiteral("platform")).toInt() == 1;
    const bool isUpdated = info.value(QStringLiteral("hasCpuInfoUpdated")).toBool();
    out << "Machine          " << machine.title() << '\n'
        << "Platform         " << (isDesktop ? "1, desktop" : "2, board") << '\n'
        << "Versions         library " << info.value(QStringLiteral("library")).toString()
        << ", Qt " << info.value(QStringLiteral("qt")).toString() << '\n'
        << "System key       " << orUnknown(info.value(QStringLiteral("systemKeyVersion")))
        << ", family " << info.value(QStringLiteral("systemKeyFamily")).toInt() << '\n'
        << "CPU information  " << (isUpdated ? "updated" : "not updated") << '\n'
        << "Board revision   " << orUnknown(info.value(QStringLiteral("revision")))
        << "\n\nModules\n";
    const QJsonObject modules = info.value(QStringLiteral("modules")).toObject();
    for (auto module = modules.constBegin(); module != modules.constEnd(); ++module)
        out << "  " << (module.value().toBool() ? "on   " : "off  ") << module.key() << '\n';
    out << "\nCAN addresses\n"
        << "  CPU board       " << boardText(CanVy::Address::cpuBoard()) << '\n'
        << "  actuator board  " << boardText(CanVy::Address::actuatorBoard()) << '\n'
        << "  coffee to go    " << boardText(CanVy::Address::coffeeToGoBoard()) << '\n'
        << "  door            " << boardText(CanVy::Address::daddBoard()) << '\n';
}

void show(const Arguments &arguments, Console &console)
{
    const std::unique_ptr<Machine> pMachine = Machine::make(arguments.machine, console);
    if (!pMachine)
        return;
    const QJsonObject info = infoOf(*pMachine);
    if (arguments.isJson)
        console.out() << QString::fromUtf8(QJsonDocument(info).toJson());
    else
        printText(*pMachine, info, console.out());
}

} // namespace

void addInfoCommand(CLI::App &app, Console &console)
{
    const auto pArguments = std::make_shared<Arguments>();
    CLI::App *const pInfo =
        app.add_subcommand("info", "Show what machine, system and board this is");
    addMachineOptions(*pInfo, pArguments->machine);
    pInfo->add_flag("--json", pArguments->isJson, "Print one JSON object");
    pInfo->footer(
        "The system key and the board's revision are read from VY_PATH_SYSTEM_KEY_VERSIONS and\n"
        "VY_PATH_CPUINFO, or from where the machine has them.\n"
        "Example: vyhw info --settings config/lirenta.json\n");
    pInfo->callback([pArguments, &console] { show(*pArguments, console); });
}
