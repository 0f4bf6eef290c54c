#include "cupcommand.h"

#include "console.h"
#include "cuppicture.h"
#include "cupsensor/simulatedcupsensor.h"
#include "envvars.h"
#include "interruption.h"
#include "runfor.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <QFileInfo>
#include <map>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

struct Arguments
{
    std::string file;
    std::string sensibility = "high";
    double seconds = 0;
};

const std::map<std::string, AbstractCupSensor::CupSensorSensibility> s_sensibilities = {
    {"high", AbstractCupSensor::SensibilityHigh},
    {"medium", AbstractCupSensor::SensibilityMedium},
    {"low", AbstractCupSensor::SensibilityLow},
};

/// On a terminal the line is drawn over itself, elsewhere each picture that differs is a line.
void follow(SimulatedCupSensor &sensor, double seconds, Console &console)
{
    const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
    QString lastPicture;
    const auto draw = [&] {
        const QString picture = cupPicture(sensor);
        if (picture != lastPicture)
            console.out() << (isTerminal ? "\r" : "") << picture << (isTerminal ? "\033[K" : "\n");
        console.out().flush();
        lastPicture = picture;
    };
    // Queued behind the sensor's own handling of the reading.
    QObject::connect(&sensor, &AbstractCupSensor::rawValueChanged, &sensor, draw,
                     Qt::QueuedConnection);
    QObject::connect(&sensor, &AbstractCupSensor::isCupCarrierPositionHomeChanged, &sensor, draw,
                     Qt::QueuedConnection);
    const Interruption interruption;
    sensor.startMeasureLoop();
    runFor(seconds, interruption);
    sensor.stopMeasureLoop();
    if (isTerminal)
        console.out() << '\n';
}

void watch(const Arguments &arguments, Console &console)
{
    const vytools::envvar::EnvVarString variable =
        vytools::envvar::EnvVars::CupSensorSimulationFilePath;
    if (!arguments.file.empty())
        qputenv(variable.name(), QByteArray::fromStdString(arguments.file));
    const QString file = variable;
    if (file.isEmpty()) {
        console.fail(ExitUsage, QStringLiteral("expected a FILE, in the call or in %1")
                                    .arg(QString::fromLatin1(variable.name())));
        return;
    }
    if (!QFileInfo(file).isFile()) {
        console.fail(ExitNo,
                     QStringLiteral("%1: there is no such file; expected one whose first line is a "
                                    "distance in mm")
                         .arg(file));
        return;
    }
    SimulatedCupSensor sensor;
    sensor.setSensibility(s_sensibilities.at(arguments.sensibility));
    if (sensor.isPollingSensor())
        follow(sensor, arguments.seconds, console);
    else
        console.fail(ExitNo,
                     QStringLiteral("%1: cannot be opened for reading and writing").arg(file));
}

} // namespace

void addCupCommand(CLI::App &app, Console &console)
{
    CLI::App *const pCup = app.add_subcommand("cup", "Follow the cup sensor");
    pCup->require_subcommand(1);
    pCup->footer("Example: echo 80 >cup; vyhw cup watch cup\n");
    const auto pArguments = std::make_shared<Arguments>();

    CLI::App *const pWatch =
        pCup->add_subcommand("watch", "Draw the simulated sensor's reading against its threshold");
    pWatch->add_option("FILE", pArguments->file,
                       "The simulation file; without it, VY_CUP_SENSOR_SIMULATION_FILE");
    pWatch->add_option("--sensibility", pArguments->sensibility, "high (at first), medium or low")
        ->check(CLI::IsMember({"high", "medium", "low"}));
    pWatch
        ->add_option("--seconds", pArguments->seconds, "End after this time; without it, at Ctrl-C")
        ->check(runTime());
    pWatch->footer("The file is read once a second. Rewrite it in place: echo 42 >FILE. The "
                   "carrier's position\n"
                   "comes from FILE.cc: echo 1 >FILE.cc is home, 0 is away.\n"
                   "Example: echo 80 >cup; vyhw cup watch cup\n");
    pWatch->callback([pArguments, &console] { watch(*pArguments, console); });
}
