#include "buttons/physicalbuttons.h"

#include "buttons/buttondevice.h"
#include "buttons/inputeventbuttonsreader.h"
#include "hardwareenvironment.h"
#include "support/processcounts.h"
#include "support/scopedvariable.h"

#include <QElapsedTimer>
#include <QMetaMethod>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <atomic>
#include <memory>
#include <type_traits>
#include <vector>

namespace {

/// What a test looks at while the reading thread goes on.
struct Readings
{
    std::atomic<int> count{0};
    std::atomic<int> ended{0};
    std::atomic<int> deletions{0};
    std::atomic<QThread *> pThread{nullptr};
    std::atomic<int> priority{QThread::InheritPriority};
};

constexpr int s_waitMs = 5000;

} // namespace

/// Presses and releases the button of its number of reads at each read.
class TalkingReader : public AbstractPhysicalButtonsReader
{
    Q_OBJECT

public:
    explicit TalkingReader(Readings &readings, int readMs = 0)
        : m_readings(readings)
        , m_readMs(readMs)
    {
        setReadInterval(1);
    }
    ~TalkingReader() override { ++m_readings.deletions; }

    void readInput() override
    {
        m_readings.pThread = QThread::currentThread();
        m_readings.priority = QThread::currentThread()->priority();
        const auto button = static_cast<PhysicalButtonId>(++m_readings.count);
        QThread::msleep(static_cast<unsigned long>(m_readMs));
        Q_EMIT buttonPressed(button);
        Q_EMIT buttonReleased(button);
        QTimer::singleShot(readInterval(), this, &TalkingReader::readInput);
        ++m_readings.ended;
    }

Q_SIGNALS:
    void buttonReleased(PhysicalButtonId button);

private:
    Readings &m_readings;
    const int m_readMs;
};

// -- identifier and interface ---------------------------------------------------------------------

TEST(PhysicalButtonIdTest, IsAnEnumerationOfFourBytesKnownByItsName)
{
    EXPECT_TRUE(std::is_enum_v<PhysicalButtonId>);
    EXPECT_EQ(sizeof(PhysicalButtonId), 4U);
    const PhysicalButtons buttons(nullptr);
    const int type = QMetaType::type("PhysicalButtonId");
    EXPECT_NE(type, static_cast<int>(QMetaType::UnknownType));
    EXPECT_EQ(type, qMetaTypeId<PhysicalButtonId>());
}

TEST(PhysicalButtonsInterface, SignalsStandInTheirOrder)
{
    const QMetaObject &meta = PhysicalButtons::staticMetaObject;
    EXPECT_EQ(meta.superClass(), &QObject::staticMetaObject);
    std::vector<std::string> names;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        if (meta.method(i).methodType() == QMetaMethod::Signal)
            names.push_back(meta.method(i).methodSignature().toStdString());
    }
    const std::vector<std::string> expected = {"buttonPressed(PhysicalButtonId)",
                                               "buttonReleased(PhysicalButtonId)"};
    EXPECT_EQ(names, expected);
}

// -- the singleton --------------------------------------------------------------------------------

TEST(PhysicalButtonsInstance, TwoCallsReturnTheSameObject)
{
    PhysicalButtons *const pButtons = PhysicalButtons::instance();
    ASSERT_NE(pButtons, nullptr);
    EXPECT_EQ(PhysicalButtons::instance(), pButtons);
    EXPECT_EQ(pButtons->parent(), nullptr);
    delete pButtons;
}

TEST(PhysicalButtonsInstance, IsANewObjectAfterItWasDeleted)
{
    for (int cycle = 0; cycle < 3; ++cycle) {
        QPointer<PhysicalButtons> pButtons = PhysicalButtons::instance();
        ASSERT_FALSE(pButtons.isNull());
        // The new one may well have the address of the old one.
        EXPECT_EQ(pButtons->objectName(), QString());
        pButtons->setObjectName(QStringLiteral("old"));
        EXPECT_EQ(PhysicalButtons::instance()->objectName(), QStringLiteral("old"));
        delete pButtons;
        EXPECT_TRUE(pButtons.isNull());
    }
}

TEST(PhysicalButtonsInstance, StaysWhenAnotherObjectIsDeleted)
{
    PhysicalButtons *const pInstance = PhysicalButtons::instance();
    {
        const PhysicalButtons other(nullptr);
        EXPECT_NE(PhysicalButtons::instance(), &other);
    }
    EXPECT_EQ(PhysicalButtons::instance(), pInstance);
    delete pInstance;
}

TEST(PhysicalButtonsInstance, IsNotTheFirstObjectMadeOtherwise)
{
    const PhysicalButtons first(nullptr);
    PhysicalButtons *const pInstance = PhysicalButtons::instance();
    EXPECT_NE(pInstance, &first);
    delete pInstance;
}

TEST(PhysicalButtonsInstance, ReadsTheInputDeviceOnTheBoardAndNothingOnADesktop)
{
    ButtonDevice device;
    device.plugIn();
    device.write(press(KEY_F1));
    const ScopedVariable path("VY_PATH_BUTTONS", QFile::encodeName(device.path()));
    const std::unique_ptr<PhysicalButtons> pButtons(PhysicalButtons::instance());
    const QSignalSpy pressed(pButtons.get(), &PhysicalButtons::buttonPressed);
#ifdef VY_PLATFORM_BOARD
    ASSERT_TRUE(QTest::qWaitFor([&pressed] { return pressed.count() > 0; }, s_waitMs));
    EXPECT_EQ(pressed[0][0].value<PhysicalButtonId>(), static_cast<int>(KEY_F1));
#else
    QTest::qWait(250); // longer than two read intervals
    EXPECT_EQ(pressed.count(), 0);
#endif
}

// -- without a reader -----------------------------------------------------------------------------

TEST(PhysicalButtonsWithoutReader, NeverEmitAndStartNoThread)
{
    const int threads = threadCount();
    QObject parent;
    std::vector<PhysicalButtons *> all = {new PhysicalButtons(nullptr, &parent)};
    if (HardwareEnvironment::getPlatformVariable() == 1) // a desktop has no reader
        all.push_back(new PhysicalButtons(&parent));
    for (const PhysicalButtons *const pButtons : all) {
        EXPECT_EQ(pButtons->parent(), &parent);
        const QSignalSpy pressed(pButtons, &PhysicalButtons::buttonPressed);
        const QSignalSpy released(pButtons, &PhysicalButtons::buttonReleased);
        QTest::qWait(250); // longer than two read intervals
        EXPECT_EQ(threadCount(), threads);
        EXPECT_EQ(pressed.count(), 0);
        EXPECT_EQ(released.count(), 0);
    }
}

// -- with a reader --------------------------------------------------------------------------------

TEST(PhysicalButtonsWithReader, SignalsArriveInOrderInTheThreadOfTheOwner)
{
    Readings readings;
    PhysicalButtons buttons(new TalkingReader(readings), nullptr);
    std::vector<int> events; ///< releases are negative
    bool isOwnThread = true;
    const auto take = [&](int event) {
        isOwnThread = isOwnThread && QThread::currentThread() == buttons.thread();
        events.push_back(event);
    };
    // Without a context object these run where the signal is emitted.
    QObject::connect(&buttons, &PhysicalButtons::buttonPressed,
                     [&take](PhysicalButtonId button) { take(button); });
    QObject::connect(&buttons, &PhysicalButtons::buttonReleased,
                     [&take](PhysicalButtonId button) { take(-button); });

    EXPECT_TRUE(QTest::qWaitFor([&events] { return events.size() >= 20; }, s_waitMs));
    EXPECT_TRUE(isOwnThread);
    for (size_t i = 0; i + 1 < events.size(); i += 2) {
        EXPECT_EQ(events[i], static_cast<int>(i / 2) + 1);
        EXPECT_EQ(events[i + 1], -events[i]);
    }
    EXPECT_NE(readings.pThread.load(), buttons.thread());
}

TEST(PhysicalButtonsWithReader, NothingArrivesBeforeTheEventLoopOfTheOwnerRuns)
{
    Readings readings;
    const PhysicalButtons buttons(new TalkingReader(readings), nullptr);
    const QSignalSpy pressed(&buttons, &PhysicalButtons::buttonPressed);
    QElapsedTimer time;
    time.start();
    while (readings.ended < 3 && time.elapsed() < s_waitMs)
        QThread::msleep(1);
    EXPECT_GE(readings.ended, 3);
    EXPECT_EQ(pressed.count(), 0);
    EXPECT_TRUE(QTest::qWaitFor([&pressed] { return pressed.count() >= 3; }, s_waitMs));
}

TEST(PhysicalButtonsWithReader, ReadingThreadIsTimeCritical)
{
    Readings readings;
    const PhysicalButtons buttons(new TalkingReader(readings), nullptr);
    EXPECT_TRUE(QTest::qWaitFor([&readings] { return readings.ended > 0; }, s_waitMs));
    EXPECT_EQ(readings.priority, static_cast<int>(QThread::TimeCriticalPriority));
}

TEST(PhysicalButtonsWithReader, DestructorStopsTheThreadAndDeletesTheReader)
{
    const int threads = threadCount();
    Readings readings;
    {
        const PhysicalButtons buttons(new TalkingReader(readings), nullptr);
        EXPECT_TRUE(QTest::qWaitFor([&readings] { return readings.ended > 0; }, s_waitMs));
        EXPECT_EQ(threadCount(), threads + 1);
    }
    EXPECT_EQ(threadCount(), threads);
    EXPECT_EQ(readings.deletions, 1);
    const int count = readings.count;
    QTest::qWait(50);
    EXPECT_EQ(readings.count, count);
}

TEST(PhysicalButtonsWithReader, DestructorWaitsForTheReadThatRuns)
{
    Readings readings;
    {
        const PhysicalButtons buttons(new TalkingReader(readings, 200), nullptr);
        EXPECT_TRUE(QTest::qWaitFor([&readings] { return readings.count > 0; }, s_waitMs));
        EXPECT_EQ(readings.ended, 0);
    }
    EXPECT_EQ(readings.ended, readings.count);
    EXPECT_EQ(readings.deletions, 1);
}

TEST(PhysicalButtonsWithReader, ReceiverHearsNothingAfterTheDestructor)
{
    Readings readings;
    int events = 0;
    QObject receiver;
    auto pButtons = std::make_unique<PhysicalButtons>(new TalkingReader(readings), nullptr);
    QObject::connect(pButtons.get(), &PhysicalButtons::buttonPressed, &receiver,
                     [&events] { ++events; });
    EXPECT_TRUE(QTest::qWaitFor([&events] { return events > 0; }, s_waitMs));
    QThread::msleep(20); // meanwhile more are on their way
    pButtons.reset();
    const int before = events;
    QTest::qWait(20);
    EXPECT_EQ(events, before);
}

TEST(PhysicalButtonsWithReader, OwnerMayDeleteThemInTheirSignal)
{
    Readings readings;
    QPointer<PhysicalButtons> pButtons = new PhysicalButtons(new TalkingReader(readings), nullptr);
    QObject::connect(pButtons, &PhysicalButtons::buttonPressed, pButtons, [&pButtons] {
        if (!pButtons.isNull())
            pButtons->deleteLater();
    });
    EXPECT_TRUE(QTest::qWaitFor([&pButtons] { return pButtons.isNull(); }, s_waitMs));
    EXPECT_EQ(readings.deletions, 1);
}

TEST(PhysicalButtonsWithReader, ManyLivesLeaveNoThreadAndNoDescriptor)
{
    ButtonDevice device;
    device.plugIn();
    {
        const PhysicalButtons first(new InputEventButtonsReader(device.path()), nullptr);
        QTest::qWait(20);
    }
    const int threads = threadCount();
    const int descriptors = descriptorCount();
    for (int cycle = 0; cycle < 300; ++cycle) {
        auto *const pReader = new InputEventButtonsReader(device.path());
        pReader->setReadInterval(1);
        const PhysicalButtons buttons(pReader, nullptr);
        if (cycle % 10 == 0)
            QTest::qWait(3); // else it ends while it starts
    }
    EXPECT_EQ(threadCount(), threads);
    EXPECT_EQ(descriptorCount(), descriptors);
}

TEST(PhysicalButtonsWithReader, TellWhatAnInputDeviceTells)
{
    ButtonDevice device;
    device.plugIn();
    auto *const pReader = new InputEventButtonsReader(device.path());
    pReader->setReadInterval(1);
    const PhysicalButtons buttons(pReader, nullptr);
    const QSignalSpy pressed(&buttons, &PhysicalButtons::buttonPressed);
    const QSignalSpy released(&buttons, &PhysicalButtons::buttonReleased);

    device.write(press(KEY_F1));
    ASSERT_TRUE(QTest::qWaitFor([&] { return pressed.count() == 1; }, s_waitMs));
    EXPECT_EQ(released.count(), 0);
    EXPECT_EQ(pressed[0][0].value<PhysicalButtonId>(), static_cast<int>(KEY_F1));
    device.write(release(KEY_F1) + press(KEY_F2));
    ASSERT_TRUE(QTest::qWaitFor([&] { return pressed.count() == 2; }, s_waitMs));
    ASSERT_EQ(released.count(), 1);
    EXPECT_EQ(released[0][0].value<PhysicalButtonId>(), static_cast<int>(KEY_F1));

    device.unplug();
    ASSERT_TRUE(QTest::qWaitFor([&] { return released.count() == 2; }, s_waitMs));
    EXPECT_EQ(released[1][0].value<PhysicalButtonId>(), static_cast<int>(KEY_F2));
    device.plugIn();
    device.write(press(KEY_F2));
    ASSERT_TRUE(QTest::qWaitFor([&] { return pressed.count() == 3; }, s_waitMs));
}

#include "tst_physicalbuttons.moc"
