#include "abstracthardwarecontroller.h"

#include "controllers/backlight.h"
#include "controllers/oneline.h"
#include "support/assertspy.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QMetaMethod>

#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

using Device = HardwareEnvironment::DeviceSetting;
using Output = HardwareEnvironment::Output;
using Scale = std::pair<int, int>;

/// The base and nothing more, with a brightness that shows where it comes from.
class PlainController : public AbstractHardwareController
{
public:
    explicit PlainController(const Backlight &backlight)
        : AbstractHardwareController(backlight.maximumFile(), backlight.file(), nullptr)
    {
    }
    using AbstractHardwareController::AbstractHardwareController;

    int calculateFinalBrightness(int percent) const override { return 1000 + percent; }

    using AbstractHardwareController::m_pBoardDigitalIO;
    using AbstractHardwareController::maxBrightness;
};

/// Keeps what the operations behind the device settings are called with.
class RecordingController : public PlainController
{
public:
    using PlainController::PlainController;

    bool setBuzzerPeriod(int period) override { return record("buzzer", period); }
    bool setContrast(int contrast) override { return record("contrast", contrast); }
    bool setSpeakerVolume(int volume) override { return record("volume", volume); }
    int speakerVolume() const override { return 37; }
    Scale speakerVolumeScale() const override { return {3, 42}; }

    std::vector<std::pair<std::string, int>> m_calls;
    bool m_answer = true;

private:
    bool record(const char *pOperation, int value)
    {
        m_calls.emplace_back(pOperation, value);
        return m_answer;
    }
};

namespace {

const QString s_setBrightness =
    QStringLiteral("bool AbstractHardwareController::setBrightness(int)");

/// Where the operation stands among the virtual ones: a pointer to it says so in its first word.
template <typename Operation>
std::ptrdiff_t placeOf(Operation operation)
{
    std::ptrdiff_t place = 0;
    std::memcpy(&place, &operation, sizeof place);
    return place;
}

class AfterQObject : public QObject
{
public:
    virtual void next() {}
};

} // namespace

// -- brightness -----------------------------------------------------------------------------------

TEST(SetBrightness, ReturnsTrueForAnyValueAndWritesNothingOnTheDesktop)
{
    const PlatformValue desktop(1);
    const Backlight backlight("64");
    PlainController controller(backlight);
    const LogSpy log;
    EXPECT_TRUE(controller.setBrightness(500));
    EXPECT_TRUE(controller.setBrightness(50));
    EXPECT_TRUE(controller.setBrightness(-1));
    EXPECT_EQ(backlight.written(), Backlight::s_untouched);
    EXPECT_TRUE(log.records().isEmpty());
}

TEST(SetBrightness, IsThatOfTheDesktopWithoutAnEnvironment)
{
    ASSERT_EQ(gHardwareEnv, nullptr);
    const Backlight backlight("64");
    PlainController controller(backlight);
    const LogSpy log;
    EXPECT_TRUE(controller.setBrightness(500));
    EXPECT_EQ(backlight.written(), Backlight::s_untouched);
    EXPECT_TRUE(log.records().isEmpty());
}

struct PlatformCase
{
    const char *pName;
    int platform;
    bool isForced;
    bool isWritten;
};

using SetBrightnessPlatforms = ::testing::TestWithParam<PlatformCase>;

TEST_P(SetBrightnessPlatforms, WriteOnTheTargetOrWhenForced)
{
    const PlatformValue platform(GetParam().platform);
    const Backlight backlight("64");
    PlainController controller(backlight);
    controller.setForced(GetParam().isForced);
    const LogSpy log;
    EXPECT_TRUE(controller.setBrightness(50));
    EXPECT_EQ(backlight.written(), GetParam().isWritten ? "1050" : Backlight::s_untouched);
    EXPECT_EQ(log.records().size(), GetParam().isWritten ? 1 : 0);

    EXPECT_EQ(controller.setBrightness(101), !GetParam().isWritten);
}

const PlatformCase s_platformCases[] = {
    {"None", 0, false, false},      {"Desktop", 1, false, false},
    {"Target", 2, false, true},     {"OneAboveTheTarget", 3, false, false},
    {"Negative", -2, false, false}, {"DesktopForced", 1, true, true},
    {"NoneForced", 0, true, true},  {"TargetForced", 2, true, true},
};
INSTANTIATE_TEST_SUITE_P(Rows, SetBrightnessPlatforms, ::testing::ValuesIn(s_platformCases),
                         caseName);

TEST(SetBrightness, IsForcedUntilThatIsTakenBack)
{
    const PlatformValue desktop(1);
    const Backlight backlight("64");
    PlainController controller(backlight);
    controller.setForced(true);
    EXPECT_FALSE(controller.setBrightness(500));
    controller.setForced(false);
    EXPECT_TRUE(controller.setBrightness(500));
    EXPECT_EQ(backlight.written(), Backlight::s_untouched);
}

struct PercentCase
{
    const char *pName;
    int percent;
};

using SetBrightnessOutOfRange = ::testing::TestWithParam<PercentCase>;

TEST_P(SetBrightnessOutOfRange, IsRefusedOnTheTarget)
{
    const PlatformValue target(2);
    const QString expected = QStringLiteral("%1 Cannot set brightness to: %2")
                                 .arg(s_setBrightness)
                                 .arg(GetParam().percent);
    // The range is looked at before the maximum.
    for (const char *pMaximum : {"64", "abc"}) {
        const Backlight backlight(pMaximum);
        PlainController controller(backlight);
        const LogSpy log;
        EXPECT_FALSE(controller.setBrightness(GetParam().percent));
        expectOneLine(log, 4, expected);
        EXPECT_EQ(backlight.written(), Backlight::s_untouched);
    }
}

const PercentCase s_outOfRange[] = {
    {"OneAbove", 101},
    {"OneBelow", -1},
    {"Far", 500},
    {"Largest", std::numeric_limits<int>::max()},
    {"Smallest", std::numeric_limits<int>::min()},
};
INSTANTIATE_TEST_SUITE_P(Rows, SetBrightnessOutOfRange, ::testing::ValuesIn(s_outOfRange),
                         caseName);

TEST(SetBrightness, WritesWhatTheBoardCalculatesAndLogsIt)
{
    const PlatformValue target(2);
    const Backlight backlight("64");
    PlainController controller(backlight);
    for (int percent = 0; percent <= 100; ++percent) {
        const LogSpy log;
        EXPECT_TRUE(controller.setBrightness(percent));
        EXPECT_EQ(backlight.written(), std::to_string(1000 + percent));
        expectOneLine(log, 0,
                      QStringLiteral("%1 value = %2").arg(s_setBrightness).arg(1000 + percent));
    }
}

TEST(SetBrightness, IsRefusedForGoodWithoutAMaximumFile)
{
    const PlatformValue target(2);
    const Backlight backlight("64");
    const QString missing = backlight.path(QStringLiteral("missing"));
    PlainController controller(missing, backlight.file(), nullptr);
    EXPECT_EQ(controller.maxBrightness(), -1);
    writeFile(missing, "64"); // too late: it is read once
    for (const int percent : {0, 50, 100}) {
        const LogSpy log;
        EXPECT_FALSE(controller.setBrightness(percent));
        expectOneLine(log, 4,
                      QStringLiteral("MaxBrightness value has not been correctly initialized"));
    }
    EXPECT_EQ(controller.maxBrightness(), -1);
    EXPECT_EQ(backlight.written(), Backlight::s_untouched);
}

TEST(SetBrightness, ReturnsThatTheFileCouldNotBeWritten)
{
    const PlatformValue target(2);
    const Backlight backlight("64");
    const QString file = backlight.file() + QStringLiteral("/below");
    PlainController controller(backlight.maximumFile(), file, nullptr);
    const LogSpy log;
    EXPECT_FALSE(controller.setBrightness(50));
    expectOneLine(log, 4, QStringLiteral("Could not open file for writing: \"%1").arg(file));
}

// -- the maximum ----------------------------------------------------------------------------------

TEST(MaximumBrightness, IsReadOnceByTheConstructor)
{
    const Backlight backlight("255\n");
    const LogSpy log;
    const PlainController controller(backlight);
    EXPECT_EQ(controller.maxBrightness(), 255);
    EXPECT_TRUE(log.records().isEmpty());
    writeFile(backlight.maximumFile(), "100");
    EXPECT_EQ(controller.maxBrightness(), 255);
}

TEST(MaximumBrightness, FileHoldingAbcLogsTheParseFailureAndLeavesTheMaximumAtMinusOne)
{
    const PlatformValue target(2);
    const Backlight backlight("abc");
    const LogSpy log;
    PlainController controller(backlight);
    EXPECT_EQ(controller.maxBrightness(), -1);
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.count("Could not parse content of", 4, Log::InputOutput), 1);
    EXPECT_FALSE(controller.setBrightness(50));
    EXPECT_EQ(log.count("MaxBrightness value has not been correctly initialized", 4), 1);
}

TEST(HardwareController, BelongsToItsParent)
{
    const Backlight backlight("64");
    QObject parent;
    const auto *pController =
        new PlainController(backlight.maximumFile(), backlight.file(), &parent);
    EXPECT_EQ(pController->parent(), &parent);
}

// -- what the base refuses ------------------------------------------------------------------------

struct RefusalCase
{
    const char *pName;
    void (*call)(AbstractHardwareController &);
    const char *pLine; ///< null: nothing is logged
};

using BaseBehaviour = ::testing::TestWithParam<RefusalCase>;

TEST_P(BaseBehaviour, RefusesAndLogsWhereItIsToldTo)
{
    const PlatformValue target(2);
    const Backlight backlight("64");
    PlainController controller(backlight);
    const AssertSpy asserts;
    const LogSpy log;
    GetParam().call(controller);
    if (GetParam().pLine != nullptr)
        expectOneLine(log, 0, QString::fromUtf8(GetParam().pLine));
    else
        EXPECT_TRUE(log.records().isEmpty());
    EXPECT_TRUE(asserts.records().isEmpty());
    EXPECT_EQ(controller.m_pBoardDigitalIO, nullptr);
    EXPECT_EQ(backlight.written(), Backlight::s_untouched);
}

const RefusalCase s_refusalCases[] = {
    {"DeviceGpio",
     [](AbstractHardwareController &controller) {
         for (int output = -1; output <= 4; ++output)
             EXPECT_EQ(controller.deviceGpio(static_cast<Output>(output)), -1);
     },
     nullptr},
    {"CreateBoardDigitalIOController",
     [](AbstractHardwareController &controller) { controller.createBoardDigitalIOController(); },
     nullptr},
    {"SetDeviceEnabled",
     [](AbstractHardwareController &controller) {
         for (int output = -1; output <= 4; ++output) {
             EXPECT_FALSE(controller.setDeviceEnabled(static_cast<Output>(output), true));
             EXPECT_FALSE(controller.setDeviceEnabled(static_cast<Output>(output), false));
         }
     },
     nullptr},
    {"SetParallelCoinValidatorDeviceEnabled",
     [](AbstractHardwareController &controller) {
         EXPECT_FALSE(controller.setParallelCoinValidatorDeviceEnabled(true));
         EXPECT_FALSE(controller.setParallelCoinValidatorDeviceEnabled(false));
     },
     nullptr},
    {"SetBuzzerPeriod",
     [](AbstractHardwareController &controller) { EXPECT_FALSE(controller.setBuzzerPeriod(1)); },
     "virtual bool AbstractHardwareController::setBuzzerPeriod(int) "
     "BuzzerPeriod not implemented yet"},
    {"SetContrast",
     [](AbstractHardwareController &controller) { EXPECT_FALSE(controller.setContrast(1)); },
     "virtual bool AbstractHardwareController::setContrast(int) "
     "Contrast adjustment not implemented yet"},
    {"SetSpeakerVolume",
     [](AbstractHardwareController &controller) { EXPECT_FALSE(controller.setSpeakerVolume(1)); },
     "virtual bool AbstractHardwareController::setSpeakerVolume(int) "
     "Speaker volume adjustment unavailable"},
    {"SpeakerVolume",
     [](AbstractHardwareController &controller) { EXPECT_EQ(controller.speakerVolume(), 0); },
     "virtual int AbstractHardwareController::speakerVolume() const "
     "Speaker volume reader unavailable"},
    {"SpeakerVolumeScale",
     [](AbstractHardwareController &controller) {
         EXPECT_EQ(controller.speakerVolumeScale(), Scale(0, 0));
     },
     "virtual std::pair<int, int> AbstractHardwareController::speakerVolumeScale() const "
     "Speaker volume scale unavailable"},
    {"SetDispensingLightIdleStatus",
     [](AbstractHardwareController &controller) {
         controller.setDispensingLightIdleStatus(true);
         controller.setDispensingLightIdleStatus(false);
     },
     nullptr},
};
INSTANTIATE_TEST_SUITE_P(Rows, BaseBehaviour, ::testing::ValuesIn(s_refusalCases), caseName);

// -- device settings ------------------------------------------------------------------------------

struct DeviceCase
{
    const char *pName;
    int setting;
    const char *pOperation; ///< that a set value goes to; null for none but brightness
    int value;              ///< read back
    Scale scale;
};

using DeviceSettings = ::testing::TestWithParam<DeviceCase>;

TEST_P(DeviceSettings, GoToTheirOperations)
{
    const Backlight backlight("64");
    for (const bool answer : {true, false}) {
        RecordingController controller(backlight);
        controller.m_answer = answer;
        const LogSpy log;
        const bool isSet = controller.setDeviceSetting(static_cast<Device>(GetParam().setting), 77);
        if (GetParam().pOperation != nullptr) {
            EXPECT_EQ(isSet, answer);
            ASSERT_EQ(controller.m_calls.size(), 1U);
            EXPECT_EQ(controller.m_calls.front(),
                      std::make_pair(std::string(GetParam().pOperation), 77));
        } else {
            EXPECT_EQ(isSet, GetParam().setting == 0); // a brightness counts as set on a desktop
            EXPECT_TRUE(controller.m_calls.empty());
        }
        EXPECT_TRUE(log.records().isEmpty());
    }
}

TEST_P(DeviceSettings, AreReadBackForTheVolumeAlone)
{
    const Backlight backlight("64");
    const RecordingController controller(backlight);
    const LogSpy log;
    EXPECT_EQ(controller.deviceSetting(static_cast<Device>(GetParam().setting)), GetParam().value);
    EXPECT_EQ(controller.settingScale(static_cast<Device>(GetParam().setting)), GetParam().scale);
    EXPECT_TRUE(log.records().isEmpty());
}

const DeviceCase s_deviceCases[] = {
    {"Brightness", 0, nullptr, 0, {0, 0}},  {"BuzzerPeriod", 1, "buzzer", 0, {0, 0}},
    {"Contrast", 2, "contrast", 0, {0, 0}}, {"SpeakerVolume", 3, "volume", 37, {3, 42}},
    {"OneBelow", -1, nullptr, 0, {0, 0}},   {"OneAbove", 4, nullptr, 0, {0, 0}},
    {"Far", 1000000, nullptr, 0, {0, 0}},
};
INSTANTIATE_TEST_SUITE_P(Rows, DeviceSettings, ::testing::ValuesIn(s_deviceCases), caseName);

TEST(DeviceSetting, BrightnessGoesToTheFileAndIsNotReadBack)
{
    const PlatformValue target(2);
    const Backlight backlight("64");
    RecordingController controller(backlight);
    EXPECT_TRUE(controller.setDeviceSetting(HardwareEnvironment::BrightnessSetting, 50));
    EXPECT_EQ(backlight.written(), "1050");
    EXPECT_FALSE(controller.setDeviceSetting(HardwareEnvironment::BrightnessSetting, 101));
    EXPECT_EQ(controller.deviceSetting(HardwareEnvironment::BrightnessSetting), 0);
    EXPECT_TRUE(controller.m_calls.empty());
}

TEST(DeviceSetting, NumbersAreFixed)
{
    EXPECT_EQ(static_cast<int>(HardwareEnvironment::BrightnessSetting), 0);
    EXPECT_EQ(static_cast<int>(HardwareEnvironment::BuzzerPeriodSetting), 1);
    EXPECT_EQ(static_cast<int>(HardwareEnvironment::ContrastSetting), 2);
    EXPECT_EQ(static_cast<int>(HardwareEnvironment::SpeakerVolumeSetting), 3);
}

// -- the interface --------------------------------------------------------------------------------

TEST(HardwareControllerInterface, SignalsStandInTheirOrder)
{
    const QMetaObject &meta = AbstractHardwareController::staticMetaObject;
    EXPECT_EQ(meta.superClass(), &QObject::staticMetaObject);
    std::vector<std::string> names;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        if (meta.method(i).methodType() != QMetaMethod::Signal)
            continue;
        names.push_back(meta.method(i).methodSignature().toStdString());
        EXPECT_EQ(meta.method(i).parameterNames(), QList<QByteArray>{"buttonId"});
    }
    const std::vector<std::string> expected = {"buttonPressed(int)", "buttonLongPressed(int)",
                                               "gpioRising(int)", "gpioFalling(int)"};
    EXPECT_EQ(names, expected);
}

TEST(HardwareControllerInterface, VirtualOperationsStandInTheirOrderBehindThoseOfQObject)
{
    using Controller = AbstractHardwareController;
    const std::vector<std::ptrdiff_t> places = {
        placeOf(&Controller::deviceGpio),
        placeOf(&Controller::createBoardDigitalIOController),
        placeOf(&Controller::setDeviceEnabled),
        placeOf(&Controller::setParallelCoinValidatorDeviceEnabled),
        placeOf(&Controller::calculateFinalBrightness),
        placeOf(&Controller::setBuzzerPeriod),
        placeOf(&Controller::setContrast),
        placeOf(&Controller::setSpeakerVolume),
        placeOf(&Controller::speakerVolume),
        placeOf(&Controller::speakerVolumeScale),
        placeOf(&Controller::setDispensingLightIdleStatus),
    };
    std::ptrdiff_t expected = placeOf(&AfterQObject::next);
    for (const std::ptrdiff_t place : places) {
        EXPECT_EQ(place, expected);
        expected += static_cast<std::ptrdiff_t>(sizeof(void *));
    }
}

TEST(HardwareControllerInterface, BrightnessOfTheBoardHasNoBase)
{
    EXPECT_TRUE(std::is_abstract_v<AbstractHardwareController>);
    EXPECT_FALSE(std::is_abstract_v<PlainController>);
}
