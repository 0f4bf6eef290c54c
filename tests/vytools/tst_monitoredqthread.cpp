#include "monitoredqthread.h"

#include "support/casename.h"
#include "support/logspy.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSemaphore>
#include <QTest>
#include <atomic>
#include <ctime>
#include <gtest/gtest.h>
#include <memory>
#include <sys/syscall.h>
#include <unistd.h>

using monitored_threads::MonitoredQThread;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using namespace std::chrono_literals;

namespace {

std::atomic<std::int64_t> s_clockAheadNs{0};

} // namespace

// This program's monotonic clock in place of the C library's, so that a test can put it on: a stall
// takes seconds. The clocks of Qt and of std::chrono ask it.
extern "C" __attribute__((no_sanitize("address", "thread", "undefined"))) int
clock_gettime(clockid_t clock, timespec *pTime) noexcept
{
    constexpr std::int64_t s_second = 1'000'000'000;
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, pTime));
    if (result != 0 || clock != CLOCK_MONOTONIC)
        return result;
    const std::int64_t ns = pTime->tv_nsec + s_clockAheadNs.load();
    pTime->tv_sec += ns / s_second;
    pTime->tv_nsec = ns % s_second;
    return 0;
}

namespace {

constexpr milliseconds s_stall = MonitoredQThread::s_stallLimit + 1ms; ///< too long without a tick

void putClockOn(milliseconds time)
{
    s_clockAheadNs += nanoseconds(time).count();
}

/// Keeps the event loop of the thread of `pContext` busy until the end of the scope.
class Blockade
{
public:
    explicit Blockade(QObject *pContext)
    {
        QMetaObject::invokeMethod(
            pContext,
            [this] {
                m_begun.release();
                m_end.acquire();
                m_ended.release();
            },
            Qt::QueuedConnection);
        m_begun.acquire();
    }
    ~Blockade()
    {
        m_end.release();
        m_ended.acquire();
    }
    Q_DISABLE_COPY_MOVE(Blockade)

private:
    QSemaphore m_begun;
    QSemaphore m_end;
    QSemaphore m_ended;
};

} // namespace

class MonitoredQThreadTest : public ::testing::Test
{
protected:
    ~MonitoredQThreadTest() override
    {
        for (const auto &pThread : m_threads) {
            pThread->quit();
            pThread->wait();
        }
    }

    MonitoredQThread &makeThread(bool isTickingAutomatically,
                                 const QString &name = QStringLiteral("GpioReader"))
    {
        m_threads.push_back(std::make_unique<MonitoredQThread>(name, isTickingAutomatically));
        return *m_threads.back();
    }

    /// Its event loop runs when this returns.
    MonitoredQThread &startThread(bool isTickingAutomatically,
                                  const QString &name = QStringLiteral("GpioReader"))
    {
        MonitoredQThread &thread = makeThread(isTickingAutomatically, name);
        start(thread);
        return thread;
    }

    void start(MonitoredQThread &thread)
    {
        m_pContext = std::make_unique<QObject>();
        m_pContext->moveToThread(&thread);
        thread.start();
        runInThread([] {});
    }

    /// In the thread that was started last.
    void runInThread(const std::function<void()> &call) const
    {
        QMetaObject::invokeMethod(m_pContext.get(), call, Qt::BlockingQueuedConnection);
    }

    static void end(MonitoredQThread &thread)
    {
        thread.quit();
        ASSERT_TRUE(thread.wait(5000));
    }

    int stallsTold() const { return m_log.count("GpioReader"); }

    std::unique_ptr<QObject> m_pContext;
    LogSpy m_log;

private:
    std::vector<std::unique_ptr<MonitoredQThread>> m_threads;
};

struct NameCase
{
    const char *pName;
    const char *pThreadName;
    const char *pShown; ///< by the operating system
};

class MonitoredQThreadNames : public MonitoredQThreadTest,
                              public ::testing::WithParamInterface<NameCase>
{
};

TEST_P(MonitoredQThreadNames, NameIsTheObjectsAndTheOperatingSystemsToo)
{
    const MonitoredQThread &thread = startThread(true, QString::fromUtf8(GetParam().pThreadName));
    EXPECT_EQ(thread.objectName().toStdString(), GetParam().pThreadName);

    QByteArray shown;
    runInThread([&shown] {
        QFile file(QStringLiteral("/proc/thread-self/comm"));
        if (file.open(QIODevice::ReadOnly))
            shown = file.readAll().trimmed();
    });
    EXPECT_EQ(shown.toStdString(), GetParam().pShown);
}

const NameCase s_nameCases[] = {
    {"Short", "GpioReader", "GpioReader"},
    {"FifteenCharacters", "GpioReaderOfOne", "GpioReaderOfOne"},
    {"TooLong", "GpioReaderOfTheMachine", "GpioReaderOfThe"},
};
INSTANTIATE_TEST_SUITE_P(Rows, MonitoredQThreadNames, ::testing::ValuesIn(s_nameCases), caseName);

TEST_F(MonitoredQThreadTest, TimeSinceTheLastTickIsKnownOnlyWhileTheThreadRuns)
{
    for (const bool isTickingAutomatically : {false, true}) {
        MonitoredQThread &thread = makeThread(isTickingAutomatically);
        EXPECT_FALSE(thread.timeSinceLastTick().has_value());
        start(thread);
        EXPECT_TRUE(thread.timeSinceLastTick().has_value());
        end(thread);
        EXPECT_FALSE(thread.timeSinceLastTick().has_value());
    }
}

TEST_F(MonitoredQThreadTest, TickWhileTheThreadDoesNotRunDoesNotCount)
{
    MonitoredQThread &thread = makeThread(false);
    thread.tick();
    EXPECT_FALSE(thread.timeSinceLastTick().has_value());
    start(thread);
    end(thread);
    thread.tick();
    EXPECT_FALSE(thread.timeSinceLastTick().has_value());
    putClockOn(s_stall);
    thread.checkForStall();
    EXPECT_EQ(stallsTold(), 0);
}

TEST_F(MonitoredQThreadTest, TimeSinceTheLastTickCanBeAskedFromTheThreadItself)
{
    const MonitoredQThread &thread = startThread(false);
    putClockOn(3000ms);
    milliseconds time{0};
    runInThread([&] { time = thread.timeSinceLastTick().value_or(0ms); });
    EXPECT_GE(time, 3000ms);
    EXPECT_LT(time, 3900ms);
}

// Waits for the automatic tick, which comes each second.
TEST_F(MonitoredQThreadTest, TicksByItselfOnlyWhenItIsToDoSo)
{
    MonitoredQThread &manual = startThread(false);
    const MonitoredQThread &automatic = startThread(true);
    QElapsedTimer elapsed;
    elapsed.start();
    milliseconds longest{0};
    milliseconds time{0};
    do {
        longest = time;
        QThread::msleep(5);
        time = automatic.timeSinceLastTick().value_or(-1ms);
    } while (time >= longest && elapsed.elapsed() < 3000);
    EXPECT_LT(time, longest);
    EXPECT_GT(longest, MonitoredQThread::s_tickInterval / 2);
    EXPECT_GE(manual.timeSinceLastTick().value_or(0ms), milliseconds(elapsed.elapsed()));

    manual.tick();
    EXPECT_LT(manual.timeSinceLastTick().value_or(1h), MonitoredQThread::s_tickInterval / 2);
}

TEST_F(MonitoredQThreadTest, OnlyTickCountsWithoutAutomaticTicking)
{
    MonitoredQThread &thread = startThread(false);
    putClockOn(2000ms);
    runInThread([] {});
    EXPECT_GE(thread.timeSinceLastTick().value_or(0ms), 2000ms);
    runInThread([&thread] { thread.tick(); });
    EXPECT_LT(thread.timeSinceLastTick().value_or(1h), 1000ms);
    putClockOn(2000ms);
    EXPECT_GE(thread.timeSinceLastTick().value_or(0ms), 2000ms);
}

TEST_F(MonitoredQThreadTest, StallBeginsBeyondTheLimit)
{
    MonitoredQThread &thread = startThread(false);
    putClockOn(s_stall - 1000ms); // a second for a slow machine
    thread.checkForStall();
    EXPECT_EQ(stallsTold(), 0);
    putClockOn(1000ms);
    thread.checkForStall();
    EXPECT_EQ(stallsTold(), 1);
}

TEST_F(MonitoredQThreadTest, StallIsToldOnceWithTheThreadsName)
{
    MonitoredQThread &thread = startThread(true);
    const Blockade blockade(m_pContext.get());
    putClockOn(s_stall);
    for (int i = 0; i < 5; ++i) {
        thread.checkForStall();
        putClockOn(s_stall);
    }
    ASSERT_EQ(m_log.records().size(), 1);
    EXPECT_GE(m_log.records().constFirst().level, LogWarning);
    EXPECT_EQ(stallsTold(), 1);
}

TEST_F(MonitoredQThreadTest, NextStallAfterARecoveryIsToldAgain)
{
    MonitoredQThread &thread = startThread(true);
    for (int stalls = 1; stalls <= 3; ++stalls) {
        {
            const Blockade blockade(m_pContext.get());
            putClockOn(s_stall);
            thread.checkForStall();
            thread.checkForStall();
            EXPECT_EQ(stallsTold(), stalls);
        }
        // The event loop ticks, which is late by now.
        ASSERT_TRUE(QTest::qWaitFor(
            [&thread] { return thread.timeSinceLastTick() < MonitoredQThread::s_tickInterval; }));
        thread.checkForStall();
        EXPECT_EQ(stallsTold(), stalls);
    }
}

TEST_F(MonitoredQThreadTest, ThreadThatDoesNotRunDoesNotStall)
{
    MonitoredQThread &thread = makeThread(false);
    putClockOn(s_stall);
    thread.checkForStall();
    start(thread);
    thread.checkForStall();
    end(thread);
    putClockOn(s_stall);
    thread.checkForStall();
    EXPECT_EQ(stallsTold(), 0);
}

TEST_F(MonitoredQThreadTest, ThreadThatIsStartedAgainBeginsWithATick)
{
    MonitoredQThread &thread = startThread(false);
    end(thread);
    putClockOn(s_stall);
    start(thread);
    EXPECT_LT(thread.timeSinceLastTick().value_or(1h), 1000ms);
    thread.checkForStall();
    EXPECT_EQ(stallsTold(), 0);
}

TEST_F(MonitoredQThreadTest, StallAfterARestartIsToldAgain)
{
    MonitoredQThread &thread = startThread(false);
    putClockOn(s_stall);
    thread.checkForStall();
    end(thread);
    start(thread);
    thread.checkForStall();
    putClockOn(s_stall);
    thread.checkForStall();
    EXPECT_EQ(stallsTold(), 2);
}

TEST_F(MonitoredQThreadTest, WatchesByItselfWhileTheThreadRuns)
{
    MonitoredQThread &thread = startThread(false);
    QCoreApplication::processEvents();
    EXPECT_EQ(stallsTold(), 0);
    putClockOn(s_stall);
    EXPECT_TRUE(QTest::qWaitFor([this] { return stallsTold() == 1; }));
    putClockOn(s_stall);
    QTest::qWait(10);
    EXPECT_EQ(stallsTold(), 1);

    runInThread([&thread] { thread.tick(); });
    putClockOn(2 * MonitoredQThread::s_tickInterval); // so that the watching sees the recovery
    QTest::qWait(10);
    putClockOn(s_stall);
    EXPECT_TRUE(QTest::qWaitFor([this] { return stallsTold() == 2; }));

    end(thread);
    putClockOn(s_stall);
    QTest::qWait(10);
    EXPECT_EQ(stallsTold(), 2);
}
