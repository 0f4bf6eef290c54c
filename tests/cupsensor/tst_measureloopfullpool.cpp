// The measuring loop of a cup sensor when the thread pool has no free thread for it.

#include "cupsensor/abstractcupsensor.h"

#include "cupsensor/fakecupsensor.h"
#include "support/logspy.h"

#include <QRunnable>
#include <QSemaphore>
#include <QTest>
#include <QThreadPool>
#include <atomic>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

constexpr int s_waitMs = 5000; ///< for what comes within a few periods

/// Another job keeps the pool's only thread until it is let go.
class FullPool
{
public:
    FullPool()
    {
        m_pool.setMaxThreadCount(1);
        m_pool.start(new Job(this));
        EXPECT_TRUE(m_isRunning.tryAcquire(1, s_waitMs));
    }
    ~FullPool()
    {
        letGo();
        m_pool.waitForDone();
        m_pool.setMaxThreadCount(m_threadsBefore);
    }
    Q_DISABLE_COPY_MOVE(FullPool)

    void letGo() { m_mayEnd.release(); }

private:
    class Job : public QRunnable
    {
    public:
        explicit Job(FullPool *pOwner)
            : m_pOwner(pOwner)
        {
        }
        void run() override
        {
            m_pOwner->m_isRunning.release();
            m_pOwner->m_mayEnd.acquire();
        }

    private:
        FullPool *m_pOwner;
    };

    QThreadPool &m_pool = *QThreadPool::globalInstance();
    const int m_threadsBefore = m_pool.maxThreadCount();
    QSemaphore m_isRunning;
    QSemaphore m_mayEnd;
};

} // namespace

class MeasureLoopFullPool : public ::testing::Test
{
protected:
    MeasureLoopFullPool() { alarm(20); } // ends the process when a stop waits for the other job
    ~MeasureLoopFullPool() override { alarm(0); }
    Q_DISABLE_COPY_MOVE(MeasureLoopFullPool)

    /// Counts the reads, those in the owner's thread apart.
    FakeCupSensor::Device device()
    {
        return [this](bool &error) -> quint16 {
            error = false;
            ++(QThread::currentThread() == m_pOwner ? m_ownReads : m_reads);
            return 412;
        };
    }

    std::atomic<int> m_reads{0};
    std::atomic<int> m_ownReads{0};

private:
    const QThread *const m_pOwner = QThread::currentThread();
};

TEST_F(MeasureLoopFullPool, LoopThatStillWaitsForAThreadIsStoppedAtOnceWithoutARead)
{
    FakeCupSensor sensor(1000, device());
    const ThreadSpy raw(&sensor, &AbstractCupSensor::rawValueChanged);
    {
        FullPool pool;
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(sensor.startMeasureLoop());
            EXPECT_TRUE(sensor.isMeasureLoopRunning());
            const LogSpy log;
            EXPECT_TRUE(sensor.stopMeasureLoop());
            EXPECT_FALSE(sensor.isMeasureLoopRunning());
            EXPECT_EQ(log.count(": Waiting for read thread...", 1, Log::Hardware), 1);
            EXPECT_EQ(log.count(": Got it", 1, Log::Hardware), 1);
        }
    }
    EXPECT_EQ(m_reads + m_ownReads,
              0); // not by the job that was queued either, now that there is a thread
    EXPECT_EQ(raw.count(), 0);
    EXPECT_FALSE(sensor.isFirstValueRead());

    sensor.startMeasureLoop();
    EXPECT_TRUE(QTest::qWaitFor([this] { return m_reads > 0; }, s_waitMs));
    sensor.stopMeasureLoop();
    EXPECT_EQ(m_ownReads, 0);
}

TEST_F(MeasureLoopFullPool, LoopPollsAsSoonAsThePoolHasAThreadForIt)
{
    FullPool pool;
    FakeCupSensor sensor(1, device());
    sensor.startMeasureLoop();
    QTest::qWait(30);
    EXPECT_EQ(m_reads + m_ownReads, 0);
    EXPECT_TRUE(sensor.isMeasureLoopRunning());
    pool.letGo();
    EXPECT_TRUE(QTest::qWaitFor([this] { return m_reads >= 2; }, s_waitMs));
    sensor.stopMeasureLoop();
    EXPECT_EQ(m_ownReads, 0);
}
