#ifndef SECOB40HARDWARECONTROLLER_H
#define SECOB40HARDWARECONTROLLER_H

#include "abstracthardwarecontroller.h"

/// The Seco B40 board, whose backlight scale runs backwards: 0 % is the highest register value.
class VYHARDWARE1_EXPORT SecoHardwareController : public AbstractHardwareController
{
    Q_OBJECT

public:
    using AbstractHardwareController::AbstractHardwareController;

    /// Reports a value outside 0 to 63 as a failed assertion, and returns it nevertheless.
    int calculateFinalBrightness(int percent) const override;
};

#endif // SECOB40HARDWARECONTROLLER_H
