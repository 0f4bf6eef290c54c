#ifndef MACHINESETTINGS_H
#define MACHINESETTINGS_H

#include "hardwaresettings.h"
#include "vymachines1_export.h"

struct MachineConfiguration;

/// The settings of one machine of the registry: the common defaults, changed where its row says so.
/// A machine of your own is another subclass of HardwareSettings, or of this class.
class VYMACHINES1_EXPORT MachineSettings : public HardwareSettings
{
    Q_OBJECT

public:
    /// Files empty actuator-board settings under the machine's subtype: no channel is known.
    explicit MachineSettings(const MachineConfiguration &configuration);

    /// Null: no controller has been written for any board yet.
    AbstractHardwareController *createHardwareController() override;
};

#endif // MACHINESETTINGS_H
