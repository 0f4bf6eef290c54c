#include "cupsensor/lirenabcupsensor.h"

LirenABCupSensor::LirenABCupSensor(QObject *pParent)
    : AbstractCupSensor(pParent, CupSensorTypeLirenAB, false)
{
}

bool LirenABCupSensor::isCupPresent() const
{
    return rawValue() != 0;
}

QString LirenABCupSensor::channelName() const
{
    return QStringLiteral("AB Cup Sensor");
}

QString LirenABCupSensor::valueString() const
{
    return AbstractCupSensor::valueString();
}

QString LirenABCupSensor::rawValueString() const
{
    return {};
}
