#include "cupsensor/abstractcupsensor.h"

#include "cupsensor/fakecupsensor.h"
#include "support/casename.h"
#include "support/logfolder.h"
#include "support/logspy.h"
#include "support/processcounts.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QSemaphore>
#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <malloc.h>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

constexpr int s_waitMs = 5000; ///< for what comes within a few periods

/// Lines go nowhere while this lives.
class Silence
{
public:
    Silence()
        : m_previous(
              qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {}))
    {
    }
    ~Silence() { qInstallMessageHandler(m_previous); }
    Q_DISABLE_COPY_MOVE(Silence)

private:
    QtMessageHandler m_previous;
};

} // namespace

class MeasureLoopTest : public ::testing::Test
{
protected:
    MeasureLoopTest()
    {
        spendFirstReadingOfTheProcess();
        QThreadPool::globalInstance()->waitForDone(); // threads of the test before
    }

    /// Counts the reads, and gives `m_reading` with `m_isFailing` as its error.
    FakeCupSensor::Device device()
    {
        return [this](bool &error) -> quint16 {
            error = m_isFailing;
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_threads.insert(QThread::currentThread());
            ++m_reads;
            return m_reading;
        };
    }

    std::set<QThread *> deviceThreads() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_threads;
    }

    /// For so many from now on.
    bool waitForReads(int more)
    {
        const int wanted = m_reads + more;
        return QTest::qWaitFor([&] { return m_reads >= wanted; }, s_waitMs);
    }

    std::atomic<quint16> m_reading{412};
    std::atomic<bool> m_isFailing{false};
    std::atomic<int> m_reads{0};

private:
    mutable std::mutex m_mutex;
    std::set<QThread *> m_threads;
};

// -- start and stop -------------------------------------------------------------------------------

TEST_F(MeasureLoopTest, SensorThatIsNotPolledStartsNothingAndReturnsTrue)
{
    const LogSpy log;
    FakeCupSensor sensor(false);
    sensor.m_loopPeriod = 1;
    sensor.setDevice(device());
    const int threads = threadCountNow();
    EXPECT_TRUE(sensor.startMeasureLoop());
    EXPECT_TRUE(sensor.startMeasureLoop());
    EXPECT_FALSE(sensor.isMeasureLoopRunning());
    QTest::qWait(20);
    EXPECT_LE(threadCountNow(), threads); // one of the test before may just have gone
    EXPECT_TRUE(sensor.stopMeasureLoop());
    EXPECT_EQ(m_reads, 0);
    EXPECT_TRUE(log.records().isEmpty());
}

TEST_F(MeasureLoopTest, RunsOnTheGlobalThreadPoolUntilItIsStopped)
{
    FakeCupSensor sensor(5, device());
    EXPECT_EQ(QThreadPool::globalInstance()->activeThreadCount(), 0);
    EXPECT_TRUE(sensor.startMeasureLoop());
    EXPECT_TRUE(sensor.isMeasureLoopRunning());
    EXPECT_EQ(QThreadPool::globalInstance()->activeThreadCount(), 1);
    EXPECT_TRUE(waitForReads(3));
    EXPECT_EQ(deviceThreads().count(QThread::currentThread()), 0U);
    EXPECT_TRUE(sensor.stopMeasureLoop());
    EXPECT_FALSE(sensor.isMeasureLoopRunning());
    // The pool counts its thread as idle a moment after the future has finished.
    EXPECT_TRUE(QTest::qWaitFor(
        [] { return QThreadPool::globalInstance()->activeThreadCount() == 0; }, s_waitMs));

    const int readsBefore = m_reads;
    QTest::qWait(30);
    EXPECT_EQ(m_reads, readsBefore);
}

TEST_F(MeasureLoopTest, CanBeStartedAgain)
{
    FakeCupSensor sensor(5, device());
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(sensor.startMeasureLoop());
        EXPECT_TRUE(waitForReads(2));
        EXPECT_TRUE(sensor.stopMeasureLoop());
    }
}

TEST_F(MeasureLoopTest, SecondStartOnlyLogs)
{
    FakeCupSensor sensor(5, device());
    LogSpy log;
    EXPECT_TRUE(sensor.startMeasureLoop());
    EXPECT_TRUE(log.records().isEmpty());
    EXPECT_TRUE(sensor.startMeasureLoop());
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.texts().constFirst().toStdString(),
              "bool AbstractCupSensor::startMeasureLoop() : Already running !");
    EXPECT_EQ(log.count(": Already running !", 0, Log::Hardware), 1);
    EXPECT_TRUE(sensor.isMeasureLoopRunning());
    EXPECT_EQ(QThreadPool::globalInstance()->activeThreadCount(), 1);
    EXPECT_TRUE(sensor.stopMeasureLoop());
}

TEST_F(MeasureLoopTest, StopLogsBeforeAndAfterItsWait)
{
    FakeCupSensor sensor(5, device());
    sensor.startMeasureLoop();
    EXPECT_TRUE(waitForReads(1));
    const LogSpy log;
    EXPECT_TRUE(sensor.stopMeasureLoop());
    ASSERT_EQ(log.records().size(), 2);
    EXPECT_EQ(log.texts().constFirst().toStdString(),
              "bool AbstractCupSensor::stopMeasureLoop() : Waiting for read thread...");
    EXPECT_EQ(log.texts().constLast().toStdString(),
              "bool AbstractCupSensor::stopMeasureLoop() : Got it");
    EXPECT_EQ(log.count(": Waiting for read thread...", 1, Log::Hardware), 1);
    EXPECT_EQ(log.count(": Got it", 1, Log::Hardware), 1);
}

TEST_F(MeasureLoopTest, StopOfAStoppedLoopOnlyLogs)
{
    FakeCupSensor sensor(5, device());
    for (int i = 0; i < 2; ++i) {
        const LogSpy log;
        EXPECT_TRUE(sensor.stopMeasureLoop());
        ASSERT_EQ(log.records().size(), 1);
        EXPECT_EQ(log.texts().constFirst().toStdString(),
                  "bool AbstractCupSensor::stopMeasureLoop() : Not running !");
        EXPECT_EQ(log.count(": Not running !", 0, Log::Hardware), 1);
        sensor.startMeasureLoop();
        sensor.stopMeasureLoop();
    }
}

TEST_F(MeasureLoopTest, StopWaitsForTheReadAndItsReadingIsStillEmitted)
{
    QSemaphore isReading;
    QSemaphore mayGoOn;
    std::atomic<bool> isRead{false};
    FakeCupSensor sensor(0, [&](bool &error) -> quint16 {
        error = false;
        isReading.release();
        mayGoOn.acquire();
        isRead = true;
        return 412;
    });
    const ThreadSpy raw(&sensor, &AbstractCupSensor::rawValueChanged);
    sensor.startMeasureLoop();
    ASSERT_TRUE(isReading.tryAcquire(1, s_waitMs));
    const LogSpy log;
    int gotItTooEarly = 0;
    std::thread helper([&] {
        while (log.count(": Waiting for read thread...") == 0)
            std::this_thread::sleep_for(1ms);
        std::this_thread::sleep_for(50ms);
        gotItTooEarly = log.count(": Got it");
        mayGoOn.release();
    });
    EXPECT_TRUE(sensor.stopMeasureLoop());
    EXPECT_TRUE(isRead);
    EXPECT_EQ(log.count(": Got it"), 1);
    EXPECT_EQ(raw.count(), 1);
    EXPECT_EQ(isReading.available(), 0); // it has not read again
    helper.join();
    EXPECT_EQ(gotItTooEarly, 0);
}

TEST_F(MeasureLoopTest, StopWaitsForOnePeriodAtMost)
{
    FakeCupSensor sensor(300, device());
    sensor.startMeasureLoop();
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_reads == 1; }, s_waitMs));
    QElapsedTimer timer;
    timer.start();
    sensor.stopMeasureLoop();
    EXPECT_LT(timer.elapsed(), 300 + 150); // what the system may add
    EXPECT_EQ(m_reads, 1);
}

TEST_F(MeasureLoopTest, EachReadIsEmittedTheLastOneToo)
{
    for (int i = 0; i < 50; ++i) {
        FakeCupSensor sensor(1, device());
        const ThreadSpy raw(&sensor, &AbstractCupSensor::rawValueChanged);
        const int readsBefore = m_reads;
        EXPECT_FALSE(sensor.isFirstValueRead());
        sensor.startMeasureLoop();
        while (m_reads == readsBefore)
            std::this_thread::yield();
        sensor.stopMeasureLoop();
        EXPECT_GE(raw.count(), 1);
        EXPECT_EQ(raw.count(), m_reads - readsBefore);
        EXPECT_TRUE(sensor.isFirstValueRead());
    }
}

TEST_F(MeasureLoopTest, ForcedUpdateIsNoPoll)
{
    FakeCupSensor sensor(5, device());
    sensor.updateFromDevice();
    sensor.onRawValueChangedFromProtocol(1);
    EXPECT_FALSE(sensor.isFirstValueRead());
}

// -- the rhythm of the loop -----------------------------------------------------------------------

struct PeriodCase
{
    const char *pName;
    int periodMs;
    int readMs; ///< how long the device takes
    int leastMs;
    int lessThanMs; ///< the shortest time between two polls lies between these two
};

using MeasureLoopPeriods = ::testing::TestWithParam<PeriodCase>;

TEST_P(MeasureLoopPeriods, CountFromTheStartOfEachPoll)
{
    QElapsedTimer timer;
    timer.start();
    std::mutex mutex;
    std::vector<qint64> starts;
    FakeCupSensor sensor(GetParam().periodMs, [&](bool &error) -> quint16 {
        error = false;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            starts.push_back(timer.nsecsElapsed());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(GetParam().readMs));
        return 1;
    });
    const auto count = [&] {
        const std::lock_guard<std::mutex> lock(mutex);
        return starts.size();
    };
    sensor.startMeasureLoop();
    EXPECT_TRUE(QTest::qWaitFor([&] { return count() >= 6; }, s_waitMs));
    sensor.stopMeasureLoop();

    ASSERT_GE(starts.size(), 6U);
    qint64 shortest = starts[1] - starts[0];
    for (size_t i = 2; i < starts.size(); ++i)
        shortest = std::min(shortest, starts[i] - starts[i - 1]);
    // The loop counts in whole milliseconds, and so may be one early.
    EXPECT_GE(shortest, (GetParam().leastMs - 1) * 1'000'000LL);
    EXPECT_LT(shortest, GetParam().lessThanMs * 1'000'000LL);
}

const PeriodCase s_periodCases[] = {
    {"ReadTakesNoTime", 40, 0, 40, 80},
    {"ReadTakesAPartOfThePeriod", 60, 50, 60, 110},
    {"ReadTakesLongerThanThePeriod", 40, 60, 60, 100},
};
INSTANTIATE_TEST_SUITE_P(Rows, MeasureLoopPeriods, ::testing::ValuesIn(s_periodCases), caseName);

// -- where things happen --------------------------------------------------------------------------

TEST_F(MeasureLoopTest, ReadingsCrossToTheThreadOfTheOwner)
{
    FakeCupSensor sensor(2, device());
    const ThreadSpy raw(&sensor, &AbstractCupSensor::rawValueChanged);
    const ThreadSpy presence(&sensor, &AbstractCupSensor::cupPresenceChanged);
    const ThreadSpy blocked(&sensor, &AbstractCupSensor::isCupCarrierBlockedByCupChanged);
    sensor.startMeasureLoop();
    while (m_reads < 3) // no event is delivered meanwhile
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(sensor.rawValue(), 0);
    EXPECT_EQ(presence.count(), 0);
    EXPECT_TRUE(sensor.takeDecisions().empty());

    EXPECT_TRUE(QTest::qWaitFor([&] { return sensor.rawValue() == 412; }, s_waitMs));
    m_reading = 3;
    EXPECT_TRUE(QTest::qWaitFor([&] { return sensor.rawValue() == 3; }, s_waitMs));
    sensor.stopMeasureLoop();

    const std::set<QThread *> owner = {QThread::currentThread()};
    EXPECT_EQ(presence.count(), 2);
    EXPECT_EQ(presence.threads(), owner);
    EXPECT_EQ(blocked.count(), 2);
    EXPECT_EQ(blocked.threads(), owner);
    EXPECT_EQ(raw.threads(), deviceThreads());
    EXPECT_EQ(raw.threads().count(QThread::currentThread()), 0U);
    for (const auto &[pThread, value] : sensor.takeDecisions())
        EXPECT_EQ(pThread, QThread::currentThread()) << value;
}

TEST_F(MeasureLoopTest, EachPollIsEmittedHandledAndWrittenToTheFile)
{
    const LogFolder folder;
    FakeCupSensor sensor(2, device());
    sensor.setLogInFile(true);
    QSignalSpy raw(&sensor, &AbstractCupSensor::rawValueChanged);
    const ThreadSpy emitted(&sensor, &AbstractCupSensor::rawValueChanged);
    sensor.startMeasureLoop();
    EXPECT_TRUE(waitForReads(5));
    sensor.stopMeasureLoop();
    QCoreApplication::processEvents(); // those that are still on their way

    const QStringList lines = folder.lines(QStringLiteral("cup_sensor_values.txt"));
    EXPECT_GE(m_reads, 5);
    EXPECT_EQ(emitted.count(), m_reads);
    EXPECT_EQ(raw.count(), m_reads);
    EXPECT_EQ(raw.constFirst().constFirst().toUInt(), 412U);
    EXPECT_EQ(lines.size(), m_reads);
    EXPECT_EQ(lines.filter(QStringLiteral(" 00412(1)")).size(), m_reads);
}

TEST_F(MeasureLoopTest, ReadingOfAFailedReadIsEmittedAndStored)
{
    m_isFailing = true;
    m_reading = 123;
    const LogSpy log;
    FakeCupSensor sensor(5, device());
    sensor.startMeasureLoop();
    EXPECT_TRUE(QTest::qWaitFor([&] { return sensor.rawValue() == 123; }, s_waitMs));
    EXPECT_EQ(log.count("Failed"), 0);
    sensor.stopMeasureLoop();
}

TEST_F(MeasureLoopTest, ReadingsOnTheirWayDoNotOutliveTheSensor)
{
    {
        FakeCupSensor sensor(0, device());
        sensor.startMeasureLoop();
        while (m_reads < 10)
            std::this_thread::sleep_for(1ms);
        sensor.stopMeasureLoop();
    }
    QCoreApplication::processEvents();
    EXPECT_GE(m_reads, 10);
}

TEST_F(MeasureLoopTest, SensorsRunSideBySide)
{
    QThreadPool::globalInstance()->setMaxThreadCount(2); // each loop keeps one, as long as it runs
    std::atomic<int> otherReads{0};
    FakeCupSensor sensor(5, device());
    FakeCupSensor other(5, [&](bool &error) -> quint16 {
        error = false;
        ++otherReads;
        return 7;
    });
    sensor.startMeasureLoop();
    other.startMeasureLoop();
    EXPECT_TRUE(QTest::qWaitFor([&] { return sensor.rawValue() == 412 && other.rawValue() == 7; },
                                s_waitMs));
    sensor.stopMeasureLoop();
    const int before = otherReads;
    EXPECT_TRUE(QTest::qWaitFor([&] { return otherReads > before + 1; }, s_waitMs));
    other.stopMeasureLoop();
}

TEST_F(MeasureLoopTest, ThousandCyclesLeaveThreadsDescriptorsAndMemoryAsTheyWere)
{
    const Silence silence;
    QThreadPool &pool = *QThreadPool::globalInstance();
    QTest::qWait(50); // a thread is listed until it has gone
    const int threads = threadCountNow();
    int mostThreads = 0;
    FakeCupSensor sensor(1, device());
    const auto cycle = [&](int times) {
        for (int i = 0; i < times; ++i) {
            const int readsBefore = m_reads;
            sensor.startMeasureLoop();
            while (m_reads == readsBefore)
                std::this_thread::yield();
            sensor.stopMeasureLoop();
            QCoreApplication::processEvents();
            sensor.takeDecisions();
            mostThreads = std::max(mostThreads, threadCountNow());
        }
        pool.waitForDone();
        EXPECT_TRUE(QTest::qWaitFor([&] { return threadCountNow() == threads; }, s_waitMs));
    };
    cycle(100); // allocates what stays
    const int descriptors = descriptorCount();
    const size_t memory = mallinfo2().uordblks; // 0 under a sanitizer, which looks for itself
    cycle(1000);

    // One allocation of 32 bytes that stays in each cycle would be seen.
    EXPECT_LE(mallinfo2().uordblks, memory + 24 * 1024);
    EXPECT_EQ(descriptorCount(), descriptors);
    EXPECT_LE(mostThreads, threads + pool.maxThreadCount());
}

// -- forced update --------------------------------------------------------------------------------

TEST_F(MeasureLoopTest, ForcedUpdateOfASensorThatIsNotPolledReturnsTrueWithoutReading)
{
    const LogSpy log;
    FakeCupSensor sensor(false);
    sensor.setDevice(device());
    EXPECT_TRUE(sensor.updateFromDevice());
    EXPECT_FALSE(sensor.isAnyCupPresent(true));
    EXPECT_EQ(m_reads, 0);
    EXPECT_TRUE(log.records().isEmpty());
}

TEST_F(MeasureLoopTest, ForcedUpdateLeavesReadingToTheLoopWhileThatRuns)
{
    FakeCupSensor sensor(5, device());
    sensor.startMeasureLoop();
    const LogSpy log;
    EXPECT_TRUE(sensor.updateFromDevice());
    EXPECT_FALSE(sensor.isAnyCupPresent(true)); // 412 is still on its way
    EXPECT_EQ(log.count("Updating"), 0);
    EXPECT_TRUE(waitForReads(2));
    EXPECT_EQ(deviceThreads().count(QThread::currentThread()), 0U);
    sensor.stopMeasureLoop();
    EXPECT_TRUE(sensor.updateFromDevice());
    EXPECT_EQ(deviceThreads().count(QThread::currentThread()), 1U);
}

struct ForcedCase
{
    const char *pName;
    quint16 before;
    quint16 reading;
    int changes; ///< how often cupPresenceChanged() comes
    bool isCupPresent;
};

class MeasureLoopForcedUpdates : public MeasureLoopTest,
                                 public ::testing::WithParamInterface<ForcedCase>
{
};

TEST_P(MeasureLoopForcedUpdates, StoreTheReadingAndSignalWhenItIsAnother)
{
    const LogFolder folder;
    FakeCupSensor sensor(1000, device());
    sensor.onRawValueChangedFromProtocol(GetParam().before);
    sensor.setLogInFile(true);
    m_reading = GetParam().reading;
    const QSignalSpy changed(&sensor, &AbstractCupSensor::cupPresenceChanged);
    const QSignalSpy raw(&sensor, &AbstractCupSensor::rawValueChanged);
    const LogSpy log;
    EXPECT_TRUE(sensor.updateFromDevice());

    EXPECT_EQ(m_reads, 1);
    EXPECT_EQ(sensor.rawValue(), GetParam().reading);
    EXPECT_EQ(sensor.isAnyCupPresent(false), GetParam().isCupPresent);
    EXPECT_EQ(m_reads, 1);
    EXPECT_EQ(changed.count(), GetParam().changes);
    EXPECT_EQ(raw.count(), 0);
    EXPECT_TRUE(folder.names().isEmpty());
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.texts().constFirst().toStdString(),
              "Updating cup sensor position due to forced update");
    EXPECT_EQ(log.count("Updating", 1, Log::Hardware), 1);
}

const ForcedCase s_forcedCases[] = {
    {"EqualWithoutCup", 7, 7, 0, false}, {"EqualWithCup", 412, 412, 0, true},
    {"OtherWithoutCup", 7, 8, 1, false}, {"OtherWithCup", 412, 413, 1, true},
    {"CupComes", 99, 100, 1, true},      {"CupGoes", 100, 99, 1, false},
};
INSTANTIATE_TEST_SUITE_P(Rows, MeasureLoopForcedUpdates, ::testing::ValuesIn(s_forcedCases),
                         caseName);

TEST_F(MeasureLoopTest, ForcedUpdateStoresTheReadingBeforeItSignals)
{
    FakeCupSensor sensor(1000, device());
    std::vector<quint16> seen;
    QObject::connect(&sensor, &AbstractCupSensor::cupPresenceChanged, &sensor,
                     [&] { seen.push_back(sensor.rawValue()); });
    EXPECT_TRUE(sensor.updateFromDevice());
    EXPECT_EQ(seen, std::vector<quint16>{412});
}

TEST_F(MeasureLoopTest, ForcedUpdateThatFailsIsLoggedAndKeepsTheReading)
{
    FakeCupSensor sensor(1000, device());
    sensor.onRawValueChangedFromProtocol(412);
    m_reading = 3;
    m_isFailing = true;
    const QSignalSpy changed(&sensor, &AbstractCupSensor::cupPresenceChanged);
    const LogSpy log;
    EXPECT_FALSE(sensor.updateFromDevice());
    EXPECT_EQ(sensor.rawValue(), 412);
    EXPECT_EQ(changed.count(), 0);
    ASSERT_EQ(log.records().size(), 2);
    EXPECT_EQ(log.texts().constLast().toStdString(),
              "bool AbstractCupSensor::updateFromDevice() : Failed in readRawValuesFromDevice");
    EXPECT_EQ(log.count(": Failed in readRawValuesFromDevice", 3, Log::Machine), 1);
    EXPECT_TRUE(sensor.isAnyCupPresent(true));
}

TEST_F(MeasureLoopTest, PresenceAsksTheDeviceOnlyWhenForced)
{
    FakeCupSensor sensor(1000, device());
    EXPECT_FALSE(sensor.isAnyCupPresent(false));
    EXPECT_EQ(m_reads, 0);
    EXPECT_TRUE(sensor.isAnyCupPresent(true));
    EXPECT_EQ(m_reads, 1);
    EXPECT_TRUE(sensor.isAnyCupPresent(false));
    EXPECT_EQ(m_reads, 1);
}
