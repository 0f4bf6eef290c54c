#include "hardwareenvironment.h"

#include "abstracthardwarecontroller.h"
#include "assertions.h"
#include "buttons/physicalbuttons.h"
#include "cupsensor/lirenabcupsensor.h"
#include "cupsensor/simulatedcupsensor.h"
#include "envvars.h"
#include "logformatter.h"

#include <QMetaEnum>
#include <cstdlib>
#include <utility>

namespace {

constexpr auto s_pUnit = "src/hardwareenvironment";
constexpr int s_desktopPlatform = 1;
constexpr int s_targetPlatform = 2;
constexpr auto s_pLoopbackServer = "127.0.0.1";
constexpr auto s_pInternalServer = "192.168.7.2"; ///< the multiport board's address, chosen here

} // namespace

HardwareEnvironment *gHardwareEnv = nullptr;

HardwareSettings *hardwareSettings()
{
    return gHardwareEnv != nullptr ? gHardwareEnv->hardwareSettingsNonConst() : nullptr;
}

HardwareEnvironment::HardwareEnvironment(MachineModel model, HardwareSettings *pSettings)
    : AbstractEnvironment(pSettings, nullptr)
    , m_platform(getPlatformVariable())
    , m_machineModel(model)
{
    if (gHardwareEnv != nullptr) {
        LogFormatter(4, Log::Hardware) << Q_FUNC_INFO << "HardwareEnvironment already created !";
        exit(1);
    }
    gHardwareEnv = this;
}

HardwareEnvironment::~HardwareEnvironment()
{
    if (m_pCupSensor != nullptr && m_pCupSensor->isMeasureLoopRunning())
        m_pCupSensor->stopMeasureLoop();
    gHardwareEnv = nullptr;
}

void HardwareEnvironment::instantiateModules()
{
    const int index = metaObject()->indexOfEnumerator("HardwareModules");
    if (index == -1)
        printAssertMsg(QStringLiteral("modulesEnumIndex != -1"),
                       QStringLiteral("Modules enumeration not found"), s_pUnit, __LINE__);
    const QMetaEnum modules = metaObject()->enumerator(index);
    LogFormatter(1, Log::Hardware) << "[Hardware modules]----------------------";
    LogFormatter(1, Log::Hardware)
        << QStringLiteral("           Hardware controller [") + modelName() + QLatin1Char(']');
    for (int i = 0; i < modules.keyCount(); ++i) {
        if (modules.value(i) == 0)
            continue;
        const bool isModuleOn = isOn(static_cast<HardwareModule>(modules.value(i)));
        const QString line =
            isModuleOn ? QStringLiteral("%1 [ ON  ]") : QStringLiteral("%1 [ OFF ]");
        LogFormatter(1, Log::Hardware) << line.arg(QString::fromLatin1(modules.key(i)), 30);
    }
    instantiateHardwareModules();
}

void HardwareEnvironment::instantiateHardwareModules()
{
    instantiateController();
    if (isOn(BoardDigitalOutputModule)) {
        LogFormatter(0, Log::Hardware) << Q_FUNC_INFO << "enabling BoardDigitalOutputModule";
        m_pHardwareController->createBoardDigitalIOController();
    }
    if (isOn(PhysicalButtonsModule) && m_pPhysicalButtons == nullptr) {
        LogFormatter(0, Log::Hardware) << Q_FUNC_INFO << "enabling PhysicalButtonsModule";
        m_pPhysicalButtons = PhysicalButtons::instance();
    }
    if (isOn(I2CModule) && m_pI2CDevice == nullptr) {
        printReleaseAssertMsg(QStringLiteral("false"),
                              QStringLiteral("I2C is not available under Windows"), s_pUnit,
                              __LINE__);
        exit(1);
    }
    if (isOn(MultiportModule) && m_pMultiport == nullptr) {
        LogFormatter(0, Log::Hardware) << Q_FUNC_INFO << "enabling Multiport Module";
        instantiateMultiport();
    }
}

void HardwareEnvironment::instantiateController()
{
    delete m_pHardwareController; // of an earlier start that was not unloaded
    m_pHardwareController = hardwareSettingsNonConst()->createHardwareController();
    if (m_pHardwareController == nullptr) {
        printReleaseAssertMsg(QStringLiteral("m_pHardwareController"),
                              QStringLiteral("Hardware controller is null"), s_pUnit, __LINE__);
        exit(1);
    }
    m_pHardwareController->setParent(this);
    connect(m_pHardwareController, &AbstractHardwareController::buttonPressed, this,
            &HardwareEnvironment::buttonPressed);
    connect(m_pHardwareController, &AbstractHardwareController::buttonLongPressed, this,
            &HardwareEnvironment::buttonLongPressed);
    connect(m_pHardwareController, &AbstractHardwareController::gpioRising, this,
            &HardwareEnvironment::gpioRising);
    connect(m_pHardwareController, &AbstractHardwareController::gpioFalling, this,
            &HardwareEnvironment::gpioFalling);
}

void HardwareEnvironment::instantiateMultiport()
{
    const bool isLocal = m_platform == s_desktopPlatform;
    QString server = vytools::envvar::EnvVars::MultiportServer;
    if (server.isEmpty())
        server = QString::fromLatin1(isLocal ? s_pLoopbackServer : s_pInternalServer);
    m_pMultiport =
        new Multiport(server, isLocal ? Multiport::ModeLocal : Multiport::ModeInternal, this);
    Q_EMIT multiportChanged();
}

void HardwareEnvironment::initializeModules()
{
    if (isOn(MultiportModule) && m_pMultiport != nullptr)
        m_pMultiport->init(true);
}

void HardwareEnvironment::unloadModules()
{
    if (m_pPhysicalButtons != nullptr) {
        LogFormatter(0, Log::Hardware) << Q_FUNC_INFO << "unloading PhysicalButtons";
        delete m_pPhysicalButtons;
        m_pPhysicalButtons = nullptr;
    }
    if (m_pHardwareController != nullptr) {
        LogFormatter(0, Log::Hardware) << Q_FUNC_INFO << "unloading HardwareController";
        delete m_pHardwareController;
        m_pHardwareController = nullptr;
    }
}

const HardwareSettings *HardwareEnvironment::hardwareSettings() const
{
    return hardwareSettingsNonConst();
}

HardwareSettings *HardwareEnvironment::hardwareSettingsNonConst() const
{
    return static_cast<HardwareSettings *>(settings()); // the constructor takes nothing else
}

QString HardwareEnvironment::modelName() const
{
    return hardwareSettings()->modelName();
}

QString HardwareEnvironment::databaseModelName() const
{
    const QString name = hardwareSettings()->databaseModelName();
    return name.isEmpty() ? modelName() : name;
}

HardwareSettings::MachineModelSubtype HardwareEnvironment::modelSubtype() const
{
    return hardwareSettings()->modelSubtype();
}

// Not const, whatever the compiler could allow: it changes the settings.
void HardwareEnvironment::setModelSubtype( // NOLINT(readability-make-member-function-const)
    HardwareSettings::MachineModelSubtype subtype)
{
    HardwareSettings *const pSettings = hardwareSettingsNonConst();
    pSettings->setModelSubtype(subtype);
    if ((isLirenta() && subtype == HardwareSettings::LirentaCustomerEdition) ||
        (isNewQuindo() && subtype == HardwareSettings::NewQuindoCustomerEdition))
        pSettings->m_hasJugSupport = false;
    if (isLirenta() && subtype == HardwareSettings::LirentaFullInstant)
        pSettings->m_hasParallelStepSupport = true;
}

bool HardwareEnvironment::isLirenta() const
{
    return m_machineModel == Lirenta;
}

bool HardwareEnvironment::isLirentaRasmo() const
{
    return isModel(Lirenta, HardwareSettings::LirentaCustomerEdition);
}

bool HardwareEnvironment::isLirentaPlus() const
{
    return isModel(Lirenta, HardwareSettings::LirentaPlus);
}

bool HardwareEnvironment::isLirenta_Plus500() const
{
    return isModel(Lirenta, HardwareSettings::LirentaPlus500);
}

bool HardwareEnvironment::isLirentaFullInstant() const
{
    return isModel(Lirenta, HardwareSettings::LirentaFullInstant);
}

bool HardwareEnvironment::isLirentaStd() const
{
    return isModel(Lirenta, HardwareSettings::LirentaStandard);
}

bool HardwareEnvironment::isCorvelRasmo() const
{
    return isModel(Corvel, HardwareSettings::CorvelCustomerEdition);
}

bool HardwareEnvironment::isNewQuindo() const
{
    return m_machineModel == NewQuindo;
}

bool HardwareEnvironment::isNewQuindoRasmo() const
{
    return isModel(NewQuindo, HardwareSettings::NewQuindoCustomerEdition);
}

bool HardwareEnvironment::isNewQuindoStd() const
{
    return isModel(NewQuindo, HardwareSettings::NewQuindoStandard);
}

bool HardwareEnvironment::isCorvel() const
{
    return m_machineModel == Corvel;
}

bool HardwareEnvironment::isModel(MachineModel model,
                                  HardwareSettings::MachineModelSubtype subtype) const
{
    return m_machineModel == model && modelSubtype() == subtype;
}

int HardwareEnvironment::getPlatformVariable()
{
#ifdef VY_PLATFORM_BOARD
    return s_targetPlatform;
#else
    return s_desktopPlatform;
#endif
}

int HardwareEnvironment::getOperatingSystemVariable()
{
#ifdef VY_PLATFORM_BOARD
    return Linux;
#else
    return Windows;
#endif
}

int HardwareEnvironment::gpioCorvel(OutputCorvel output)
{
    switch (output) {
    case OutputCorvel0:
        return 9;
    case OutputCorvel1:
        return 10;
    case OutputCorvel2:
        return 11;
    case OutputCorvel3:
        return 12;
    case OutputCorvel4:
        return 13;
    }
    printAssertMsg(QString(), QStringLiteral("Device unknown, impossible get gpio"), s_pUnit,
                   __LINE__);
    return -1;
}

bool HardwareEnvironment::setOutputEnabled(OutputCorvel output, bool isOn)
{
    const int number = gpioCorvel(output);
    if (number >= 0 && m_platform == s_targetPlatform && m_pMultiport != nullptr)
        m_pMultiport->setOutputEnabled(number, isOn);
    return true;
}

bool HardwareEnvironment::setBlinkOutputEnabled(OutputCorvel output, bool isOn)
{
    const int number = gpioCorvel(output);
    if (number >= 0 && m_platform == s_targetPlatform && m_pMultiport != nullptr)
        m_pMultiport->setBlinkOutput(number, isOn);
    return true;
}

bool HardwareEnvironment::setDeviceEnabled(Output output, bool isOn)
{
    return m_pHardwareController != nullptr &&
           m_pHardwareController->setDeviceEnabled(output, isOn);
}

bool HardwareEnvironment::setParallelCoinValidatorDeviceEnabled(bool isOn)
{
    return m_pHardwareController != nullptr &&
           m_pHardwareController->setParallelCoinValidatorDeviceEnabled(isOn);
}

int HardwareEnvironment::deviceSetting(DeviceSetting setting) const
{
    return m_pHardwareController != nullptr ? m_pHardwareController->deviceSetting(setting) : 0;
}

bool HardwareEnvironment::setDeviceSetting(DeviceSetting setting, int value)
{
    return m_pHardwareController != nullptr &&
           m_pHardwareController->setDeviceSetting(setting, value);
}

std::pair<int, int> HardwareEnvironment::settingScale(DeviceSetting setting) const
{
    return m_pHardwareController != nullptr ? m_pHardwareController->settingScale(setting)
                                            : std::pair<int, int>();
}

void HardwareEnvironment::setDispensingLightIdleStatus(bool isOn)
{
    if (m_pHardwareController != nullptr)
        m_pHardwareController->setDispensingLightIdleStatus(isOn);
}

int HardwareEnvironment::actuatorBoardIO(InputsOutputs::InputsOutputsUUID uuid) const
{
    const ActuatorBoardSettings *const pBoard = hardwareSettings()->actuatorBoard();
    return pBoard != nullptr ? pBoard->io(uuid) : ActuatorBoardSettings::s_noChannel;
}

int HardwareEnvironment::actuatorBoardDigitalIO(InputsOutputs::InputsOutputsUUID uuid) const
{
    const ActuatorBoardSettings *const pBoard = hardwareSettings()->actuatorBoard();
    return pBoard != nullptr ? pBoard->digitalIO(uuid) : ActuatorBoardSettings::s_noChannel;
}

InputsOutputs::InputsOutputsUUID HardwareEnvironment::actuatorBoardUUID(int io) const
{
    const ActuatorBoardSettings *const pBoard = hardwareSettings()->actuatorBoard();
    return pBoard != nullptr ? pBoard->uuid(io) : InputsOutputs::IONone;
}

void HardwareEnvironment::setMultiport(Multiport *pMultiport)
{
    if (pMultiport == m_pMultiport)
        return;
    Multiport *const pOld = m_pMultiport;
    m_pMultiport = pMultiport;
    if (pOld != nullptr && pOld->parent() == this)
        pOld->deleteLater(); // this may run in a slot of its signal
    Q_EMIT multiportChanged();
}

bool HardwareEnvironment::createCupSensor(AbstractCupSensor::CupSensorType type, int /*unused*/)
{
    if (m_pCupSensor != nullptr) {
        LogFormatter(1, Log::Hardware) << Q_FUNC_INFO << ": Cup sensor already created !";
        return false;
    }
    if (type == AbstractCupSensor::CupSensorTypeLirenAB) {
        m_pCupSensor = new LirenABCupSensor(this);
        LogFormatter(1, Log::Hardware) << "Created Cup sensor of type Liren !";
    } else if (type == AbstractCupSensor::CupSensorTypeSimulated) {
        m_pCupSensor = new SimulatedCupSensor(this);
        LogFormatter(1, Log::Hardware) << "Created simulated Cup sensor!";
    } else {
        LogFormatter(1, Log::Hardware) << "Invalid cup sensor type !";
    }
    return m_pCupSensor != nullptr;
}
