#include "machine.h"

#include <QVersionNumber>

std::unique_ptr<Machine> Machine::make(const MachineChoice &choice, Console &console)
{
    const std::optional<MachineConfiguration> configuration = findMachine(choice, console);
    return configuration ? std::unique_ptr<Machine>(new Machine(*configuration)) : nullptr;
}

Machine::Machine(const MachineConfiguration &configuration)
    : m_configuration(configuration)
    , m_pSettings(
          MachineRegistry::create(QString::fromLatin1(configuration.pModel), configuration.subtype))
    , m_environment(configuration.model, m_pSettings.get())
{
    const auto version = QVersionNumber::fromString(QStringLiteral(VY_VERSION));
    m_environment.setApplicationVersion(version.majorVersion(), version.minorVersion(),
                                        version.microVersion());
    HardwareEnvironment::HardwareModules modules =
        HardwareEnvironment::PhysicalButtonsModule | HardwareEnvironment::BoardDigitalOutputModule;
    modules.setFlag(HardwareEnvironment::MultiportModule,
                    m_pSettings->property("hasMultiportSupport").toBool());
    m_environment.setEnabledModules(modules);
    m_environment.setModelSubtype(configuration.subtype);
}
