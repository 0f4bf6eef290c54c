#ifndef HARDWARECONTROLLERCORVEL_H
#define HARDWARECONTROLLERCORVEL_H

#include "abstracthardwarecontroller.h"

/// The board of the Corvel model, with a direct backlight scale. Contrast and volume are accepted
/// and change nothing.
class VYHARDWARE1_EXPORT HardwareControllerCorvel : public AbstractHardwareController
{
    Q_OBJECT

public:
    using AbstractHardwareController::AbstractHardwareController;

    /// Reports a value outside 0 to the highest brightness as a failed assertion, and returns it
    /// nevertheless.
    int calculateFinalBrightness(int percent) const override;
    bool setContrast(int contrast) override;
    bool setSpeakerVolume(int volume) override;
    int speakerVolume() const override;
    std::pair<int, int> speakerVolumeScale() const override;
};

#endif // HARDWARECONTROLLERCORVEL_H
