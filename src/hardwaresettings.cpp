#include "hardwaresettings.h"

#include "assertions.h"

#include <QPointer>

namespace {

constexpr auto s_pUnit = "src/hardwaresettings";

} // namespace

HardwareSettings::HardwareSettings()
{
    m_actuatorBoardSettings.insert(NoSubtype, new ActuatorBoardSettings);
}

HardwareSettings::~HardwareSettings()
{
    qDeleteAll(m_actuatorBoardSettings);
}

DisplaySettings HardwareSettings::displaySettings() const
{
    return {1280, 800, true, false, 0};
}

QList<HardwareSettings::SupplyVoltage> HardwareSettings::supportedVoltages() const
{
    return {Voltage230, Voltage120};
}

bool HardwareSettings::hasVoltageSupport(SupplyVoltage voltage) const
{
    return supportedVoltages().contains(voltage);
}

QList<hardware::dadd::DeviceModel> HardwareSettings::supportedDaddDeviceModels() const
{
    return {hardware::dadd::GearDoor};
}

void HardwareSettings::setModelSubtype(MachineModelSubtype subtype)
{
    if (subtype == m_modelSubtype)
        return;
    const bool wasFullInstant = isFullInstant();
    m_modelSubtype = subtype;
    const bool hasFullInstantChanged = isFullInstant() != wasFullInstant;
    const QPointer<HardwareSettings> pThis = this; // a slot may delete the settings
    Q_EMIT modelSubtypeChanged(subtype);
    if (pThis && hasFullInstantChanged)
        Q_EMIT isFullInstantChanged();
}

void HardwareSettings::setIsHotWaterKitSupported(bool isSupported)
{
    setFlag(m_isHotWaterKitSupported, isSupported,
            &HardwareSettings::isHotWaterKitSupportedChanged);
}

void HardwareSettings::setIsSnackAndFoodMachineSupported(bool isSupported)
{
    setFlag(m_isSnackAndFoodMachineSupported, isSupported,
            &HardwareSettings::isSnackAndFoodMachineSupportedChanged);
}

void HardwareSettings::setIsCoffeeToGoMachineSupported(bool isSupported)
{
    setFlag(m_isCoffeeToGoMachineSupported, isSupported,
            &HardwareSettings::isCoffeeToGoMachineSupportedChanged);
}

void HardwareSettings::setHasSolidWaste(bool isThere)
{
    setFlag(m_hasSolidWaste, isThere, &HardwareSettings::hasSolidWasteChanged);
}

void HardwareSettings::setHasCupCarrier(bool isThere)
{
    setFlag(m_hasCupCarrier, isThere, &HardwareSettings::hasCupCarrierChanged);
}

void HardwareSettings::setMaxParallelStepPerRecipe(int steps)
{
    if (steps <= m_maxParallelStepUpperBound)
        m_maxParallelStepPerRecipe = steps;
}

ActuatorBoardSettings *HardwareSettings::actuatorBoard() const
{
    if (!m_actuatorBoardSettings.contains(m_modelSubtype))
        printAssertMsg(QStringLiteral("m_actuatorBoardSettings.contains(m_modelSubtype)"),
                       QStringLiteral("Model subtype not set or supported in HardwareSettings"),
                       s_pUnit, __LINE__);
    return m_actuatorBoardSettings.value(m_modelSubtype, nullptr);
}

void HardwareSettings::addActuatorBoardSettings(MachineModelSubtype subtype,
                                                ActuatorBoardSettings *pSettings)
{
    if (m_actuatorBoardSettings.contains(subtype))
        printAssertMsg(QStringLiteral("!m_actuatorBoardSettings.contains(subtype)"),
                       QStringLiteral("Duplicated model subtype for settings"), s_pUnit, __LINE__);
    ActuatorBoardSettings *const pOld = m_actuatorBoardSettings.value(subtype, nullptr);
    if (pOld != pSettings)
        delete pOld;
    m_actuatorBoardSettings.insert(subtype, pSettings);
}

bool HardwareSettings::isCanisterArrowClickable(int idx) const
{
    return m_arrowClickableCanisters.contains(idx);
}

bool HardwareSettings::isCanisterNullVisible(int idx) const
{
    return m_nullVisibleCanisters.contains(idx);
}

bool HardwareSettings::isCanisterClickDisabled(int idx) const
{
    return m_clickDisabledCanisters.contains(idx);
}

bool HardwareSettings::isPumpUnavailable(int idx) const
{
    return m_unavailablePumps.contains(idx);
}

void HardwareSettings::setFlag(bool &flag, bool value, void (HardwareSettings::*pChanged)())
{
    if (flag == value)
        return;
    flag = value;
    Q_EMIT(this->*pChanged)();
}
