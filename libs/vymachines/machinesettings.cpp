#include "machinesettings.h"

#include "machineregistry.h"

MachineSettings::MachineSettings(const MachineConfiguration &configuration)
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
    return nullptr;
}
