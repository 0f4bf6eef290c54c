#include "buttons/inputeventbuttonsreader.h"

#include "buttons/buttondevice.h"
#include "support/casename.h"
#include "support/logspy.h"
#include "support/processcounts.h"

#include <QDir>
#include <QMetaMethod>
#include <QTest>

#include <algorithm>
#include <memory>
#include <vector>

namespace {

/// A button, and whether it was pressed.
using Event = std::pair<int, bool>;
using Events = std::vector<Event>;

} // namespace

/// Each test calls the reading slot itself; the event loop, which would repeat it, does not run.
class InputEventButtonsReaderTest : public ::testing::Test
{
protected:
    InputEventButtonsReaderTest()
    {
        m_device.plugIn();
        makeReader();
    }

    void makeReader()
    {
        m_pReader = std::make_unique<InputEventButtonsReader>(m_device.path());
        QObject::connect(m_pReader.get(), &InputEventButtonsReader::buttonPressed, m_pReader.get(),
                         [this](PhysicalButtonId button) { m_events.emplace_back(button, true); });
        QObject::connect(m_pReader.get(), &InputEventButtonsReader::buttonReleased, m_pReader.get(),
                         [this](PhysicalButtonId button) { m_events.emplace_back(button, false); });
    }

    /// What one read tells.
    Events read()
    {
        m_events.clear();
        m_pReader->readInput();
        return m_events;
    }

    Events read(const QByteArray &bytes)
    {
        m_device.write(bytes);
        return read();
    }

    ButtonDevice m_device;
    std::unique_ptr<InputEventButtonsReader> m_pReader;
    Events m_events;
};

TEST_F(InputEventButtonsReaderTest, TellsPressAndRelease)
{
    const LogSpy log;
    EXPECT_EQ(read(), Events());
    EXPECT_EQ(read(press(KEY_F1)), Events({{KEY_F1, true}}));
    EXPECT_EQ(read(), Events());
    EXPECT_EQ(read(release(KEY_F1)), Events({{KEY_F1, false}}));
    EXPECT_EQ(read(), Events());
    EXPECT_EQ(log.count(m_device.path(), 4), 0);
}

TEST_F(InputEventButtonsReaderTest, KeepsTheOrderWithinOneRead)
{
    const Events expected = {
        {KEY_F1, true}, {KEY_F2, true}, {KEY_F1, false}, {KEY_F2, false}, {KEY_F1, true}};
    QByteArray bytes;
    for (const Event &event : expected)
        bytes += event.second ? press(event.first) : release(event.first);
    EXPECT_EQ(read(bytes), expected);
}

TEST_F(InputEventButtonsReaderTest, TakesTheWholeRangeOfKeyCodes)
{
    for (const int code : {0, 1, 255, 0x100, KEY_MAX, 0x7fff, 0xffff}) {
        EXPECT_EQ(read(press(code)), Events({{code, true}}));
        EXPECT_EQ(read(release(code)), Events({{code, false}}));
    }
}

struct LeftOutCase
{
    const char *pName;
    int type;
    int value;
};

class InputEventsLeftOut : public InputEventButtonsReaderTest,
                           public ::testing::WithParamInterface<LeftOutCase>
{
};

TEST_P(InputEventsLeftOut, TellNothingAndDisturbNothing)
{
    const QByteArray other = record(GetParam().type, KEY_F1, GetParam().value);
    EXPECT_EQ(read(other), Events());
    EXPECT_EQ(read(press(KEY_F1) + other + other), Events({{KEY_F1, true}}));
    EXPECT_EQ(read(other), Events());
    EXPECT_EQ(read(other + release(KEY_F1) + other), Events({{KEY_F1, false}}));
}

const LeftOutCase s_leftOutCases[] = {
    {"Repeat", EV_KEY, 2},   {"KeyThree", EV_KEY, 3}, {"KeyMinusOne", EV_KEY, -1},
    {"Key256", EV_KEY, 256}, {"Report", EV_SYN, 0},   {"ReportOne", EV_SYN, 1},
    {"Scan", EV_MSC, 1},     {"ScanZero", EV_MSC, 0}, {"Relative", EV_REL, 1},
    {"Absolute", EV_ABS, 1}, {"Switch", EV_SW, 1},    {"SwitchOff", EV_SW, 0},
    {"Light", EV_LED, 1},    {"Unknown", EV_MAX, 1},  {"TypeWithAKeyInItsLowByte", 0x101, 1},
};
INSTANTIATE_TEST_SUITE_P(Rows, InputEventsLeftOut, ::testing::ValuesIn(s_leftOutCases), caseName);

TEST_F(InputEventButtonsReaderTest, HalfRecordWaitsForItsRest)
{
    const int size = sizeof(input_event);
    for (int split = 1; split < size; ++split) {
        const QByteArray first = press(KEY_F1);
        EXPECT_EQ(read(first.left(split)), Events()) << split;
        EXPECT_EQ(read(), Events()) << split;
        EXPECT_EQ(read(first.mid(split) + release(KEY_F1).left(split)), Events({{KEY_F1, true}}))
            << split;
        EXPECT_EQ(read(release(KEY_F1).mid(split)), Events({{KEY_F1, false}})) << split;
    }
}

TEST_F(InputEventButtonsReaderTest, RecordMayComeByteByByte)
{
    const QByteArray bytes = press(KEY_F1) + release(KEY_F1);
    Events all;
    for (int i = 0; i < bytes.size(); ++i) {
        const Events events = read(bytes.mid(i, 1));
        all.insert(all.end(), events.begin(), events.end());
    }
    EXPECT_EQ(all, Events({{KEY_F1, true}, {KEY_F1, false}}));
}

TEST_F(InputEventButtonsReaderTest, OneReadIsBounded)
{
    constexpr int s_waiting = 1000;
    for (int i = 0; i < s_waiting / 2; ++i)
        m_device.write(press(i) + release(i));

    for (int left = s_waiting; left > 0; left -= InputEventButtonsReader::s_recordsPerRead)
        EXPECT_EQ(read().size(),
                  static_cast<size_t>(std::min(left, InputEventButtonsReader::s_recordsPerRead)));
    EXPECT_EQ(read(), Events());
}

TEST_F(InputEventButtonsReaderTest, FloodLosesNothingAndKeepsTheOrder)
{
    constexpr int s_records = 100000;
    constexpr int s_buttons = 700;
    QByteArray flood;
    Events expected;
    for (int i = 0; i < s_records / 2; ++i) {
        flood += press(i % s_buttons) + release(i % s_buttons);
        expected.emplace_back(i % s_buttons, true);
        expected.emplace_back(i % s_buttons, false);
    }

    // The device takes as much as there is room for, often up to the middle of a record.
    Events all;
    int offered = 0;
    size_t longest = 0;
    int idle = 0;
    while (all.size() < expected.size() && idle < 3) {
        if (offered < flood.size())
            offered += m_device.offer(flood.mid(offered, 20001));
        const Events events = read();
        idle = events.empty() ? idle + 1 : 0;
        longest = std::max(longest, events.size());
        all.insert(all.end(), events.begin(), events.end());
    }
    EXPECT_EQ(offered, flood.size());
    EXPECT_EQ(longest, static_cast<size_t>(InputEventButtonsReader::s_recordsPerRead));
    ASSERT_EQ(all.size(), expected.size());
    EXPECT_TRUE(all == expected);
}

// -- a device that is not there -------------------------------------------------------------------

TEST_F(InputEventButtonsReaderTest, MissingDeviceIsToldOnceAndLookedForAgain)
{
    m_device.unplug();
    const LogSpy log;
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(read(), Events());
    EXPECT_EQ(log.count(m_device.path()), 1);
    EXPECT_EQ(log.records().size(), 1);
    EXPECT_GE(log.records().constFirst().level, static_cast<int>(LogWarning));

    m_device.plugIn();
    EXPECT_EQ(read(), Events());
    EXPECT_EQ(read(press(KEY_F1)), Events({{KEY_F1, true}}));
}

TEST_F(InputEventButtonsReaderTest, DeviceThatVanishesIsToldOnceEachTime)
{
    LogSpy log;
    for (int episode = 0; episode < 3; ++episode) {
        EXPECT_EQ(read(), Events());
        EXPECT_EQ(read(press(KEY_F1) + release(KEY_F1)).size(), 2U);
        log.clear();
        m_device.unplug();
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(read(), Events());
        EXPECT_EQ(log.count(m_device.path(), 3) + log.count(m_device.path(), 4), 1)
            << log.texts().join(QLatin1Char('\n')).toStdString();
        EXPECT_EQ(log.records().size(), 1);
        m_device.plugIn();
    }
}

TEST_F(InputEventButtonsReaderTest, DeviceThatVanishesUnusedIsToldAgain)
{
    for (int episode = 0; episode < 3; ++episode) {
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(read(), Events()); // it is there, and nobody presses a button
        const LogSpy log;
        m_device.unplug();
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(read(), Events());
        EXPECT_EQ(log.count(m_device.path()), 1) << episode;
        m_device.plugIn();
    }
}

TEST_F(InputEventButtonsReaderTest, HeldButtonsCountAsReleasedWhenTheDeviceVanishes)
{
    read();
    read(press(KEY_F1) + press(KEY_F2) + press(KEY_F3) + release(KEY_F2));
    m_device.unplug();
    Events released = read();
    std::sort(released.begin(), released.end());
    EXPECT_EQ(released, Events({{KEY_F1, false}, {KEY_F3, false}}));
    EXPECT_EQ(read(), Events());

    m_device.plugIn();
    read();
    EXPECT_EQ(read(press(KEY_F1)), Events({{KEY_F1, true}}));
    EXPECT_EQ(read(release(KEY_F1)), Events({{KEY_F1, false}}));
}

TEST_F(InputEventButtonsReaderTest, LastRecordsOfADeviceThatVanishesAreTold)
{
    read();
    m_device.write(press(KEY_F1));
    m_device.unplug();
    Events all = read();
    const Events rest = read();
    all.insert(all.end(), rest.begin(), rest.end());
    EXPECT_EQ(all, Events({{KEY_F1, true}, {KEY_F1, false}}));
}

TEST_F(InputEventButtonsReaderTest, HalfRecordGoesWithItsDevice)
{
    read();
    EXPECT_EQ(read(press(KEY_F1).left(10)), Events());
    m_device.unplug();
    EXPECT_EQ(read(), Events());
    m_device.plugIn();
    read();
    EXPECT_EQ(read(press(KEY_F2)), Events({{KEY_F2, true}}));
}

TEST_F(InputEventButtonsReaderTest, DeviceThatOpensButGivesNothingIsToldOnce)
{
    m_device.endStream();
    const LogSpy log;
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(read(), Events());
    EXPECT_EQ(log.records().size(), 1) << log.texts().join(QLatin1Char('\n')).toStdString();
}

struct NoDeviceCase
{
    const char *pName;
    const char *pPath;
};

using NoInputDevice = ::testing::TestWithParam<NoDeviceCase>;

TEST_P(NoInputDevice, IsToldOnceAndTellsNothing)
{
    const QString path = QString::fromLatin1(GetParam().pPath);
    InputEventButtonsReader reader(path);
    int events = 0;
    const auto count = [&events](PhysicalButtonId) { ++events; };
    QObject::connect(&reader, &InputEventButtonsReader::buttonPressed, count);
    QObject::connect(&reader, &InputEventButtonsReader::buttonReleased, count);
    const int descriptors = descriptorCount();
    const LogSpy log;
    for (int i = 0; i < 10; ++i)
        reader.readInput();
    EXPECT_EQ(events, 0);
    EXPECT_EQ(log.records().size(), 1) << log.texts().join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(log.count(path), 1);
    EXPECT_EQ(descriptorCount(), descriptors);
}

const NoDeviceCase s_noDeviceCases[] = {
    {"Folder", "/proc/self"},
    {"BelowAFile", "/proc/self/status/event0"},
    {"EmptyDevice", "/dev/null"},
};
INSTANTIATE_TEST_SUITE_P(Rows, NoInputDevice, ::testing::ValuesIn(s_noDeviceCases), caseName);

// -- the object -----------------------------------------------------------------------------------

TEST_F(InputEventButtonsReaderTest, OpensTheDeviceOnceAndClosesItInTheEnd)
{
    const int before = descriptorCount();
    for (int cycle = 0; cycle < 100; ++cycle) {
        makeReader();
        EXPECT_EQ(descriptorCount(), before);
        for (int i = 0; i < 3; ++i)
            read();
        EXPECT_EQ(descriptorCount(), before + 1);
    }
    m_pReader.reset();
    EXPECT_EQ(descriptorCount(), before);
}

TEST_F(InputEventButtonsReaderTest, ReadsAgainAtEachInterval)
{
    m_pReader->setReadInterval(1);
    m_pReader->startReading();
    for (int button = 1; button <= 20; ++button) {
        m_events.clear();
        m_device.write(press(button) + release(button));
        EXPECT_TRUE(QTest::qWaitFor([this] { return m_events.size() >= 2; }));
        EXPECT_EQ(m_events, Events({{button, true}, {button, false}}));
    }
}

TEST(InputEventButtonsReaderInterface, DeclaresTheReleaseItself)
{
    const QMetaObject &meta = InputEventButtonsReader::staticMetaObject;
    EXPECT_EQ(meta.superClass(), &AbstractPhysicalButtonsReader::staticMetaObject);
    const int index = meta.indexOfSignal("buttonReleased(PhysicalButtonId)");
    EXPECT_GE(index, meta.methodOffset());
    const InputEventButtonsReader reader(QStringLiteral("/dev/null"));
    EXPECT_EQ(reader.parent(), nullptr);
    EXPECT_EQ(reader.readInterval(), 100);
}
