#include "brightnesscommand.h"
#include "cancommand.h"
#include "console.h"
#include "cupcommand.h"
#include "infocommand.h"
#include "linkcommand.h"
#include "machinescommand.h"
#include "modelcommand.h"
#include "outputcommand.h"
#include "paymentcommand.h"
#include "settingscommand.h"
#include "simcommand.h"
#include "startcommand.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTextCodec>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr auto s_pFooter =
    "Exit codes: 0 done; 1 the answer is no (a key is missing, a file is wrong); 2 the call is "
    "wrong.\n"
    "Results go to standard output, everything else to standard error. The library's own log "
    "lines\n"
    "follow Qt's rules: QT_LOGGING_RULES=\"vy.*.debug=true\" shows all of them.\n"
    "\n"
    "Examples:\n"
    "  vyhw machines\n"
    "  vyhw model show Lirenta 8\n"
    "  vyhw settings check config/lirenta.json\n"
    "  vyhw settings get hardware/usbPath --settings config/lirenta.json\n";

/// The help of all commands goes down to the sub-commands of commands, not to their names alone,
/// and has what stands below the help of each.
class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_subcommands(const CLI::App *pApp, CLI::AppFormatMode mode) const override
    {
        const bool isExpanded = mode != CLI::AppFormatMode::Normal;
        return CLI::Formatter::make_subcommands(pApp, isExpanded ? CLI::AppFormatMode::All : mode);
    }

    std::string make_expanded(const CLI::App *pApp) const override
    {
        std::string text = CLI::Formatter::make_expanded(pApp);
        if (!pApp->get_subcommands({}).empty())
            return text;
        std::istringstream footer(pApp->get_footer());
        for (std::string line; std::getline(footer, line);)
            text += "  " + line + "\n";
        return text;
    }
};

/// The innermost command of the call.
const CLI::App *commandOf(const CLI::App *pApp)
{
    while (!pApp->get_subcommands().empty())
        pApp = pApp->get_subcommands().front();
    return pApp;
}

/// What the user may have meant by a word that the command does not take; empty where nobody knows.
/// A number is a subtype rather than a file.
std::string hint(const CLI::App *pCommand, const std::string &word)
{
    const bool isNumber = word.find_first_not_of("0123456789") == std::string::npos;
    if (isNumber || word.front() == '-' || pCommand->get_option_no_throw("--settings") == nullptr)
        return {};
    return "; name a settings file with --settings FILE";
}

/// Names the words that no command takes; the parser would only say that a command is missing.
std::string failureMessage(const CLI::App *pApp, const CLI::Error &error)
{
    const std::vector<std::string> unknown = pApp->remaining(true);
    const std::string text = unknown.empty() ? error.what()
                                             : "\"" + unknown.front() + "\" is not known here" +
                                                   hint(commandOf(pApp), unknown.front());
    return "vyhw: " + text + "\nvyhw --help and vyhw COMMAND --help show what is.\n";
}

void addCommands(CLI::App &app, Console &console)
{
    app.formatter(std::make_shared<HelpFormatter>());
    app.set_version_flag("--version", "vyhw " VY_VERSION);
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "Print the help of all commands");
    app.footer(s_pFooter);
    app.failure_message(failureMessage);
    addMachinesCommand(app, console);
    addModelCommand(app, console);
    addSettingsCommand(app, console);
    addInfoCommand(app, console);
    addStartCommand(app, console);
    addCupCommand(app, console);
    addBrightnessCommand(app, console);
    addCanCommand(app, console);
    addLinkCommand(app, console);
    addOutputCommand(app, console);
    addPaymentCommand(app, console);
    addSimCommand(app, console);
}

} // namespace

int main(int argc, char **argv) // NOLINT(bugprone-exception-escape): out of memory, it may end
{
    // File names are UTF-8 on the machine; a "C" locale must not change them.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("vy.*.debug=false\nvy.*.info=false"));

    Console console;
    CLI::App app("The command-line tool of the VyHardware1 library: look at machine models, check\n"
                 "settings files, start a machine without the machine. Every command and "
                 "sub-command has its own --help.",
                 "vyhw");
    addCommands(app, console);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        const bool isHelp = app.exit(error) == 0;
        std::cout.flush();
        if (!std::cout.good())
            console.fail(ExitNo, QStringLiteral("standard output could not be written"));
        return isHelp ? console.finish() : ExitUsage;
    }
    return console.finish();
}
