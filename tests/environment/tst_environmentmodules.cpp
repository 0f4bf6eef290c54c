#include "hardwareenvironment.h"

#include "buttons/physicalbuttons.h"
#include "environmentfakes.h"
#include "support/assertspy.h"
#include "support/casename.h"
#include "support/exittest.h"
#include "support/logspy.h"
#include "support/scopedvariable.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>
#include <QSignalSpy>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using Modules = HardwareEnvironment::HardwareModules;

namespace {

const QString s_instantiate =
    QStringLiteral("void HardwareEnvironment::instantiateHardwareModules() ");
const QString s_unload = QStringLiteral("virtual void HardwareEnvironment::unloadModules() ");
const QString s_listingTitle = QStringLiteral("[Hardware modules]----------------------");

Modules modules(int bits)
{
    return {QFlag(bits)};
}

/// The listing from its title on, with every line that follows of these many.
QList<LogRecord> listing(const LogSpy &log, int lines)
{
    const QList<LogRecord> records = log.records();
    const int title = log.texts().indexOf(s_listingTitle);
    return title < 0 ? QList<LogRecord>() : records.mid(title, lines);
}

/// The texts that a start or a stop logs by signature, without it.
std::string steps(const LogSpy &log, const QString &signature)
{
    QStringList steps;
    const QStringList texts = log.texts();
    for (const QString &text : texts) {
        if (text.startsWith(signature))
            steps << text.mid(signature.size());
    }
    return steps.join(QLatin1Char(',')).toStdString();
}

void deliverDeferredDeletes()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace

// -- listing --------------------------------------------------------------------------------------

struct ListingCase
{
    const char *pName;
    int modules;
    const char *pButtons;
    const char *pSpi;
    const char *pOutputs;
    const char *pMultiport;
    const char *pSteps; ///< what is enabled, in its order
};

using EnvironmentListing = ::testing::TestWithParam<ListingCase>;

TEST_P(EnvironmentListing, TellsWhatIsOn)
{
    Machine machine;
    machine.settings.m_modelName = QStringLiteral("Corvel L");
    const LogSpy log;
    const AssertSpy asserts;
    machine.create(modules(GetParam().modules));

    const std::vector<std::string> expected = {
        "[Hardware modules]----------------------",
        "           Hardware controller [Corvel L]",
        GetParam().pButtons,
        GetParam().pSpi,
        GetParam().pOutputs,
        "                     I2CModule [ OFF ]",
        GetParam().pMultiport,
    };
    std::vector<std::string> texts;
    const QList<LogRecord> lines = listing(log, static_cast<int>(expected.size()));
    for (const LogRecord &line : lines) {
        EXPECT_EQ(line.level, 1);
        EXPECT_EQ(line.module, Log::Hardware);
        texts.push_back(line.text.toStdString());
    }
    EXPECT_EQ(texts, expected);
    EXPECT_EQ(log.count("[ ON  ]") + log.count("[ OFF ]"), 5); // NoHardwareModule is left out
    EXPECT_EQ(steps(log, s_instantiate), GetParam().pSteps);
    EXPECT_EQ(log.count(s_instantiate, 0, Log::Hardware), log.count(s_instantiate));
    EXPECT_TRUE(asserts.records().isEmpty());

    EXPECT_NE(machine.controller(), nullptr);
    EXPECT_EQ(machine.environment.multiport() != nullptr, (GetParam().modules & 16) != 0);
    EXPECT_EQ(machine.calls.count(QStringLiteral("digital outputs")),
              (GetParam().modules & 4) != 0 ? 1 : 0);
    machine.environment.unloadModules();
}

#define BUTTONS_OFF "         PhysicalButtonsModule [ OFF ]"
#define BUTTONS_ON "         PhysicalButtonsModule [ ON  ]"
#define SPI_OFF "                     SpiModule [ OFF ]"
#define SPI_ON "                     SpiModule [ ON  ]"
#define OUTPUTS_OFF "      BoardDigitalOutputModule [ OFF ]"
#define OUTPUTS_ON "      BoardDigitalOutputModule [ ON  ]"
#define MULTIPORT_OFF "               MultiportModule [ OFF ]"
#define MULTIPORT_ON "               MultiportModule [ ON  ]"

constexpr ListingCase s_listingCases[] = {
    {"Set0ShowsAllFiveOffAndCreatesOnlyTheController", 0, BUTTONS_OFF, SPI_OFF, OUTPUTS_OFF,
     MULTIPORT_OFF, ""},
    {"Set5ShowsButtonsAndDigitalOutputOn", 5, BUTTONS_ON, SPI_OFF, OUTPUTS_ON, MULTIPORT_OFF,
     "enabling BoardDigitalOutputModule,enabling PhysicalButtonsModule"},
    {"ButtonsAlone", 1, BUTTONS_ON, SPI_OFF, OUTPUTS_OFF, MULTIPORT_OFF,
     "enabling PhysicalButtonsModule"},
    {"SpiAlone", 2, BUTTONS_OFF, SPI_ON, OUTPUTS_OFF, MULTIPORT_OFF, ""},
    {"DigitalOutputAlone", 4, BUTTONS_OFF, SPI_OFF, OUTPUTS_ON, MULTIPORT_OFF,
     "enabling BoardDigitalOutputModule"},
    {"MultiportAlone", 16, BUTTONS_OFF, SPI_OFF, OUTPUTS_OFF, MULTIPORT_ON,
     "enabling Multiport Module"},
    {"AllButI2C", 31 - 8, BUTTONS_ON, SPI_ON, OUTPUTS_ON, MULTIPORT_ON,
     "enabling BoardDigitalOutputModule,enabling PhysicalButtonsModule,enabling Multiport Module"},
    {"UnknownBitsToo", 64 + 2, BUTTONS_OFF, SPI_ON, OUTPUTS_OFF, MULTIPORT_OFF, ""},
};
INSTANTIATE_TEST_SUITE_P(Sets, EnvironmentListing, ::testing::ValuesIn(s_listingCases), caseName);

namespace {

/// An environment whose meta-object knows none of the enumerations.
class NamelessEnvironment : public TestEnvironment
{
public:
    using TestEnvironment::TestEnvironment;
    const QMetaObject *metaObject() const override { return &QObject::staticMetaObject; }
};

} // namespace

TEST(EnvironmentModulesTest, MissingEnumerationIsReportedAndTheStartGoesOn)
{
    TestSettings settings([] { return new BareController; });
    NamelessEnvironment environment(HardwareEnvironment::Corvel, &settings);
    environment.setEnabledModules(HardwareEnvironment::MultiportModule);
    const LogSpy log;
    const AssertSpy asserts;
    environment.createEnvironment();

    ASSERT_EQ(asserts.records().size(), 1);
    EXPECT_EQ(asserts.count("modulesEnumIndex != -1", "Modules enumeration not found",
                            "src/hardwareenvironment"),
              1);
    EXPECT_FALSE(asserts.records().first().isRelease);
    EXPECT_EQ(log.count(s_listingTitle), 1);
    EXPECT_EQ(log.count("[ ON  ]") + log.count("[ OFF ]"), 0);
    EXPECT_NE(environment.hardwareController(), nullptr);
    EXPECT_NE(environment.multiport(), nullptr);
}

TEST(EnvironmentModulesTest, BaseVersionOfTheDigitalOutputsIsNoFailure)
{
    TestSettings settings([] { return new BareController; });
    TestEnvironment environment(HardwareEnvironment::Corvel, &settings);
    environment.setEnabledModules(HardwareEnvironment::BoardDigitalOutputModule);
    const AssertSpy asserts;
    environment.createEnvironment();
    EXPECT_NE(environment.hardwareController(), nullptr);
    EXPECT_TRUE(asserts.records().isEmpty());
}

TEST(EnvironmentModulesTest, ControllerIsMadeAfterTheListingAndBeforeTheModules)
{
    const LogSpy log;
    int linesBefore = -1;
    QStringList calls;
    TestSettings settings([&] {
        linesBefore = log.count("[ ON  ]") + log.count("[ OFF ]");
        EXPECT_EQ(log.count(s_instantiate), 0);
        return new TestController(&calls);
    });
    TestEnvironment environment(HardwareEnvironment::Corvel, &settings);
    environment.setEnabledModules(modules(23));
    environment.createEnvironment();
    EXPECT_EQ(linesBefore, 5);
    environment.unloadModules();
}

namespace {

/// A controller that has something to tell while its digital outputs are made.
class EarlyController : public BareController
{
public:
    void createBoardDigitalIOController() override
    {
        Q_EMIT buttonPressed(1);
        Q_EMIT buttonLongPressed(2);
        Q_EMIT gpioRising(3);
        Q_EMIT gpioFalling(4);
    }
};

} // namespace

TEST(EnvironmentModulesTest, ControllerIsConnectedBeforeItsDigitalOutputsAreMade)
{
    TestSettings settings([] { return new EarlyController; });
    TestEnvironment environment(HardwareEnvironment::Corvel, &settings);
    environment.setEnabledModules(HardwareEnvironment::BoardDigitalOutputModule);
    std::vector<int> told;
    const auto take = [&told](int number) { told.push_back(number); };
    QObject::connect(&environment, &HardwareEnvironment::buttonPressed, take);
    QObject::connect(&environment, &HardwareEnvironment::buttonLongPressed, take);
    QObject::connect(&environment, &HardwareEnvironment::gpioRising, take);
    QObject::connect(&environment, &HardwareEnvironment::gpioFalling, take);
    environment.createEnvironment();
    EXPECT_EQ(told, (std::vector<int>{1, 2, 3, 4}));
}

// -- controller's signals -------------------------------------------------------------------------

struct RelayCase
{
    const char *pName;
    void (AbstractHardwareController::*pOfController)(int);
    void (HardwareEnvironment::*pOfEnvironment)(int);
};

using EnvironmentRelays = ::testing::TestWithParam<RelayCase>;

TEST_P(EnvironmentRelays, ArriveOnceAndAlone)
{
    Machine machine;
    machine.create(HardwareEnvironment::NoHardwareModule);
    TestEnvironment &environment = machine.environment;
    QSignalSpy relayed(&environment, GetParam().pOfEnvironment);
    QSignalSpy pressed(&environment, &HardwareEnvironment::buttonPressed);
    QSignalSpy longPressed(&environment, &HardwareEnvironment::buttonLongPressed);
    QSignalSpy rising(&environment, &HardwareEnvironment::gpioRising);
    QSignalSpy falling(&environment, &HardwareEnvironment::gpioFalling);

    (machine.controller()->*GetParam().pOfController)(17);
    ASSERT_EQ(relayed.count(), 1);
    EXPECT_EQ(relayed.first().first().toInt(), 17);
    EXPECT_EQ(pressed.count() + longPressed.count() + rising.count() + falling.count(), 1);
}

const RelayCase s_relayCases[] = {
    {"ButtonPressed", &AbstractHardwareController::buttonPressed,
     &HardwareEnvironment::buttonPressed},
    {"ButtonLongPressed", &AbstractHardwareController::buttonLongPressed,
     &HardwareEnvironment::buttonLongPressed},
    {"GpioRising", &AbstractHardwareController::gpioRising, &HardwareEnvironment::gpioRising},
    {"GpioFalling", &AbstractHardwareController::gpioFalling, &HardwareEnvironment::gpioFalling},
};
INSTANTIATE_TEST_SUITE_P(Signals, EnvironmentRelays, ::testing::ValuesIn(s_relayCases), caseName);

// -- unloading ------------------------------------------------------------------------------------

TEST(EnvironmentModulesTest, UnloadsButtonsThenController)
{
    Machine machine;
    machine.create(modules(23));
    machine.environment.createCupSensor(AbstractCupSensor::CupSensorTypeLirenAB);
    const QPointer<AbstractHardwareController> pController(machine.controller());
    const QPointer<PhysicalButtons> pButtons(PhysicalButtons::instance());
    const QPointer<Multiport> pMultiport(machine.environment.multiport());
    const QPointer<AbstractCupSensor> pCupSensor(machine.environment.cupSensor());

    const LogSpy log;
    machine.environment.unloadModules();
    EXPECT_EQ(steps(log, s_unload), "unloading PhysicalButtons,unloading HardwareController");
    EXPECT_EQ(log.count(s_unload, 0, Log::Hardware), 2);
    EXPECT_EQ(machine.controller(), nullptr);
    deliverDeferredDeletes();
    EXPECT_TRUE(pController.isNull());
    EXPECT_TRUE(pButtons.isNull());
    EXPECT_FALSE(pMultiport.isNull()); // these two go with the environment
    EXPECT_EQ(machine.environment.multiport(), pMultiport);
    EXPECT_FALSE(pCupSensor.isNull());
    EXPECT_EQ(machine.environment.cupSensor(), pCupSensor);
}

namespace {

/// A controller that tells whether the buttons were there still when it went.
class LastController : public BareController
{
public:
    LastController(const QPointer<PhysicalButtons> *pButtons, bool *pHadButtons)
        : m_pButtons(pButtons)
        , m_pHadButtons(pHadButtons)
    {
    }
    ~LastController() override { *m_pHadButtons = !m_pButtons->isNull(); }
    Q_DISABLE_COPY_MOVE(LastController)

private:
    const QPointer<PhysicalButtons> *m_pButtons;
    bool *m_pHadButtons;
};

} // namespace

TEST(EnvironmentModulesTest, ButtonsAreGoneWhenTheControllerGoes)
{
    QPointer<PhysicalButtons> pButtons;
    bool hadButtons = true;
    TestSettings settings([&] { return new LastController(&pButtons, &hadButtons); });
    TestEnvironment environment(HardwareEnvironment::Corvel, &settings);
    environment.setEnabledModules(HardwareEnvironment::PhysicalButtonsModule);
    environment.createEnvironment();
    pButtons = PhysicalButtons::instance();
    environment.unloadModules();
    deliverDeferredDeletes();
    EXPECT_FALSE(hadButtons);
}

struct UnloadCase
{
    const char *pName;
    int modules;
    bool isCreated;
    const char *pSteps;
};

using EnvironmentUnload = ::testing::TestWithParam<UnloadCase>;

TEST_P(EnvironmentUnload, TellsOnlyWhatIsThere)
{
    Machine machine;
    if (GetParam().isCreated)
        machine.create(modules(GetParam().modules));
    const LogSpy log;
    machine.environment.unloadModules();
    EXPECT_EQ(steps(log, s_unload), GetParam().pSteps);

    const LogSpy secondLog;
    machine.environment.unloadModules();
    EXPECT_TRUE(secondLog.texts().isEmpty());
}

constexpr UnloadCase s_unloadCases[] = {
    {"NothingWasCreated", 31, false, ""},
    {"ControllerAlone", 0, true, "unloading HardwareController"},
    {"ControllerAndMultiport", 16, true, "unloading HardwareController"},
    {"Both", 1, true, "unloading PhysicalButtons,unloading HardwareController"},
};
INSTANTIATE_TEST_SUITE_P(States, EnvironmentUnload, ::testing::ValuesIn(s_unloadCases), caseName);

TEST(EnvironmentModulesTest, StartsAgainAfterUnloading)
{
    Machine machine;
    machine.create(modules(23));
    Multiport *const pMultiport = machine.environment.multiport();
    machine.environment.unloadModules();

    const LogSpy log;
    machine.environment.createEnvironment();
    EXPECT_EQ(steps(log, s_instantiate), // the client is there still
              "enabling BoardDigitalOutputModule,enabling PhysicalButtonsModule");
    EXPECT_EQ(machine.environment.multiport(), pMultiport);
    QSignalSpy pressed(&machine.environment, &HardwareEnvironment::buttonPressed);
    Q_EMIT machine.controller()->buttonPressed(4);
    EXPECT_EQ(pressed.count(), 1);
    machine.environment.unloadModules();
}

TEST(EnvironmentModulesTest, SecondCreateEnablesNoButtonsAndNoClientAgain)
{
    {
        Machine machine;
        machine.create(modules(23));
        const LogSpy log;
        machine.environment.createEnvironment();
        EXPECT_EQ(steps(log, s_instantiate), "enabling BoardDigitalOutputModule");
        machine.environment.unloadModules();
    }
    deliverDeferredDeletes();
    EXPECT_EQ(BareController::s_living, 0);
}

TEST(EnvironmentModulesTest, SecondCreateTakesANewControllerAndLeavesNoOther)
{
    int asked = 0;
    TestSettings settings([&asked] {
        ++asked;
        return new BareController;
    });
    TestEnvironment environment(HardwareEnvironment::Corvel, &settings);
    environment.createEnvironment();
    const QPointer<AbstractHardwareController> pFirst(environment.hardwareController());
    environment.createEnvironment();
    deliverDeferredDeletes();
    EXPECT_EQ(asked, 2);
    EXPECT_TRUE(pFirst.isNull());
    ASSERT_NE(environment.hardwareController(), nullptr);
    EXPECT_EQ(BareController::s_living, 1);
    QSignalSpy pressed(&environment, &HardwareEnvironment::buttonPressed);
    Q_EMIT environment.hardwareController()->buttonPressed(4);
    EXPECT_EQ(pressed.count(), 1);
}

TEST(EnvironmentModulesTest, DestructionTakesWhatTheEnvironmentOwns)
{
    QPointer<Multiport> pMultiport;
    QPointer<AbstractCupSensor> pCupSensor;
    {
        Machine machine;
        machine.create(HardwareEnvironment::MultiportModule);
        machine.environment.createCupSensor(AbstractCupSensor::CupSensorTypeLirenAB);
        pMultiport = machine.environment.multiport();
        pCupSensor = machine.environment.cupSensor();
        ASSERT_FALSE(pMultiport.isNull());
        ASSERT_FALSE(pCupSensor.isNull());
        ASSERT_EQ(BareController::s_living, 1);
    }
    deliverDeferredDeletes();
    EXPECT_TRUE(pMultiport.isNull());
    EXPECT_TRUE(pCupSensor.isNull());
    EXPECT_EQ(BareController::s_living, 0);
}

// -- fatal ----------------------------------------------------------------------------------------

namespace {

void create(AbstractHardwareController *pController, int bits)
{
    TestSettings settings([pController] { return pController; });
    TestEnvironment environment(HardwareEnvironment::Corvel, &settings);
    environment.setEnabledModules(modules(bits));
    environment.createEnvironment();
}

} // namespace

TEST(EnvironmentModulesTest, NullControllerEndsTheProcess)
{
    EXPECT_FATAL_ASSERTION(create(nullptr, 0), "m_pHardwareController",
                           "Hardware controller is null", "src/hardwareenvironment");
}

TEST(EnvironmentModulesTest, NullControllerEndsTheProcessBeforeAnyModule)
{
    EXPECT_EXIT(create(nullptr, 23), ::testing::ExitedWithCode(1),
                ::testing::AllOf(::testing::HasSubstr("MultiportModule [ ON  ]"),
                                 ::testing::HasSubstr("Hardware controller is null"),
                                 ::testing::Not(::testing::HasSubstr("enabling"))));
}

TEST(EnvironmentModulesTest, I2CEndsTheProcess)
{
    EXPECT_FATAL_ASSERTION(create(new BareController, 8), "false",
                           "I2C is not available under Windows", "src/hardwareenvironment");
}

TEST(EnvironmentModulesTest, I2CEndsTheProcessBetweenButtonsAndMultiport)
{
    EXPECT_EXIT(create(new BareController, 31), ::testing::ExitedWithCode(1),
                ::testing::AllOf(::testing::HasSubstr("I2CModule [ ON  ]"),
                                 ::testing::HasSubstr("enabling BoardDigitalOutputModule"),
                                 ::testing::HasSubstr("enabling PhysicalButtonsModule"),
                                 ::testing::HasSubstr("I2C is not available under Windows"),
                                 ::testing::Not(::testing::HasSubstr("enabling Multiport"))));
}

// -- multiport ------------------------------------------------------------------------------------

struct ServerCase
{
    const char *pName;
    int platform;
    const char *pVariable; ///< VY_MULTIPORT; null: not set
    const char *pServer;   ///< null: the machine's internal address
    int mode;
};

using EnvironmentMultiport = ::testing::TestWithParam<ServerCase>;

TEST_P(EnvironmentMultiport, TalksToThePlatformsServer)
{
    const ScopedVariable variable("VY_MULTIPORT");
    if (GetParam().pVariable != nullptr)
        variable.set(GetParam().pVariable);
    Machine machine;
    machine.environment.setPlatform(GetParam().platform);
    QSignalSpy changed(&machine.environment, &HardwareEnvironment::multiportChanged);
    machine.create(HardwareEnvironment::MultiportModule);

    const Multiport *const pMultiport = machine.environment.multiport();
    ASSERT_NE(pMultiport, nullptr);
    EXPECT_EQ(pMultiport->mode(), GetParam().mode);
    EXPECT_EQ(pMultiport->parent(), &machine.environment);
    EXPECT_TRUE(pMultiport->isStarted());
    EXPECT_EQ(changed.count(), 1);
    if (GetParam().pServer != nullptr) {
        EXPECT_EQ(pMultiport->server().toStdString(), GetParam().pServer);
        return;
    }
    EXPECT_FALSE(pMultiport->server().isEmpty());
    EXPECT_FALSE(pMultiport->server().startsWith(QLatin1String("127.")));
}

constexpr ServerCase s_serverCases[] = {
    {"Desktop", 1, nullptr, "127.0.0.1", 1},
    {"Machine", 2, nullptr, nullptr, 2},
    {"OtherPlatform", 0, nullptr, nullptr, 2},
    {"DesktopOverridden", 1, "127.0.0.2:4000", "127.0.0.2:4000", 1},
    {"MachineOverridden", 2, "127.0.0.2:4000", "127.0.0.2:4000", 2},
    {"EmptyVariable", 1, "", "127.0.0.1", 1},
};
INSTANTIATE_TEST_SUITE_P(Platforms, EnvironmentMultiport, ::testing::ValuesIn(s_serverCases),
                         caseName);

TEST(EnvironmentModulesTest, MultiportIsStoredWhenItsChangeIsToldAndNotYetStarted)
{
    Machine machine;
    int told = 0;
    QObject::connect(&machine.environment, &HardwareEnvironment::multiportChanged, [&] {
        ++told;
        ASSERT_NE(machine.environment.multiport(), nullptr);
        EXPECT_FALSE(machine.environment.multiport()->isStarted());
    });
    machine.create(HardwareEnvironment::MultiportModule);
    EXPECT_EQ(told, 1);
    ASSERT_NE(machine.environment.multiport(), nullptr);
    EXPECT_TRUE(machine.environment.multiport()->isStarted());
}

TEST(EnvironmentModulesTest, ClientThatIsThereIsStartedAndNotReplaced)
{
    Machine machine;
    Multiport client(QStringLiteral("127.0.0.2"), Multiport::ModeLocal, nullptr);
    machine.environment.setMultiport(&client);
    QSignalSpy changed(&machine.environment, &HardwareEnvironment::multiportChanged);
    const LogSpy log;
    machine.create(HardwareEnvironment::MultiportModule);
    EXPECT_EQ(machine.environment.multiport(), &client);
    EXPECT_TRUE(client.isStarted());
    EXPECT_EQ(changed.count(), 0);
    EXPECT_EQ(log.count("enabling Multiport Module"), 0);
    machine.environment.setMultiport(nullptr);
}

TEST(EnvironmentModulesTest, ClientIsNotStartedWhileTheModuleIsOff)
{
    Machine machine;
    Multiport client(QStringLiteral("own"), Multiport::ModeLocal, nullptr);
    machine.environment.setMultiport(&client);
    machine.create(modules(7));
    EXPECT_FALSE(client.isStarted());
    machine.environment.unloadModules();
    machine.environment.setMultiport(nullptr);
}
