#include "settingscommand.h"

#include "abstractsettings.h"
#include "console.h"
#include "keytable.h"
#include "logformatter.h"
#include "machinechoice.h"
#include "settingsdocument.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <memory>
#include <string>

namespace {

/// What the user gave; shared by the option that fills it and the callback that reads it.
struct Arguments
{
    std::string file;
    std::string key;
};

QString groupOf(const QString &keyPath)
{
    return keyPath.left(keyPath.lastIndexOf(QLatin1Char('/')) + 1);
}

/// Some of the keys beside the one that was asked for, or of the whole file.
QString neighbours(const SettingsDocument &document, const QString &keyPath)
{
    QStringList all;
    QStringList beside;
    for (const auto &entry : document.values()) {
        const QString key = quoted(entry.first);
        all.append(key);
        if (groupOf(entry.first) == groupOf(keyPath))
            beside.append(key);
    }
    constexpr int s_enough = 20;
    const QStringList keys = beside.isEmpty() ? all : beside;
    const QString text = QStringList(keys.mid(0, s_enough)).join(QStringLiteral(", "));
    return keys.size() > s_enough ? text + QStringLiteral(", ...") : text;
}

void get(const SettingsDocument &document, const Arguments &arguments, Console &console)
{
    const QString key = QString::fromStdString(arguments.key);
    AbstractSettings::setSettings(document.bytes());
    const AbstractSettings settings;
    bool found = false;
    const QJsonValue value = settings.findSetting(key, true, found, nullptr);
    if (!found)
        console.fail(ExitNo, QStringLiteral("%1: there is no key \"%2\"; the file has %3")
                                 .arg(document.path(), key, neighbours(document, key)));
    else
        console.out() << (value.isString() ? value.toString() : toJsonText(value)) << '\n';
}

void list(const SettingsDocument &document, const Arguments & /*arguments*/, Console &console)
{
    for (const auto &entry : document.values())
        console.out() << printable(entry.first) << " = " << toJsonText(entry.second) << '\n';
}

void check(const SettingsDocument &document, const Arguments & /*arguments*/, Console &console)
{
    const CheckResult result = checkKeys(document);
    for (const QString &warning : result.warnings)
        console.warn(QStringLiteral("vyhw: warning: ") + warning);
    for (const QString &error : result.errors)
        console.fail(ExitNo, error);
    if (result.errors.isEmpty())
        console.out() << document.path() << ": right; " << result.knownKeys << " known keys, "
                      << document.values().size() << " values in all\n";
}

using Command = void (*)(const SettingsDocument &, const Arguments &, Console &);

/// Runs the command on the settings file, or says why that cannot be read.
void run(Command pCommand, const Arguments &arguments, Console &console)
{
    const SettingsDocument document =
        SettingsDocument::read(QString::fromStdString(arguments.file));
    if (document.isValid())
        pCommand(document, arguments, console);
    else
        console.fail(ExitNo, document.error());
}

void addFileOption(CLI::App &command, Arguments &arguments)
{
    command
        .add_option(
            "--settings", arguments.file,
            "The settings file; without it, VY_PATH_SETTINGS or /etc/vyhardware/settings.json")
        ->type_name("FILE")
        ->check(notEmpty());
}

} // namespace

void addSettingsCommand(CLI::App &app, Console &console)
{
    CLI::App *const pSettings = app.add_subcommand("settings", "Read and check a settings file");
    pSettings->require_subcommand(1);
    pSettings->footer("Examples: vyhw settings check config/lirenta.json\n"
                      "          vyhw settings list --settings config/lirenta.json\n");
    const auto pArguments = std::make_shared<Arguments>();

    CLI::App *const pGet = pSettings->add_subcommand("get", "Print the value of one key");
    pGet->add_option("KEY", pArguments->key, "A key path such as hardware/usbPath")->required();
    addFileOption(*pGet, *pArguments);
    pGet->footer("Texts are printed as they are, everything else as JSON. Ends with 1 when the key "
                 "is not there.\n"
                 "Example: vyhw settings get hardware/usbPath --settings config/lirenta.json\n");
    pGet->callback([pArguments, &console] { run(get, *pArguments, console); });

    CLI::App *const pList =
        pSettings->add_subcommand("list", "Print every value with its key path");
    addFileOption(*pList, *pArguments);
    pList->footer("Example: vyhw settings list --settings config/lirenta.json\n");
    pList->callback([pArguments, &console] { run(list, *pArguments, console); });

    CLI::App *const pCheck =
        pSettings->add_subcommand("check", "Say whether a settings file is right, and where not");
    pCheck->add_option("FILE", pArguments->file, "The settings file")
        ->required()
        ->check(notEmpty());
    pCheck->footer("A syntax error and a key that stands twice are told with line and column, a "
                   "wrong value\n"
                   "with its key and what was expected.\n"
                   "Ends with 1 when the file is wrong.\n"
                   "Example: vyhw settings check config/lirenta.json\n");
    pCheck->callback([pArguments, &console] { run(check, *pArguments, console); });
}
