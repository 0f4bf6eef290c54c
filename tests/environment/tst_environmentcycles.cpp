#include "hardwareenvironment.h"

#include "buttons/buttondevice.h"
#include "buttons/inputeventbuttonsreader.h"
#include "buttons/physicalbuttons.h"
#include "environmentfakes.h"
#include "processmemory.h"
#include "support/casename.h"
#include "support/processcounts.h"
#include "support/scopedvariable.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QThreadPool>
#include <functional>
#include <gtest/gtest.h>
#include <malloc.h>
#include <memory>
#include <thread>

namespace {

/// All but I2C, which ends the process.
constexpr HardwareEnvironment::HardwareModules s_modules{
    HardwareEnvironment::PhysicalButtonsModule, HardwareEnvironment::SpiModule,
    HardwareEnvironment::BoardDigitalOutputModule, HardwareEnvironment::MultiportModule};

constexpr int s_reading = 120; ///< of the cup sensor; another than its first

/// Bytes that the main thread's heap has given out.
long heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<long>(info.uordblks + info.hblkhd);
}

/// The loop's period is set-up of a sensor, and a second is long for a thousand loops.
class CupSensorPeriod : public AbstractCupSensor
{
public:
    static void set(AbstractCupSensor &sensor, int ms)
    {
        sensor.*(&CupSensorPeriod::m_loopPeriod) = ms;
    }
};

/// Delivers events until it holds; false when that takes too long.
bool waitUntil(const std::function<bool()> &isDone)
{
    QElapsedTimer time;
    time.start();
    while (!isDone() && time.elapsed() < 5000) {
        QCoreApplication::processEvents();
        std::this_thread::yield();
    }
    return isDone();
}

/// The buttons that read the device: on the board those of the environment, while on a desktop,
/// where these have no reader, there are others beside them.
std::unique_ptr<PhysicalButtons> otherButtons(const ButtonDevice &device)
{
#ifdef VY_PLATFORM_BOARD
    Q_UNUSED(device)
    return nullptr;
#else
    return std::make_unique<PhysicalButtons>(new InputEventButtonsReader(device.path()), nullptr);
#endif
}

/// With a thread that reads the buttons and one that polls the cup sensor, each of which has told
/// something before the end.
void liveAndDie(int platform, const ButtonDevice &device)
{
    device.write(press(KEY_F1) + release(KEY_F1));
    Machine machine;
    machine.environment.setPlatform(platform);
    machine.create(s_modules);
    const std::unique_ptr<PhysicalButtons> pOther = otherButtons(device);
    int releases = 0;
    QObject::connect(pOther ? pOther.get() : PhysicalButtons::instance(),
                     &PhysicalButtons::buttonReleased, &machine.environment,
                     [&releases] { ++releases; });
    machine.environment.setModelSubtype(HardwareSettings::CorvelCustomerEdition);
    machine.environment.createCupSensor(AbstractCupSensor::CupSensorTypeSimulated);
    AbstractCupSensor *const pSensor = machine.environment.cupSensor();
    ASSERT_NE(pSensor, nullptr);
    CupSensorPeriod::set(*pSensor, 1);
    pSensor->startMeasureLoop();
    ASSERT_TRUE(waitUntil([&] { return releases == 1 && pSensor->rawValue() == s_reading; }));
    machine.environment.unloadModules();
} // the loop goes on until the environment stops it

void liveAndDie(int platform, const ButtonDevice &device, int times)
{
    for (int i = 0; i < times && !::testing::Test::HasFailure(); ++i) {
        liveAndDie(platform, device);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
    }
    QThreadPool::globalInstance()->waitForDone(); // its idle threads end too
}

} // namespace

struct CycleCase
{
    const char *pName;
    int platform;
};

using EnvironmentCycles = ::testing::TestWithParam<CycleCase>;

TEST_P(EnvironmentCycles, ThousandLeaveThreadsDescriptorsAndMemoryAsTheyWere)
{
    QLoggingCategory::setFilterRules(QStringLiteral("vy.*=false"));
    const QTemporaryDir folder;
    const QString fileName = folder.filePath(QStringLiteral("cup.txt"));
    QFile file(fileName);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray::number(s_reading));
    file.close();
    const ScopedVariable cupFile("VY_CUP_SENSOR_SIMULATION_FILE", QFile::encodeName(fileName));
    ButtonDevice device;
    device.plugIn();
    const ScopedVariable buttons("VY_PATH_BUTTONS", QFile::encodeName(device.path()));
    const ScopedVariable server("VY_MULTIPORT");

    liveAndDie(GetParam().platform, device, 100); // what is made once for the process
    const int threads = threadCount();
    const int descriptors = descriptorCount();
    const long heap = heapInUse();
    const long resident = processNumber("VmRSS");
    liveAndDie(GetParam().platform, device, 1000);

    EXPECT_EQ(threadCount(), threads);
    EXPECT_EQ(descriptorCount(), descriptors);
    EXPECT_LT(heapInUse() - heap, 24 * 1024); // less than the smallest block for each cycle
    if (s_isMemoryExact) {
        EXPECT_LT(processNumber("VmRSS") - resident, 2 * 1024);
    }
    EXPECT_EQ(BareController::s_living, 0);
    EXPECT_EQ(gHardwareEnv, nullptr);
}

constexpr CycleCase s_cycleCases[] = {
    {"Desktop", 1},
    {"TargetPlatform", 2},
};
INSTANTIATE_TEST_SUITE_P(Platforms, EnvironmentCycles, ::testing::ValuesIn(s_cycleCases), caseName);
