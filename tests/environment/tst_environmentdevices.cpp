#include "hardwareenvironment.h"

#include "cupsensor/lirenabcupsensor.h"
#include "cupsensor/simulatedcupsensor.h"
#include "environmentfakes.h"
#include "support/assertspy.h"
#include "support/casename.h"
#include "support/logspy.h"
#include "support/scopedvariable.h"

#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThreadPool>
#include <functional>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

using UUID = InputsOutputs::InputsOutputsUUID;

namespace {

struct ClientCall
{
    const Multiport *pClient;
    const char *pOperation;
    int output;
    bool isOn;
};

std::vector<ClientCall> s_clientCalls;

} // namespace

// In place of the client library's own: the program's definitions come first.
void Multiport::setOutputEnabled(int output, bool isOn)
{
    s_clientCalls.push_back({this, "enable", output, isOn});
}

void Multiport::setBlinkOutput(int output, bool isOn)
{
    s_clientCalls.push_back({this, "blink", output, isOn});
}

namespace {

HardwareEnvironment::OutputCorvel output(int number)
{
    return static_cast<HardwareEnvironment::OutputCorvel>(number);
}

void expectUnknownOutput(const AssertSpy &asserts)
{
    ASSERT_EQ(asserts.records().size(), 1);
    const AssertRecord &record = asserts.records().first();
    EXPECT_EQ(record.message.toStdString(), "Device unknown, impossible get gpio");
    EXPECT_EQ(record.file.toStdString(), "src/hardwareenvironment");
    EXPECT_FALSE(record.isRelease);
}

} // namespace

// -- outputs of the multiport server --------------------------------------------------------------

struct GpioCase
{
    const char *pName;
    int output;
    int gpio; ///< -1: unknown
};

using EnvironmentGpios = ::testing::TestWithParam<GpioCase>;

TEST_P(EnvironmentGpios, AreThoseOfTheTable)
{
    const AssertSpy asserts;
    EXPECT_EQ(HardwareEnvironment::gpioCorvel(output(GetParam().output)), GetParam().gpio);
    if (GetParam().gpio < 0)
        expectUnknownOutput(asserts);
    else
        EXPECT_TRUE(asserts.records().isEmpty());
}

TEST_P(EnvironmentGpios, AreAskedOfTheClientOnTheMachine)
{
    Machine machine;
    machine.environment.setPlatform(2);
    machine.create(HardwareEnvironment::MultiportModule);
    for (const bool isOn : {true, false}) {
        s_clientCalls.clear();
        const AssertSpy enableAsserts;
        EXPECT_TRUE(machine.environment.setOutputEnabled(output(GetParam().output), isOn));
        EXPECT_TRUE(machine.environment.setBlinkOutputEnabled(output(GetParam().output), !isOn));
        if (GetParam().gpio < 0) {
            EXPECT_TRUE(s_clientCalls.empty());
            EXPECT_EQ(enableAsserts.records().size(), 2);
            continue;
        }
        ASSERT_EQ(s_clientCalls.size(), 2U);
        EXPECT_STREQ(s_clientCalls[0].pOperation, "enable");
        EXPECT_EQ(s_clientCalls[0].isOn, isOn);
        EXPECT_STREQ(s_clientCalls[1].pOperation, "blink");
        EXPECT_EQ(s_clientCalls[1].isOn, !isOn);
        for (const ClientCall &call : s_clientCalls) {
            EXPECT_EQ(call.pClient, machine.environment.multiport());
            EXPECT_EQ(call.output, GetParam().gpio);
        }
    }
}

constexpr GpioCase s_gpioCases[] = {
    {"Output0", 0, 9},   {"Output1", 1, 10},      {"Output2", 2, 11},
    {"Output3", 3, 12},  {"Output4", 4, 13},      {"OneBelow", -1, -1},
    {"OneAbove", 5, -1}, {"ItsOwnNumber", 9, -1}, {"FarAbove", 1000, -1},
};
INSTANTIATE_TEST_SUITE_P(Outputs, EnvironmentGpios, ::testing::ValuesIn(s_gpioCases), caseName);

TEST(EnvironmentDevicesTest, OutputsWithPlatformValue1ChangeNothingAndReturnTrue)
{
    Machine machine;
    machine.environment.setPlatform(1);
    machine.create(HardwareEnvironment::MultiportModule);
    s_clientCalls.clear();
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(machine.environment.setOutputEnabled(output(i), true));
        EXPECT_TRUE(machine.environment.setBlinkOutputEnabled(output(i), true));
    }
    EXPECT_TRUE(s_clientCalls.empty());
    EXPECT_TRUE(machine.calls.isEmpty());
}

TEST(EnvironmentDevicesTest, OutputsWithoutAClientReturnTrue)
{
    Machine machine;
    machine.environment.setPlatform(2);
    machine.create(HardwareEnvironment::NoHardwareModule);
    s_clientCalls.clear();
    EXPECT_TRUE(machine.environment.setOutputEnabled(output(0), true));
    EXPECT_TRUE(machine.environment.setBlinkOutputEnabled(output(0), true));
    EXPECT_TRUE(s_clientCalls.empty());
}

// -- forwarding to the controller -----------------------------------------------------------------

struct ForwardCase
{
    const char *pName;
    std::function<bool(HardwareEnvironment &)> call;
    const char *pCall; ///< as the controller sees it
};

void PrintTo(const ForwardCase &row, std::ostream *pStream)
{
    *pStream << row.pName;
}

using EnvironmentForwarding = ::testing::TestWithParam<ForwardCase>;

TEST_P(EnvironmentForwarding, ReachesTheControllerAndReturnsItsAnswer)
{
    Machine machine;
    machine.create(HardwareEnvironment::NoHardwareModule);
    EXPECT_TRUE(GetParam().call(machine.environment));
    EXPECT_EQ(machine.calls.join(QLatin1Char(',')).toStdString(), GetParam().pCall);
}

TEST_P(EnvironmentForwarding, IsFalseWhereTheControllerDoesNotOverride)
{
    TestSettings settings([] { return new BareController; });
    TestEnvironment environment(HardwareEnvironment::Corvel, &settings);
    environment.createEnvironment();
    EXPECT_FALSE(GetParam().call(environment));
}

TEST_P(EnvironmentForwarding, IsFalseWithoutAController)
{
    Machine machine;
    EXPECT_FALSE(GetParam().call(machine.environment));
    machine.create(HardwareEnvironment::NoHardwareModule);
    machine.environment.unloadModules();
    EXPECT_FALSE(GetParam().call(machine.environment));
    EXPECT_TRUE(machine.calls.isEmpty());
}

const ForwardCase s_forwardCases[] = {
    {"DeviceOn",
     [](HardwareEnvironment &environment) {
         return environment.setDeviceEnabled(HardwareEnvironment::OutputMechanicalCounter, true);
     },
     "device 2 1"},
    {"DeviceOff",
     [](HardwareEnvironment &environment) {
         return environment.setDeviceEnabled(HardwareEnvironment::OutputDispensingLight, false);
     },
     "device 1 0"},
    {"ValidatorOn",
     [](HardwareEnvironment &environment) {
         return environment.setParallelCoinValidatorDeviceEnabled(true);
     },
     "validator 1"},
    {"ValidatorOffByName",
     [](HardwareEnvironment &environment) {
         bool result = false;
         EXPECT_TRUE(QMetaObject::invokeMethod(&environment,
                                               "setParallelCoinValidatorDeviceEnabled",
                                               Q_RETURN_ARG(bool, result), Q_ARG(bool, false)));
         return result;
     },
     "validator 0"},
    {"BuzzerPeriod",
     [](HardwareEnvironment &environment) {
         return environment.setDeviceSetting(HardwareEnvironment::BuzzerPeriodSetting, 12);
     },
     "buzzer 12"},
    {"Contrast",
     [](HardwareEnvironment &environment) {
         return environment.setDeviceSetting(HardwareEnvironment::ContrastSetting, 34);
     },
     "contrast 34"},
    {"Volume",
     [](HardwareEnvironment &environment) {
         return environment.setDeviceSetting(HardwareEnvironment::SpeakerVolumeSetting, -5);
     },
     "volume -5"},
};
INSTANTIATE_TEST_SUITE_P(Operations, EnvironmentForwarding, ::testing::ValuesIn(s_forwardCases),
                         caseName);

TEST(EnvironmentDevicesTest, BrightnessIsForwarded)
{
    Machine machine;
    machine.environment.setPlatform(1);
    EXPECT_FALSE(machine.environment.setDeviceSetting(HardwareEnvironment::BrightnessSetting, 50));
    machine.create(HardwareEnvironment::NoHardwareModule);
    EXPECT_TRUE(machine.environment.setDeviceSetting(HardwareEnvironment::BrightnessSetting, 50));
    // On the machine the controller refuses more than all of it.
    machine.environment.setPlatform(2);
    const LogSpy log;
    EXPECT_FALSE(machine.environment.setDeviceSetting(HardwareEnvironment::BrightnessSetting, 101));
    EXPECT_EQ(log.count("Cannot set brightness to:", 4), 1);
}

TEST(EnvironmentDevicesTest, UnknownSettingIsRefused)
{
    Machine machine;
    machine.create(HardwareEnvironment::NoHardwareModule);
    const auto unknown = static_cast<HardwareEnvironment::DeviceSetting>(4);
    EXPECT_FALSE(machine.environment.setDeviceSetting(unknown, 1));
    EXPECT_EQ(machine.environment.deviceSetting(unknown), 0);
    EXPECT_EQ(machine.environment.settingScale(unknown), std::make_pair(0, 0));
}

TEST(EnvironmentDevicesTest, SettingsAreReadFromTheController)
{
    Machine machine;
    const auto volume = HardwareEnvironment::SpeakerVolumeSetting;
    EXPECT_EQ(machine.environment.deviceSetting(volume), 0);
    EXPECT_EQ(machine.environment.settingScale(volume), std::make_pair(0, 0));
    machine.create(HardwareEnvironment::NoHardwareModule);
    EXPECT_EQ(machine.environment.deviceSetting(volume), 37);
    EXPECT_EQ(machine.environment.settingScale(volume), std::make_pair(3, 61));
    EXPECT_EQ(machine.environment.deviceSetting(HardwareEnvironment::ContrastSetting), 0);
    EXPECT_EQ(machine.environment.settingScale(HardwareEnvironment::ContrastSetting),
              std::make_pair(0, 0));
    machine.environment.unloadModules();
    EXPECT_EQ(machine.environment.deviceSetting(volume), 0);
    EXPECT_EQ(machine.environment.settingScale(volume), std::make_pair(0, 0));
}

TEST(EnvironmentDevicesTest, DispensingLightIsForwarded)
{
    Machine machine;
    machine.environment.setDispensingLightIdleStatus(true); // nobody to hear it
    EXPECT_TRUE(machine.calls.isEmpty());
    machine.create(HardwareEnvironment::NoHardwareModule);
    machine.environment.setDispensingLightIdleStatus(true);
    machine.environment.setDispensingLightIdleStatus(false);
    EXPECT_EQ(machine.calls.join(QLatin1Char(',')).toStdString(), "idle light 1,idle light 0");
}

// -- actuator board -------------------------------------------------------------------------------

TEST(EnvironmentDevicesTest, ActuatorBoardChannelsAreThoseOfTheSubtype)
{
    Machine machine;
    const HardwareEnvironment &environment = machine.environment;
    machine.settings.actuatorBoard()->addIO(InputsOutputs::WaterPump, 7);
    machine.settings.actuatorBoard()->addRemoteIO(InputsOutputs::WaterPump, 21);
    EXPECT_EQ(environment.actuatorBoardIO(InputsOutputs::WaterPump), 7);
    EXPECT_EQ(environment.actuatorBoardDigitalIO(InputsOutputs::WaterPump), 21);
    EXPECT_EQ(environment.actuatorBoardUUID(7), InputsOutputs::WaterPump);
    EXPECT_EQ(environment.actuatorBoardUUID(21), InputsOutputs::IONone); // a remote channel

    auto *const pOther = new ActuatorBoardSettings;
    pOther->addIO(InputsOutputs::WaterPump, 8);
    machine.settings.addActuatorBoardSettings(HardwareSettings::CorvelCustomerEdition, pOther);
    machine.environment.setModelSubtype(HardwareSettings::CorvelCustomerEdition);
    EXPECT_EQ(environment.actuatorBoardIO(InputsOutputs::WaterPump), 8);
}

TEST(EnvironmentDevicesTest, ActuatorBoardWithoutTheChannelGives255)
{
    const Machine machine;
    EXPECT_EQ(machine.environment.actuatorBoardIO(InputsOutputs::WaterPump), 255);
    EXPECT_EQ(machine.environment.actuatorBoardDigitalIO(InputsOutputs::WaterPump), 255);
    EXPECT_EQ(machine.environment.actuatorBoardUUID(7), 255);
}

TEST(EnvironmentDevicesTest, ActuatorBoardOfAnUnfiledSubtypeGives255)
{
    Machine machine;
    machine.environment.setModelSubtype(HardwareSettings::CorvelSubtype9);
    const AssertSpy asserts;
    EXPECT_EQ(machine.environment.actuatorBoardIO(InputsOutputs::WaterPump), 255);
    EXPECT_EQ(machine.environment.actuatorBoardDigitalIO(InputsOutputs::WaterPump), 255);
    EXPECT_EQ(machine.environment.actuatorBoardUUID(7), 255);
    EXPECT_EQ(asserts.count("m_actuatorBoardSettings.contains(m_modelSubtype)",
                            "Model subtype not set or supported in HardwareSettings",
                            "src/hardwaresettings"),
              3);
}

// -- multiport client -----------------------------------------------------------------------------

TEST(EnvironmentDevicesTest, SetMultiportTellsOnlyAChange)
{
    Machine machine;
    TestEnvironment &environment = machine.environment;
    Multiport client(QStringLiteral("one"), Multiport::ModeLocal, nullptr);
    QSignalSpy changed(&environment, &HardwareEnvironment::multiportChanged);
    environment.setMultiport(nullptr);
    EXPECT_EQ(changed.count(), 0);
    environment.setMultiport(&client);
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(environment.multiport(), &client);
    environment.setMultiport(&client);
    EXPECT_EQ(changed.count(), 1);
    environment.setMultiport(nullptr);
    EXPECT_EQ(changed.count(), 2);
    EXPECT_EQ(environment.multiport(), nullptr);
}

TEST(EnvironmentDevicesTest, SetMultiportTellsWhenTheNewOneIsThere)
{
    Machine machine;
    machine.create(HardwareEnvironment::MultiportModule);
    Multiport client(QStringLiteral("one"), Multiport::ModeLocal, nullptr);
    const Multiport *pTold = nullptr;
    QObject::connect(&machine.environment, &HardwareEnvironment::multiportChanged,
                     &machine.environment, [&] { pTold = machine.environment.multiport(); });
    machine.environment.setMultiport(&client);
    EXPECT_EQ(pTold, &client);
    machine.environment.setMultiport(nullptr);
}

TEST(EnvironmentDevicesTest, SetMultiportDeletesTheEnvironmentsOwnClientAlone)
{
    Machine machine;
    machine.create(HardwareEnvironment::MultiportModule);
    const QPointer<Multiport> pOwn(machine.environment.multiport());
    QObject parent;
    const QPointer<Multiport> pForeign(
        new Multiport(QStringLiteral("foreign"), Multiport::ModeLocal, &parent));

    machine.environment.setMultiport(pForeign);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(pOwn.isNull());
    machine.environment.setMultiport(nullptr);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(pForeign.isNull());
}

TEST(EnvironmentDevicesTest, SetMultiportLeavesAClientThatIsJustSignallingToTheEventLoop)
{
    Machine machine;
    machine.create(HardwareEnvironment::MultiportModule);
    const QPointer<Multiport> pOld(machine.environment.multiport());
    bool isThereAfterwards = false;
    QObject::connect(pOld, &QObject::objectNameChanged, [&] {
        machine.environment.setMultiport(nullptr);
        isThereAfterwards = !pOld.isNull();
    });
    pOld->setObjectName(QStringLiteral("client")); // goes on in it when the slot is done
    EXPECT_TRUE(isThereAfterwards);
    EXPECT_EQ(machine.environment.multiport(), nullptr);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(pOld.isNull());
}

TEST(EnvironmentDevicesTest, ClientThatWaitsForItsDeletionGoesWithTheEnvironment)
{
    QPointer<Multiport> pOld;
    {
        Machine machine;
        machine.create(HardwareEnvironment::MultiportModule);
        pOld = machine.environment.multiport();
        machine.environment.setMultiport(nullptr);
    }
    EXPECT_TRUE(pOld.isNull());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

// -- cup sensor -----------------------------------------------------------------------------------

struct CupSensorCase
{
    const char *pName;
    int type;
    const QMetaObject *pMeta; ///< null: refused
    const char *pText;
};

using EnvironmentCupSensors = ::testing::TestWithParam<CupSensorCase>;

TEST_P(EnvironmentCupSensors, AreCreatedByType)
{
    Machine machine;
    const LogSpy log;
    const auto type = static_cast<AbstractCupSensor::CupSensorType>(GetParam().type);
    EXPECT_EQ(machine.environment.createCupSensor(type, 3), GetParam().pMeta != nullptr);
    EXPECT_EQ(log.count(GetParam().pText, 1, Log::Hardware), 1);
    EXPECT_TRUE(log.texts().contains(QString::fromUtf8(GetParam().pText)))
        << log.texts().join(QLatin1Char('\n')).toStdString();

    const AbstractCupSensor *const pSensor = machine.environment.cupSensor();
    ASSERT_EQ(pSensor != nullptr, GetParam().pMeta != nullptr);
    if (pSensor == nullptr)
        return;
    EXPECT_EQ(pSensor->metaObject(), GetParam().pMeta);
    EXPECT_EQ(pSensor->cupSensorType(), type);
}

const CupSensorCase s_cupSensorCases[] = {
    {"None", 0, nullptr, "Invalid cup sensor type !"},
    {"OstrelSpi", 1, nullptr, "Invalid cup sensor type !"},
    {"LirenAB", 2, &LirenABCupSensor::staticMetaObject, "Created Cup sensor of type Liren !"},
    {"Vl6180x", 3, nullptr, "Invalid cup sensor type !"},
    {"Simulated", 4, &SimulatedCupSensor::staticMetaObject, "Created simulated Cup sensor!"},
    {"OneAbove", 5, nullptr, "Invalid cup sensor type !"},
    {"OneBelow", -1, nullptr, "Invalid cup sensor type !"},
};
INSTANTIATE_TEST_SUITE_P(Types, EnvironmentCupSensors, ::testing::ValuesIn(s_cupSensorCases),
                         caseName);

TEST(EnvironmentDevicesTest, CreateCupSensorTwiceReturnsTrueThenFalse)
{
    Machine machine;
    EXPECT_TRUE(machine.environment.createCupSensor(AbstractCupSensor::CupSensorTypeLirenAB, 0));
    const AbstractCupSensor *const pSensor = machine.environment.cupSensor();
    for (const int type : {2, 4, 99}) {
        const LogSpy log;
        EXPECT_FALSE(machine.environment.createCupSensor(
            static_cast<AbstractCupSensor::CupSensorType>(type), 0));
        ASSERT_EQ(log.texts().size(), 1);
        EXPECT_EQ(log.count("bool HardwareEnvironment::createCupSensor("
                            "AbstractCupSensor::CupSensorType, int) "
                            ": Cup sensor already created !",
                            1, Log::Hardware),
                  1);
        EXPECT_EQ(machine.environment.cupSensor(), pSensor);
    }
}

TEST(EnvironmentDevicesTest, RefusedTypeDoesNotKeepTheNextOneOut)
{
    Machine machine;
    EXPECT_FALSE(machine.environment.createCupSensor(AbstractCupSensor::CupSensorTypeVl6180x, 0));
    EXPECT_TRUE(machine.environment.createCupSensor(AbstractCupSensor::CupSensorTypeLirenAB, 0));
}

TEST(EnvironmentDevicesTest, DestructionStopsTheCupSensorsLoop)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("cup.txt"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("120\n");
    file.close();
    const ScopedVariable variable("VY_CUP_SENSOR_SIMULATION_FILE", QFile::encodeName(path));
    QPointer<AbstractCupSensor> pSensor;
    {
        Machine machine;
        machine.environment.createCupSensor(AbstractCupSensor::CupSensorTypeSimulated, 0);
        pSensor = machine.environment.cupSensor();
        ASSERT_TRUE(pSensor->isPollingSensor());
        ASSERT_TRUE(pSensor->startMeasureLoop());
    }
    EXPECT_TRUE(pSensor.isNull());
    // A loop that goes on sleeps for a second before it looks again.
    EXPECT_TRUE(QThreadPool::globalInstance()->waitForDone(200));
}
