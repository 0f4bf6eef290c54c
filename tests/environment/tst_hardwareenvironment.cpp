#include "hardwareenvironment.h"

#include "environmentfakes.h"
#include "logformatter.h"
#include "support/casename.h"
#include "support/exittest.h"

#include <QMetaEnum>
#include <QMetaMethod>
#include <QMetaProperty>
#include <QPointer>
#include <QSignalSpy>
#include <algorithm>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using Model = HardwareEnvironment::MachineModel;
using Subtype = HardwareSettings::MachineModelSubtype;

namespace {

constexpr Model s_models[] = {
    HardwareEnvironment::Ostrel,
    HardwareEnvironment::Duvana,
    HardwareEnvironment::Lirenta,
    HardwareEnvironment::MarboTouch,
    HardwareEnvironment::MarboCapacitiveKeys,
    HardwareEnvironment::Corvel,
    HardwareEnvironment::NewQuindo,
};
// What the library was built for.
#ifdef VY_PLATFORM_BOARD
constexpr int s_platform = 2;
constexpr int s_operatingSystem = 1;
#else
constexpr int s_platform = 1;
constexpr int s_operatingSystem = 2;
#endif

constexpr int s_firstSubtype = -1;
constexpr int s_lastSubtype = 16; ///< one behind the last that has a name

const QMetaObject &meta()
{
    return HardwareEnvironment::staticMetaObject;
}

/// "Name=value,..." in the order of the declaration; empty without such an enumeration.
std::string keysOf(const char *pEnumeration)
{
    const QMetaEnum enumeration = meta().enumerator(meta().indexOfEnumerator(pEnumeration));
    QStringList keys;
    for (int i = 0; i < enumeration.keyCount(); ++i)
        keys << QStringLiteral("%1=%2")
                    .arg(QString::fromLatin1(enumeration.key(i)))
                    .arg(enumeration.value(i));
    return keys.join(QLatin1Char(',')).toStdString();
}

std::vector<std::string> ownMethods(QMetaMethod::MethodType type)
{
    std::vector<std::string> signatures;
    for (int i = meta().methodOffset(); i < meta().methodCount(); ++i) {
        if (meta().method(i).methodType() == type)
            signatures.push_back(meta().method(i).methodSignature().toStdString());
    }
    return signatures;
}

} // namespace

// -- one for each process -------------------------------------------------------------------------

TEST(HardwareEnvironmentTest, IsTheGlobalOneWhileItLives)
{
    TestSettings settings;
    EXPECT_EQ(gHardwareEnv, nullptr);
    EXPECT_EQ(hardwareSettings(), nullptr);
    {
        HardwareEnvironment environment(HardwareEnvironment::Lirenta, &settings);
        EXPECT_EQ(gHardwareEnv, &environment);
        EXPECT_EQ(hardwareSettings(), &settings);
        EXPECT_EQ(environment.hardwareSettings(), &settings);
        EXPECT_EQ(environment.hardwareSettingsNonConst(), &settings);
        EXPECT_EQ(environment.machineModel(), HardwareEnvironment::Lirenta);
        EXPECT_EQ(environment.parent(), nullptr);
    }
    EXPECT_EQ(gHardwareEnv, nullptr);
    EXPECT_EQ(hardwareSettings(), nullptr);
}

TEST(HardwareEnvironmentTest, CanFollowOneThatIsGone)
{
    TestSettings first;
    TestSettings second;
    std::make_unique<HardwareEnvironment>(HardwareEnvironment::Lirenta, &first).reset();
    const HardwareEnvironment environment(HardwareEnvironment::Corvel, &second);
    EXPECT_EQ(gHardwareEnv, &environment);
    EXPECT_EQ(hardwareSettings(), &second);
}

namespace {

void constructTwo()
{
    LogFormatter::addObserver([](const LogRecord &record) {
        std::cerr << "level " << record.level << " of module " << static_cast<int>(record.module)
                  << '|' << record.text.toStdString() << "|\n";
    });
    TestSettings settings;
    const HardwareEnvironment first(HardwareEnvironment::Lirenta, &settings);
    const HardwareEnvironment second(HardwareEnvironment::Lirenta, &settings);
}

} // namespace

TEST(HardwareEnvironmentTest, SecondOneEndsTheProcess)
{
    const std::string module = std::to_string(static_cast<int>(Log::Hardware));
    EXPECT_EXIT(constructTwo(), ::testing::ExitedWithCode(1),
                ::testing::ContainsRegex("level 4 of module " + module +
                                         "\\|HardwareEnvironment::HardwareEnvironment\\("
                                         "[^)]*MachineModel, HardwareSettings ?\\*\\) "
                                         "HardwareEnvironment already created !\\|"));
}

TEST(HardwareEnvironmentTest, StartsWithoutAnything)
{
    TestSettings settings;
    const HardwareEnvironment environment(HardwareEnvironment::Ostrel, &settings);
    EXPECT_EQ(environment.enabledModules(), HardwareEnvironment::NoHardwareModule);
    EXPECT_EQ(environment.hardwareController(), nullptr);
    EXPECT_EQ(environment.multiport(), nullptr);
    EXPECT_EQ(environment.cupSensor(), nullptr);
    EXPECT_EQ(environment.platform(), s_platform);
    EXPECT_EQ(environment.modelSubtype(), -1);
}

TEST(HardwareEnvironmentTest, AnswersAreFixed)
{
    EXPECT_EQ(HardwareEnvironment::getPlatformVariable(), s_platform);
    EXPECT_EQ(HardwareEnvironment::getOperatingSystemVariable(), s_operatingSystem);
    EXPECT_EQ(HardwareEnvironment::systemKeyFamily(), 2);
    EXPECT_FALSE(HardwareEnvironment::getDebugModeVariable());
    EXPECT_TRUE(HardwareEnvironment::getDesktopCustomerAppVariable());
    EXPECT_FALSE(HardwareEnvironment::getStandaloneModeVariable());
}

// -- meta-object ----------------------------------------------------------------------------------

TEST(HardwareEnvironmentMeta, DerivesFromAbstractEnvironment)
{
    EXPECT_EQ(meta().superClass(), &AbstractEnvironment::staticMetaObject);
}

TEST(HardwareEnvironmentMeta, SignalsStandInTheirOrder)
{
    const std::vector<std::string> expected = {
        "buttonPressed(int)", "buttonLongPressed(int)", "gpioRising(int)",
        "gpioFalling(int)",   "multiportChanged()",
    };
    EXPECT_EQ(ownMethods(QMetaMethod::Signal), expected);
    EXPECT_EQ(meta().method(meta().methodOffset()).methodSignature().toStdString(),
              "buttonPressed(int)");
    for (int i = meta().methodOffset(); i < meta().methodOffset() + 4; ++i)
        EXPECT_EQ(meta().method(i).parameterNames(), QList<QByteArray>{"buttonId"});
}

TEST(HardwareEnvironmentMeta, HasOneSlot)
{
    const std::vector<std::string> expected = {"setParallelCoinValidatorDeviceEnabled(bool)"};
    EXPECT_EQ(ownMethods(QMetaMethod::Slot), expected);
    const QMetaMethod slot =
        meta().method(meta().indexOfSlot("setParallelCoinValidatorDeviceEnabled(bool)"));
    EXPECT_EQ(slot.returnType(), QMetaType::Bool);
    EXPECT_EQ(slot.access(), QMetaMethod::Public);
}

TEST(HardwareEnvironmentMeta, ModelQueriesStandInTheirOrder)
{
    const std::vector<std::string> expected = {
        "isLirenta()",
        "isLirentaRasmo()",
        "isLirentaPlus()",
        "isLirenta_Plus500()",
        "isLirentaFullInstant()",
        "isLirentaStd()",
        "isCorvelRasmo()",
        "isNewQuindo()",
        "isNewQuindoRasmo()",
        "isNewQuindoStd()",
        "isCorvel()",
    };
    EXPECT_EQ(ownMethods(QMetaMethod::Method), expected);
    for (const std::string &signature : expected)
        EXPECT_EQ(meta().method(meta().indexOfMethod(signature.c_str())).returnType(),
                  QMetaType::Bool)
            << signature;
}

TEST(HardwareEnvironmentMeta, MultiportIsTheOneProperty)
{
    ASSERT_EQ(meta().propertyCount() - meta().propertyOffset(), 1);
    const QMetaProperty property = meta().property(meta().propertyOffset());
    EXPECT_STREQ(property.name(), "multiport");
    EXPECT_STREQ(property.typeName(), "Multiport*");
    EXPECT_TRUE(property.isReadable());
    EXPECT_FALSE(property.isWritable());
    EXPECT_FALSE(property.isConstant());
    EXPECT_EQ(property.notifySignal().methodSignature().toStdString(), "multiportChanged()");
}

TEST(HardwareEnvironmentMeta, MultiportIsReadByName)
{
    Machine machine;
    EXPECT_EQ(machine.environment.property("multiport").value<QObject *>(), nullptr);
    machine.create(HardwareEnvironment::MultiportModule);
    ASSERT_NE(machine.environment.multiport(), nullptr);
    EXPECT_EQ(machine.environment.property("multiport").value<QObject *>(),
              machine.environment.multiport());
}

TEST(HardwareEnvironmentMeta, MachineModelsAreRegistered)
{
    EXPECT_EQ(keysOf("MachineModel"), "Ostrel=0,Duvana=1,Lirenta=2,MarboTouch=3,"
                                      "MarboCapacitiveKeys=4,Corvel=5,NewQuindo=6");
}

TEST(HardwareEnvironmentMeta, HardwareModulesAreRegisteredAsFlags)
{
    EXPECT_EQ(keysOf("HardwareModules"),
              "NoHardwareModule=0,PhysicalButtonsModule=1,SpiModule=2,BoardDigitalOutputModule=4,"
              "I2CModule=8,MultiportModule=16");
    EXPECT_TRUE(meta().enumerator(meta().indexOfEnumerator("HardwareModules")).isFlag());
}

TEST(HardwareEnvironmentMeta, OperatingSystemsAreRegistered)
{
    EXPECT_EQ(keysOf("OperatingSystem"), "UnknownOS=0,Linux=1,Windows=2");
}

TEST(HardwareEnvironmentMeta, OutputsAndSettingsAreRegistered)
{
    const QMetaEnum outputs = meta().enumerator(meta().indexOfEnumerator("OutputCorvel"));
    ASSERT_EQ(outputs.keyCount(), 5);
    const QMetaEnum settings = meta().enumerator(meta().indexOfEnumerator("DeviceSetting"));
    ASSERT_EQ(settings.keyCount(), 4);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(outputs.value(i), i);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(settings.value(i), i);
    EXPECT_GE(meta().indexOfEnumerator("Output"), 0);
}

// -- names ----------------------------------------------------------------------------------------

struct NameCase
{
    const char *pName;
    const char *pModelName;
    const char *pDatabaseName;
    const char *pAnswer; ///< of databaseModelName()
};

using HardwareEnvironmentNames = ::testing::TestWithParam<NameCase>;

TEST_P(HardwareEnvironmentNames, AreThoseOfTheSettings)
{
    TestSettings settings;
    settings.m_modelName = QString::fromUtf8(GetParam().pModelName);
    settings.m_databaseModelName = QString::fromUtf8(GetParam().pDatabaseName);
    const HardwareEnvironment environment(HardwareEnvironment::Corvel, &settings);
    EXPECT_EQ(environment.modelName().toStdString(), GetParam().pModelName);
    EXPECT_EQ(environment.databaseModelName().toStdString(), GetParam().pAnswer);
}

constexpr NameCase s_nameCases[] = {
    {"Both", "Corvel L", "corvel-db", "corvel-db"},
    {"NoDatabaseName", "Corvel L", "", "Corvel L"},
    {"NoModelName", "", "corvel-db", "corvel-db"},
    {"None", "", "", ""},
    {"Blank", "Corvel L", " ", " "},
};
INSTANTIATE_TEST_SUITE_P(Names, HardwareEnvironmentNames, ::testing::ValuesIn(s_nameCases),
                         caseName);

// -- model queries --------------------------------------------------------------------------------

struct QueryCase
{
    const char *pName;
    Model model;
    int subtype; ///< s_anySubtype where it does not count
};

constexpr int s_anySubtype = -100;

using HardwareEnvironmentQueries = ::testing::TestWithParam<QueryCase>;

TEST_P(HardwareEnvironmentQueries, HoldForTheirModelAndSubtypeAlone)
{
    for (const Model model : s_models) {
        for (int subtype = s_firstSubtype; subtype <= s_lastSubtype; ++subtype) {
            TestSettings settings;
            HardwareEnvironment environment(model, &settings);
            environment.setModelSubtype(static_cast<Subtype>(subtype));

            bool holds = false;
            ASSERT_TRUE(QMetaObject::invokeMethod(&environment, GetParam().pName,
                                                  Q_RETURN_ARG(bool, holds)));
            const bool isSubtype =
                GetParam().subtype == s_anySubtype || GetParam().subtype == subtype;
            EXPECT_EQ(holds, model == GetParam().model && isSubtype)
                << "model " << model << ", subtype " << subtype;
        }
    }
}

constexpr QueryCase s_queryCases[] = {
    {"isLirenta", HardwareEnvironment::Lirenta, s_anySubtype},
    {"isLirentaRasmo", HardwareEnvironment::Lirenta, 6},
    {"isLirentaPlus", HardwareEnvironment::Lirenta, 3},
    {"isLirenta_Plus500", HardwareEnvironment::Lirenta, 7},
    {"isLirentaFullInstant", HardwareEnvironment::Lirenta, 8},
    {"isLirentaStd", HardwareEnvironment::Lirenta, 2},
    {"isCorvelRasmo", HardwareEnvironment::Corvel, 10},
    {"isNewQuindo", HardwareEnvironment::NewQuindo, s_anySubtype},
    {"isNewQuindoRasmo", HardwareEnvironment::NewQuindo, 12},
    {"isNewQuindoStd", HardwareEnvironment::NewQuindo, 11},
    {"isCorvel", HardwareEnvironment::Corvel, s_anySubtype},
};
INSTANTIATE_TEST_SUITE_P(Queries, HardwareEnvironmentQueries, ::testing::ValuesIn(s_queryCases),
                         caseName);

// -- subtype --------------------------------------------------------------------------------------

struct SubtypeCase
{
    const char *pName;
    Model model;
    std::vector<int> withoutJug;        ///< subtypes that clear hasJugSupport
    std::vector<int> withParallelSteps; ///< subtypes that set hasParallelStepSupport
};

using HardwareEnvironmentSubtypes = ::testing::TestWithParam<SubtypeCase>;

namespace {

bool contains(const std::vector<int> &subtypes, int subtype)
{
    return std::find(subtypes.cbegin(), subtypes.cend(), subtype) != subtypes.cend();
}

} // namespace

TEST_P(HardwareEnvironmentSubtypes, ChangeTheSettingsByModel)
{
    for (int subtype = s_firstSubtype; subtype <= s_lastSubtype; ++subtype) {
        for (const bool before : {false, true}) {
            TestSettings settings;
            settings.m_hasJugSupport = before;
            settings.m_hasParallelStepSupport = before;
            HardwareEnvironment environment(GetParam().model, &settings);
            environment.setModelSubtype(static_cast<Subtype>(subtype));

            EXPECT_EQ(environment.modelSubtype(), subtype);
            EXPECT_EQ(settings.modelSubtype(), subtype);
            EXPECT_EQ(settings.property("hasJugSupport").toBool(),
                      before && !contains(GetParam().withoutJug, subtype))
                << "subtype " << subtype;
            EXPECT_EQ(settings.property("hasParallelStepSupport").toBool(),
                      before || contains(GetParam().withParallelSteps, subtype))
                << "subtype " << subtype;
        }
    }
}

const SubtypeCase s_subtypeCases[] = {
    {"Ostrel", HardwareEnvironment::Ostrel, {}, {}},
    {"Duvana", HardwareEnvironment::Duvana, {}, {}},
    {"Lirenta", HardwareEnvironment::Lirenta, {6}, {8}},
    {"MarboTouch", HardwareEnvironment::MarboTouch, {}, {}},
    {"MarboCapacitiveKeys", HardwareEnvironment::MarboCapacitiveKeys, {}, {}},
    {"Corvel", HardwareEnvironment::Corvel, {}, {}},
    {"NewQuindo", HardwareEnvironment::NewQuindo, {12}, {}},
};
INSTANTIATE_TEST_SUITE_P(Models, HardwareEnvironmentSubtypes, ::testing::ValuesIn(s_subtypeCases),
                         caseName);

TEST(HardwareEnvironmentTest, Subtype8TurnsParallelStepsOnForALirentaAndNotForACorvel)
{
    {
        TestSettings settings;
        HardwareEnvironment lirenta(HardwareEnvironment::Lirenta, &settings);
        lirenta.setModelSubtype(HardwareSettings::LirentaFullInstant);
        EXPECT_TRUE(settings.property("hasParallelStepSupport").toBool());
    }
    TestSettings settings;
    HardwareEnvironment corvel(HardwareEnvironment::Corvel, &settings);
    corvel.setModelSubtype(HardwareSettings::LirentaFullInstant);
    EXPECT_FALSE(settings.property("hasParallelStepSupport").toBool());
}

TEST(HardwareEnvironmentTest, AnotherSubtypeRestoresNothing)
{
    TestSettings settings;
    HardwareEnvironment environment(HardwareEnvironment::Lirenta, &settings);
    environment.setModelSubtype(HardwareSettings::LirentaCustomerEdition);
    environment.setModelSubtype(HardwareSettings::LirentaFullInstant);
    environment.setModelSubtype(HardwareSettings::LirentaStandard);
    EXPECT_FALSE(settings.property("hasJugSupport").toBool());
    EXPECT_TRUE(settings.property("hasParallelStepSupport").toBool());
}

TEST(HardwareEnvironmentTest, SubtypeGoesThroughTheSettingsSetter)
{
    TestSettings settings;
    HardwareEnvironment environment(HardwareEnvironment::Lirenta, &settings);
    QSignalSpy changed(&settings, &HardwareSettings::modelSubtypeChanged);
    QSignalSpy fullInstant(&settings, &HardwareSettings::isFullInstantChanged);

    environment.setModelSubtype(HardwareSettings::LirentaFullInstant);
    environment.setModelSubtype(HardwareSettings::LirentaFullInstant);
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(fullInstant.count(), 1);
    environment.setModelSubtype(HardwareSettings::LirentaPlus);
    EXPECT_EQ(changed.count(), 2);
    EXPECT_EQ(fullInstant.count(), 2);
}

TEST(HardwareEnvironmentTest, SubtypeThatTheSettingsHaveAlreadyChangesThemToo)
{
    TestSettings settings;
    settings.setModelSubtype(HardwareSettings::LirentaCustomerEdition);
    HardwareEnvironment environment(HardwareEnvironment::Lirenta, &settings);
    EXPECT_TRUE(settings.property("hasJugSupport").toBool());
    environment.setModelSubtype(HardwareSettings::LirentaCustomerEdition);
    EXPECT_FALSE(settings.property("hasJugSupport").toBool());
}
