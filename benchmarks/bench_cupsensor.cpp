// How long a reading takes to become a signal, and what the sensor costs while nothing happens.

#include "allocations.h"
#include "cupsensor/lirenabcupsensor.h"
#include "cupsensor/simulatedcupsensor.h"
#include "envvars.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTimer>

#include <sys/resource.h>

namespace {

/// From a reading that the actuator board pushes to cupPresenceChanged(); presence changes each
/// time.
void pushedReadingToSignal(benchmark::State &state)
{
    LirenABCupSensor sensor;
    quint64 signalCount = 0;
    QObject::connect(&sensor, &AbstractCupSensor::cupPresenceChanged, &sensor,
                     [&signalCount] { ++signalCount; });
    quint16 reading = 0;
    quint64 readings = 0;
    const AllocationCounter counter(state);
    for ([[maybe_unused]] auto iteration : state) {
        reading = reading == 0 ? 1 : 0;
        sensor.onRawValueChangedFromProtocol(reading);
        ++readings;
    }
    if (signalCount != readings)
        state.SkipWithError("a reading gave no signal");
}
BENCHMARK(pushedReadingToSignal);

/// A polling sensor whose poll can be asked for at once, so that the poll period is not measured.
class PromptSensor : public SimulatedCupSensor
{
public:
    PromptSensor() { m_loopPeriod = 0; }
};

void rewrite(const QString &path, int reading)
{
    QFile file(path);
    if (file.open(QIODevice::ReadWrite))
        file.write(QByteArray::number(reading) + "\n");
}

/// From a rewritten simulation file to the signal in the owner's thread, with a loop that polls
/// without a pause.
void rewrittenFileToSignal(benchmark::State &state)
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("cup"));
    rewrite(path, 80);
    qputenv(vytools::envvar::EnvVars::CupSensorSimulationFilePath.name(), path.toUtf8());
    PromptSensor sensor;
    QEventLoop loop;
    QObject::connect(&sensor, &AbstractCupSensor::cupPresenceChanged, &loop, &QEventLoop::quit);
    sensor.startMeasureLoop();
    int reading = 80;
    for ([[maybe_unused]] auto iteration : state) {
        reading = reading == 80 ? 42 : 80;
        rewrite(path, reading);
        loop.exec();
    }
    sensor.stopMeasureLoop();
}
BENCHMARK(rewrittenFileToSignal)->UseRealTime()->Iterations(2000);

long voluntarySwitches()
{
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
}

/// Wake-ups of the whole process in five seconds in which nothing happens.
void idle(benchmark::State &state, bool isLoopRunning)
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("cup"));
    rewrite(path, 80);
    qputenv(vytools::envvar::EnvVars::CupSensorSimulationFilePath.name(), path.toUtf8());
    SimulatedCupSensor sensor;
    if (isLoopRunning)
        sensor.startMeasureLoop();
    constexpr int s_seconds = 5;
    for ([[maybe_unused]] auto iteration : state) {
        QEventLoop loop;
        QTimer::singleShot(s_seconds * 1000, &loop, &QEventLoop::quit);
        const long before = voluntarySwitches();
        loop.exec();
        state.counters["wakeups_per_s"] =
            static_cast<double>(voluntarySwitches() - before) / s_seconds;
    }
    sensor.stopMeasureLoop();
}
BENCHMARK_CAPTURE(idle, withoutLoop, false)->Iterations(1)->UseRealTime();
BENCHMARK_CAPTURE(idle, withLoop, true)->Iterations(1)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("vy.*=false"));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
