#ifndef TESTMACHINE_H
#define TESTMACHINE_H

#include "environment/environmentfakes.h"
#include "hardwareenvironment.h"

/// While it lives, gHardwareEnv is a machine of this model and subtype; nothing is started.
class TestMachine
{
public:
    explicit TestMachine(HardwareEnvironment::MachineModel model = HardwareEnvironment::Ostrel,
                         int subtype = -1)
        : m_environment(model, &m_settings)
    {
        m_environment.setModelSubtype(static_cast<HardwareSettings::MachineModelSubtype>(subtype));
    }

    HardwareEnvironment &environment() { return m_environment; }

private:
    TestSettings m_settings;
    HardwareEnvironment m_environment;
};

#endif // TESTMACHINE_H
