// What a lambda captures here outlives its connection, and timers are tried without a context.
// clazy:excludeall=connect-3arg-lambda,lambda-in-connect

#include "hardwaresettings.h"

#include "support/assertspy.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QJsonDocument>
#include <QMetaEnum>
#include <QMetaMethod>
#include <QMetaProperty>
#include <QPointer>
#include <QSignalSpy>
#include <gtest/gtest.h>

#include <iterator>
#include <limits>
#include <malloc.h>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

using Subtype = HardwareSettings::MachineModelSubtype;

/// A machine that is as the base is; the tests change what a model's constructor may change.
class PlainSettings : public HardwareSettings
{
public:
    AbstractHardwareController *createHardwareController() override { return nullptr; }

    using HardwareSettings::m_arrowClickableCanisters;
    using HardwareSettings::m_clickDisabledCanisters;
    using HardwareSettings::m_databaseModelName;
    using HardwareSettings::m_hasTechnicianBackup;
    using HardwareSettings::m_hasTimeDateCtl;
    using HardwareSettings::m_maxEspressoTemp;
    using HardwareSettings::m_maxParallelStepUpperBound;
    using HardwareSettings::m_modelName;
    using HardwareSettings::m_nullVisibleCanisters;
    using HardwareSettings::m_solidSmartResetAutoReset;
    using HardwareSettings::m_unavailablePumps;
};

/// A machine with another display and supply than the base.
class OtherSettings : public PlainSettings
{
public:
    DisplaySettings displaySettings() const override { return {800, 480, false, true, 3}; }
    QList<SupplyVoltage> supportedVoltages() const override { return {Voltage240, Voltage230_10A}; }
};

namespace {

/// A value of a type that is not among those of a property reads "?".
std::string text(const QVariant &value)
{
    if (value.userType() == QMetaType::Bool)
        return value.toBool() ? "true" : "false";
    if (value.userType() == QMetaType::Int)
        return std::to_string(value.toInt());
    if (value.userType() != qMetaTypeId<DisplaySettings>())
        return "?";
    const auto display = value.value<DisplaySettings>();
    return std::to_string(display.width()) + " x " + std::to_string(display.height()) + ", " +
           std::to_string(display.brightnessAdjustment()) + ", " +
           std::to_string(display.contrastAdjustment());
}

/// Another value of the same type.
QVariant changed(const QVariant &value)
{
    if (value.userType() == QMetaType::Bool)
        return !value.toBool();
    if (value.userType() == QMetaType::Int)
        return value.toInt() + 1;
    return QVariant::fromValue(DisplaySettings(1, 2, false, true, 3));
}

bool isInvoked(HardwareSettings &settings, const char *pName, int idx)
{
    bool result = false;
    EXPECT_TRUE(
        QMetaObject::invokeMethod(&settings, pName, Q_RETURN_ARG(bool, result), Q_ARG(int, idx)))
        << pName;
    return result;
}

/// Keeps the signals of the object in their order, as texts such as "modelSubtypeChanged(8)".
/// QSignalSpy cannot: the argument's type is not known to the meta-object system.
class SubtypeRecorder : public QObject
{
public:
    explicit SubtypeRecorder(const HardwareSettings &settings)
    {
        connect(&settings, &HardwareSettings::modelSubtypeChanged, this,
                [this, &settings](Subtype subtype) {
                    EXPECT_EQ(settings.modelSubtype(), subtype);
                    EXPECT_EQ(settings.isFullInstant(), subtype == 8);
                    m_signals.push_back("modelSubtypeChanged(" + std::to_string(subtype) + ")");
                });
        connect(&settings, &HardwareSettings::isFullInstantChanged, this, [this, &settings] {
            EXPECT_EQ(settings.isFullInstant(), settings.modelSubtype() == 8);
            m_signals.emplace_back("isFullInstantChanged()");
        });
    }

    /// Since the last call.
    std::vector<std::string> take() { return std::exchange(m_signals, {}); }

private:
    std::vector<std::string> m_signals;
};

} // namespace

// -- properties -----------------------------------------------------------------------------------

enum class Access { Constant, ReadOnly, Writable };

struct PropertyCase
{
    int index; ///< among those that the class adds
    const char *pName;
    const char *pType;
    const char *pDefault;
    Access access;
    const char *pSignal; ///< null without one
};

class HardwareSettingsPropertyTable : public ::testing::TestWithParam<PropertyCase>
{
protected:
    PlainSettings m_settings;
    const QMetaProperty m_property = HardwareSettings::staticMetaObject.property(
        HardwareSettings::staticMetaObject.propertyOffset() + GetParam().index);

    QVariant value() const { return m_property.read(&m_settings); }
};

TEST_P(HardwareSettingsPropertyTable, IsAsDeclared)
{
    EXPECT_STREQ(m_property.name(), GetParam().pName);
    EXPECT_STREQ(m_property.typeName(), GetParam().pType);
    EXPECT_TRUE(m_property.isReadable());
    EXPECT_EQ(m_property.isConstant(), GetParam().access == Access::Constant);
    EXPECT_EQ(m_property.isWritable(), GetParam().access == Access::Writable);
    EXPECT_EQ(m_property.hasNotifySignal(), GetParam().pSignal != nullptr);
    if (GetParam().pSignal) {
        EXPECT_STREQ(m_property.notifySignal().methodSignature().constData(), GetParam().pSignal);
    }
}

TEST_P(HardwareSettingsPropertyTable, HasItsDefault)
{
    EXPECT_EQ(text(value()), GetParam().pDefault);
    EXPECT_EQ(text(m_settings.property(GetParam().pName)), GetParam().pDefault);
}

TEST_P(HardwareSettingsPropertyTable, OnlyAWritableOneTakesAValue)
{
    const bool isWritable = GetParam().access == Access::Writable;
    const QVariant other = changed(value());
    ASSERT_NE(text(other), GetParam().pDefault);
    EXPECT_EQ(m_settings.setProperty(GetParam().pName, other), isWritable);
    EXPECT_EQ(text(value()), isWritable ? text(other) : GetParam().pDefault);
}

// clang-format off
const PropertyCase s_propertyCases[] = {
    {0, "hasJugSupport", "bool", "true", Access::Constant, nullptr},
    {1, "hasStopFeatureSupport", "bool", "true", Access::Constant, nullptr},
    {2, "hasSqueezeSimpleConfig", "bool", "false", Access::Constant, nullptr},
    {3, "hasSqueezeAdvancedConfig", "bool", "true", Access::Constant, nullptr},
    {4, "hasHydraulicCircuitSelection", "bool", "true", Access::Constant, nullptr},
    {5, "hasVoltageSupplySelection", "bool", "true", Access::Constant, nullptr},
    {6, "hasRinsingWithTablet", "bool", "false", Access::Constant, nullptr},
    {7, "hasFreshMilkSupport", "bool", "false", Access::Constant, nullptr},
    {8, "hasBrewerCleaningSupport", "bool", "false", Access::Constant, nullptr},
    {9, "hasEspressoDecafSupport", "bool", "false", Access::Constant, nullptr},
    {10, "hasEspressoExtractionPressureConfig", "bool", "false", Access::Constant, nullptr},
    {11, "hasCpuFanSupport", "bool", "true", Access::Constant, nullptr},
    {12, "hasWaterSpeedSetting", "bool", "true", Access::Constant, nullptr},
    {13, "hasParallelStepSupport", "bool", "false", Access::Constant, nullptr},
    {14, "defaultSolidWasteCountFull", "int", "1500", Access::Constant, nullptr},
    {15, "defaultSolidWasteCountWarn", "int", "1300", Access::Constant, nullptr},
    {16, "solidWasteCountFullMax", "int", "1500", Access::Constant, nullptr},
    {17, "solidWasteCountInGrams", "bool", "false", Access::Constant, nullptr},
    {18, "maxEspressoTemp", "int", "1050", Access::Constant, nullptr},
    {19, "hasDoorCanister", "bool", "true", Access::Constant, nullptr},
    {20, "hasRoastAndGroundSupport", "bool", "true", Access::Constant, nullptr},
    {21, "hasFullInstantSupport", "bool", "true", Access::Constant, nullptr},
    {22, "hasLeftOutlet", "bool", "true", Access::Constant, nullptr},
    {23, "hasCenterOutlet", "bool", "false", Access::Constant, nullptr},
    {24, "hasRightOutlet", "bool", "true", Access::Constant, nullptr},
    {25, "maxCanistersCount", "int", "-1", Access::Constant, nullptr},
    {26, "allowHotWaterWithAnyStep", "bool", "false", Access::Constant, nullptr},
    {27, "allowColdWaterWithAnyStep", "bool", "false", Access::Constant, nullptr},
    {28, "allowLeftOutletStepAlways", "bool", "false", Access::Constant, nullptr},
    {29, "allowRightOutletStepAlways", "bool", "false", Access::Constant, nullptr},
    {30, "hasInactivityRinsingByDefault", "bool", "false", Access::Constant, nullptr},
    {31, "isWasteFullBlockingFailure", "bool", "false", Access::Constant, nullptr},
    {32, "hideEspressoCanisterFailureIfDoorOpened", "bool", "false", Access::Constant, nullptr},
    {33, "hideInstantCanFailureIfEspCanNotPresent", "bool", "true", Access::Constant, nullptr},
    {34, "hideWasteSolidFailureIfInstCanNotPresent", "bool", "true", Access::Constant, nullptr},
    {35, "mechanicalBeverageCounterDuration", "int", "100", Access::Constant, nullptr},
    {36, "isMechanicalBeverageCounterOnAB", "bool", "false", Access::Constant, nullptr},
    {37, "isDispensingLightOnAB", "bool", "false", Access::Constant, nullptr},
    {38, "canisterDefaultSpeedCalibrationMin", "int", "150", Access::Constant, nullptr},
    {39, "canisterDefaultSpeedCalibrationMax", "int", "600", Access::Constant, nullptr},
    {40, "canisterDefaultSpeedCalibrationMinRG", "int", "380", Access::Constant, nullptr},
    {41, "canisterDefaultSpeedCalibrationMaxRG", "int", "870", Access::Constant, nullptr},
    {42, "canisterDefaultSpeedCalibrationMinExpVol", "int", "0", Access::Constant, nullptr},
    {43, "canisterDefaultSpeedCalibrationMaxExpVol", "int", "25", Access::Constant, nullptr},
    {44, "canisterOverrideSpeedCalibrationExpVol", "bool", "false", Access::Constant, nullptr},
    {45, "canisterPowderSpeedDividerMin", "int", "10", Access::Constant, nullptr},
    {46, "canisterPowderSpeedDividerMinRG", "int", "13", Access::Constant, nullptr},
    {47, "canisterPowderSpeedDividerMax", "int", "5", Access::Constant, nullptr},
    {48, "canisterPowderSpeedDividerMaxRG", "int", "7", Access::Constant, nullptr},
    {49, "minDrippingTimeHotWater", "int", "0", Access::Constant, nullptr},
    {50, "prePostPumpingTime", "int", "0", Access::Constant, nullptr},
    {51, "postEspressoTime", "int", "0", Access::Constant, nullptr},
    {52, "hasSafetySwitch", "bool", "true", Access::Constant, nullptr},
    {53, "hasDrySugarSupport", "bool", "false", Access::Constant, nullptr},
    {54, "hasCoffeeCanisterLight", "bool", "true", Access::Constant, nullptr},
    {55, "hasDoorLight", "bool", "true", Access::Constant, nullptr},
    {56, "isAVendingMachine", "bool", "true", Access::Constant, nullptr},
    {57, "isCoffeePadWasteVisible", "bool", "true", Access::Constant, nullptr},
    {58, "isMixer220V", "bool", "false", Access::Constant, nullptr},
    {59, "hasActuatorBoardLirentaMarbo", "bool", "false", Access::Constant, nullptr},
    {60, "displaySettings", "DisplaySettings", "1280 x 800, 1, 0", Access::Constant, nullptr},
    {61, "waterQueueLimt", "int", "0", Access::Constant, nullptr},
    {62, "hasCleaningDoseSettable", "bool", "false", Access::Constant, nullptr},
    {63, "solidSmartResetAutoReset", "bool", "false", Access::Constant, nullptr},
    {64, "hasTechnicianBackup", "bool", "false", Access::Constant, nullptr},
    {65, "hasFullUserInterfaceOSSupport", "bool", "false", Access::Constant, nullptr},
    {66, "hasOwnCupDiscount", "bool", "false", Access::Constant, nullptr},
    {67, "hasFBSupport", "bool", "true", Access::Constant, nullptr},
    {68, "hasSpeaker", "bool", "false", Access::Constant, nullptr},
    {69, "maxParallelStepPerRecipe", "int", "4", Access::Constant, nullptr},
    {70, "hasOwnCupManagement", "bool", "false", Access::Constant, nullptr},
    {71, "isFullInstant", "bool", "false", Access::ReadOnly, "isFullInstantChanged()"},
    {72, "hasSecondSlaveMachineSupport", "bool", "false", Access::Constant, nullptr},
    {73, "hasMultiportSupport", "bool", "false", Access::Constant, nullptr},
    {74, "hasDaddSupport", "bool", "true", Access::Constant, nullptr},
    {75, "hasColdUnit", "bool", "false", Access::Constant, nullptr},
    {76, "hasBranchPipe", "bool", "false", Access::Constant, nullptr},
    {77, "isHotWaterKitSupported", "bool", "false", Access::Writable, "isHotWaterKitSupportedChanged()"},
    {78, "isSnackAndFoodMachineSupported", "bool", "false", Access::Writable, "isSnackAndFoodMachineSupportedChanged()"},
    {79, "isCoffeeToGoMachineSupported", "bool", "false", Access::Writable, "isCoffeeToGoMachineSupportedChanged()"},
    {80, "espressoBrewerInitDefaultSeconds", "int", "10", Access::Constant, nullptr},
    {81, "hasMultiCupSupport", "bool", "false", Access::Constant, nullptr},
    {82, "hasMechanicalCounter", "bool", "false", Access::Constant, nullptr},
    {83, "hasMovableNozzle", "bool", "false", Access::Constant, nullptr},
    {84, "hasWasteBucket", "bool", "false", Access::Constant, nullptr},
    {85, "hasDripTray", "bool", "false", Access::Constant, nullptr},
    {86, "hasABDoorSwitch", "bool", "false", Access::Constant, nullptr},
    {87, "hasSolidWaste", "bool", "false", Access::Writable, "hasSolidWasteChanged()"},
    {88, "hasCupCarrier", "bool", "false", Access::Writable, "hasCupCarrierChanged()"},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Properties, HardwareSettingsPropertyTable,
                         ::testing::ValuesIn(s_propertyCases), caseName);

TEST(HardwareSettingsTest, Adds89PropertiesToThoseOfAbstractSettings)
{
    const QMetaObject &metaObject = HardwareSettings::staticMetaObject;
    EXPECT_STREQ(metaObject.superClass()->className(), "AbstractSettings");
    EXPECT_EQ(metaObject.propertyOffset(), AbstractSettings::staticMetaObject.propertyCount());
    EXPECT_EQ(metaObject.propertyCount() - metaObject.propertyOffset(), 89);
    EXPECT_EQ(std::size(s_propertyCases), 89U);
}

TEST(HardwareSettingsTest, TechnicianBackupReadsTheFlagOfSolidSmartReset)
{
    PlainSettings settings;
    settings.m_hasTechnicianBackup = true;
    EXPECT_EQ(settings.property("hasTechnicianBackup"), QVariant(false));
    EXPECT_EQ(settings.property("solidSmartResetAutoReset"), QVariant(false));

    settings.m_hasTechnicianBackup = false;
    settings.m_solidSmartResetAutoReset = true;
    EXPECT_EQ(settings.property("hasTechnicianBackup"), QVariant(true));
    EXPECT_EQ(settings.property("solidSmartResetAutoReset"), QVariant(true));
}

TEST(HardwareSettingsTest, ConstantPropertyReadsWhatTheModelSets)
{
    PlainSettings settings;
    settings.m_maxEspressoTemp = 1020;
    EXPECT_EQ(settings.property("maxEspressoTemp"), QVariant(1020));
}

TEST(HardwareSettingsTest, PropertyIsFullInstantFollowsTheSubtype)
{
    PlainSettings settings;
    settings.setModelSubtype(HardwareSettings::LirentaFullInstant);
    EXPECT_EQ(settings.property("isFullInstant"), QVariant(true));
    settings.setModelSubtype(HardwareSettings::LirentaPlus500);
    EXPECT_EQ(settings.property("isFullInstant"), QVariant(false));
}

struct FlagCase
{
    const char *pName; ///< of the property
    bool (HardwareSettings::*pGet)() const;
    void (HardwareSettings::*pSet)(bool);
    void (HardwareSettings::*pChanged)();
};

class HardwareSettingsFlagTable : public ::testing::TestWithParam<FlagCase>
{
protected:
    PlainSettings m_settings;
    QSignalSpy m_changed{&m_settings, GetParam().pChanged};

    bool flag() const { return (m_settings.*GetParam().pGet)(); }
    void set(bool value) { (m_settings.*GetParam().pSet)(value); }
};

TEST_P(HardwareSettingsFlagTable, SetterSignalsOnlyAChange)
{
    std::vector<bool> seen; // in the slot, where the new value must stand already
    QObject::connect(&m_settings, GetParam().pChanged, &m_settings,
                     [&] { seen.push_back(flag()); });
    for (const bool value : {false, true, true, false, false, true})
        set(value);
    EXPECT_TRUE(flag());
    EXPECT_EQ(seen, (std::vector<bool>{true, false, true}));
}

TEST_P(HardwareSettingsFlagTable, PropertySignalsOnlyAChange)
{
    EXPECT_TRUE(m_settings.setProperty(GetParam().pName, false));
    EXPECT_EQ(m_changed.count(), 0);
    EXPECT_TRUE(m_settings.setProperty(GetParam().pName, true));
    EXPECT_EQ(m_changed.count(), 1);
    EXPECT_TRUE(m_settings.setProperty(GetParam().pName, true));
    EXPECT_EQ(m_changed.count(), 1);
    EXPECT_TRUE(flag());
    EXPECT_EQ(m_settings.property(GetParam().pName), QVariant(true));
}

TEST_P(HardwareSettingsFlagTable, NoOtherFlagChanges)
{
    const QMetaObject &metaObject = HardwareSettings::staticMetaObject;
    const int offset = metaObject.propertyOffset();
    set(true);
    for (const PropertyCase &row : s_propertyCases) {
        const bool isThis = QByteArray(row.pName) == GetParam().pName;
        EXPECT_EQ(text(metaObject.property(offset + row.index).read(&m_settings)),
                  isThis ? "true" : row.pDefault)
            << row.pName;
    }
    EXPECT_EQ(m_changed.count(), 1);
}

// clang-format off
const FlagCase s_flagCases[] = {
    {"isHotWaterKitSupported", &HardwareSettings::isHotWaterKitSupported,
     &HardwareSettings::setIsHotWaterKitSupported, &HardwareSettings::isHotWaterKitSupportedChanged},
    {"isSnackAndFoodMachineSupported", &HardwareSettings::isSnackAndFoodMachineSupported,
     &HardwareSettings::setIsSnackAndFoodMachineSupported, &HardwareSettings::isSnackAndFoodMachineSupportedChanged},
    {"isCoffeeToGoMachineSupported", &HardwareSettings::isCoffeeToGoMachineSupported,
     &HardwareSettings::setIsCoffeeToGoMachineSupported, &HardwareSettings::isCoffeeToGoMachineSupportedChanged},
    {"hasSolidWaste", &HardwareSettings::hasSolidWaste,
     &HardwareSettings::setHasSolidWaste, &HardwareSettings::hasSolidWasteChanged},
    {"hasCupCarrier", &HardwareSettings::hasCupCarrier,
     &HardwareSettings::setHasCupCarrier, &HardwareSettings::hasCupCarrierChanged},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Flags, HardwareSettingsFlagTable, ::testing::ValuesIn(s_flagCases),
                         caseName);

// -- display --------------------------------------------------------------------------------------

TEST(HardwareSettingsTest, DisplayOfTheBase)
{
    const PlainSettings settings;
    const DisplaySettings display = settings.displaySettings();
    EXPECT_EQ(display.width(), 1280);
    EXPECT_EQ(display.height(), 800);
    EXPECT_EQ(display.brightnessAdjustment(), 1);
    EXPECT_EQ(display.contrastAdjustment(), 0);
    EXPECT_EQ(display.extra(), 0);
}

TEST(HardwareSettingsTest, DisplayPropertyFollowsTheOverride)
{
    const OtherSettings settings;
    const QVariant value = settings.property("displaySettings");
    EXPECT_EQ(text(value), "800 x 480, 0, 1");
    EXPECT_EQ(value.value<DisplaySettings>().extra(), 3);
}

TEST(DisplaySettingsTest, HasFourIntPropertiesInOrderAndNothingElse)
{
    const QMetaObject &metaObject = DisplaySettings::staticMetaObject;
    const DisplaySettings display(1024, 600, false, true, 77);
    const std::vector<std::pair<std::string, int>> expected{
        {"width", 1024}, {"height", 600}, {"brightnessAdjustment", 0}, {"contrastAdjustment", 1}};

    std::vector<std::pair<std::string, int>> actual;
    for (int i = 0; i < metaObject.propertyCount(); ++i) {
        const QMetaProperty property = metaObject.property(i);
        EXPECT_STREQ(property.typeName(), "int") << property.name();
        EXPECT_FALSE(property.isWritable()) << property.name();
        EXPECT_FALSE(property.hasNotifySignal()) << property.name();
        actual.emplace_back(property.name(), property.readOnGadget(&display).toInt());
    }
    EXPECT_EQ(actual, expected);
    EXPECT_EQ(metaObject.methodCount(), 0);
    EXPECT_EQ(display.extra(), 77);
}

TEST(DisplaySettingsTest, ReadsThroughThePropertyOfTheSettings)
{
    const PlainSettings settings;
    const QVariant value = settings.property("displaySettings");
    const QMetaObject *pMetaObject = QMetaType::metaObjectForType(value.userType());
    ASSERT_NE(pMetaObject, nullptr);
    std::vector<int> values;
    for (int i = 0; i < pMetaObject->propertyCount(); ++i)
        values.push_back(pMetaObject->property(i).readOnGadget(value.constData()).toInt());
    EXPECT_EQ(values, (std::vector<int>{1280, 800, 1, 0}));
}

// -- enumerations, signals, operations by name ----------------------------------------------------

namespace {

using Keys = std::vector<std::pair<std::string, int>>;

Keys keysOf(const char *pEnum)
{
    const QMetaObject &metaObject = HardwareSettings::staticMetaObject;
    const QMetaEnum metaEnum = metaObject.enumerator(metaObject.indexOfEnumerator(pEnum));
    Keys keys;
    for (int i = 0; i < metaEnum.keyCount(); ++i)
        keys.emplace_back(metaEnum.key(i), metaEnum.value(i));
    return keys;
}

std::vector<std::string> methodsOf(QMetaMethod::MethodType type)
{
    const QMetaObject &metaObject = HardwareSettings::staticMetaObject;
    std::vector<std::string> methods;
    for (int i = metaObject.methodOffset(); i < metaObject.methodCount(); ++i) {
        const QMetaMethod method = metaObject.method(i);
        if (method.methodType() == type)
            methods.push_back(method.methodSignature().toStdString());
    }
    return methods;
}

} // namespace

TEST(HardwareSettingsTest, SupplyVoltagesAreRegisteredWithTheirNumbers)
{
    EXPECT_EQ(keysOf("SupplyVoltage"), (Keys{{"VoltageUndefined", 0},
                                             {"Voltage230", 230},
                                             {"Voltage240", 240},
                                             {"Voltage120", 120},
                                             {"Voltage230_10A", 231},
                                             {"Voltage240_13A", 239},
                                             {"Voltage110", 110},
                                             {"Voltage220", 220},
                                             {"Voltage120_M", 121}}));
}

TEST(HardwareSettingsTest, EspressoLimitsAreRegisteredWithTheirNumbers)
{
    EXPECT_EQ(keysOf("EsTempValueLimits"), (Keys{{"MinDeltaT", 0},
                                                 {"MinIdleMinutes", 5},
                                                 {"MinDeltaEsForTlowFailureSolved", 40},
                                                 {"MaxIdleMinutes", 30},
                                                 {"MinEsTempValue", 700},
                                                 {"MaxEsTempValue", 1050},
                                                 {"MaxEsTempValueDuvana", 1020},
                                                 {"MaxEsTempValueMarboTouch", 1020}}));
}

TEST(HardwareSettingsTest, EnumeratorsGoBothWaysByName)
{
    const auto voltages = QMetaEnum::fromType<HardwareSettings::SupplyVoltage>();
    EXPECT_EQ(voltages.keyToValue("Voltage230_10A"), HardwareSettings::Voltage230_10A);
    EXPECT_STREQ(voltages.valueToKey(239), "Voltage240_13A");
    const auto limits = QMetaEnum::fromType<HardwareSettings::EsTempValueLimits>();
    EXPECT_EQ(limits.keyToValue("MaxEsTempValueDuvana"), 1020);
    EXPECT_EQ(limits.keyToValue("MaxEsTempValueMarboTouch"), 1020);
}

TEST(HardwareSettingsTest, ModelSubtypeIsNotRegistered)
{
    const QMetaObject &metaObject = HardwareSettings::staticMetaObject;
    EXPECT_EQ(metaObject.indexOfEnumerator("MachineModelSubtype"), -1);
    EXPECT_EQ(metaObject.enumeratorCount() - metaObject.enumeratorOffset(), 2);
    EXPECT_EQ(QMetaType::type("HardwareSettings::MachineModelSubtype"), QMetaType::UnknownType);
    EXPECT_EQ(QMetaType::type("MachineModelSubtype"), QMetaType::UnknownType);
}

TEST(HardwareSettingsTest, ModelSubtypesHaveTheirNumbers)
{
    EXPECT_EQ(HardwareSettings::NoSubtype, -1);
    EXPECT_EQ(HardwareSettings::LirentaStandard, 2);
    EXPECT_EQ(HardwareSettings::LirentaPlus, 3);
    EXPECT_EQ(HardwareSettings::LirentaCustomerEdition, 6);
    EXPECT_EQ(HardwareSettings::LirentaPlus500, 7);
    EXPECT_EQ(HardwareSettings::LirentaFullInstant, 8);
    EXPECT_EQ(HardwareSettings::CorvelCustomerEdition, 10);
    EXPECT_EQ(HardwareSettings::NewQuindoStandard, 11);
    EXPECT_EQ(HardwareSettings::NewQuindoCustomerEdition, 12);
    static_assert(std::is_same_v<std::underlying_type_t<Subtype>, int>);
}

TEST(HardwareSettingsTest, SignalsInOrder)
{
    EXPECT_EQ(methodsOf(QMetaMethod::Signal),
              (std::vector<std::string>{
                  "isFullInstantChanged()", "modelSubtypeChanged(MachineModelSubtype)",
                  "isHotWaterKitSupportedChanged()", "isSnackAndFoodMachineSupportedChanged()",
                  "isCoffeeToGoMachineSupportedChanged()", "hasSolidWasteChanged()",
                  "hasCupCarrierChanged()"}));
}

TEST(HardwareSettingsTest, InvokablesInOrderAndNoSlots)
{
    EXPECT_EQ(
        methodsOf(QMetaMethod::Method),
        (std::vector<std::string>{"hasTimeDateCtl()", "hasRotatedTargetDisplay()",
                                  "isCanisterArrowClickable(int)", "isCanisterNullVisible(int)",
                                  "isCanisterClickDisabled(int)", "isPumpUnavailable(int)"}));
    EXPECT_TRUE(methodsOf(QMetaMethod::Slot).empty());
}

struct IndexCase
{
    const char *pName; ///< of the operation
    QList<int> members;
    QList<int> PlainSettings::*pList;
};

using HardwareSettingsIndexTable = ::testing::TestWithParam<IndexCase>;

TEST_P(HardwareSettingsIndexTable, IsTrueForTheMembersOfItsList)
{
    PlainSettings settings;
    for (int idx = -2; idx <= 256; ++idx)
        EXPECT_EQ(isInvoked(settings, GetParam().pName, idx), GetParam().members.contains(idx))
            << idx;
    EXPECT_FALSE(isInvoked(settings, GetParam().pName, std::numeric_limits<int>::max()));
    EXPECT_FALSE(isInvoked(settings, GetParam().pName, std::numeric_limits<int>::min()));
}

TEST_P(HardwareSettingsIndexTable, FollowsTheListOfTheModel)
{
    PlainSettings settings;
    settings.*GetParam().pList = {7, 0};
    for (int idx = -1; idx <= 11; ++idx)
        EXPECT_EQ(isInvoked(settings, GetParam().pName, idx), idx == 0 || idx == 7) << idx;
}

const IndexCase s_indexCases[] = {
    {"isCanisterArrowClickable", {2, 5}, &PlainSettings::m_arrowClickableCanisters},
    {"isCanisterNullVisible", {}, &PlainSettings::m_nullVisibleCanisters},
    {"isCanisterClickDisabled", {4, 5, 6}, &PlainSettings::m_clickDisabledCanisters},
    {"isPumpUnavailable", {9, 10}, &PlainSettings::m_unavailablePumps},
};
INSTANTIATE_TEST_SUITE_P(Indexes, HardwareSettingsIndexTable, ::testing::ValuesIn(s_indexCases),
                         caseName);

TEST(HardwareSettingsTest, CanisterFiveIsClickDisabledAndArrowClickable)
{
    const PlainSettings settings;
    EXPECT_TRUE(settings.isCanisterClickDisabled(5));
    EXPECT_TRUE(settings.isCanisterArrowClickable(5));
}

TEST(HardwareSettingsTest, NoCanisterIsNullVisible)
{
    const PlainSettings settings;
    for (int idx = -1000; idx <= 1000; ++idx)
        EXPECT_FALSE(settings.isCanisterNullVisible(idx)) << idx;
}

TEST(HardwareSettingsTest, FlagsAreInvokableByName)
{
    PlainSettings settings;
    bool hasCtl = true;
    bool hasRotated = true;
    EXPECT_TRUE(QMetaObject::invokeMethod(&settings, "hasTimeDateCtl", Q_RETURN_ARG(bool, hasCtl)));
    EXPECT_TRUE(QMetaObject::invokeMethod(&settings, "hasRotatedTargetDisplay",
                                          Q_RETURN_ARG(bool, hasRotated)));
    EXPECT_FALSE(hasCtl);
    EXPECT_FALSE(hasRotated);

    settings.m_hasTimeDateCtl = true;
    EXPECT_TRUE(QMetaObject::invokeMethod(&settings, "hasTimeDateCtl", Q_RETURN_ARG(bool, hasCtl)));
    EXPECT_TRUE(hasCtl);
}

// -- supply, door, names --------------------------------------------------------------------------

struct VoltageCase
{
    const char *pName;
    HardwareSettings::SupplyVoltage voltage;
    bool isInBase;
    bool isInOther; ///< in OtherSettings
};

using HardwareSettingsVoltageTable = ::testing::TestWithParam<VoltageCase>;

TEST_P(HardwareSettingsVoltageTable, SupportFollowsTheListOfTheModel)
{
    EXPECT_EQ(PlainSettings().hasVoltageSupport(GetParam().voltage), GetParam().isInBase);
    EXPECT_EQ(OtherSettings().hasVoltageSupport(GetParam().voltage), GetParam().isInOther);
}

const VoltageCase s_voltageCases[] = {
    {"Undefined", HardwareSettings::VoltageUndefined, false, false},
    {"V230", HardwareSettings::Voltage230, true, false},
    {"V240", HardwareSettings::Voltage240, false, true},
    {"V120", HardwareSettings::Voltage120, true, false},
    {"V230With10A", HardwareSettings::Voltage230_10A, false, true},
    {"V240With13A", HardwareSettings::Voltage240_13A, false, false},
    {"V110", HardwareSettings::Voltage110, false, false},
    {"V220", HardwareSettings::Voltage220, false, false},
    {"V120M", HardwareSettings::Voltage120_M, false, false},
};
INSTANTIATE_TEST_SUITE_P(Voltages, HardwareSettingsVoltageTable,
                         ::testing::ValuesIn(s_voltageCases), caseName);

TEST(HardwareSettingsTest, Voltage240IsNotSupportedAndVoltage120Is)
{
    const PlainSettings settings;
    EXPECT_FALSE(settings.hasVoltageSupport(HardwareSettings::Voltage240));
    EXPECT_TRUE(settings.hasVoltageSupport(HardwareSettings::Voltage120));
}

TEST(HardwareSettingsTest, SupportedVoltagesInOrder)
{
    EXPECT_EQ(PlainSettings().supportedVoltages(),
              (QList<HardwareSettings::SupplyVoltage>{HardwareSettings::Voltage230,
                                                      HardwareSettings::Voltage120}));
}

TEST(HardwareSettingsTest, OnlyDoorModelTwoIsSupported)
{
    EXPECT_EQ(PlainSettings().supportedDaddDeviceModels(),
              QList<hardware::dadd::DeviceModel>{static_cast<hardware::dadd::DeviceModel>(2)});
}

TEST(HardwareSettingsTest, NamesAreEmptyUntilTheModelSetsThem)
{
    PlainSettings settings;
    EXPECT_TRUE(settings.modelName().isEmpty());
    EXPECT_TRUE(settings.databaseModelName().isEmpty());
    settings.m_modelName = QStringLiteral("Lirenta");
    settings.m_databaseModelName = QStringLiteral("lirenta_db");
    EXPECT_EQ(settings.modelName(), QStringLiteral("Lirenta"));
    EXPECT_EQ(settings.databaseModelName(), QStringLiteral("lirenta_db"));
}

// -- subtype --------------------------------------------------------------------------------------

struct SubtypeCase
{
    const char *pName;
    int from;
    int to;
    std::vector<std::string> signalList; ///< in order
};

using HardwareSettingsSubtypeTable = ::testing::TestWithParam<SubtypeCase>;

TEST_P(HardwareSettingsSubtypeTable, TellsWhatChanges)
{
    PlainSettings settings;
    settings.setModelSubtype(static_cast<Subtype>(GetParam().from));
    SubtypeRecorder recorder(settings);
    settings.setModelSubtype(static_cast<Subtype>(GetParam().to));
    EXPECT_EQ(recorder.take(), GetParam().signalList);
    EXPECT_EQ(settings.modelSubtype(), GetParam().to);
    EXPECT_EQ(settings.isFullInstant(), GetParam().to == 8);
}

const SubtypeCase s_subtypeCases[] = {
    {"NoneToNone", -1, -1, {}},
    {"NoneToOther", -1, 3, {"modelSubtypeChanged(3)"}},
    {"NoneToFullInstant", -1, 8, {"modelSubtypeChanged(8)", "isFullInstantChanged()"}},
    {"SameOther", 3, 3, {}},
    {"OtherToOther", 7, 9, {"modelSubtypeChanged(9)"}},
    {"OtherToNone", 3, -1, {"modelSubtypeChanged(-1)"}},
    {"OtherToFullInstant", 7, 8, {"modelSubtypeChanged(8)", "isFullInstantChanged()"}},
    {"SameFullInstant", 8, 8, {}},
    {"FullInstantToOther", 8, 9, {"modelSubtypeChanged(9)", "isFullInstantChanged()"}},
    {"FullInstantToNone", 8, -1, {"modelSubtypeChanged(-1)", "isFullInstantChanged()"}},
};
INSTANTIATE_TEST_SUITE_P(Subtypes, HardwareSettingsSubtypeTable,
                         ::testing::ValuesIn(s_subtypeCases), caseName);

TEST(HardwareSettingsTest, NewSettingsHaveNoSubtype)
{
    const PlainSettings settings;
    EXPECT_EQ(settings.modelSubtype(), -1);
    EXPECT_FALSE(settings.isFullInstant());
}

TEST(HardwareSettingsTest, SubtypeEightAndThenThreeTellBothAndAgainTellsNothing)
{
    using Signals = std::vector<std::string>;
    PlainSettings settings;
    SubtypeRecorder recorder(settings);
    settings.setModelSubtype(static_cast<Subtype>(8));
    EXPECT_EQ(recorder.take(), (Signals{"modelSubtypeChanged(8)", "isFullInstantChanged()"}));
    settings.setModelSubtype(static_cast<Subtype>(8));
    EXPECT_EQ(recorder.take(), Signals{});
    settings.setModelSubtype(static_cast<Subtype>(3));
    EXPECT_EQ(recorder.take(), (Signals{"modelSubtypeChanged(3)", "isFullInstantChanged()"}));
}

// -- parallel steps -------------------------------------------------------------------------------

struct ParallelStepCase
{
    const char *pName;
    int upperBound;
    int steps;
    int stored; ///< 4 before
};

using HardwareSettingsParallelStepTable = ::testing::TestWithParam<ParallelStepCase>;

TEST_P(HardwareSettingsParallelStepTable, IsStoredUpToTheBound)
{
    PlainSettings settings;
    settings.m_maxParallelStepUpperBound = GetParam().upperBound;
    settings.setMaxParallelStepPerRecipe(GetParam().steps);
    EXPECT_EQ(settings.property("maxParallelStepPerRecipe"), QVariant(GetParam().stored));
}

const ParallelStepCase s_parallelStepCases[] = {
    {"BelowTheBound", 7, 6, 6},
    {"AtTheBound", 7, 7, 7},
    {"AboveTheBound", 7, 8, 4},
    {"FarAboveTheBound", 7, std::numeric_limits<int>::max(), 4},
    {"SameAsBefore", 7, 4, 4},
    {"One", 7, 1, 1},
    {"Zero", 7, 0, 0},
    {"Negative", 7, -1, -1},
    {"FarBelowZero", 7, std::numeric_limits<int>::min(), std::numeric_limits<int>::min()},
    {"AtAHigherBound", 10, 10, 10},
    {"AboveAHigherBound", 10, 11, 4},
    {"AtALowerBound", 3, 3, 3},
    {"AboveALowerBound", 3, 5, 4},
};
INSTANTIATE_TEST_SUITE_P(ParallelSteps, HardwareSettingsParallelStepTable,
                         ::testing::ValuesIn(s_parallelStepCases), caseName);

TEST(HardwareSettingsTest, ParallelStepsEightLeavesFourAndSevenIsStoredAndNegativeToo)
{
    PlainSettings settings;
    EXPECT_EQ(settings.m_maxParallelStepUpperBound, 7);
    settings.setMaxParallelStepPerRecipe(8);
    EXPECT_EQ(settings.property("maxParallelStepPerRecipe"), QVariant(4));
    settings.setMaxParallelStepPerRecipe(7);
    EXPECT_EQ(settings.property("maxParallelStepPerRecipe"), QVariant(7));
    settings.setMaxParallelStepPerRecipe(8);
    EXPECT_EQ(settings.property("maxParallelStepPerRecipe"), QVariant(7));
    settings.setMaxParallelStepPerRecipe(-3);
    EXPECT_EQ(settings.property("maxParallelStepPerRecipe"), QVariant(-3));
}

// -- actuator board -------------------------------------------------------------------------------
// ActuatorBoardSettings is a plain value that tells nobody when it goes, so that the settings
// delete what they own shows in the memory in use. Under the address sanitizer, which counts none,
// what is not deleted leaks, and what is deleted twice ends the test.

namespace {

void expectOneReport(const AssertSpy &asserts, const char *pCondition, const char *pMessage)
{
    ASSERT_EQ(asserts.records().size(), 1);
    EXPECT_EQ(asserts.count(pCondition, pMessage, "src/hardwaresettings"), 1);
    EXPECT_FALSE(asserts.records().first().isRelease);
}

/// Of the heap, in bytes; 0 under a sanitizer.
qint64 memoryInUse()
{
    return static_cast<qint64>(mallinfo2().uordblks);
}

constexpr int s_largeBoardEntries = 10'000;
constexpr qint64 s_largeBoardBytes = s_largeBoardEntries * 2 * sizeof(int); ///< at least

/// Settings large enough for their deletion to be seen in the memory in use.
ActuatorBoardSettings *newLargeBoard()
{
    auto *const pBoard = new ActuatorBoardSettings;
    for (int i = 0; i < s_largeBoardEntries; ++i)
        pBoard->addIO(static_cast<InputsOutputs::InputsOutputsUUID>(i), i);
    return pBoard;
}

void expectDuplicateReport(const AssertSpy &asserts)
{
    expectOneReport(asserts, "!m_actuatorBoardSettings.contains(subtype)",
                    "Duplicated model subtype for settings");
}

} // namespace

TEST(HardwareSettingsTest, FreshSettingsHaveAnEmptyGenericActuatorBoard)
{
    const PlainSettings settings;
    const AssertSpy asserts;
    const ActuatorBoardSettings *pBoard = settings.actuatorBoard();
    ASSERT_NE(pBoard, nullptr);
    EXPECT_EQ(settings.actuatorBoard(), pBoard);
    EXPECT_TRUE(asserts.records().isEmpty());
    for (int number = 0; number <= 255; ++number) {
        EXPECT_EQ(pBoard->uuid(number), InputsOutputs::IONone);
        EXPECT_EQ(pBoard->digitalUUID(number), InputsOutputs::IONone);
    }
    for (const auto uuid : {InputsOutputs::DoorSwitch, InputsOutputs::MechanicalCounter}) {
        EXPECT_EQ(pBoard->io(uuid), 255);
        EXPECT_EQ(pBoard->digitalIO(uuid), 255);
    }
}

TEST(HardwareSettingsTest, SubtypeWithoutActuatorBoardIsReportedAndYieldsNull)
{
    PlainSettings settings;
    settings.setModelSubtype(static_cast<Subtype>(3));
    const AssertSpy asserts;
    EXPECT_EQ(settings.actuatorBoard(), nullptr);
    expectOneReport(asserts, "m_actuatorBoardSettings.contains(m_modelSubtype)",
                    "Model subtype not set or supported in HardwareSettings");
    EXPECT_EQ(settings.actuatorBoard(), nullptr);
    EXPECT_EQ(asserts.records().size(), 2);
}

TEST(HardwareSettingsTest, ActuatorBoardIsTheOneOfTheSubtype)
{
    PlainSettings settings;
    ActuatorBoardSettings *const pGeneric = settings.actuatorBoard();
    auto *const pPlus = new ActuatorBoardSettings;
    auto *const pStandard = new ActuatorBoardSettings;
    const AssertSpy asserts;
    settings.addActuatorBoardSettings(HardwareSettings::LirentaPlus, pPlus);
    settings.addActuatorBoardSettings(HardwareSettings::LirentaStandard, pStandard);

    EXPECT_EQ(settings.actuatorBoard(), pGeneric);
    settings.setModelSubtype(HardwareSettings::LirentaPlus);
    EXPECT_EQ(settings.actuatorBoard(), pPlus);
    settings.setModelSubtype(HardwareSettings::LirentaStandard);
    EXPECT_EQ(settings.actuatorBoard(), pStandard);
    settings.setModelSubtype(HardwareSettings::NoSubtype);
    EXPECT_EQ(settings.actuatorBoard(), pGeneric);
    EXPECT_TRUE(asserts.records().isEmpty());
}

TEST(HardwareSettingsTest, DuplicateActuatorBoardIsReportedAndReplaces)
{
    PlainSettings settings;
    settings.setModelSubtype(HardwareSettings::LirentaPlus);
    settings.addActuatorBoardSettings(HardwareSettings::LirentaPlus, new ActuatorBoardSettings);
    auto *const pSecond = new ActuatorBoardSettings;
    pSecond->addIO(InputsOutputs::WaterPump, 3);

    const AssertSpy asserts;
    settings.addActuatorBoardSettings(HardwareSettings::LirentaPlus, pSecond);
    expectDuplicateReport(asserts);
    ASSERT_EQ(settings.actuatorBoard(), pSecond);
    EXPECT_EQ(settings.actuatorBoard()->io(InputsOutputs::WaterPump), 3);
}

TEST(HardwareSettingsTest, SecondGenericActuatorBoardIsADuplicateToo)
{
    PlainSettings settings;
    auto *const pSecond = new ActuatorBoardSettings;
    const AssertSpy asserts;
    settings.addActuatorBoardSettings(HardwareSettings::NoSubtype, pSecond);
    expectDuplicateReport(asserts);
    EXPECT_EQ(settings.actuatorBoard(), pSecond);
}

TEST(HardwareSettingsTest, SameActuatorBoardAgainIsReportedAndStays)
{
    PlainSettings settings;
    settings.setModelSubtype(HardwareSettings::LirentaPlus);
    auto *const pBoard = new ActuatorBoardSettings;
    pBoard->addIO(InputsOutputs::WaterPump, 3);
    settings.addActuatorBoardSettings(HardwareSettings::LirentaPlus, pBoard);

    const AssertSpy asserts;
    settings.addActuatorBoardSettings(HardwareSettings::LirentaPlus, pBoard);
    expectDuplicateReport(asserts);
    ASSERT_EQ(settings.actuatorBoard(), pBoard);
    EXPECT_EQ(settings.actuatorBoard()->io(InputsOutputs::WaterPump), 3);
}

TEST(HardwareSettingsTest, ReplacedActuatorBoardIsDeleted)
{
    // The address sanitizer's heap has no such figures, and reports a board that is not deleted
    // itself.
    if (memoryInUse() == 0)
        GTEST_SKIP() << "no figures of the heap under a sanitizer, which finds leaks by itself";
    PlainSettings settings;
    settings.addActuatorBoardSettings(HardwareSettings::LirentaPlus, newLargeBoard());
    const qint64 before = memoryInUse();
    settings.addActuatorBoardSettings(HardwareSettings::LirentaPlus, new ActuatorBoardSettings);
    EXPECT_LT(memoryInUse(), before - s_largeBoardBytes);
}

TEST(HardwareSettingsTest, SameActuatorBoardAgainIsNotDeleted)
{
    PlainSettings settings;
    ActuatorBoardSettings *const pBoard = newLargeBoard();
    settings.addActuatorBoardSettings(HardwareSettings::LirentaPlus, pBoard);
    const qint64 before = memoryInUse();
    settings.addActuatorBoardSettings(HardwareSettings::LirentaPlus, pBoard);
    EXPECT_GE(memoryInUse(), before - s_largeBoardBytes);
    EXPECT_EQ(pBoard->io(static_cast<InputsOutputs::InputsOutputsUUID>(9'999)), 9'999);
}

TEST(HardwareSettingsTest, ActuatorBoardsAreDeletedWithTheSettings)
{
    // The address sanitizer's heap has no such figures, and reports a board that is not deleted
    // itself.
    if (memoryInUse() == 0)
        GTEST_SKIP() << "no figures of the heap under a sanitizer, which finds leaks by itself";
    auto pSettings = std::make_unique<PlainSettings>();
    pSettings->addActuatorBoardSettings(HardwareSettings::LirentaPlus, newLargeBoard());
    pSettings->addActuatorBoardSettings(HardwareSettings::LirentaStandard, newLargeBoard());
    const qint64 before = memoryInUse();
    pSettings.reset();
    EXPECT_LT(memoryInUse(), before - 2 * s_largeBoardBytes);
}

TEST(HardwareSettingsTest, UnknownIdentifierOnTheActuatorBoardYields255AndLogsOncePerCall)
{
    const PlainSettings settings;
    const LogSpy log;
    EXPECT_EQ(settings.actuatorBoard()->io(InputsOutputs::WaterPump), 255);
    EXPECT_EQ(log.texts().size(), 1);
    EXPECT_EQ(settings.actuatorBoard()->io(InputsOutputs::WaterPump), 255);
    EXPECT_EQ(log.texts().size(), 2);
    EXPECT_EQ(log.count("Failed to find uuid", 4, Log::Hardware), 2);
}

// -- settings file --------------------------------------------------------------------------------

struct KeyCase
{
    const char *pName;
    QLatin1String key;
    const char *pText;
};

using SettingsKeysTable = ::testing::TestWithParam<KeyCase>;

TEST_P(SettingsKeysTable, NamesItsValueBelowHardware)
{
    EXPECT_EQ(std::string(GetParam().key.latin1()), GetParam().pText);

    const QByteArray leaf = QByteArray(GetParam().pText).mid(9); // behind "hardware/"
    AbstractSettings::setSettings(R"({"hardware": {")" + leaf + R"(": "here"}})");
    const PlainSettings settings;
    EXPECT_EQ(settings.stringOptionalSetting(GetParam().key, QString()), QStringLiteral("here"));
}

const KeyCase s_keyCases[] = {
    {"IsWifiAvailable", SettingsKeys::IsWifiAvailable, "hardware/isWifiAvailable"},
    {"UsbPath", SettingsKeys::UsbPath, "hardware/usbPath"},
    {"StatisticsSerialPath", SettingsKeys::StatisticsSerialPath, "hardware/statisticsSerialPath"},
    {"PaymentSerialPath", SettingsKeys::PaymentSerialPath, "hardware/paymentSerialPath"},
    {"QrcodeModemSerialPath", SettingsKeys::QrcodeModemSerialPath,
     "hardware/qrcodeModemSerialPath"},
    {"Vl6180xI2cDevice", SettingsKeys::Vl6180xI2cDevice, "hardware/vl6180x_i2cdev"},
    {"CapKeysKbPath", SettingsKeys::CapKeysKbPath, "hardware/capKeysKbPath"},
    {"CapKeysLedEnablePath", SettingsKeys::CapKeysLedEnablePath, "hardware/capKeysLedEnablePath"},
    {"HasRotatedTargetDisplay", SettingsKeys::HasRotatedTargetDisplay,
     "hardware/hasRotatedTargetDisplay"},
};
INSTANTIATE_TEST_SUITE_P(Keys, SettingsKeysTable, ::testing::ValuesIn(s_keyCases), caseName);

namespace {

/// Every property as the table has it, read by its name.
void expectDefaults(const HardwareSettings &settings)
{
    for (const PropertyCase &row : s_propertyCases)
        EXPECT_EQ(text(settings.property(row.pName)), row.pDefault) << row.pName;
}

/// Each property's name with another value than the default.
QJsonObject otherValues()
{
    QJsonObject object;
    for (const PropertyCase &row : s_propertyCases) {
        const QString name = QString::fromLatin1(row.pName);
        if (std::string(row.pType) == "bool")
            object.insert(name, std::string(row.pDefault) == "false");
        else if (std::string(row.pType) == "int")
            object.insert(name, 77);
        else
            object.insert(name, QJsonObject{{QStringLiteral("width"), 77}});
    }
    return object;
}

} // namespace

// A key that is looked up and is not there leaves an assertion report or a line in the log.
TEST(HardwareSettingsTest, ConstructionAndPropertiesLookUpNoKeyBeforeAFileIsLoaded)
{
    const AssertSpy asserts;
    const LogSpy log;
    const PlainSettings settings;
    expectDefaults(settings);
    EXPECT_FALSE(settings.hasRotatedTargetDisplay());
    EXPECT_TRUE(asserts.records().isEmpty());
    EXPECT_TRUE(log.records().isEmpty()) << log.texts().join(QLatin1Char('\n')).toStdString();
}

TEST(HardwareSettingsTest, NoPropertyIsReadFromTheSettingsFile)
{
    QJsonObject hardware = otherValues();
    for (const KeyCase &row : s_keyCases)
        hardware.insert(QString(row.key).section(QLatin1Char('/'), 1), true);
    QJsonObject root = otherValues();
    EXPECT_EQ(root.size(), 89);
    root.insert(QStringLiteral("hardware"), hardware);
    const PlainSettings before;
    AbstractSettings::setSettings(QJsonDocument(root).toJson());
    const PlainSettings after;
    expectDefaults(before);
    expectDefaults(after);
    EXPECT_FALSE(after.hasRotatedTargetDisplay());
}

static_assert(std::is_abstract_v<HardwareSettings>, "each machine makes its own controller");
static_assert(std::is_same_v<std::underlying_type_t<HardwareSettings::SupplyVoltage>, int>);
static_assert(std::is_same_v<std::underlying_type_t<HardwareSettings::EsTempValueLimits>, int>);
static_assert(std::is_same_v<std::underlying_type_t<InputsOutputs::InputsOutputsUUID>, int>);

TEST(HardwareSettingsLifeTest, ASlotMayDeleteTheSettingsWhileTheyTellTheirSubtype)
{
    auto *const pSettings = new PlainSettings;
    int fullInstantSignals = 0;
    QObject::connect(pSettings, &HardwareSettings::isFullInstantChanged, pSettings,
                     [&fullInstantSignals] { ++fullInstantSignals; });
    const QPointer<HardwareSettings> pGuard = pSettings;
    QObject::connect(pSettings, &HardwareSettings::modelSubtypeChanged, pSettings,
                     [pSettings] { delete pSettings; });
    pSettings->setModelSubtype(HardwareSettings::LirentaFullInstant);
    EXPECT_TRUE(pGuard.isNull());
    EXPECT_EQ(fullInstantSignals, 0);
}
