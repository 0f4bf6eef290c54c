#include "canbus/vycan_cmds_and_addr.h"

#include "canbus/testmachine.h"
#include "support/assertspy.h"
#include "support/casename.h"
#include "support/exittest.h"

#include <QMap>
#include <gtest/gtest.h>

using CanVy::ABAcceptedVersion;
using CanVy::Address;

namespace {

constexpr const char *s_pUnit = "src/canbus/vycan_cmds_and_addr";
constexpr int s_none = -1;

/// None, every subtype that there is, and some that there are not.
constexpr int s_subtypes[] = {-1, 0,  1,  2,  3,  4,  5,  6,  7,   8,         9,
                              10, 11, 12, 13, 14, 15, 16, 17, 255, 0x7FFFFFFF};

} // namespace

struct ModelCase
{
    const char *pName;
    HardwareEnvironment::MachineModel model;
    int cpuBoard;
    int actuatorBoard;
    QMap<int, int> actuatorBoards; ///< those of the subtypes that have another one
    int version;                   ///< s_none where asking ends the process
    QMap<int, int> versions;       ///< likewise
};

using ModelTable = ::testing::TestWithParam<ModelCase>;

TEST_P(ModelTable, ChoosesTheActuatorBoardBySubtype)
{
    for (const int subtype : s_subtypes) {
        const TestMachine machine(GetParam().model, subtype);
        EXPECT_EQ(Address::actuatorBoard(),
                  GetParam().actuatorBoards.value(subtype, GetParam().actuatorBoard))
            << "subtype " << subtype;
    }
}

TEST_P(ModelTable, HasOneCpuBoard)
{
    for (const int subtype : s_subtypes) {
        const TestMachine machine(GetParam().model, subtype);
        EXPECT_EQ(Address::cpuBoard(), GetParam().cpuBoard) << "subtype " << subtype;
    }
}

TEST_P(ModelTable, AcceptsTheActuatorBoardsVersionBySubtype)
{
    if (GetParam().version == s_none) {
        const TestMachine machine(GetParam().model, 10);
        EXPECT_FATAL_ASSERTION(ABAcceptedVersion::actuatorBoardAcceptedVersion(), "false",
                               "Machine model actuator board version accepted is not handled",
                               "src/canbus/vycan_cmds_and_addr");
        return;
    }
    for (const int subtype : s_subtypes) {
        const TestMachine machine(GetParam().model, subtype);
        EXPECT_EQ(ABAcceptedVersion::actuatorBoardAcceptedVersion(),
                  GetParam().versions.value(subtype, GetParam().version))
            << "subtype " << subtype;
    }
}

TEST_P(ModelTable, ReportsNothing)
{
    const AssertSpy asserts;
    const TestMachine machine(GetParam().model, 10);
    Address::actuatorBoard();
    Address::cpuBoard();
    if (GetParam().version != s_none)
        ABAcceptedVersion::actuatorBoardAcceptedVersion();
    EXPECT_TRUE(asserts.records().isEmpty());
}

const ModelCase s_modelCases[] = {
    {"Ostrel", HardwareEnvironment::Ostrel, 0x4A8, 0x419, {}, s_none, {}},
    {"Duvana", HardwareEnvironment::Duvana, 0x4AD, 0x41A, {}, s_none, {}},
    {"Lirenta",
     HardwareEnvironment::Lirenta,
     0x4AE,
     0x41B,
     {{3, 0x41C}, {7, 0x41C}, {8, 0x41C}, {14, 0x41C}, {6, 0x431}},
     0,
     {{2, 13}, {3, 15}, {7, 15}, {8, 15}, {6, 5}, {14, 1}}},
    {"MarboTouch", HardwareEnvironment::MarboTouch, 0x4AF, 0x41D, {}, s_none, {}},
    {"MarboCapacitiveKeys", HardwareEnvironment::MarboCapacitiveKeys, 0x4AF, 0x41D, {}, s_none, {}},
    {"Corvel",
     HardwareEnvironment::Corvel,
     0x4B1,
     0x430,
     {{10, 0x432}},
     0,
     {{5, 10}, {9, 10}, {10, 11}}},
    {"NewQuindo",
     HardwareEnvironment::NewQuindo,
     0x4B8,
     0x433,
     {{12, 0x434}},
     0,
     {{11, 21}, {12, 21}, {13, 21}, {15, 21}}},
};
INSTANTIATE_TEST_SUITE_P(Models, ModelTable, ::testing::ValuesIn(s_modelCases), caseName);

struct ChoiceCase
{
    const char *pName;
    int (*choose)();
    int other;
    QMap<int, int> boards;
};

using ModelChoices = ::testing::TestWithParam<ChoiceCase>;

TEST_P(ModelChoices, FollowTheSubtype)
{
    for (const int subtype : s_subtypes) {
        const TestMachine machine(HardwareEnvironment::Ostrel, subtype);
        EXPECT_EQ(GetParam().choose(), GetParam().boards.value(subtype, GetParam().other))
            << "subtype " << subtype;
    }
}

const ChoiceCase s_choiceCases[] = {
    {"Lirenta",
     &Address::actuatorBoardLirenta,
     0x41B,
     {{3, 0x41C}, {7, 0x41C}, {8, 0x41C}, {14, 0x41C}, {6, 0x431}}},
    {"Corvel", &Address::actuatorBoardCorvel, 0x430, {{10, 0x432}}},
    {"NewQuindo", &Address::actuatorBoardNewQuindo, 0x433, {{12, 0x434}}},
};
INSTANTIATE_TEST_SUITE_P(Models, ModelChoices, ::testing::ValuesIn(s_choiceCases), caseName);

TEST(MachineAddressTest, SubtypeIsAskedForEachTime)
{
    TestMachine machine(HardwareEnvironment::Corvel, 9);
    EXPECT_EQ(Address::actuatorBoard(), 0x430);
    machine.environment().setModelSubtype(HardwareSettings::CorvelCustomerEdition);
    EXPECT_EQ(Address::actuatorBoard(), 0x432);
    EXPECT_EQ(ABAcceptedVersion::actuatorBoardAcceptedVersion(), 11);
}

struct WithoutEnvironmentCase
{
    const char *pName;
    int (*ask)();
};

using WithoutEnvironment = ::testing::TestWithParam<WithoutEnvironmentCase>;

TEST_P(WithoutEnvironment, IsReportedAndGivesZero)
{
    const AssertSpy asserts;
    EXPECT_EQ(GetParam().ask(), 0);
    ASSERT_EQ(asserts.records().size(), 1);
    EXPECT_EQ(asserts.count("gHardwareEnv", "Hardware environment is null", s_pUnit), 1);
    EXPECT_TRUE(asserts.records().constFirst().isRelease);
}

// The environment is looked for again each time.
TEST_P(WithoutEnvironment, IsReportedAgainWhenTheEnvironmentHasGone)
{
    {
        const AssertSpy asserts;
        const TestMachine machine(HardwareEnvironment::Corvel, 10);
        EXPECT_NE(GetParam().ask(), 0);
        EXPECT_TRUE(asserts.records().isEmpty());
    }
    const AssertSpy asserts;
    EXPECT_EQ(GetParam().ask(), 0);
    EXPECT_EQ(asserts.count("gHardwareEnv", "Hardware environment is null", s_pUnit), 1);
}

const WithoutEnvironmentCase s_withoutEnvironmentCases[] = {
    {"ActuatorBoard", &Address::actuatorBoard},
    {"CpuBoard", &Address::cpuBoard},
    {"AcceptedVersion", &ABAcceptedVersion::actuatorBoardAcceptedVersion},
    {"ActuatorBoardLirenta", &Address::actuatorBoardLirenta},
    {"ActuatorBoardCorvel", &Address::actuatorBoardCorvel},
    {"ActuatorBoardNewQuindo", &Address::actuatorBoardNewQuindo},
};
INSTANTIATE_TEST_SUITE_P(Questions, WithoutEnvironment,
                         ::testing::ValuesIn(s_withoutEnvironmentCases), caseName);

struct UnknownModelCase
{
    const char *pName;
    int model;
};

using UnknownModel = ::testing::TestWithParam<UnknownModelCase>;

TEST_P(UnknownModel, EndsTheProcess)
{
    const TestMachine machine(static_cast<HardwareEnvironment::MachineModel>(GetParam().model));
    EXPECT_FATAL_ASSERTION(Address::actuatorBoard(), "false",
                           "Machine model actuator board address is not handled",
                           "src/canbus/vycan_cmds_and_addr");
    EXPECT_FATAL_ASSERTION(Address::cpuBoard(), "false",
                           "Machine model cpu board address is not handled",
                           "src/canbus/vycan_cmds_and_addr");
    EXPECT_FATAL_ASSERTION(ABAcceptedVersion::actuatorBoardAcceptedVersion(), "false",
                           "Machine model actuator board version accepted is not handled",
                           "src/canbus/vycan_cmds_and_addr");
}

const UnknownModelCase s_unknownModelCases[] = {
    {"OneBelow", -1},
    {"OneAbove", 7},
    {"FarAbove", 0x7FFFFFFF},
};
INSTANTIATE_TEST_SUITE_P(Rows, UnknownModel, ::testing::ValuesIn(s_unknownModelCases), caseName);
