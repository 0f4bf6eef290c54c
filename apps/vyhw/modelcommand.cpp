#include "modelcommand.h"

#include "console.h"
#include "machinechoice.h"
#include "modelview.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <QJsonDocument>
#include <memory>

namespace {

struct Arguments
{
    MachineChoice machine;
    bool isJson = false;
};

void show(const Arguments &arguments, Console &console)
{
    const std::optional<MachineConfiguration> machine = findMachine(arguments.machine, console);
    if (!machine)
        return;
    const std::unique_ptr<HardwareSettings> pSettings =
        MachineRegistry::create(QString::fromLatin1(machine->pModel), machine->subtype);
    if (arguments.isJson)
        console.out() << QString::fromUtf8(
            QJsonDocument(modelAsJson(*machine, *pSettings)).toJson());
    else
        console.out() << modelAsText(*machine, *pSettings);
}

} // namespace

void addModelCommand(CLI::App &app, Console &console)
{
    CLI::App *const pModel = app.add_subcommand("model", "Ask what a machine model has and allows");
    pModel->require_subcommand(1);
    pModel->footer("Example: vyhw model show Lirenta 8\n");
    const auto pArguments = std::make_shared<Arguments>();

    CLI::App *const pShow = pModel->add_subcommand("show", "Show every property of a machine");
    addMachineOptions(*pShow, pArguments->machine);
    pShow->add_flag("--json", pArguments->isJson, "Print one JSON object");
    pShow->footer("Examples: vyhw model show Lirenta 8\n"
                  "          vyhw model show --settings config/lirenta.json --json\n");
    pShow->callback([pArguments, &console] { show(*pArguments, console); });
}
