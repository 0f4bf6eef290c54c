#include "linkcommand.h"

#include "console.h"
#include "serverchoice.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <QJsonDocument>
#include <QJsonObject>
#include <memory>

namespace {

struct Arguments
{
    std::string server;
    bool isJson = false;
};

void showStatus(const Arguments &arguments, Console &console)
{
    const auto address = findServer(arguments.server, console);
    const auto answer =
        address ? askServer(*address, multiportlink::Role::Observer, console) : std::nullopt;
    if (!answer)
        return;
    const multiportlink::Welcome &welcome = answer->welcome;
    if (arguments.isJson) {
        const QJsonObject status{{QStringLiteral("server"), serverText(*address)},
                                 {QStringLiteral("version"), welcome.version},
                                 {QStringLiteral("canPort"), welcome.canPort},
                                 {QStringLiteral("paymentPort"), welcome.paymentPort},
                                 {QStringLiteral("ms"), answer->ms}};
        console.out() << QString::fromUtf8(QJsonDocument(status).toJson(QJsonDocument::Compact))
                      << '\n';
        return;
    }
    console.out() << "Multiport server  " << serverText(*address) << ", version " << welcome.version
                  << '\n'
                  << "CAN bus           port " << welcome.canPort << '\n'
                  << "Payment line      port " << welcome.paymentPort << '\n'
                  << "Answered after    " << QString::number(answer->ms, 'f', 1) << " ms\n";
}

} // namespace

void addLinkCommand(CLI::App &app, Console &console)
{
    CLI::App *const pLink = app.add_subcommand("link", "Look at the link to the multiport server");
    pLink->require_subcommand(1);
    const auto pArguments = std::make_shared<Arguments>();
    CLI::App *const pStatus = pLink->add_subcommand("status", "Ask the multiport server who it is");
    addServerOption(*pStatus, pArguments->server);
    pStatus->add_flag("--json", pArguments->isJson, "Print one JSON object");
    pStatus->footer(
        "Asks as an observer, so that the machine's own link is not disturbed. Ends with "
        "1 when no\nserver answers.\n"
        "Example: vyhw link status --multiport 192.168.7.2\n");
    pStatus->callback([pArguments, &console] { showStatus(*pArguments, console); });
}
