#include "brightnesscommand.h"

#include "abstracthardwarecontroller.h"
#include "console.h"
#include "machine.h"
#include "systempath.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <memory>

namespace {

struct Arguments
{
    MachineChoice machine;
    int percent = 0;
    bool isForced = false;
};

void set(const Arguments &arguments, Console &console)
{
    const std::unique_ptr<Machine> pMachine = Machine::make(arguments.machine, console);
    if (!pMachine)
        return;
    HardwareEnvironment &environment = pMachine->environment();
    const std::unique_ptr<AbstractHardwareController> pController(
        environment.hardwareSettingsNonConst()->createHardwareController());
    pController->setForced(arguments.isForced);
    const QString file = SystemPath::path(SystemPath::Brightness);
    if (!pController->setBrightness(arguments.percent))
        console.fail(
            ExitNo,
            QStringLiteral("the brightness was not set in %1; expected a display whose highest "
                           "brightness stands in %2")
                .arg(file, SystemPath::path(SystemPath::MaxBrightness)));
    else if (environment.platform() == 1 && !arguments.isForced)
        console.out() << "Nothing written: this is a desktop build. With --force, " << file
                      << " is written.\n";
    else
        console.out() << file << ": " << arguments.percent << " %, written as "
                      << AbstractHardwareController::readIntFromFile(file) << '\n';
}

} // namespace

void addBrightnessCommand(CLI::App &app, Console &console)
{
    const auto pArguments = std::make_shared<Arguments>();
    CLI::App *const pBrightness = app.add_subcommand("brightness", "Set the display's brightness");
    pBrightness->add_option("SET", pArguments->percent, "Percent, 0 to 100")
        ->required()
        ->check(CLI::Range(0, 100));
    addMachineOptions(*pBrightness, pArguments->machine);
    pBrightness->add_flag("--force", pArguments->isForced, "Write the file on a desktop as well");
    pBrightness->footer(
        "The files are VY_PATH_BRIGHTNESS and VY_PATH_MAX_BRIGHTNESS, or the kernel's own.\n"
        "Example: vyhw brightness 80 --settings config/lirenta.json\n");
    pBrightness->callback([pArguments, &console] { set(*pArguments, console); });
}
