#include "startcommand.h"

#include "console.h"
#include "cuppicture.h"
#include "envvars.h"
#include "interruption.h"
#include "logformatter.h"
#include "machine.h"
#include "runfor.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLoggingCategory>
#include <memory>

namespace {

struct Arguments
{
    MachineChoice machine;
    double seconds = 0;
};

/// Prints what happens, each line with the seconds since the start.
class Diary
{
public:
    explicit Diary(Console &console)
        : m_console(console)
    {
        m_clock.start();
    }

    void write(const QString &text)
    {
        const double seconds = static_cast<double>(m_clock.elapsed()) / 1000.0;
        m_console.out() << QStringLiteral("%1 s  ").arg(seconds, 7, 'f', 3) << text << '\n';
        m_console.out().flush();
    }

private:
    Console &m_console;
    QElapsedTimer m_clock;
};

/// The library's log lines come through Qt's handler, which is a plain function.
Diary *g_pDiary = nullptr;

void writeLogLine(QtMsgType /*type*/, const QMessageLogContext & /*context*/, const QString &text)
{
    // Lines may come from the measuring loop; the diary belongs to the main thread.
    QMetaObject::invokeMethod(qApp, [text] {
        if (g_pDiary != nullptr)
            g_pDiary->write(QStringLiteral("  ") + text);
    });
}

void tellCupSensor(AbstractCupSensor &sensor, Diary &diary)
{
    const auto tell = [&sensor, &diary](const char *pSignal) {
        return [&sensor, &diary, pSignal] {
            diary.write(
                QStringLiteral("%1  %2").arg(QLatin1String(pSignal), -31).arg(cupPicture(sensor)));
        };
    };
    QObject::connect(&sensor, &AbstractCupSensor::cupPresenceChanged, qApp,
                     tell("cupPresenceChanged"));
    QObject::connect(&sensor, &AbstractCupSensor::isCupCarrierPositionHomeChanged, qApp,
                     tell("isCupCarrierPositionHomeChanged"));
    QObject::connect(&sensor, &AbstractCupSensor::isCupCarrierBlockedByCupChanged, qApp,
                     tell("isCupCarrierBlockedByCupChanged"));
}

void run(Machine &machine, double seconds, Diary &diary)
{
    HardwareEnvironment &environment = machine.environment();
    const Interruption interruption; // from the beginning: what was started is shut down
    diary.write(QStringLiteral("starting ") + machine.title());
    environment.createEnvironment();
    environment.createCupSensor(AbstractCupSensor::CupSensorTypeSimulated);
    tellCupSensor(*environment.cupSensor(), diary);
    environment.cupSensor()->startMeasureLoop();
    diary.write(QStringLiteral("started"));
    runFor(seconds, interruption);
    diary.write(QStringLiteral("stopping"));
    environment.cupSensor()->stopMeasureLoop();
    environment.unloadModules();
    diary.write(QStringLiteral("stopped"));
}

/// The sensor would make the file: on a desk that is a typing error.
bool isSimulationFileThere(Console &console)
{
    const QString file = vytools::envvar::EnvVars::CupSensorSimulationFilePath;
    if (file.isEmpty() || QFileInfo(file).isFile())
        return true;
    console.fail(ExitNo,
                 QStringLiteral(
                     "%1: not a file; expected one whose first line is a distance in mm, or no %2")
                     .arg(file, QString::fromLatin1(
                                    vytools::envvar::EnvVars::CupSensorSimulationFilePath.name())));
    return false;
}

void start(const Arguments &arguments, Console &console)
{
    if (!isSimulationFileThere(console))
        return;
    const std::unique_ptr<Machine> pMachine = Machine::make(arguments.machine, console);
    if (!pMachine)
        return;
    Diary diary(console);
    g_pDiary = &diary;
    const QtMessageHandler pOldHandler = qInstallMessageHandler(writeLogLine);
    QLoggingCategory::setFilterRules(QStringLiteral("vy.*.debug=false\nvy.hardware.debug=true"));
    run(*pMachine, arguments.seconds, diary);
    qInstallMessageHandler(pOldHandler);
    g_pDiary = nullptr;
}

} // namespace

void addStartCommand(CLI::App &app, Console &console)
{
    const auto pArguments = std::make_shared<Arguments>();
    CLI::App *const pStart =
        app.add_subcommand("start", "Start a machine, follow it, shut it down");
    addMachineOptions(*pStart, pArguments->machine);
    pStart
        ->add_option(
            "--seconds", pArguments->seconds,
            "Shut down after this time, which takes up to a second more; without it, at Ctrl-C")
        ->check(runTime());
    pStart->footer("The cup sensor is a simulated one: it follows the file that "
                   "VY_CUP_SENSOR_SIMULATION_FILE\n"
                   "names. Indented lines are the library's log, the others are its signals.\n"
                   "Example: VY_CUP_SENSOR_SIMULATION_FILE=/tmp/cup vyhw start --settings "
                   "config/lirenta.json\n");
    pStart->callback([pArguments, &console] { start(*pArguments, console); });
}
