#ifndef MACHINEREGISTRY_H
#define MACHINEREGISTRY_H

#include "hardwareenvironment.h"
#include "settingskeys.h"
#include "vymachines1_export.h"

#include <QString>
#include <memory>
#include <optional>
#include <vector>

/// One machine that can be built: its model and subtype, and where it differs from the defaults
/// that all models share. A row holds only what is known of the machine. What the environment
/// changes in the settings when it is told a subtype stands here too, for settings without one.
struct MachineConfiguration
{
    const char *pModel; ///< the model's name
    HardwareEnvironment::MachineModel model;
    HardwareSettings::MachineModelSubtype subtype;
    const char *pSubtypeName; ///< in plain words; empty where there is none
    int maxEspressoTemp;      ///< 0.1 °C
    bool hasJugSupport;
    bool hasParallelStepSupport;
};

/// The machine configurations by name, for applications, tools, simulator and tests alike.
class VYMACHINES1_EXPORT MachineRegistry
{
public:
    /// Settings keys that say which machine a settings file belongs to; read by the tools.
    static constexpr QLatin1String s_modelKey = SettingsKeys::keyPath("machine/model");
    static constexpr QLatin1String s_subtypeKey = SettingsKeys::keyPath("machine/subtype");

    /// All of them, by model number and then subtype. Every model comes first without a subtype.
    static std::vector<MachineConfiguration> all();

    /// Those of one model, its name in any case; empty for an unknown one.
    static std::vector<MachineConfiguration> ofModel(const QString &model);

    /// The machine of a model, its name in any case, and a subtype (-1: none).
    static std::optional<MachineConfiguration> find(const QString &model, int subtype);

    /// New settings of that machine, its subtype set; null when there is no such machine.
    static std::unique_ptr<HardwareSettings> create(const QString &model,
                                                    int subtype = HardwareSettings::NoSubtype);
};

#endif // MACHINEREGISTRY_H
