#ifndef MACHINESETTINGS_H
#define MACHINESETTINGS_H

#include "hardwareenvironment.h"
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

    /// The Corvel board's controller for that model, the Seco B40 board's for all others, on the
    /// brightness files of the path table.
    AbstractHardwareController *createHardwareController() override;

private:
    const HardwareEnvironment::MachineModel m_model;
};

#endif // MACHINESETTINGS_H
