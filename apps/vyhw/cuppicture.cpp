#include "cuppicture.h"

#include "cupsensor/simulatedcupsensor.h"

namespace {

constexpr int s_width = 50;    ///< characters
constexpr int s_longest = 100; ///< mm at the right end

int column(int millimetres)
{
    return qBound(0, millimetres * s_width / s_longest, s_width - 1);
}

QString bar(const SimulatedCupSensor &sensor)
{
    QString bar(s_width, QLatin1Char(' '));
    bar.replace(0, column(sensor.rawValue()), QString(column(sensor.rawValue()), QLatin1Char('#')));
    bar[column(sensor.thresholdValue())] = QLatin1Char('|');
    return QStringLiteral("[%1] %2 mm").arg(bar).arg(sensor.rawValue(), 5);
}

QString carrierAsText(AbstractCupSensor &sensor)
{
    if (sensor.isCupCarrierPositionHome())
        return QStringLiteral("carrier home");
    return sensor.isCupCarrierBlockedByCup() ? QStringLiteral("carrier blocked by cup")
                                             : QStringLiteral("carrier away");
}

} // namespace

QString cupPicture(AbstractCupSensor &sensor)
{
    const auto *const pSimulated = qobject_cast<const SimulatedCupSensor *>(&sensor);
    const QString reading = pSimulated != nullptr ? bar(*pSimulated) : sensor.valueString();
    const QString cup = sensor.isCupPresent() ? QStringLiteral("cup   ") : QStringLiteral("no cup");
    return QStringLiteral("%1  %2  %3").arg(reading, cup, carrierAsText(sensor));
}
