#include "SecoB40/secob40hardwarecontroller.h"

#include "assertions.h"

namespace {

constexpr auto s_pUnit = "src/SecoB40/secob40hardwarecontroller";
constexpr int s_highestRegister = 63; ///< the board's

} // namespace

int SecoHardwareController::calculateFinalBrightness(int percent) const
{
    const qint64 scaled = (100 - percent) * (qint64(maxBrightness()) - 1) / 100;
    const int finalValue = static_cast<int>(scaled);
    if (finalValue < 0)
        printAssertMsg(QStringLiteral("finalValue >= 0"),
                       QStringLiteral("Final value must be larger than 0"), s_pUnit, __LINE__);
    if (finalValue > s_highestRegister)
        printAssertMsg(QStringLiteral("finalValue <= 63"),
                       QStringLiteral("Final value must be smaller than 63"), s_pUnit, __LINE__);
    return finalValue;
}
