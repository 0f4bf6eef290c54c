#include "hardwareenvironment.h"

#include "environmentfakes.h"
#include "processmemory.h"
#include "support/casename.h"
#include "support/processcounts.h"
#include "support/scopedvariable.h"

#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>
#include <malloc.h>

namespace {

/// All but I2C, which ends the process.
constexpr HardwareEnvironment::HardwareModules s_modules{
    HardwareEnvironment::PhysicalButtonsModule, HardwareEnvironment::SpiModule,
    HardwareEnvironment::BoardDigitalOutputModule, HardwareEnvironment::MultiportModule};

/// Bytes that the main thread's heap has given out.
long heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<long>(info.uordblks + info.hblkhd);
}

void liveAndDie(int platform)
{
    Machine machine;
    machine.environment.setPlatform(platform);
    machine.create(s_modules);
    machine.environment.setModelSubtype(HardwareSettings::CorvelCustomerEdition);
    machine.environment.createCupSensor(AbstractCupSensor::CupSensorTypeSimulated);
    ASSERT_NE(machine.environment.cupSensor(), nullptr);
    machine.environment.cupSensor()->updateFromDevice();
    machine.environment.unloadModules();
}

void liveAndDie(int platform, int times)
{
    for (int i = 0; i < times; ++i) {
        liveAndDie(platform);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
    }
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
    file.write("120\n");
    file.close();
    const ScopedVariable cupFile("VY_CUP_SENSOR_SIMULATION_FILE", QFile::encodeName(fileName));
    const ScopedVariable buttons("VY_PATH_BUTTONS",
                                 QFile::encodeName(folder.filePath(QStringLiteral("buttons"))));
    const ScopedVariable server("VY_MULTIPORT");

    liveAndDie(GetParam().platform, 100); // what is made once for the process
    const int threads = threadCount();
    const int descriptors = descriptorCount();
    const long heap = heapInUse();
    const long resident = processNumber("VmRSS");
    liveAndDie(GetParam().platform, 1000);

    EXPECT_EQ(threadCount(), threads);
    EXPECT_EQ(descriptorCount(), descriptors);
    EXPECT_LT(heapInUse() - heap, 8 * 1024); // less than the smallest block for each cycle
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
