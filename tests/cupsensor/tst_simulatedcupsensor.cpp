#include "cupsensor/simulatedcupsensor.h"

#include "cupsensor/fakecupsensor.h"
#include "cupsensor/simulationfolder.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>
#include <gtest/gtest.h>

namespace {

constexpr int s_waitMs = 5000; ///< for what comes within a few periods

const QString s_signature = QStringLiteral("SimulatedCupSensor::SimulatedCupSensor(QObject*)");

/// The whole line, in which the pieces are one blank apart.
int countLines(const LogSpy &log, const QString &text, const QString &fileName, int level)
{
    int count = 0;
    const QList<LogRecord> records = log.records();
    for (const LogRecord &record : records)
        if (record.text.simplified() == text + QLatin1Char(' ') + fileName)
            count += record.level == level && record.module == Log::Hardware ? 1 : 0;
    return count;
}

/// How many descriptors of the process are of this file.
int countDescriptors(const QString &path)
{
    int count = 0;
    const QFileInfoList files =
        QDir(QStringLiteral("/proc/self/fd")).entryInfoList(QDir::AllEntries | QDir::System);
    for (const QFileInfo &file : files)
        count += file.symLinkTarget() == path ? 1 : 0;
    return count;
}

} // namespace

// -- readings, whatever they come from ------------------------------------------------------------

struct ThresholdCase
{
    const char *pName;
    AbstractCupSensor::CupSensorSensibility sensibility;
    int threshold;
    quint16 reading;
    bool isCupPresent;
    const char *pValue;
    const char *pRawValue;
};

using SimulatedCupSensorThresholds = ::testing::TestWithParam<ThresholdCase>;

TEST_P(SimulatedCupSensorThresholds, DependOnTheSensibility)
{
    const ScopedVariable variable("VY_CUP_SENSOR_SIMULATION_FILE");
    SimulatedCupSensor sensor;
    sensor.setSensibility(GetParam().sensibility);
    sensor.onRawValueChangedFromProtocol(GetParam().reading);
    EXPECT_EQ(sensor.thresholdValue(), GetParam().threshold);
    EXPECT_EQ(sensor.isCupPresent(), GetParam().isCupPresent);
    EXPECT_EQ(sensor.isAnyCupPresent(false), GetParam().isCupPresent);
    EXPECT_EQ(sensor.valueString().toStdString(), GetParam().pValue);
    EXPECT_EQ(sensor.rawValueString().toStdString(), GetParam().pRawValue);
    EXPECT_EQ(sensor.channelName().toStdString(), "Sim cs");
}

constexpr auto s_high = AbstractCupSensor::SensibilityHigh;
constexpr auto s_medium = AbstractCupSensor::SensibilityMedium;
constexpr auto s_low = AbstractCupSensor::SensibilityLow;
const ThresholdCase s_thresholdCases[] = {
    {"HighZero", s_high, 70, 0, true, "Distance: 0 mm", "Read value: 0"},
    {"HighAt", s_high, 70, 70, true, "Distance: 70 mm", "Read value: 70"},
    {"HighAbove", s_high, 70, 71, false, "Distance: 71 mm", "Read value: 71"},
    {"MediumAt", s_medium, 50, 50, true, "Distance: 50 mm", "Read value: 50"},
    {"MediumAbove", s_medium, 50, 51, false, "Distance: 51 mm", "Read value: 51"},
    {"LowAt", s_low, 30, 30, true, "Distance: 30 mm", "Read value: 30"},
    {"ReadingOf31IsNoCupWithLow", s_low, 30, 31, false, "Distance: 31 mm", "Read value: 31"},
    {"ReadingOf31IsACupWithMedium", s_medium, 50, 31, true, "Distance: 31 mm", "Read value: 31"},
    {"HighFarthest", s_high, 70, 65535, false, "Distance: 65535 mm", "Read value: 65535"},
};
INSTANTIATE_TEST_SUITE_P(Rows, SimulatedCupSensorThresholds, ::testing::ValuesIn(s_thresholdCases),
                         caseName);

TEST(SimulatedCupSensorTest, InitialReadingOf80IsNoCupAtEverySensibility)
{
    const SimulationFolder folder;
    for (const bool isFromFile : {false, true}) {
        folder.variable().set(isFromFile ? QFile::encodeName(folder.file()) : QByteArray());
        SimulatedCupSensor sensor;
        EXPECT_EQ(sensor.isPollingSensor(), isFromFile);
        EXPECT_EQ(sensor.rawValue(), 80);
        EXPECT_EQ(sensor.valueString(), QStringLiteral("Distance: 80 mm"));
        EXPECT_EQ(sensor.rawValueString(), QStringLiteral("Read value: 80"));
        for (const auto sensibility : {s_high, s_medium, s_low}) {
            sensor.setSensibility(sensibility);
            EXPECT_FALSE(sensor.isCupPresent()) << sensibility;
        }
    }
}

TEST(SimulatedCupSensorTest, NewSensibilityIsSignalledAndDecidesAboutTheSameReading)
{
    const ScopedVariable variable("VY_CUP_SENSOR_SIMULATION_FILE");
    SimulatedCupSensor sensor;
    sensor.onRawValueChangedFromProtocol(60);
    EXPECT_TRUE(sensor.isCupPresent());
    const QSignalSpy changed(&sensor, &AbstractCupSensor::cupPresenceChanged);
    sensor.setSensibility(s_medium);
    EXPECT_EQ(changed.count(), 1);
    EXPECT_FALSE(sensor.isCupPresent());
}

TEST(SimulatedCupSensorTest, InvalidSensibilityKeepsTheThreshold)
{
    const ScopedVariable variable("VY_CUP_SENSOR_SIMULATION_FILE");
    SimulatedCupSensor sensor;
    sensor.setSensibility(s_low);
    sensor.setSensibility(static_cast<AbstractCupSensor::CupSensorSensibility>(3));
    EXPECT_EQ(sensor.thresholdValue(), 30);
}

// -- from the user interface ----------------------------------------------------------------------

TEST(SimulatedCupSensorTest, FollowsTheUserInterfaceWithoutAFile)
{
    spendFirstReadingOfTheProcess();
    const ScopedVariable variable("VY_CUP_SENSOR_SIMULATION_FILE");
    for (const bool isEmpty : {false, true}) {
        if (isEmpty)
            variable.set(QByteArray());
        LogSpy log;
        FastSimulatedCupSensor sensor;
        EXPECT_EQ(sensor.cupSensorType(), AbstractCupSensor::CupSensorTypeSimulated);
        EXPECT_EQ(sensor.m_loopPeriod, 1000);
        EXPECT_EQ(sensor.m_secondInterval, 1000);
        EXPECT_FALSE(sensor.isPollingSensor());
        ASSERT_EQ(log.records().size(), 1);
        EXPECT_EQ(log.texts().constFirst().toStdString(), "Will simulate cup sensor from UI");
        EXPECT_EQ(log.count("Will", 1, Log::Hardware), 1);

        EXPECT_TRUE(sensor.startMeasureLoop());
        EXPECT_FALSE(sensor.isMeasureLoopRunning());
        EXPECT_TRUE(QThreadPool::globalInstance()->waitForDone(100)); // nothing runs
        EXPECT_TRUE(sensor.updateFromDevice());
        EXPECT_EQ(sensor.rawValue(), 80);

        const QSignalSpy changed(&sensor, &AbstractCupSensor::cupPresenceChanged);
        EXPECT_TRUE(QMetaObject::invokeMethod(&sensor, "onRawValueChangedFromProtocol",
                                              Q_ARG(quint16, 42)));
        EXPECT_TRUE(sensor.isCupPresent());
        EXPECT_EQ(changed.count(), 1);
    }
}

// Made as a polling sensor, it stays connected to its own signal when polling is switched off.
TEST(SimulatedCupSensorTest, HandlesItsOwnRawValueChangedThoughTheUserInterfaceIsFollowed)
{
    const ScopedVariable variable("VY_CUP_SENSOR_SIMULATION_FILE");
    SimulatedCupSensor sensor;
    ASSERT_FALSE(sensor.isPollingSensor());
    Q_EMIT sensor.rawValueChanged(42);
    EXPECT_EQ(sensor.rawValue(), 42);
    EXPECT_TRUE(sensor.isCupPresent());
}

// -- from a file ----------------------------------------------------------------------------------

TEST(SimulatedCupSensorTest, FollowsTheFilesThatTheVariableNames)
{
    const SimulationFolder folder;
    folder.write("42 7\n9\n");
    folder.writeCarrier("1\n");
    const LogSpy log;
    {
        FastSimulatedCupSensor sensor;
        EXPECT_TRUE(sensor.isPollingSensor());
        EXPECT_EQ(sensor.cupSensorType(), AbstractCupSensor::CupSensorTypeSimulated);
        EXPECT_EQ(sensor.m_loopPeriod, 1000);
        EXPECT_EQ(sensor.m_secondInterval, 1000);
        EXPECT_EQ(sensor.rawValue(), 80); // it has not read yet
        EXPECT_FALSE(sensor.isCupCarrierPositionHome());
        EXPECT_EQ(log.records().size(), 2);
        EXPECT_EQ(
            countLines(log, QStringLiteral("Will simulate cup sensor from file"), folder.file(), 1),
            1);
        EXPECT_EQ(countLines(log, QStringLiteral("Will simulate cup sensor carrier from file"),
                             folder.carrierFile(), 1),
                  1);
        EXPECT_EQ(log.count("Will simulate cup sensor from file "), 1);
        EXPECT_EQ(log.count("Will simulate cup sensor carrier from file "), 1);
        EXPECT_EQ(countDescriptors(folder.file()), 1);
        EXPECT_EQ(countDescriptors(folder.carrierFile()), 1);

        folder.variable().set(QByteArray()); // is looked at no more
        EXPECT_TRUE(sensor.updateFromDevice());
        EXPECT_EQ(sensor.rawValue(), 42);
        EXPECT_EQ(countDescriptors(folder.file()), 1);
        EXPECT_EQ(countDescriptors(folder.carrierFile()), 1);
    }
    EXPECT_EQ(countDescriptors(folder.file()), 0);
    EXPECT_EQ(countDescriptors(folder.carrierFile()), 0);
    EXPECT_EQ(folder.bytes(folder.file()), "42 7\n9\n");
    EXPECT_EQ(folder.bytes(folder.carrierFile()), "1\n");
}

TEST(SimulatedCupSensorTest, FileThatIsMissingIsCreatedAndEachPollSaysThatItIsEmpty)
{
    const SimulationFolder folder;
    SimulatedCupSensor sensor;
    EXPECT_TRUE(sensor.isPollingSensor());
    EXPECT_EQ(folder.bytes(folder.file()), "");
    EXPECT_EQ(folder.bytes(folder.carrierFile()), "");
    const LogSpy log;
    for (int poll = 1; poll <= 3; ++poll) {
        EXPECT_FALSE(sensor.updateFromDevice());
        EXPECT_EQ(log.count(": Failed reading data from file !", 3, Log::Hardware), poll);
    }
    EXPECT_EQ(sensor.rawValue(), 80);
}

TEST(SimulatedCupSensorTest, FileThatCannotBeOpenedMakesItFollowTheUserInterface)
{
    const SimulationFolder folder;
    const QString path = folder.file() + QStringLiteral("/missing/cup.txt");
    folder.variable().set(QFile::encodeName(path));
    const LogSpy log;
    SimulatedCupSensor sensor;
    EXPECT_FALSE(sensor.isPollingSensor());
    EXPECT_EQ(sensor.rawValue(), 80);
    ASSERT_EQ(log.records().size(), 4);
    EXPECT_EQ(countLines(log, QStringLiteral("Will simulate cup sensor from file"), path, 1), 1);
    EXPECT_EQ(log.texts().at(1),
              s_signature + QStringLiteral(" : Failed opening simulation file !"));
    EXPECT_EQ(log.count(": Failed opening simulation file !", 3, Log::Hardware), 1);
    EXPECT_EQ(countLines(log, QStringLiteral("Will simulate cup sensor carrier from file"),
                         path + QStringLiteral(".cc"), 1),
              1);
    EXPECT_EQ(log.texts().at(3),
              s_signature + QStringLiteral(" : Failed opening cup carrier simulation file !"));
    EXPECT_EQ(log.count(": Failed opening cup carrier simulation file !", 1, Log::Hardware), 1);

    EXPECT_TRUE(sensor.startMeasureLoop());
    EXPECT_FALSE(sensor.isMeasureLoopRunning());
    sensor.updateCupCarrierPositionFromFile();
    EXPECT_FALSE(sensor.isCupCarrierPositionHome());
    sensor.onRawValueChangedFromProtocol(42);
    EXPECT_TRUE(sensor.isCupPresent());
}

TEST(SimulatedCupSensorTest, CarrierFileIsOpenedEvenWhenTheOtherCannotBe)
{
    const SimulationFolder folder;
    QDir().mkdir(folder.file());
    folder.writeCarrier("1");
    const LogSpy log;
    SimulatedCupSensor sensor;
    EXPECT_FALSE(sensor.isPollingSensor());
    EXPECT_EQ(log.count(": Failed opening simulation file !", 3, Log::Hardware), 1);
    EXPECT_EQ(log.count(": Failed opening cup carrier simulation file !"), 0);
    EXPECT_EQ(countDescriptors(folder.carrierFile()), 1);
    sensor.updateCupCarrierPositionFromFile();
    EXPECT_TRUE(sensor.isCupCarrierPositionHome());
}

TEST(SimulatedCupSensorTest, CarrierFileThatCannotBeOpenedOnlyDisablesTheCarrier)
{
    const SimulationFolder folder;
    folder.write("81");
    QDir().mkdir(folder.carrierFile());
    LogSpy log;
    SimulatedCupSensor sensor;
    EXPECT_TRUE(sensor.isPollingSensor());
    EXPECT_EQ(log.records().size(), 3);
    EXPECT_EQ(log.texts().constLast(),
              s_signature + QStringLiteral(" : Failed opening cup carrier simulation file !"));
    EXPECT_EQ(log.count(": Failed opening cup carrier simulation file !", 1, Log::Hardware), 1);
    log.clear();
    EXPECT_TRUE(sensor.updateFromDevice());
    EXPECT_EQ(sensor.rawValue(), 81);
    EXPECT_EQ(log.records().size(), 1);
    EXPECT_FALSE(sensor.isCupCarrierPositionHome());
}

// -- through the loop -----------------------------------------------------------------------------

class SimulatedCupSensorLoop : public ::testing::Test
{
protected:
    SimulatedCupSensorLoop() { spendFirstReadingOfTheProcess(); }

    void start(const QByteArray &text)
    {
        m_folder.write(text);
        m_pSensor = std::make_unique<FastSimulatedCupSensor>();
        m_pSensor->m_loopPeriod = 5;
        m_pSensor->startMeasureLoop();
    }
    ~SimulatedCupSensorLoop() override { m_pSensor->stopMeasureLoop(); }

    bool waitForReading(int reading) const
    {
        return QTest::qWaitFor([&] { return m_pSensor->rawValue() == reading; }, s_waitMs);
    }

    SimulationFolder m_folder;
    std::unique_ptr<FastSimulatedCupSensor> m_pSensor;
};

TEST_F(SimulatedCupSensorLoop, RewrittenFileChangesThePresence)
{
    start("81\n");
    EXPECT_TRUE(waitForReading(81));
    const ThreadSpy changed(m_pSensor.get(), &AbstractCupSensor::cupPresenceChanged);
    m_folder.write("42\n");
    EXPECT_TRUE(waitForReading(42));
    EXPECT_TRUE(m_pSensor->isCupPresent());
    EXPECT_EQ(changed.count(), 1);
    m_folder.write("500\n");
    EXPECT_TRUE(waitForReading(500));
    EXPECT_EQ(changed.count(), 2);
    EXPECT_EQ(changed.threads(), std::set<QThread *>{QThread::currentThread()});
}

TEST_F(SimulatedCupSensorLoop, LettersKeepThePreviousReadingAndAreLogged)
{
    start("42");
    EXPECT_TRUE(waitForReading(42));
    const LogSpy log;
    ThreadSpy raw(m_pSensor.get(), &AbstractCupSensor::rawValueChanged);
    m_folder.write("letters");
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return log.count(": Failed converting string to int !", 3, Log::Hardware) >= 3; },
        s_waitMs));
    EXPECT_GE(raw.count(), 2); // the last good reading is handed on at each poll
    EXPECT_EQ(m_pSensor->rawValue(), 42);
    EXPECT_EQ(log.count("Cup presence changed"), 0);
    m_folder.write("43");
    EXPECT_TRUE(waitForReading(43));
}

TEST_F(SimulatedCupSensorLoop, CarrierSignalComesFromTheThreadThatPolls)
{
    start("81");
    const QObject receiver;
    std::set<QThread *> received;
    QObject::connect(m_pSensor.get(), &AbstractCupSensor::isCupCarrierPositionHomeChanged,
                     &receiver, [&] { received.insert(QThread::currentThread()); });
    const ThreadSpy carrier(m_pSensor.get(), &AbstractCupSensor::isCupCarrierPositionHomeChanged);
    const ThreadSpy raw(m_pSensor.get(), &AbstractCupSensor::rawValueChanged);
    const ThreadSpy blocked(m_pSensor.get(), &AbstractCupSensor::isCupCarrierBlockedByCupChanged);
    EXPECT_TRUE(waitForReading(81));
    m_folder.writeCarrier("1");
    EXPECT_TRUE(QTest::qWaitFor([&] { return blocked.count() > 0; }, s_waitMs));
    EXPECT_TRUE(m_pSensor->isCupCarrierPositionHome());

    const std::set<QThread *> owner = {QThread::currentThread()};
    EXPECT_EQ(carrier.count(), 1);
    EXPECT_EQ(carrier.threads(), raw.threads());
    EXPECT_NE(carrier.threads(), owner);
    EXPECT_EQ(received, owner);
    EXPECT_EQ(blocked.threads(), owner);
}
