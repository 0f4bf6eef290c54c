#include "speakercontroller.h"

#include "logformatter.h"

SpeakerController *SpeakerController::instance()
{
    static SpeakerController s_instance;
    return &s_instance;
}

SpeakerController::SpeakerController() = default;

void SpeakerController::applyVolume(int /*volume*/)
{
    LogFormatter(0, Log::InputOutput) << Q_FUNC_INFO << "Operation not supported on this platform!";
}

int SpeakerController::readVolume() const
{
    LogFormatter(0, Log::InputOutput) << Q_FUNC_INFO << "Operation not supported on this platform!";
    return 0;
}
