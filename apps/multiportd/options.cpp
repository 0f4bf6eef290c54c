#include "multiportd/options.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <iostream>
#include <string>

namespace {

constexpr int s_maxPortBase = 65533; ///< the control port is two above it
constexpr int s_exitUsage = 2;

constexpr auto s_pFooter =
    "Exit codes: 0 stopped by SIGTERM or SIGINT; 1 a port or a device cannot be had; 2 the call is "
    "wrong.\n"
    "Log lines go to standard error and follow Qt's rules:\n"
    "QT_LOGGING_RULES=\"vy.*.debug=true\" shows all of them.\n"
    "\n"
    "Examples:\n"
    "  multiportd --simulate\n"
    "  multiportd --listen 0.0.0.0 --can socketcan:can0 --payment serial:/dev/ttyS1\n"
    "  multiportd --config /etc/vyhardware/multiportd.conf\n";

/// The words as they are written, before they are understood.
struct Words
{
    std::string listen = "127.0.0.1";
    std::string portBase = "4000";
    std::string logFile;
    std::string console;
    std::string can;
    std::string payment;
    bool isSimulated = false;
    bool isPortsPrinted = false;
};

std::string checkAddress(const std::string &word)
{
    if (!QHostAddress(QString::fromStdString(word)).isNull())
        return {};
    return "\"" + word + "\" is no address; expected one such as 127.0.0.1, 0.0.0.0 or ::1";
}

std::string checkPortBase(const std::string &word)
{
    bool isNumber = false;
    const int number = QString::fromStdString(word).toInt(&isNumber);
    if (isNumber && number >= 0 && number <= s_maxPortBase)
        return {};
    return "\"" + word + "\" is no port base; expected 1 to " + std::to_string(s_maxPortBase) +
           ", or 0 for free ports";
}

std::string checkCan(const std::string &word)
{
    const size_t colon = word.find(':');
    if (colon != std::string::npos && colon > 0 && colon + 1 < word.size())
        return {};
    return "\"" + word +
           "\" names no CAN bus; expected PLUGIN:INTERFACE such as socketcan:can0 or "
           "virtualcan:tcp://127.0.0.1:35468/can0";
}

const std::string s_serial = "serial:";

std::string checkPayment(const std::string &word)
{
    if (word.rfind(s_serial, 0) == 0 && word.size() > s_serial.size())
        return {};
    return "\"" + word +
           "\" names no payment line; expected serial:DEVICE such as serial:/dev/ttyS1";
}

void addOptions(CLI::App &app, Words &words)
{
    app.set_version_flag("--version", "multiportd " VY_VERSION);
    app.set_config("--config", "", "Read options from FILE: lines such as port-base=4000")
        ->type_name("FILE");
    app.allow_config_extras(CLI::config_extras_mode::error);
    app.add_option("--listen", words.listen, "Listen on ADDRESS")
        ->capture_default_str()
        ->type_name("ADDRESS")
        ->check(CLI::Validator(checkAddress, ""));
    app.add_option("--port-base", words.portBase,
                   "Payment on port N, CAN on N+1, control on N+2; 0 takes free ports")
        ->capture_default_str()
        ->type_name("N")
        ->check(CLI::Validator(checkPortBase, ""));
    app.add_flag("--print-ports", words.isPortsPrinted,
                 "Print the ports, one a line, once the server listens");
    app.add_option("--log", words.logFile, "Write the log to FILE too, which rotates")
        ->type_name("FILE");
    app.add_flag("--simulate", words.isSimulated,
                 "Simulate the machine, but for what --can and --payment name");
    app.add_option("--console", words.console,
                   "Control the simulated machine through the Unix socket PATH; default "
                   "VY_SIM_CONSOLE, or vy-sim.sock in XDG_RUNTIME_DIR")
        ->type_name("PATH")
        ->needs("--simulate");
    app.add_option("--can", words.can,
                   "The CAN bus: PLUGIN:INTERFACE, with a plugin of Qt SerialBus")
        ->type_name("SPEC")
        ->check(CLI::Validator(checkCan, ""));
    app.add_option("--payment", words.payment, "The payment line: serial:DEVICE")
        ->type_name("SPEC")
        ->check(CLI::Validator(checkPayment, ""));
}

Options understood(const Words &words)
{
    const QString can = QString::fromStdString(words.can);
    Options options;
    options.address = QHostAddress(QString::fromStdString(words.listen));
    options.portBase = QString::fromStdString(words.portBase).toUShort();
    options.isPortsPrinted = words.isPortsPrinted;
    options.logFile = QString::fromStdString(words.logFile);
    options.isSimulated = words.isSimulated;
    options.consolePath = QString::fromStdString(words.console);
    options.canPlugin = can.section(QLatin1Char(':'), 0, 0);
    options.canInterface = can.section(QLatin1Char(':'), 1);
    if (!words.payment.empty())
        options.paymentDevice = QString::fromStdString(words.payment.substr(s_serial.size()));
    return options;
}

} // namespace

std::optional<Options> parseOptions(int count, const char *const *pArguments, int *pExitCode)
{
    Words words;
    CLI::App app("The multiport server: puts a CAN bus, the payment line and the digital outputs "
                 "on TCP.",
                 "multiportd");
    app.footer(s_pFooter);
    app.failure_message([](const CLI::App *, const CLI::Error &error) {
        return "multiportd: " + std::string(error.what()) + "\nmultiportd --help shows what is.\n";
    });
    addOptions(app, words);
    try {
        app.parse(count, pArguments);
    } catch (const CLI::ParseError &error) {
        *pExitCode = app.exit(error) == 0 ? 0 : s_exitUsage;
        std::cout.flush();
        return std::nullopt;
    }
    return understood(words);
}
