#include "buttons/abstractphysicalbuttonsreader.h"

#include "support/assertspy.h"
#include "support/logspy.h"

#include <QCoreApplication>
#include <QMetaMethod>
#include <QTest>
#include <QThread>

#include <atomic>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

/// Counts its reads and asks for no other.
class CountingReader : public AbstractPhysicalButtonsReader
{
public:
    void readInput() override
    {
        m_pThread = QThread::currentThread();
        ++m_reads;
    }

    std::atomic<int> m_reads{0};
    std::atomic<QThread *> m_pThread{nullptr}; ///< of the latest read
};

namespace {

/// Long enough for a read that was scheduled after the read interval or before.
void passReadIntervals()
{
    QTest::qWait(250);
}

} // namespace

TEST(AbstractPhysicalButtonsReaderTest, IsMadeWithoutParentAndReadsEvery100Milliseconds)
{
    const CountingReader reader;
    EXPECT_EQ(reader.parent(), nullptr);
    EXPECT_EQ(reader.readInterval(), 100);
}

TEST(AbstractPhysicalButtonsReaderTest, NegativeIntervalLeavesTheIntervalAt100)
{
    CountingReader reader;
    const LogSpy log;
    const AssertSpy asserts;
    for (const int interval : {-5, -1, std::numeric_limits<int>::min()}) {
        reader.setReadInterval(interval);
        EXPECT_EQ(reader.readInterval(), 100);
    }
    EXPECT_TRUE(log.records().isEmpty());
    EXPECT_TRUE(asserts.records().isEmpty());
}

TEST(AbstractPhysicalButtonsReaderTest, IntervalIsStored)
{
    CountingReader reader;
    for (const int interval : {250, 1, 0, std::numeric_limits<int>::max()}) {
        reader.setReadInterval(interval);
        EXPECT_EQ(reader.readInterval(), interval);
        reader.setReadInterval(-5);
        EXPECT_EQ(reader.readInterval(), interval);
    }
}

TEST(AbstractPhysicalButtonsReaderTest, FirstReadComesWithTheEventLoopAndNotAtOnce)
{
    CountingReader reader;
    reader.startReading();
    EXPECT_EQ(reader.m_reads, 0);
    QCoreApplication::processEvents();
    EXPECT_EQ(reader.m_reads, 1);
}

TEST(AbstractPhysicalButtonsReaderTest, ReadsNothingBeforeItIsStarted)
{
    const CountingReader reader;
    passReadIntervals();
    EXPECT_EQ(reader.m_reads, 0);
}

TEST(AbstractPhysicalButtonsReaderTest, SecondStartDoesNotScheduleASecondReadLoop)
{
    CountingReader reader;
    reader.startReading();
    reader.startReading();
    passReadIntervals();
    EXPECT_EQ(reader.m_reads, 1);
    reader.startReading();
    passReadIntervals();
    EXPECT_EQ(reader.m_reads, 1);
}

TEST(AbstractPhysicalButtonsReaderTest, ReadsInItsOwnThread)
{
    QThread thread;
    CountingReader reader;
    reader.moveToThread(&thread);
    QObject::connect(&thread, &QThread::started, &reader,
                     &AbstractPhysicalButtonsReader::startReading);
    thread.start();
    EXPECT_TRUE(QTest::qWaitFor([&reader] { return reader.m_reads == 1; }));
    thread.quit();
    thread.wait();
    EXPECT_EQ(reader.m_pThread, &thread);
}

TEST(AbstractPhysicalButtonsReaderTest, DeletedBeforeItsFirstReadReadsNothing)
{
    auto *const pReader = new CountingReader;
    pReader->startReading();
    delete pReader;
    QCoreApplication::processEvents(); // a read of what is gone would end the process
}

TEST(AbstractPhysicalButtonsReaderTest, DeclaresThePressAloneAndItsSlotsInOrder)
{
    const QMetaObject &meta = AbstractPhysicalButtonsReader::staticMetaObject;
    EXPECT_EQ(meta.superClass(), &QObject::staticMetaObject);
    std::vector<std::string> signatures;
    std::vector<int> types;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        signatures.push_back(meta.method(i).methodSignature().toStdString());
        types.push_back(meta.method(i).methodType());
        EXPECT_EQ(meta.method(i).access(), QMetaMethod::Public);
    }
    const std::vector<std::string> expected = {"buttonPressed(PhysicalButtonId)", "startReading()",
                                               "readInput()"};
    EXPECT_EQ(signatures, expected);
    const std::vector<int> expectedTypes = {QMetaMethod::Signal, QMetaMethod::Slot,
                                            QMetaMethod::Slot};
    EXPECT_EQ(types, expectedTypes);
}

TEST(AbstractPhysicalButtonsReaderTest, SlotReadInputIsThatOfThePlatform)
{
    CountingReader reader;
    EXPECT_TRUE(QMetaObject::invokeMethod(&reader, "readInput", Qt::DirectConnection));
    EXPECT_EQ(reader.m_reads, 1);
}
