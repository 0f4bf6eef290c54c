#include "machinechoice.h"

#include "console.h"
#include "keytable.h"
#include "machinetext.h"
#include "settingsdocument.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace {

std::optional<MachineConfiguration> findByFile(const QString &fileName, Console &console)
{
    const SettingsDocument document = SettingsDocument::read(fileName);
    const QStringList errors =
        document.isValid() ? checkKeys(document).errors : QStringList{document.error()};
    for (const QString &error : errors)
        console.fail(ExitNo, error);
    if (!errors.isEmpty())
        return std::nullopt;
    const QString model = document.value(MachineRegistry::s_modelKey).toString();
    const int subtype =
        document.value(MachineRegistry::s_subtypeKey).toInt(HardwareSettings::NoSubtype);
    const std::optional<MachineConfiguration> machine = MachineRegistry::find(model, subtype);
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
                                    .arg(subtypeNumbers(model, QStringLiteral("-"))));
    return machine;
}

} // namespace

CLI::Validator notEmpty()
{
    return {[](const std::string &text) {
                return text.empty() ? std::string("is empty") : std::string();
            },
            ""};
}

void addMachineOptions(CLI::App &command, MachineChoice &choice)
{
    CLI::Option *const pModel =
        command.add_option("MODEL", choice.model, "As `vyhw machines` lists it, in any case")
            ->check(notEmpty());
    command.add_option("SUBTYPE", choice.subtype,
                       "A number; without it, the model without a subtype");
    addSettingsOption(command, choice)->excludes(pModel);
}

CLI::Option *addSettingsOption(CLI::App &command, MachineChoice &choice)
{
    return command
        .add_option("--settings", choice.file,
                    "The machine that this settings file names (machine/model, machine/subtype);\n"
                    "without it and a MODEL, VY_PATH_SETTINGS or /etc/vyhardware/settings.json")
        ->type_name("FILE")
        ->check(notEmpty());
}

std::optional<MachineConfiguration> findMachine(const MachineChoice &choice, Console &console)
{
    if (choice.model.empty())
        return findByFile(QString::fromStdString(choice.file), console);
    return findByName(QString::fromStdString(choice.model), choice.subtype, console);
}

QString machineTitle(const MachineConfiguration &machine)
{
    QString text = QString::fromLatin1(machine.pModel);
    if (machine.subtype != HardwareSettings::NoSubtype)
        text += QStringLiteral(", subtype %1").arg(machine.subtype);
    const QString name = QString::fromLatin1(machine.pSubtypeName);
    return name.isEmpty() ? text : text + QStringLiteral(" (%1)").arg(name);
}
