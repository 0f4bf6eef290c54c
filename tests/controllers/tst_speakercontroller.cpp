#include "speakercontroller.h"

#include "support/logspy.h"

#include <gtest/gtest.h>

TEST(SpeakerControllerTest, InstanceIsOneObject)
{
    SpeakerController *const pSpeaker = SpeakerController::instance();
    ASSERT_NE(pSpeaker, nullptr);
    EXPECT_EQ(SpeakerController::instance(), pSpeaker);
}

TEST(SpeakerControllerTest, ApplyingAVolumeLogsThatItIsNotSupportedAndChangesNothing)
{
    SpeakerController *const pSpeaker = SpeakerController::instance();
    for (const int volume : {-1, 0, 50, 100, 101}) {
        const LogSpy log;
        pSpeaker->applyVolume(volume);
        ASSERT_EQ(log.records().size(), 1);
        EXPECT_EQ(log.records().constFirst().level, 0);
        EXPECT_EQ(log.records().constFirst().module, Log::InputOutput);
        EXPECT_EQ(log.texts().constFirst().toStdString(),
                  "void SpeakerController::applyVolume(int) "
                  "Operation not supported on this platform!");
        EXPECT_EQ(pSpeaker->readVolume(), 0);
    }
}

TEST(SpeakerControllerTest, ReadingTheVolumeLogsThatItIsNotSupportedAndIsZero)
{
    const SpeakerController *const pSpeaker = SpeakerController::instance();
    const LogSpy log;
    EXPECT_EQ(pSpeaker->readVolume(), 0);
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.records().constFirst().level, 0);
    EXPECT_EQ(log.records().constFirst().module, Log::InputOutput);
    EXPECT_EQ(
        log.texts().constFirst().toStdString(),
        "int SpeakerController::readVolume() const Operation not supported on this platform!");
}
