#include "machinesettings.h"

#include "Corvel/hardwarecontrollercorvel.h"
#include "SecoB40/secob40hardwarecontroller.h"
#include "machineregistry.h"
#include "systempath.h"

MachineSettings::MachineSettings(const MachineConfiguration &configuration)
    : m_model(configuration.model)
{
    m_modelName = QString::fromLatin1(configuration.pModel);
    m_maxEspressoTemp = configuration.maxEspressoTemp;
    m_hasJugSupport = configuration.hasJugSupport;
    m_hasParallelStepSupport = configuration.hasParallelStepSupport;
    if (configuration.subtype != NoSubtype) // the base has filed the generic ones
        addActuatorBoardSettings(configuration.subtype, new ActuatorBoardSettings);
    setModelSubtype(configuration.subtype);
}

AbstractHardwareController *MachineSettings::createHardwareController()
{
    const QString maxBrightnessFile = SystemPath::path(SystemPath::MaxBrightness);
    const QString brightnessFile = SystemPath::path(SystemPath::Brightness);
    if (m_model == HardwareEnvironment::Corvel)
        return new HardwareControllerCorvel(maxBrightnessFile, brightnessFile, nullptr);
    return new SecoHardwareController(maxBrightnessFile, brightnessFile, nullptr);
}
