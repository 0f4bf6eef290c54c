#ifndef LIRENABCUPSENSOR_H
#define LIRENABCUPSENSOR_H

#include "cupsensor/abstractcupsensor.h"

/// The cup sensor that the actuator board reads; its readings and the carrier's position are pushed
/// in. Any reading but 0 is a cup.
class VYHARDWARE1_EXPORT LirenABCupSensor : public AbstractCupSensor
{
    Q_OBJECT

public:
    explicit LirenABCupSensor(QObject *pParent = nullptr);

    bool isCupPresent() const override;
    QString channelName() const override;
    QString valueString() const override;
    QString rawValueString() const override;
};

#endif // LIRENABCUPSENSOR_H
