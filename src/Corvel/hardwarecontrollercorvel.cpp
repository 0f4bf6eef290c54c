#include "Corvel/hardwarecontrollercorvel.h"

#include "assertions.h"
#include "speakercontroller.h"

namespace {

constexpr auto s_pUnit = "src/Corvel/hardwarecontrollercorvel";

} // namespace

int HardwareControllerCorvel::calculateFinalBrightness(int percent) const
{
    const int finalValue = static_cast<int>(percent * qint64(maxBrightness()) / 100);
    if (finalValue < 0)
        printAssertMsg(QStringLiteral("finalValue >= 0"),
                       QStringLiteral("Final value must be larger than 0"), s_pUnit, __LINE__);
    if (finalValue > maxBrightness())
        printAssertMsg(QStringLiteral("finalValue <= m_maxBrightness"),
                       QStringLiteral("Final value must be smaller than maxBrightness"), s_pUnit,
                       __LINE__);
    return finalValue;
}

bool HardwareControllerCorvel::setContrast(int /*contrast*/)
{
    return true;
}

bool HardwareControllerCorvel::setSpeakerVolume(int /*volume*/)
{
    return true;
}

int HardwareControllerCorvel::speakerVolume() const
{
    return SpeakerController::instance()->readVolume();
}

std::pair<int, int> HardwareControllerCorvel::speakerVolumeScale() const
{
    return {0, 100};
}
