#include "outputcommand.h"

#include "console.h"
#include "controllerlink.h"
#include "multiport.h"
#include "serverchoice.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <memory>

namespace {

constexpr int s_maxOutput = 255;

struct Arguments
{
    std::string server;
    int output = 0;
    std::string state;
};

void switchOutput(const Arguments &arguments, bool isBlinking, Console &console)
{
    const auto server = findServer(arguments.server, console);
    if (!server)
        return;
    Multiport client(serverText(*server), Multiport::ModeLocal, nullptr);
    if (!waitForLink(client, *server, false, console))
        return;
    const bool isOn = arguments.state == "on";
    if (isBlinking)
        client.setBlinkOutput(arguments.output, isOn);
    else
        client.setOutputEnabled(arguments.output, isOn);
    if (waitForDone(client, console))
        console.out() << "output " << arguments.output
                      << (isBlinking ? isOn ? " blinks" : " does not blink"
                          : isOn     ? " on"
                                     : " off")
                      << '\n';
}

void addSwitch(CLI::App &output, const char *pName, const char *pHelp, bool isBlinking,
               Console &console)
{
    const auto pArguments = std::make_shared<Arguments>();
    CLI::App *const pSwitch = output.add_subcommand(pName, pHelp);
    pSwitch->add_option("OUTPUT", pArguments->output, "Number of the output on the server's board")
        ->required()
        ->check(CLI::Range(0, s_maxOutput));
    pSwitch->add_option("STATE", pArguments->state, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));
    addServerOption(*pSwitch, pArguments->server);
    pSwitch->footer("The server takes one controller at a time: stop the machine's application "
                    "first.\nEnds with 1 when the server does not do it.\n"
                    "Example: vyhw output " +
                    std::string(pName) + " 9 on\n");
    pSwitch->callback(
        [pArguments, isBlinking, &console] { switchOutput(*pArguments, isBlinking, console); });
}

} // namespace

void addOutputCommand(CLI::App &app, Console &console)
{
    CLI::App *const pOutput =
        app.add_subcommand("output", "Switch the multiport server's digital outputs");
    pOutput->require_subcommand(1);
    addSwitch(*pOutput, "set", "Switch an output on or off", false, console);
    addSwitch(*pOutput, "blink", "Let an output blink, or stop it", true, console);
}
