#ifndef HARDWAREENVIRONMENT_H
#define HARDWAREENVIRONMENT_H

#include "abstractenvironment.h"
#include "cupsensor/abstractcupsensor.h"
#include "hardwaresettings.h"
#include "multiport.h"
#include "versionnumber.h"
#include "vyhardware1_export.h"

#include <QPointer>
#include <utility>

class AbstractHardwareController;
class HardwareEnvironment;
class PhysicalButtons;

/// The environment of the process; null before the first is constructed and after it is destroyed.
extern VYHARDWARE1_EXPORT HardwareEnvironment *gHardwareEnv;

/// The settings of gHardwareEnv; null without one.
VYHARDWARE1_EXPORT HardwareSettings *hardwareSettings();

/// Brings the machine's hardware up and down: it knows the machine model, owns the hardware
/// controller, the multiport client and the cup sensor, takes the physical buttons, and answers
/// model questions. One for each process: a second one ends it with status 1. Main thread only.
///
/// Order: construct; set version, hashes and enabled modules; createEnvironment();
/// setModelSubtype(), createCupSensor(). At the end unloadModules(); the client and the sensor go
/// with the environment. Without unloadModules() the physical buttons, a singleton, go on reading.
///
/// The header is a little long because all that an application asks of the machine is asked here.
class VYHARDWARE1_EXPORT HardwareEnvironment : public AbstractEnvironment
{
    Q_OBJECT
    Q_PROPERTY(Multiport *multiport READ multiport NOTIFY multiportChanged)

public:
    enum MachineModel : int {
        Ostrel = 0,
        Duvana = 1,
        Lirenta = 2,
        MarboTouch = 3,
        MarboCapacitiveKeys = 4,
        Corvel = 5,
        NewQuindo = 6,
    };
    Q_ENUM(MachineModel)

    enum HardwareModule : int {
        NoHardwareModule = 0,
        PhysicalButtonsModule = 1,
        SpiModule = 2,
        BoardDigitalOutputModule = 4,
        I2CModule = 8,
        MultiportModule = 16,
    };
    Q_DECLARE_FLAGS(HardwareModules, HardwareModule)
    Q_FLAG(HardwareModules)

    enum OperatingSystem : int { UnknownOS = 0, Linux = 1, Windows = 2 };
    Q_ENUM(OperatingSystem)

    /// Outputs of the multiport server's digital-output board, see gpioCorvel().
    enum OutputCorvel : int {
        OutputCorvel0 = 0,
        OutputCorvel1 = 1,
        OutputCorvel2 = 2,
        OutputCorvel3 = 3,
        OutputCorvel4 = 4,
    };
    Q_ENUM(OutputCorvel)

    enum DeviceSetting : int {
        BrightnessSetting = 0,   ///< percent
        BuzzerPeriodSetting = 1, ///< the board's unit
        ContrastSetting = 2,     ///< the board's unit
        SpeakerVolumeSetting = 3,
    };
    Q_ENUM(DeviceSetting)

    /// Logical outputs of the UI board; its controller knows their GPIO lines.
    enum Output : int {
        OutputParallelCoinValidator = 0,
        OutputDispensingLight = 1,
        OutputMechanicalCounter = 2,
        OutputBuzzer = 3,
    };
    Q_ENUM(Output)

    /// The settings are borrowed for the environment's life.
    HardwareEnvironment(MachineModel model, HardwareSettings *pSettings);
    ~HardwareEnvironment() override;

    // Start-up and shut-down.
    void instantiateModules() override;
    void initializeModules() override;
    void unloadModules() override;

    /// None at first; set before createEnvironment(). Which ones is the application's choice.
    void setEnabledModules(HardwareModules modules) { m_enabledModules = modules; }
    HardwareModules enabledModules() const { return m_enabledModules; }

    // What the machine is.
    const HardwareSettings *hardwareSettings() const;
    HardwareSettings *hardwareSettingsNonConst() const;
    MachineModel machineModel() const { return m_machineModel; }
    QString modelName() const;
    QString databaseModelName() const; ///< the model name where the settings have none of its own
    HardwareSettings::MachineModelSubtype modelSubtype() const;

    /// Tells the settings, and changes in them what the subtype changes.
    void setModelSubtype(HardwareSettings::MachineModelSubtype subtype);

    Q_INVOKABLE bool isLirenta() const;
    Q_INVOKABLE bool isLirentaRasmo() const;
    Q_INVOKABLE bool isLirentaPlus() const;
    Q_INVOKABLE bool isLirenta_Plus500() const;
    Q_INVOKABLE bool isLirentaFullInstant() const;
    Q_INVOKABLE bool isLirentaStd() const;
    Q_INVOKABLE bool isCorvelRasmo() const;
    Q_INVOKABLE bool isNewQuindo() const;
    Q_INVOKABLE bool isNewQuindoRasmo() const;
    Q_INVOKABLE bool isNewQuindoStd() const;
    Q_INVOKABLE bool isCorvel() const;

    /// 1 on a desktop, 2 on the machine itself; what controllers and outputs ask.
    int platform() const { return m_platform; }

    // What this build is for (VY_PLATFORM): fixed answers.
    static int getPlatformVariable();        ///< 1 desktop, 2 board
    static int getOperatingSystemVariable(); ///< OperatingSystem
    static int systemKeyFamily() { return 2; }
    static bool getDebugModeVariable() { return false; }
    static bool getDesktopCustomerAppVariable() { return true; }
    static bool getStandaloneModeVariable() { return false; }

    // What the system is. Read from files (see SystemPath); failures are log lines and empty
    // results.
    /// Version of the installed system image; empty when it cannot be read. Kept once it was read.
    static VersionNumber systemKeyVersion();
    bool hasCpuInfoUpdated() const;  ///< the image is recent enough to describe the CPU (1.0.15.1)
    static QString revisionString(); ///< the board's revision, as the kernel reports it

    // Outputs and devices. Without a controller: false, 0, (0, 0).
    /// The server's output number; -1 for an unknown one.
    static int gpioCorvel(OutputCorvel output);
    /// On the machine these ask the multiport server; on a desktop they do nothing. Always true.
    bool setOutputEnabled(OutputCorvel output, bool isOn);
    bool setBlinkOutputEnabled(OutputCorvel output, bool isOn);
    bool setDeviceEnabled(Output output, bool isOn);
    int deviceSetting(DeviceSetting setting) const;
    bool setDeviceSetting(DeviceSetting setting, int value);
    std::pair<int, int> settingScale(DeviceSetting setting) const;
    void setDispensingLightIdleStatus(bool isOn);

    /// Of the subtype's actuator-board settings; 255 where there is no channel or no settings.
    int actuatorBoardIO(InputsOutputs::InputsOutputsUUID uuid) const;
    int actuatorBoardDigitalIO(InputsOutputs::InputsOutputsUUID uuid) const;
    InputsOutputs::InputsOutputsUUID actuatorBoardUUID(int io) const;

    AbstractHardwareController *hardwareController() const { return m_pHardwareController; }
    Multiport *multiport() const { return m_pMultiport; } ///< null until the module is instantiated
    /// The old client is deleted by the event loop if it is the environment's child.
    void setMultiport(Multiport *pMultiport);

    /// False when there is a sensor already, or for a type that cannot be made (all but 2 and 4).
    bool createCupSensor(AbstractCupSensor::CupSensorType type, int unused = 0);
    AbstractCupSensor *cupSensor() const { return m_pCupSensor; } ///< null until it is created

public Q_SLOTS:
    bool setParallelCoinValidatorDeviceEnabled(bool isOn);

Q_SIGNALS:
    void buttonPressed(int buttonId);
    void buttonLongPressed(int buttonId);
    void gpioRising(int buttonId);
    void gpioFalling(int buttonId);
    void multiportChanged();

protected:
    /// For an application's environment class, or a test's, that chooses at run time.
    void setPlatform(int platform) { m_platform = platform; }

    int m_platform;

private:
    bool isModel(MachineModel model, HardwareSettings::MachineModelSubtype subtype) const;
    bool isOn(HardwareModule module) const { return m_enabledModules.testFlag(module); }
    void instantiateHardwareModules();
    void instantiateController();
    void instantiateMultiport();

    HardwareModules m_enabledModules = NoHardwareModule;
    const MachineModel m_machineModel;
    AbstractHardwareController *m_pHardwareController = nullptr; ///< owned
    PhysicalButtons *m_pPhysicalButtons = nullptr;               ///< the singleton
    void *m_pI2CDevice = nullptr;                                ///< none in this build
    AbstractCupSensor *m_pCupSensor = nullptr;                   ///< owned
    QPointer<Multiport> m_pMultiport;                            ///< owned when it is a child
};

Q_DECLARE_OPERATORS_FOR_FLAGS(HardwareEnvironment::HardwareModules)

#endif // HARDWAREENVIRONMENT_H
