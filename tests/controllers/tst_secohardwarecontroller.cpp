#include "SecoB40/secob40hardwarecontroller.h"

#include "controllers/brightnesstests.h"
#include "support/casename.h"

#include <cstdint>
#include <limits>

namespace {

constexpr TooHighReport s_tooHigh{"finalValue <= 63", "Final value must be smaller than 63",
                                  "src/SecoB40/secob40hardwarecontroller"};

} // namespace

using SecoBrightness = ::testing::TestWithParam<MaximumCase>;

TEST_P(SecoBrightness, IsInvertedAndReportedOutsideItsRegisterButNotClamped)
{
    const Backlight backlight(QByteArray::number(GetParam().maximum));
    const SecoHardwareController controller(backlight.maximumFile(), backlight.file(), nullptr);
    for (int percent = -1; percent <= 101; ++percent) {
        const int expected = (100 - percent) * (GetParam().maximum - 1) / 100;
        const AssertSpy asserts;
        EXPECT_EQ(controller.calculateFinalBrightness(percent), expected) << percent;
        expectReports(asserts, expected, 63, s_tooHigh);
    }
}

TEST_P(SecoBrightness, IsWrittenForEveryPercent)
{
    const PlatformValue target(2);
    const Backlight backlight(QByteArray::number(GetParam().maximum));
    SecoHardwareController controller(backlight.maximumFile(), backlight.file(), nullptr);
    for (int percent = 0; percent <= 100; ++percent) {
        const int expected = (100 - percent) * (GetParam().maximum - 1) / 100;
        const AssertSpy asserts;
        EXPECT_TRUE(controller.setBrightness(percent)) << percent;
        EXPECT_EQ(backlight.written(), std::to_string(expected)) << percent;
        expectReports(asserts, expected, 63, s_tooHigh);
    }
}

TEST_P(SecoBrightness, OutsideTheRangeIsRefusedAndNotCalculated)
{
    expectOutsideTheRangeRefused<SecoHardwareController>(GetParam().maximum);
}

const MaximumCase s_secoCases[] = {
    {"Zero", 0},      {"One", 1},    {"Two", 2},
    {"Fifteen", 15},  {"Board", 64}, {"OneAboveTheBoard", 65},
    {"Hundred", 100}, {"Byte", 255}, {"Thousand", 1000},
};
INSTANTIATE_TEST_SUITE_P(Maxima, SecoBrightness, ::testing::ValuesIn(s_secoCases), caseName);

TEST(SecoHardwareControllerTest, Maximum64Writes63For0PercentAnd0For100PercentAnd31For50Percent)
{
    const PlatformValue target(2);
    const Backlight backlight("64");
    SecoHardwareController controller(backlight.maximumFile(), backlight.file(), nullptr);
    const AssertSpy asserts;
    const LogSpy log;
    EXPECT_TRUE(controller.setBrightness(0));
    EXPECT_EQ(backlight.written(), "63");
    EXPECT_TRUE(controller.setBrightness(100));
    EXPECT_EQ(backlight.written(), "0");
    EXPECT_TRUE(controller.setBrightness(50));
    EXPECT_EQ(backlight.written(), "31");
    EXPECT_TRUE(asserts.records().isEmpty());
    EXPECT_EQ(log.count("bool AbstractHardwareController::setBrightness(int) value = 31", 0), 1);
}

// What the maximum's file holds is only known to be an int.
TEST(SecoHardwareControllerTest, LargestMaximumDoesNotOverflow)
{
    constexpr int s_largest = std::numeric_limits<int>::max();
    const Backlight backlight(QByteArray::number(s_largest));
    const SecoHardwareController controller(backlight.maximumFile(), backlight.file(), nullptr);
    for (int percent = 0; percent <= 100; ++percent) {
        const std::int64_t expected = std::int64_t{100 - percent} * (s_largest - 1) / 100;
        ASSERT_EQ(controller.calculateFinalBrightness(percent), expected) << percent;
    }
}

TEST(SecoHardwareControllerTest, RefusesWhatTheBaseRefuses)
{
    const PlatformValue target(2);
    const Backlight backlight("64");
    SecoHardwareController controller(backlight.maximumFile(), backlight.file(), nullptr);
    const LogSpy log;
    EXPECT_FALSE(controller.setDeviceSetting(HardwareEnvironment::BuzzerPeriodSetting, 1));
    EXPECT_EQ(log.count("BuzzerPeriod not implemented yet", 0, Log::InputOutput), 1);
    EXPECT_FALSE(controller.setDeviceSetting(HardwareEnvironment::ContrastSetting, 1));
    EXPECT_EQ(log.count("Contrast adjustment not implemented yet", 0, Log::InputOutput), 1);
    EXPECT_FALSE(controller.setDeviceSetting(HardwareEnvironment::SpeakerVolumeSetting, 1));
    EXPECT_EQ(log.count("Speaker volume adjustment unavailable", 0, Log::InputOutput), 1);
    EXPECT_EQ(controller.deviceSetting(HardwareEnvironment::SpeakerVolumeSetting), 0);
    EXPECT_EQ(log.count("Speaker volume reader unavailable", 0, Log::InputOutput), 1);
    EXPECT_EQ(controller.settingScale(HardwareEnvironment::SpeakerVolumeSetting),
              std::make_pair(0, 0));
    EXPECT_EQ(log.count("Speaker volume scale unavailable", 0, Log::InputOutput), 1);
}

TEST(SecoHardwareControllerTest, IsAControllerToTheMetaObject)
{
    const QMetaObject &meta = SecoHardwareController::staticMetaObject;
    EXPECT_STREQ(meta.className(), "SecoHardwareController");
    EXPECT_EQ(meta.superClass(), &AbstractHardwareController::staticMetaObject);
}
