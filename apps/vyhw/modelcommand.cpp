#include "modelcommand.h"

#include "console.h"
#include "keytable.h"
#include "machineregistry.h"
#include "machinetext.h"
#include "modelview.h"
#include "settingsdocument.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <QJsonDocument>
#include <memory>
#include <string>

namespace {

struct Arguments
{
    std::string model;
    int subtype = HardwareSettings::NoSubtype;
    std::string file;
    bool isJson = false;
};

/// The machine that the settings file names; its keys have been checked.
std::optional<MachineConfiguration> machineOf(const SettingsDocument &document)
{
    return MachineRegistry::find(
        document.value(MachineRegistry::s_modelKey).toString(),
        document.value(MachineRegistry::s_subtypeKey).toInt(HardwareSettings::NoSubtype));
}

std::optional<MachineConfiguration> findByFile(const QString &fileName, Console &console)
{
    const SettingsDocument document = SettingsDocument::read(fileName);
    const QStringList errors =
        document.isValid() ? checkKeys(document).errors : QStringList{document.error()};
    for (const QString &error : errors)
        console.fail(ExitNo, error);
    if (!errors.isEmpty())
        return std::nullopt;
    const std::optional<MachineConfiguration> machine = machineOf(document);
    if (!machine)
        console.fail(ExitNo, QStringLiteral(
                                 "%1: there is no key \"%2\"; expected it, or a MODEL in the call")
                                 .arg(document.path(), MachineRegistry::s_modelKey));
    return machine;
}

std::optional<MachineConfiguration> findByName(const QString &model, int subtype, Console &console)
{
    const std::optional<MachineConfiguration> machine = MachineRegistry::find(model, subtype);
    if (!machine && MachineRegistry::ofModel(model).empty())
        console.fail(ExitUsage, QStringLiteral("there is no model \"%1\"; expected one of %2")
                                    .arg(model, modelNames()));
    else if (!machine)
        console.fail(ExitUsage, QStringLiteral("%1 has no subtype %2; expected one of %3")
                                    .arg(model)
                                    .arg(subtype)
                                    .arg(subtypeNumbers(model)));
    return machine;
}

void show(const Arguments &arguments, Console &console)
{
    const std::optional<MachineConfiguration> machine =
        arguments.model.empty()
            ? findByFile(QString::fromStdString(arguments.file), console)
            : findByName(QString::fromStdString(arguments.model), arguments.subtype, console);
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
    const auto pArguments = std::make_shared<Arguments>();

    CLI::App *const pShow = pModel->add_subcommand("show", "Show every property of a machine");
    CLI::Option *const pName =
        pShow->add_option("MODEL", pArguments->model, "As `vyhw machines` lists it, in any case");
    pShow->add_option("SUBTYPE", pArguments->subtype,
                      "A number; without it, the model without a subtype");
    pShow
        ->add_option(
            "--settings", pArguments->file,
            "Show the machine that this settings file names (machine/model and machine/subtype)")
        ->type_name("FILE")
        ->excludes(pName);
    pShow->add_flag("--json", pArguments->isJson, "Print one JSON object");
    pShow->footer("Without MODEL, the machine is the one that the settings file names.\n"
                  "Examples: vyhw model show Lirenta 8\n"
                  "          vyhw model show --settings config/lirenta.json --json\n");
    pShow->callback([pArguments, &console] { show(*pArguments, console); });
}
