#ifndef HARDWARESETTINGS_H
#define HARDWARESETTINGS_H

#include "abstractsettings.h"
#include "actuatorboardsettings.h"
#include "dadd/doordevicetypes.h"
#include "displaysettings.h"
#include "settingskeys.h"
#include "vyhardware1_export.h"

#include <QList>
#include <QMap>

class AbstractHardwareController;

/// What a machine model and subtype has and allows. The base holds the common defaults; each
/// machine configuration is a subclass whose constructor changes the protected fields and which
/// makes the model's controller. User interfaces read the properties by name. No property is read
/// from the settings file. Lives in the main thread.
///
/// The header is long because the properties are one record in a fixed order.
class VYHARDWARE1_EXPORT HardwareSettings : public AbstractSettings
{
    Q_OBJECT

    // The order is fixed: user interfaces also go through the properties by index.
    // clang-format off
    Q_PROPERTY(bool hasJugSupport MEMBER m_hasJugSupport CONSTANT)
    Q_PROPERTY(bool hasStopFeatureSupport MEMBER m_hasStopFeatureSupport CONSTANT)
    Q_PROPERTY(bool hasSqueezeSimpleConfig MEMBER m_hasSqueezeSimpleConfig CONSTANT)
    Q_PROPERTY(bool hasSqueezeAdvancedConfig MEMBER m_hasSqueezeAdvancedConfig CONSTANT)
    Q_PROPERTY(bool hasHydraulicCircuitSelection MEMBER m_hasHydraulicCircuitSelection CONSTANT)
    Q_PROPERTY(bool hasVoltageSupplySelection MEMBER m_hasVoltageSupplySelection CONSTANT)
    Q_PROPERTY(bool hasRinsingWithTablet MEMBER m_hasRinsingWithTablet CONSTANT)
    Q_PROPERTY(bool hasFreshMilkSupport MEMBER m_hasFreshMilkSupport CONSTANT)
    Q_PROPERTY(bool hasBrewerCleaningSupport MEMBER m_hasBrewerCleaningSupport CONSTANT)
    Q_PROPERTY(bool hasEspressoDecafSupport MEMBER m_hasEspressoDecafSupport CONSTANT)
    Q_PROPERTY(bool hasEspressoExtractionPressureConfig MEMBER m_hasEspressoExtractionPressureConfig CONSTANT)
    Q_PROPERTY(bool hasCpuFanSupport MEMBER m_hasCpuFanSupport CONSTANT)
    Q_PROPERTY(bool hasWaterSpeedSetting MEMBER m_hasWaterSpeedSetting CONSTANT)
    Q_PROPERTY(bool hasParallelStepSupport MEMBER m_hasParallelStepSupport CONSTANT)
    Q_PROPERTY(int defaultSolidWasteCountFull MEMBER m_defaultSolidWasteCountFull CONSTANT)
    Q_PROPERTY(int defaultSolidWasteCountWarn MEMBER m_defaultSolidWasteCountWarn CONSTANT)
    Q_PROPERTY(int solidWasteCountFullMax MEMBER m_solidWasteCountFullMax CONSTANT)
    Q_PROPERTY(bool solidWasteCountInGrams MEMBER m_solidWasteCountInGrams CONSTANT)
    Q_PROPERTY(int maxEspressoTemp MEMBER m_maxEspressoTemp CONSTANT)
    Q_PROPERTY(bool hasDoorCanister MEMBER m_hasDoorCanister CONSTANT)
    Q_PROPERTY(bool hasRoastAndGroundSupport MEMBER m_hasRoastAndGroundSupport CONSTANT)
    Q_PROPERTY(bool hasFullInstantSupport MEMBER m_hasFullInstantSupport CONSTANT)
    Q_PROPERTY(bool hasLeftOutlet MEMBER m_hasLeftOutlet CONSTANT)
    Q_PROPERTY(bool hasCenterOutlet MEMBER m_hasCenterOutlet CONSTANT)
    Q_PROPERTY(bool hasRightOutlet MEMBER m_hasRightOutlet CONSTANT)
    Q_PROPERTY(int maxCanistersCount MEMBER m_maxCanistersCount CONSTANT)
    Q_PROPERTY(bool allowHotWaterWithAnyStep MEMBER m_allowHotWaterWithAnyStep CONSTANT)
    Q_PROPERTY(bool allowColdWaterWithAnyStep MEMBER m_allowColdWaterWithAnyStep CONSTANT)
    Q_PROPERTY(bool allowLeftOutletStepAlways MEMBER m_allowLeftOutletStepAlways CONSTANT)
    Q_PROPERTY(bool allowRightOutletStepAlways MEMBER m_allowRightOutletStepAlways CONSTANT)
    Q_PROPERTY(bool hasInactivityRinsingByDefault MEMBER m_hasInactivityRinsingByDefault CONSTANT)
    Q_PROPERTY(bool isWasteFullBlockingFailure MEMBER m_isWasteFullBlockingFailure CONSTANT)
    Q_PROPERTY(bool hideEspressoCanisterFailureIfDoorOpened MEMBER m_hideEspressoCanisterFailureIfDoorOpened CONSTANT)
    Q_PROPERTY(bool hideInstantCanFailureIfEspCanNotPresent MEMBER m_hideInstantCanFailureIfEspCanNotPresent CONSTANT)
    Q_PROPERTY(bool hideWasteSolidFailureIfInstCanNotPresent MEMBER m_hideWasteSolidFailureIfInstCanNotPresent CONSTANT)
    Q_PROPERTY(int mechanicalBeverageCounterDuration MEMBER m_mechanicalBeverageCounterDuration CONSTANT)
    Q_PROPERTY(bool isMechanicalBeverageCounterOnAB MEMBER m_isMechanicalBeverageCounterOnAB CONSTANT)
    Q_PROPERTY(bool isDispensingLightOnAB MEMBER m_isDispensingLightOnAB CONSTANT)
    Q_PROPERTY(int canisterDefaultSpeedCalibrationMin MEMBER m_canisterDefaultSpeedCalibrationMin CONSTANT)
    Q_PROPERTY(int canisterDefaultSpeedCalibrationMax MEMBER m_canisterDefaultSpeedCalibrationMax CONSTANT)
    Q_PROPERTY(int canisterDefaultSpeedCalibrationMinRG MEMBER m_canisterDefaultSpeedCalibrationMinRG CONSTANT)
    Q_PROPERTY(int canisterDefaultSpeedCalibrationMaxRG MEMBER m_canisterDefaultSpeedCalibrationMaxRG CONSTANT)
    Q_PROPERTY(int canisterDefaultSpeedCalibrationMinExpVol MEMBER m_canisterDefaultSpeedCalibrationMinExpVol CONSTANT)
    Q_PROPERTY(int canisterDefaultSpeedCalibrationMaxExpVol MEMBER m_canisterDefaultSpeedCalibrationMaxExpVol CONSTANT)
    Q_PROPERTY(bool canisterOverrideSpeedCalibrationExpVol MEMBER m_canisterOverrideSpeedCalibrationExpVol CONSTANT)
    Q_PROPERTY(int canisterPowderSpeedDividerMin MEMBER m_canisterPowderSpeedDividerMin CONSTANT)
    Q_PROPERTY(int canisterPowderSpeedDividerMinRG MEMBER m_canisterPowderSpeedDividerMinRG CONSTANT)
    Q_PROPERTY(int canisterPowderSpeedDividerMax MEMBER m_canisterPowderSpeedDividerMax CONSTANT)
    Q_PROPERTY(int canisterPowderSpeedDividerMaxRG MEMBER m_canisterPowderSpeedDividerMaxRG CONSTANT)
    Q_PROPERTY(int minDrippingTimeHotWater MEMBER m_minDrippingTimeHotWater CONSTANT)
    Q_PROPERTY(int prePostPumpingTime MEMBER m_prePostPumpingTime CONSTANT)
    Q_PROPERTY(int postEspressoTime MEMBER m_postEspressoTime CONSTANT)
    Q_PROPERTY(bool hasSafetySwitch MEMBER m_hasSafetySwitch CONSTANT)
    Q_PROPERTY(bool hasDrySugarSupport MEMBER m_hasDrySugarSupport CONSTANT)
    Q_PROPERTY(bool hasCoffeeCanisterLight MEMBER m_hasCoffeeCanisterLight CONSTANT)
    Q_PROPERTY(bool hasDoorLight MEMBER m_hasDoorLight CONSTANT)
    Q_PROPERTY(bool isAVendingMachine MEMBER m_isAVendingMachine CONSTANT)
    Q_PROPERTY(bool isCoffeePadWasteVisible MEMBER m_isCoffeePadWasteVisible CONSTANT)
    Q_PROPERTY(bool isMixer220V MEMBER m_isMixer220V CONSTANT)
    Q_PROPERTY(bool hasActuatorBoardLirentaMarbo MEMBER m_hasActuatorBoardLirentaMarbo CONSTANT)
    Q_PROPERTY(DisplaySettings displaySettings READ displaySettings CONSTANT)
    Q_PROPERTY(int waterQueueLimt MEMBER m_waterQueueLimt CONSTANT)
    Q_PROPERTY(bool hasCleaningDoseSettable MEMBER m_hasCleaningDoseSettable CONSTANT)
    Q_PROPERTY(bool solidSmartResetAutoReset MEMBER m_solidSmartResetAutoReset CONSTANT)
    Q_PROPERTY(bool hasTechnicianBackup MEMBER m_solidSmartResetAutoReset CONSTANT) // one flag, two names
    Q_PROPERTY(bool hasFullUserInterfaceOSSupport MEMBER m_hasFullUserInterfaceOSSupport CONSTANT)
    Q_PROPERTY(bool hasOwnCupDiscount MEMBER m_hasOwnCupDiscount CONSTANT)
    Q_PROPERTY(bool hasFBSupport MEMBER m_hasFBSupport CONSTANT)
    Q_PROPERTY(bool hasSpeaker MEMBER m_hasSpeaker CONSTANT)
    Q_PROPERTY(int maxParallelStepPerRecipe MEMBER m_maxParallelStepPerRecipe CONSTANT)
    Q_PROPERTY(bool hasOwnCupManagement MEMBER m_hasOwnCupManagement CONSTANT)
    Q_PROPERTY(bool isFullInstant READ isFullInstant NOTIFY isFullInstantChanged)
    Q_PROPERTY(bool hasSecondSlaveMachineSupport MEMBER m_hasSecondSlaveMachineSupport CONSTANT)
    Q_PROPERTY(bool hasMultiportSupport MEMBER m_hasMultiportSupport CONSTANT)
    Q_PROPERTY(bool hasDaddSupport MEMBER m_hasDaddSupport CONSTANT)
    Q_PROPERTY(bool hasColdUnit MEMBER m_hasColdUnit CONSTANT)
    Q_PROPERTY(bool hasBranchPipe MEMBER m_hasBranchPipe CONSTANT)
    Q_PROPERTY(bool isHotWaterKitSupported READ isHotWaterKitSupported WRITE setIsHotWaterKitSupported NOTIFY isHotWaterKitSupportedChanged)
    Q_PROPERTY(bool isSnackAndFoodMachineSupported READ isSnackAndFoodMachineSupported WRITE setIsSnackAndFoodMachineSupported NOTIFY isSnackAndFoodMachineSupportedChanged)
    Q_PROPERTY(bool isCoffeeToGoMachineSupported READ isCoffeeToGoMachineSupported WRITE setIsCoffeeToGoMachineSupported NOTIFY isCoffeeToGoMachineSupportedChanged)
    Q_PROPERTY(int espressoBrewerInitDefaultSeconds MEMBER m_espressoBrewerInitDefaultSeconds CONSTANT)
    Q_PROPERTY(bool hasMultiCupSupport MEMBER m_hasMultiCupSupport CONSTANT)
    Q_PROPERTY(bool hasMechanicalCounter MEMBER m_hasMechanicalCounter CONSTANT)
    Q_PROPERTY(bool hasMovableNozzle MEMBER m_hasMovableNozzle CONSTANT)
    Q_PROPERTY(bool hasWasteBucket MEMBER m_hasWasteBucket CONSTANT)
    Q_PROPERTY(bool hasDripTray MEMBER m_hasDripTray CONSTANT)
    Q_PROPERTY(bool hasABDoorSwitch MEMBER m_hasABDoorSwitch CONSTANT)
    Q_PROPERTY(bool hasSolidWaste READ hasSolidWaste WRITE setHasSolidWaste NOTIFY hasSolidWasteChanged)
    Q_PROPERTY(bool hasCupCarrier READ hasCupCarrier WRITE setHasCupCarrier NOTIFY hasCupCarrierChanged)
    // clang-format on

public:
    /// Volts, but for the supplies that share a voltage: their numbers are one off, and are stored
    /// and compared as they stand.
    enum SupplyVoltage : int {
        VoltageUndefined = 0,
        Voltage230 = 230,
        Voltage240 = 240,
        Voltage120 = 120,
        Voltage230_10A = 231,
        Voltage240_13A = 239,
        Voltage110 = 110,
        Voltage220 = 220,
        Voltage120_M = 121,
    };
    Q_ENUM(SupplyVoltage)

    /// Limits of the espresso boiler: temperatures in 0.1 °C, times in minutes.
    enum EsTempValueLimits : int {
        MinDeltaT = 0,
        MinIdleMinutes = 5,
        MinDeltaEsForTlowFailureSolved = 40,
        MaxIdleMinutes = 30,
        MinEsTempValue = 700,
        MaxEsTempValue = 1050,
        MaxEsTempValueDuvana = 1020,
        MaxEsTempValueMarboTouch = 1020,
    };
    Q_ENUM(EsTempValueLimits)

    /// The subtype within its machine model. Not known to the meta-object system; where a number
    /// has no name of its own it bears its model's.
    enum MachineModelSubtype : int {
        NoSubtype = -1, ///< also where the generic actuator-board settings are filed
        LirentaStandard = 2,
        LirentaPlus = 3,
        CorvelSubtype5 = 5,
        LirentaCustomerEdition = 6,
        LirentaPlus500 = 7,
        LirentaFullInstant = 8,
        CorvelSubtype9 = 9,
        CorvelCustomerEdition = 10,
        NewQuindoStandard = 11,
        NewQuindoCustomerEdition = 12,
        NewQuindoSubtype13 = 13,
        LirentaSubtype14 = 14,
        NewQuindoSubtype15 = 15,
    };

    HardwareSettings();
    ~HardwareSettings() override;

    /// The model's display, sound and output controller, a new one at each call; the caller owns
    /// it.
    virtual AbstractHardwareController *createHardwareController() = 0;
    virtual DisplaySettings displaySettings() const;
    virtual QList<SupplyVoltage> supportedVoltages() const;

    bool hasVoltageSupport(SupplyVoltage voltage) const;
    QList<hardware::dadd::DeviceModel> supportedDaddDeviceModels() const;

    QString modelName() const { return m_modelName; }
    QString databaseModelName() const { return m_databaseModelName; } ///< empty: the model name

    MachineModelSubtype modelSubtype() const { return m_modelSubtype; }
    void setModelSubtype(MachineModelSubtype subtype);
    bool isFullInstant() const { return m_modelSubtype == LirentaFullInstant; }

    bool isHotWaterKitSupported() const { return m_isHotWaterKitSupported; }
    void setIsHotWaterKitSupported(bool isSupported);
    bool isSnackAndFoodMachineSupported() const { return m_isSnackAndFoodMachineSupported; }
    void setIsSnackAndFoodMachineSupported(bool isSupported);
    bool isCoffeeToGoMachineSupported() const { return m_isCoffeeToGoMachineSupported; }
    void setIsCoffeeToGoMachineSupported(bool isSupported);
    bool hasSolidWaste() const { return m_hasSolidWaste; }
    void setHasSolidWaste(bool isThere);
    bool hasCupCarrier() const { return m_hasCupCarrier; }
    void setHasCupCarrier(bool isThere);

    /// A number above the model's upper bound (7 in the base) is ignored.
    void setMaxParallelStepPerRecipe(int steps);

    /// The settings filed under the current subtype; null, with a failed assertion reported, where
    /// none are. Belongs to this object, until others are filed in its place.
    ActuatorBoardSettings *actuatorBoard() const;

    /// Takes the settings over; one object cannot be filed under two subtypes. Settings that the
    /// subtype had before are reported as a failed assertion and deleted.
    void addActuatorBoardSettings(MachineModelSubtype subtype, ActuatorBoardSettings *pSettings);

    Q_INVOKABLE bool hasTimeDateCtl() const { return m_hasTimeDateCtl; }
    Q_INVOKABLE bool hasRotatedTargetDisplay() const { return false; }
    Q_INVOKABLE bool isCanisterArrowClickable(int idx) const;
    Q_INVOKABLE bool isCanisterNullVisible(int idx) const;
    Q_INVOKABLE bool isCanisterClickDisabled(int idx) const;
    Q_INVOKABLE bool isPumpUnavailable(int idx) const;

Q_SIGNALS:
    void isFullInstantChanged();
    void modelSubtypeChanged(MachineModelSubtype subtype); ///< before isFullInstantChanged()
    void isHotWaterKitSupportedChanged();
    void isSnackAndFoodMachineSupportedChanged();
    void isCoffeeToGoMachineSupportedChanged();
    void hasSolidWasteChanged();
    void hasCupCarrierChanged();

protected:
    QString m_modelName;
    QString m_databaseModelName;
    bool m_hasTimeDateCtl = false;
    int m_maxParallelStepUpperBound = 7; ///< for setMaxParallelStepPerRecipe()
    QList<int> m_arrowClickableCanisters{2, 5};
    QList<int> m_nullVisibleCanisters;
    QList<int> m_clickDisabledCanisters{4, 5, 6};
    QList<int> m_unavailablePumps{9, 10};

    // What the properties read, in their order.
    bool m_hasJugSupport = true;
    bool m_hasStopFeatureSupport = true;
    bool m_hasSqueezeSimpleConfig = false;
    bool m_hasSqueezeAdvancedConfig = true;
    bool m_hasHydraulicCircuitSelection = true;
    bool m_hasVoltageSupplySelection = true;
    bool m_hasRinsingWithTablet = false;
    bool m_hasFreshMilkSupport = false;
    bool m_hasBrewerCleaningSupport = false;
    bool m_hasEspressoDecafSupport = false;
    bool m_hasEspressoExtractionPressureConfig = false;
    bool m_hasCpuFanSupport = true;
    bool m_hasWaterSpeedSetting = true;
    bool m_hasParallelStepSupport = false;
    int m_defaultSolidWasteCountFull = 1500; ///< doses, or grams with solidWasteCountInGrams
    int m_defaultSolidWasteCountWarn = 1300; ///< as above
    int m_solidWasteCountFullMax = 1500;     ///< as above
    bool m_solidWasteCountInGrams = false;
    int m_maxEspressoTemp = 1050; ///< 0.1 °C
    bool m_hasDoorCanister = true;
    bool m_hasRoastAndGroundSupport = true;
    bool m_hasFullInstantSupport = true;
    bool m_hasLeftOutlet = true;
    bool m_hasCenterOutlet = false;
    bool m_hasRightOutlet = true;
    int m_maxCanistersCount = -1; ///< -1 where the model sets none
    bool m_allowHotWaterWithAnyStep = false;
    bool m_allowColdWaterWithAnyStep = false;
    bool m_allowLeftOutletStepAlways = false;
    bool m_allowRightOutletStepAlways = false;
    bool m_hasInactivityRinsingByDefault = false;
    bool m_isWasteFullBlockingFailure = false;
    bool m_hideEspressoCanisterFailureIfDoorOpened = false;
    bool m_hideInstantCanFailureIfEspCanNotPresent = true;
    bool m_hideWasteSolidFailureIfInstCanNotPresent = true;
    int m_mechanicalBeverageCounterDuration = 100;
    bool m_isMechanicalBeverageCounterOnAB = false;
    bool m_isDispensingLightOnAB = false;
    int m_canisterDefaultSpeedCalibrationMin = 150;
    int m_canisterDefaultSpeedCalibrationMax = 600;
    int m_canisterDefaultSpeedCalibrationMinRG = 380;
    int m_canisterDefaultSpeedCalibrationMaxRG = 870;
    int m_canisterDefaultSpeedCalibrationMinExpVol = 0;
    int m_canisterDefaultSpeedCalibrationMaxExpVol = 25;
    bool m_canisterOverrideSpeedCalibrationExpVol = false;
    int m_canisterPowderSpeedDividerMin = 10;
    int m_canisterPowderSpeedDividerMinRG = 13;
    int m_canisterPowderSpeedDividerMax = 5;
    int m_canisterPowderSpeedDividerMaxRG = 7;
    int m_minDrippingTimeHotWater = 0;
    int m_prePostPumpingTime = 0;
    int m_postEspressoTime = 0;
    bool m_hasSafetySwitch = true;
    bool m_hasDrySugarSupport = false;
    bool m_hasCoffeeCanisterLight = true;
    bool m_hasDoorLight = true;
    bool m_isAVendingMachine = true;
    bool m_isCoffeePadWasteVisible = true;
    bool m_isMixer220V = false;
    bool m_hasActuatorBoardLirentaMarbo = false;
    int m_waterQueueLimt = 0;
    bool m_hasCleaningDoseSettable = false;
    bool m_solidSmartResetAutoReset = false;
    bool m_hasTechnicianBackup = false; ///< not what the property of this name reads
    bool m_hasFullUserInterfaceOSSupport = false;
    bool m_hasOwnCupDiscount = false;
    bool m_hasFBSupport = true;
    bool m_hasSpeaker = false;
    int m_maxParallelStepPerRecipe = 4;
    bool m_hasOwnCupManagement = false;
    bool m_hasSecondSlaveMachineSupport = false;
    bool m_hasMultiportSupport = false;
    bool m_hasDaddSupport = true;
    bool m_hasColdUnit = false;
    bool m_hasBranchPipe = false;
    bool m_isHotWaterKitSupported = false;
    bool m_isSnackAndFoodMachineSupported = false;
    bool m_isCoffeeToGoMachineSupported = false;
    int m_espressoBrewerInitDefaultSeconds = 10;
    bool m_hasMultiCupSupport = false;
    bool m_hasMechanicalCounter = false;
    bool m_hasMovableNozzle = false;
    bool m_hasWasteBucket = false;
    bool m_hasDripTray = false;
    bool m_hasABDoorSwitch = false;
    bool m_hasSolidWaste = false;
    bool m_hasCupCarrier = false;

private:
    friend class HardwareEnvironment; ///< a subtype set later changes some fields

    /// Stores and tells, when the value differs.
    void setFlag(bool &flag, bool value, void (HardwareSettings::*pChanged)());

    MachineModelSubtype m_modelSubtype = NoSubtype;
    QMap<MachineModelSubtype, ActuatorBoardSettings *> m_actuatorBoardSettings; ///< owned
};

#endif // HARDWARESETTINGS_H
