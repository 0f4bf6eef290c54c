#ifndef MACHINE_H
#define MACHINE_H

#include "hardwareenvironment.h"
#include "machinechoice.h"

#include <memory>

class Console;

/// The machine that a command works on: its settings and its environment, constructed but not yet
/// created. The tool enables the physical buttons, the board's outputs and, where the model
/// supports it, the multiport client.
class Machine
{
public:
    /// Null, after an error line, when the choice names no machine.
    static std::unique_ptr<Machine> make(const MachineChoice &choice, Console &console);

    HardwareEnvironment &environment() { return m_environment; }
    const HardwareEnvironment &environment() const { return m_environment; }
    QString title() const { return machineTitle(m_configuration); }

private:
    explicit Machine(const MachineConfiguration &configuration);

    MachineConfiguration m_configuration;
    std::unique_ptr<HardwareSettings> m_pSettings; ///< outlives the environment
    HardwareEnvironment m_environment;
};

#endif // MACHINE_H
