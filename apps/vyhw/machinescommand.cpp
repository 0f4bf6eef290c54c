#include "machinescommand.h"

#include "console.h"
#include "machineregistry.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace {

void printMachines(QTextStream &out)
{
    const auto printRow = [&out](const QString &model, const QString &subtype,
                                 const QString &name) {
        const QString row =
            model.leftJustified(21) + subtype.rightJustified(7) + QStringLiteral("  ") + name;
        out << row.trimmed() << '\n';
    };
    printRow(QStringLiteral("MODEL"), QStringLiteral("SUBTYPE"), QString());
    for (const MachineConfiguration &machine : MachineRegistry::all()) {
        const bool hasSubtype = machine.subtype != HardwareSettings::NoSubtype;
        printRow(QString::fromLatin1(machine.pModel),
                 hasSubtype ? QString::number(machine.subtype) : QStringLiteral("-"),
                 QString::fromLatin1(machine.pSubtypeName));
    }
}

} // namespace

void addMachinesCommand(CLI::App &app, Console &console)
{
    CLI::App *const pMachines =
        app.add_subcommand("machines", "List the machine models and their subtypes");
    pMachines->footer(
        "A row with - is the model without a subtype. See also: vyhw model show MODEL SUBTYPE\n");
    pMachines->callback([&console] { printMachines(console.out()); });
}
