#include "actuatorboardsettings.h"

#include "support/assertspy.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <gtest/gtest.h>

using Uuid = InputsOutputs::InputsOutputsUUID;

/// One of the two maps, which behave alike.
struct MapCase
{
    const char *pName;
    void (ActuatorBoardSettings::*pAdd)(Uuid, int);
    int (ActuatorBoardSettings::*pChannel)(Uuid) const;
    Uuid (ActuatorBoardSettings::*pUuid)(int) const;
    const char *pDuplicateCondition;
    const char *pDuplicateMessage;
    const char *pUnknownLine; ///< without the identifier at its end
};

class ActuatorBoardSettingsTable : public ::testing::TestWithParam<MapCase>
{
protected:
    ActuatorBoardSettings m_board;

    void add(Uuid uuid, int channel) { (m_board.*GetParam().pAdd)(uuid, channel); }
    int channel(Uuid uuid) const { return (m_board.*GetParam().pChannel)(uuid); }
    Uuid uuid(int channel) const { return (m_board.*GetParam().pUuid)(channel); }
};

TEST_P(ActuatorBoardSettingsTable, AnswersBothWays)
{
    const AssertSpy asserts;
    const LogSpy log;
    add(InputsOutputs::WaterPump, 3);
    add(InputsOutputs::DoorSwitch, 0);
    add(InputsOutputs::MechanicalCounter, 254);

    EXPECT_EQ(channel(InputsOutputs::WaterPump), 3);
    EXPECT_EQ(channel(InputsOutputs::DoorSwitch), 0);
    EXPECT_EQ(channel(InputsOutputs::MechanicalCounter), 254);
    EXPECT_EQ(uuid(3), InputsOutputs::WaterPump);
    EXPECT_EQ(uuid(0), InputsOutputs::DoorSwitch);
    EXPECT_EQ(uuid(254), InputsOutputs::MechanicalCounter);
    EXPECT_TRUE(asserts.records().isEmpty());
    EXPECT_TRUE(log.texts().isEmpty());
}

TEST_P(ActuatorBoardSettingsTable, UnknownIdentifierYields255AndLogsOncePerCall)
{
    add(InputsOutputs::DoorSwitch, 7);
    const AssertSpy asserts;
    const LogSpy log;
    for (int call = 1; call <= 3; ++call) {
        EXPECT_EQ(channel(InputsOutputs::WaterPump), 255);
        ASSERT_EQ(log.records().size(), call);
        const LogRecord record = log.records().constLast();
        EXPECT_EQ(record.level, 4);
        EXPECT_EQ(record.module, Log::Hardware);
        EXPECT_EQ(record.text.toStdString(), std::string(GetParam().pUnknownLine) + " 40");
    }
    EXPECT_TRUE(asserts.records().isEmpty());
}

TEST_P(ActuatorBoardSettingsTable, NoneStandsForNothingBothWays)
{
    const LogSpy log;
    EXPECT_EQ(InputsOutputs::IONone, 255);
    EXPECT_EQ(ActuatorBoardSettings::s_noChannel, 255);
    EXPECT_EQ(channel(InputsOutputs::IONone), 255);
    EXPECT_EQ(log.count(std::string(GetParam().pUnknownLine).append(" 255").c_str(), 4), 1);
    EXPECT_EQ(uuid(255), 255);
}

TEST_P(ActuatorBoardSettingsTable, UnknownChannelYields255WithoutALogLine)
{
    const LogSpy log;
    EXPECT_EQ(uuid(0), 255);
    add(InputsOutputs::DoorSwitch, 7);
    for (const int channel : {-1, 0, 6, 8, 254, 255, 256})
        EXPECT_EQ(uuid(channel), 255) << channel;
    EXPECT_TRUE(log.texts().isEmpty());
}

TEST_P(ActuatorBoardSettingsTable, FirstIdentifierInOrderServesASharedChannel)
{
    add(InputsOutputs::WaterPump, 5);
    add(InputsOutputs::CupSensor, 5);
    add(InputsOutputs::BrewerMotor, 5);
    add(InputsOutputs::DoorSwitch, 4);
    EXPECT_EQ(uuid(5), InputsOutputs::CupSensor);
    EXPECT_EQ(channel(InputsOutputs::WaterPump), 5);
    EXPECT_EQ(channel(InputsOutputs::BrewerMotor), 5);
}

TEST_P(ActuatorBoardSettingsTable, DuplicateIsReportedAndReplaces)
{
    add(InputsOutputs::WaterPump, 3);
    const AssertSpy asserts;
    const LogSpy log;
    add(InputsOutputs::WaterPump, 9);

    ASSERT_EQ(asserts.records().size(), 1);
    EXPECT_EQ(asserts.count(GetParam().pDuplicateCondition, GetParam().pDuplicateMessage,
                            "src/hardwaresettings"),
              1);
    EXPECT_FALSE(asserts.records().first().isRelease);
    EXPECT_EQ(channel(InputsOutputs::WaterPump), 9);
    EXPECT_EQ(uuid(9), InputsOutputs::WaterPump);
    EXPECT_EQ(uuid(3), InputsOutputs::IONone);
    EXPECT_TRUE(log.texts().isEmpty());
}

TEST_P(ActuatorBoardSettingsTable, DuplicateWithTheSameChannelIsReportedToo)
{
    add(InputsOutputs::WaterPump, 3);
    const AssertSpy asserts;
    add(InputsOutputs::WaterPump, 3);
    add(InputsOutputs::WaterPump, 3);
    EXPECT_EQ(asserts.records().size(), 2);
    EXPECT_EQ(channel(InputsOutputs::WaterPump), 3);
}

// clang-format off
const MapCase s_mapCases[] = {
    {"Local", &ActuatorBoardSettings::addIO, &ActuatorBoardSettings::io, &ActuatorBoardSettings::uuid,
     "!m_ioMap.contains(uuid)", "Duplicated uuid in actuator board settings",
     "int ActuatorBoardSettings::io(InputsOutputs::InputsOutputsUUID) const Failed to find uuid"},
    {"Remote", &ActuatorBoardSettings::addRemoteIO, &ActuatorBoardSettings::digitalIO, &ActuatorBoardSettings::digitalUUID,
     "!m_remoteIOMap.contains(uuid)", "Duplicated uuid in remote digital output Map",
     "int ActuatorBoardSettings::digitalIO(InputsOutputs::InputsOutputsUUID) const Failed to find remote uuid"},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Maps, ActuatorBoardSettingsTable, ::testing::ValuesIn(s_mapCases),
                         caseName);

TEST(ActuatorBoardSettingsTest, MapsKnowNothingOfEachOther)
{
    ActuatorBoardSettings board;
    const AssertSpy asserts;
    board.addIO(InputsOutputs::WaterPump, 3);
    board.addRemoteIO(InputsOutputs::WaterPump, 8);
    board.addRemoteIO(InputsOutputs::DoorLight, 3);
    board.addIO(InputsOutputs::DoorSwitch, 8);

    EXPECT_TRUE(asserts.records().isEmpty());
    EXPECT_EQ(board.io(InputsOutputs::WaterPump), 3);
    EXPECT_EQ(board.digitalIO(InputsOutputs::WaterPump), 8);
    EXPECT_EQ(board.io(InputsOutputs::DoorLight), 255);
    EXPECT_EQ(board.digitalIO(InputsOutputs::DoorSwitch), 255);
    EXPECT_EQ(board.uuid(3), InputsOutputs::WaterPump);
    EXPECT_EQ(board.digitalUUID(3), InputsOutputs::DoorLight);
    EXPECT_EQ(board.uuid(8), InputsOutputs::DoorSwitch);
    EXPECT_EQ(board.digitalUUID(8), InputsOutputs::WaterPump);
}
