#include "Corvel/hardwarecontrollercorvel.h"

#include "controllers/brightnesstests.h"
#include "support/casename.h"

#include <cstdint>
#include <limits>

namespace {

constexpr TooHighReport s_tooHigh{"finalValue <= m_maxBrightness",
                                  "Final value must be smaller than maxBrightness",
                                  "src/Corvel/hardwarecontrollercorvel"};

} // namespace

using CorvelBrightness = ::testing::TestWithParam<MaximumCase>;

TEST_P(CorvelBrightness, IsDirectAndReportedOutsideItsScaleButNotClamped)
{
    const Backlight backlight(QByteArray::number(GetParam().maximum));
    const HardwareControllerCorvel controller(backlight.maximumFile(), backlight.file(), nullptr);
    for (int percent = -1; percent <= 101; ++percent) {
        const int expected = percent * GetParam().maximum / 100;
        const AssertSpy asserts;
        EXPECT_EQ(controller.calculateFinalBrightness(percent), expected) << percent;
        expectReports(asserts, expected, GetParam().maximum, s_tooHigh);
    }
}

TEST_P(CorvelBrightness, IsWrittenForEveryPercentWithoutAReport)
{
    const PlatformValue target(2);
    const Backlight backlight(QByteArray::number(GetParam().maximum));
    HardwareControllerCorvel controller(backlight.maximumFile(), backlight.file(), nullptr);
    const AssertSpy asserts;
    for (int percent = 0; percent <= 100; ++percent) {
        EXPECT_TRUE(controller.setBrightness(percent)) << percent;
        EXPECT_EQ(backlight.written(), std::to_string(percent * GetParam().maximum / 100))
            << percent;
    }
    EXPECT_TRUE(asserts.records().isEmpty());
}

TEST_P(CorvelBrightness, OutsideTheRangeIsRefusedAndNotCalculated)
{
    expectOutsideTheRangeRefused<HardwareControllerCorvel>(GetParam().maximum);
}

const MaximumCase s_corvelCases[] = {
    {"Zero", 0},     {"One", 1},       {"Two", 2},    {"Fifteen", 15},
    {"Board64", 64}, {"Hundred", 100}, {"Byte", 255}, {"Thousand", 1000},
};
INSTANTIATE_TEST_SUITE_P(Maxima, CorvelBrightness, ::testing::ValuesIn(s_corvelCases), caseName);

TEST(HardwareControllerCorvelTest, Maximum255Writes127For50Percent)
{
    const PlatformValue target(2);
    const Backlight backlight("255");
    HardwareControllerCorvel controller(backlight.maximumFile(), backlight.file(), nullptr);
    EXPECT_TRUE(controller.setBrightness(50));
    EXPECT_EQ(backlight.written(), "127");
    EXPECT_TRUE(controller.setBrightness(0));
    EXPECT_EQ(backlight.written(), "0");
    EXPECT_TRUE(controller.setBrightness(100));
    EXPECT_EQ(backlight.written(), "255");
}

// What the maximum's file holds is only known to be an int.
TEST(HardwareControllerCorvelTest, LargestMaximumDoesNotOverflow)
{
    constexpr int s_largest = std::numeric_limits<int>::max();
    const Backlight backlight(QByteArray::number(s_largest));
    const HardwareControllerCorvel controller(backlight.maximumFile(), backlight.file(), nullptr);
    const AssertSpy asserts;
    for (int percent = 0; percent <= 100; ++percent) {
        const std::int64_t expected = std::int64_t{percent} * s_largest / 100;
        ASSERT_EQ(controller.calculateFinalBrightness(percent), expected) << percent;
    }
    EXPECT_TRUE(asserts.records().isEmpty());
}

TEST(HardwareControllerCorvelTest, AcceptsContrastAndVolumeAndDoesNothing)
{
    const PlatformValue target(2);
    const Backlight backlight("255");
    HardwareControllerCorvel controller(backlight.maximumFile(), backlight.file(), nullptr);
    const LogSpy log;
    for (const int value : {-1, 0, 50, 100, 101}) {
        EXPECT_TRUE(controller.setContrast(value));
        EXPECT_TRUE(controller.setSpeakerVolume(value));
        EXPECT_TRUE(controller.setDeviceSetting(HardwareEnvironment::ContrastSetting, value));
        EXPECT_TRUE(controller.setDeviceSetting(HardwareEnvironment::SpeakerVolumeSetting, value));
    }
    EXPECT_TRUE(log.records().isEmpty());
    EXPECT_EQ(backlight.written(), Backlight::s_untouched);
}

TEST(HardwareControllerCorvelTest, AsksTheSpeakerForTheVolume)
{
    const Backlight backlight("255");
    const HardwareControllerCorvel controller(backlight.maximumFile(), backlight.file(), nullptr);
    const LogSpy log;
    EXPECT_EQ(controller.speakerVolume(), 0);
    EXPECT_EQ(log.count("int SpeakerController::readVolume() const"), 1);
    EXPECT_EQ(controller.deviceSetting(HardwareEnvironment::SpeakerVolumeSetting), 0);
    EXPECT_EQ(log.count("int SpeakerController::readVolume() const"), 2);
    EXPECT_EQ(log.records().size(), 2);
}

TEST(HardwareControllerCorvelTest, VolumeGoesFrom0To100)
{
    const Backlight backlight("255");
    const HardwareControllerCorvel controller(backlight.maximumFile(), backlight.file(), nullptr);
    const LogSpy log;
    EXPECT_EQ(controller.speakerVolumeScale(), std::make_pair(0, 100));
    EXPECT_EQ(controller.settingScale(HardwareEnvironment::SpeakerVolumeSetting),
              std::make_pair(0, 100));
    EXPECT_EQ(controller.settingScale(HardwareEnvironment::BrightnessSetting),
              std::make_pair(0, 0));
    EXPECT_TRUE(log.records().isEmpty());
}

TEST(HardwareControllerCorvelTest, RefusesTheBuzzerAsTheBaseDoes)
{
    const Backlight backlight("255");
    HardwareControllerCorvel controller(backlight.maximumFile(), backlight.file(), nullptr);
    const LogSpy log;
    EXPECT_FALSE(controller.setDeviceSetting(HardwareEnvironment::BuzzerPeriodSetting, 1));
    EXPECT_EQ(log.count("BuzzerPeriod not implemented yet", 0, Log::InputOutput), 1);
}

TEST(HardwareControllerCorvelTest, IsAControllerToTheMetaObject)
{
    const QMetaObject &meta = HardwareControllerCorvel::staticMetaObject;
    EXPECT_STREQ(meta.className(), "HardwareControllerCorvel");
    EXPECT_EQ(meta.superClass(), &AbstractHardwareController::staticMetaObject);
}
