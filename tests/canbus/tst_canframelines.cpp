#include "canbus/abstractcaninterface.h"

#include "canbus/canmessages.h"
#include "canbus/recordinginterface.h"
#include "support/casename.h"

#include <gtest/gtest.h>

struct LineCase
{
    const char *pName;
    quint32 id;
    const char *pHex;
    bool isReceived;
    const char *pComment;
    const char *pLine; ///< without the line's end
};

using CanFrameLines = ::testing::TestWithParam<LineCase>;

TEST_P(CanFrameLines, TellTheFrameInWords)
{
    const RecordingInterface interface;
    const QString line =
        interface._logFrame(withId(GetParam().id, GetParam().pHex), GetParam().isReceived,
                            QString::fromUtf8(GetParam().pComment));
    EXPECT_EQ(line.toStdString(), std::string(GetParam().pLine) + "\r\n");
}

// 0x4A8 is CpuBoardOstrel, 0x419 ActuatorBoardOstrel, 0x721 DADD. The first six rows are the two
// directions of one dialogue: the parameter commands name the destination first, all others the
// source.
const LineCase s_lineCases[] = {
    {"SentCommand", 0x00254419, "02 00 2a 00 00 28", false, "Sending:",
     " <TX<< |id:0x0000000000254419|data(6): 0x02 0x00 0x2a 0x00 0x00 0x28          | Sending: "
     "Received by CpuBoardOstrel from ActuatorBoardOstrel commandId:VirtualSelect(42) frame num:1"},
    {"ReceivedAcknowledge", 0x0020CCA8, "02 00 01 00 2a 29", true, "Received:",
     ">>RX>  |id:0x000000000020cca8|data(6): 0x02 0x00 0x01 0x00 0x2a 0x29          | Received: "
     "Received by ActuatorBoardOstrel from CpuBoardOstrel commandId:Ack(1) frame num:1"},
    {"SentSetParameter", 0x00254419, "02 00 03 00 04 01 b5 00", false, "Sending:",
     " <TX<< |id:0x0000000000254419|data(8): 0x02 0x00 0x03 0x00 0x04 0x01 0xb5 0x00| Sending: "
     "Received by ActuatorBoardOstrel from CpuBoardOstrel "
     "commandId:SetParameter(3):VDB_UVCLightSetting(437) frame num:1"},
    {"ReceivedGetParameter", 0x0020CCA8, "02 00 04 00 02 00 2d 29", true, "Received:",
     ">>RX>  |id:0x000000000020cca8|data(8): 0x02 0x00 0x04 0x00 0x02 0x00 0x2d 0x29| Received: "
     "Received by CpuBoardOstrel from ActuatorBoardOstrel "
     "commandId:GetParameter(4):VdbDoorSwitch(45) frame num:1"},
    {"NegativeAcknowledge", 0x0020CCA8, "02 00 02 00 2a 2a", true, "",
     ">>RX>  |id:0x000000000020cca8|data(6): 0x02 0x00 0x02 0x00 0x2a 0x2a          |  "
     "Received by ActuatorBoardOstrel from CpuBoardOstrel commandId:Nack(2) frame num:1"},
    {"CommandBehindTheParameterCommands", 0x00254419, "02 00 05 00 02 00 2d 28", false, "c",
     " <TX<< |id:0x0000000000254419|data(8): 0x02 0x00 0x05 0x00 0x02 0x00 0x2d 0x28| c "
     "Received by CpuBoardOstrel from ActuatorBoardOstrel commandId:SetMachineSettings(5) "
     "frame num:1"},
    {"ParameterNameWithAColon", 0x00254419, "02 00 03 00 02 00 6a 01", false, "c",
     " <TX<< |id:0x0000000000254419|data(8): 0x02 0x00 0x03 0x00 0x02 0x00 0x6a 0x01| c "
     "Received by ActuatorBoardOstrel from CpuBoardOstrel "
     "commandId:SetParameter(3):VDB_ePal3:(106) frame num:1"},
    {"ParameterOfTheHighBitIsNamedWholeAndShownByItsLowByte", 0x00254419, "02 00 03 00 02 80 2d 01",
     false, "c",
     " <TX<< |id:0x0000000000254419|data(8): 0x02 0x00 0x03 0x00 0x02 0x80 0x2d 0x01| c "
     "Received by ActuatorBoardOstrel from CpuBoardOstrel "
     "commandId:SetParameter(3):failure(45) frame num:1"},
    {"ParameterJustBelowTheHighBit", 0x00254419, "02 00 04 00 02 7f 2d 01", false, "c",
     " <TX<< |id:0x0000000000254419|data(8): 0x02 0x00 0x04 0x00 0x02 0x7f 0x2d 0x01| c "
     "Received by ActuatorBoardOstrel from CpuBoardOstrel "
     "commandId:GetParameter(4):failure(32557) frame num:1"},
    {"ParameterJustAboveTheHighBit", 0x00254419, "02 00 04 00 02 81 2d 01", false, "c",
     " <TX<< |id:0x0000000000254419|data(8): 0x02 0x00 0x04 0x00 0x02 0x81 0x2d 0x01| c "
     "Received by ActuatorBoardOstrel from CpuBoardOstrel "
     "commandId:GetParameter(4):failure(33069) frame num:1"},
    {"ParameterWithoutItsLowByte", 0x00254419, "02 00 03 00 01 01", false, "c",
     " <TX<< |id:0x0000000000254419|data(6): 0x02 0x00 0x03 0x00 0x01 0x01          | c "
     "Received by ActuatorBoardOstrel from CpuBoardOstrel "
     "commandId:SetParameter(3):failure(256) frame num:1"},
    {"ParameterWithoutBothBytes", 0x00254419, "02 00 04 00 00", false, "c",
     " <TX<< |id:0x0000000000254419|data(5): 0x02 0x00 0x04 0x00 0x00               | c "
     "Received by ActuatorBoardOstrel from CpuBoardOstrel "
     "commandId:GetParameter(4):VdbActuatorBoardPhase(0) frame num:1"},
    {"UnknownCommandAndNamelessBoard", 0x0020E705, "02 00 43 00 00 41", true, "Received:",
     ">>RX>  |id:0x000000000020e705|data(6): 0x02 0x00 0x43 0x00 0x00 0x41          | Received: "
     "Received by 1052 from 1797 commandId:Unknown command 67 (0x43)(67) frame num:1"},
    {"FollowingFrame", 0x00654419, "02 00 03 00 02 00 2d 01", false, "Sending:",
     " <TX<< |id:0x0000000000654419|data(8): 0x02 0x00 0x03 0x00 0x02 0x00 0x2d 0x01| Sending: "
     "frame num:2"},
    {"LastFollowingFrame", 0x0FE54419, "ff", true, "Received:",
     ">>RX>  |id:0x000000000fe54419|data(1): 0xff                                   | Received: "
     "frame num:64"},
    {"IdentifierZeroHasNoDetails", 0, "02 00 2a 00 00 28", false, "Sending:",
     " <TX<< |id:0x0000000000000000|data(6): 0x02 0x00 0x2a 0x00 0x00 0x28          | Sending:"},
    {"NothingAtAll", 0, "", true, "",
     ">>RX>  |id:0x0000000000000000|data(0):                                        | "},
    {"BitsAboveTheFields", 0xF0654419, "00", true, "c",
     ">>RX>  |id:0x00000000f0654419|data(1): 0x00                                   | c "
     "frame num:2"},
    {"MoreThanFortyCharactersAreNotCut", 0, "00 11 22 33 44 55 66 77 88", true, "c",
     ">>RX>  |id:0x0000000000000000|data(9): 0x00 0x11 0x22 0x33 0x44 0x55 0x66 0x77 0x88| c"},
    {"PlaceholdersInTheComment", 0x00254419, "02 00 2a 00 00 28", false, "%1 %2 %L3 %99",
     " <TX<< |id:0x0000000000254419|data(6): 0x02 0x00 0x2a 0x00 0x00 0x28          | "
     "%1 %2 %L3 %99 Received by CpuBoardOstrel from ActuatorBoardOstrel "
     "commandId:VirtualSelect(42) frame num:1"},
    {"CommentThatIsNotAscii", 0, "", false, "25 °C",
     " <TX<< |id:0x0000000000000000|data(0):                                        | 25 °C"},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanFrameLines, ::testing::ValuesIn(s_lineCases), caseName);

// Such frames never begin a message, but they can stand on the bus.
TEST(CanFrameLineTest, FirstFrameWithoutACommandHasTheCommandThatIsNotSet)
{
    const RecordingInterface interface;
    for (const char *pHex : {"", "02", "02 00 03 00", "01 00 2a 00 00 28"}) {
        const QString line =
            interface._logFrame(withId(0x00254419, pHex), true, QStringLiteral("c"));
        EXPECT_TRUE(
            line.contains(QStringLiteral("| c Received by CpuBoardOstrel from ActuatorBoardOstrel "
                                         "commandId:Unknown command -1 (0x")))
            << line.toStdString();
        EXPECT_TRUE(line.endsWith(QStringLiteral(")(-1) frame num:1\r\n"))) << line.toStdString();
    }
}

TEST(CanFrameLineTest, DoorIsNamed)
{
    const RecordingInterface interface;
    const QString line = interface._logFrame(frame(0x721, 0x4B1, 0, bytes("02 00 5a 00 00 58")),
                                             true, QStringLiteral("Received:"));
    EXPECT_TRUE(line.endsWith(QStringLiteral(
        "| Received: Received by DADD from CpuBoardCorvel commandId:BatteryCommand(90) "
        "frame num:1\r\n")))
        << line.toStdString();
}
