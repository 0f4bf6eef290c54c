#include "actuatorboardsettings.h"

#include "assertions.h"
#include "logformatter.h"

namespace {

constexpr auto s_pUnit = "src/hardwaresettings"; // the settings speak as one unit

} // namespace

void ActuatorBoardSettings::addIO(InputsOutputs::InputsOutputsUUID uuid, int io)
{
    if (m_ioMap.contains(uuid))
        printAssertMsg(QStringLiteral("!m_ioMap.contains(uuid)"),
                       QStringLiteral("Duplicated uuid in actuator board settings"), s_pUnit,
                       __LINE__);
    m_ioMap.insert(uuid, io);
}

void ActuatorBoardSettings::addRemoteIO(InputsOutputs::InputsOutputsUUID uuid, int io)
{
    if (m_remoteIOMap.contains(uuid))
        printAssertMsg(QStringLiteral("!m_remoteIOMap.contains(uuid)"),
                       QStringLiteral("Duplicated uuid in remote digital output Map"), s_pUnit,
                       __LINE__);
    m_remoteIOMap.insert(uuid, io);
}

int ActuatorBoardSettings::io(InputsOutputs::InputsOutputsUUID uuid) const
{
    if (!m_ioMap.contains(uuid))
        LogFormatter(4, Log::Hardware)
            << Q_FUNC_INFO << "Failed to find uuid" << static_cast<int>(uuid);
    return m_ioMap.value(uuid, s_noChannel);
}

int ActuatorBoardSettings::digitalIO(InputsOutputs::InputsOutputsUUID uuid) const
{
    if (!m_remoteIOMap.contains(uuid))
        LogFormatter(4, Log::Hardware)
            << Q_FUNC_INFO << "Failed to find remote uuid" << static_cast<int>(uuid);
    return m_remoteIOMap.value(uuid, s_noChannel);
}

InputsOutputs::InputsOutputsUUID ActuatorBoardSettings::uuid(int io) const
{
    return m_ioMap.key(io, InputsOutputs::IONone);
}

InputsOutputs::InputsOutputsUUID ActuatorBoardSettings::digitalUUID(int io) const
{
    return m_remoteIOMap.key(io, InputsOutputs::IONone);
}
