#include "canbus/vycan_cmds_and_addr.h"

#include "canbus/numberedname.h"

#include <QString>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>

using CommandNames = ::testing::TestWithParam<NumberedName>;

TEST_P(CommandNames, AreThoseOfTheCatalogue)
{
    EXPECT_EQ(CanVy::commandCanToString(GetParam().number).toStdString(), GetParam().pText);
}

const NumberedName s_commandNameCases[] = {
    {0x00, "PowerOn"},
    {0x01, "Ack"},
    {0x02, "Nack"},
    {0x03, "SetParameter"},
    {0x04, "GetParameter"},
    {0x05, "SetMachineSettings"},
    {0x06, "SetRecipeDescription"},
    {0x07, "SetRecipePowder"},
    {0x08, "SetCycle"},
    {0x09, "SetRecipeWater"},
    {0x0A, "StartRecipeDispensing"},
    {0x0B, "EndRecipeDispensing"},
    {0x0C, "FrameTimeOut"},
    {0x0D, "ErrorFrame"},
    {0x0E, "SetDigitalOutput"},
    {0x0F, "WrongVersion"},
    {0x10, "RequestInput"},
    {0x11, "SendInput"},
    {0x12, "StopRecipeDispensing"},
    {0x13, "NewCanIdMsg"},
    {0x14, "MultiMachinePaymentCmd"},
    {0x15, "VendRequest"},
    {0x16, "VendDenied"},
    {0x17, "VendApproved"},
    {0x18, "VendSuccess"},
    {0x19, "VendFailure"},
    {0x1A, "VendSuspens"},
    {0x1B, "VendNotSuspend"},
    {0x1C, "CheckSelection"},
    {0x1D, "SelectionState"},
    {0x1E, "PriceHolding"},
    {0x1F, "StringsRequest"},
    {0x20, "StringsSend"},
    {0x21, "SelectionRequest"},
    {0x22, "SendSelection"},
    {0x23, "SetLayout"},
    {0x24, "ResetBoard"},
    {0x25, "StringSend"},
    {0x26, "ButtonSend"},
    {0x27, "ConfigurationSlave"},
    {0x28, "StringsOnCan"},
    {0x29, "CallProcedure"},
    {0x2A, "VirtualSelect"},
    {0x2B, "RVirtualPrice"},
    {0x2C, "MultiMachineComb2"},
    {0x2D, "SlavePayType"},
    {0x2E, "UpdateCredit"},
    {0x2F, "OkPrice"},
    {0x30, "CommParameters"},
    {0x31, "IdGsm"},
    {0x32, "Evadts"},
    {0x33, "SetPriceList"},
    {0x34, "MultiMachineComb"},
    {0x35, "StringsSend2"},
    {0x36, "StringsRequest2"},
    {0x37, "Gsm480Board"},
    {0x38, "GetSwRevRequest"},
    {0x39, "GetSwRevAnswer"},
    {0x3A, "SetRecipePowderExtra"},
    {0x3B, "SetRecipeWaterExtra"},
    {0x3C, "Test"},
    {0x3D, "BranchPipe"},
    {0x3E, "TeaBrewer"},
    {0x3F, "Rotor"},
    {0x40, "Traslator"},
    {0x41, "AskForCup"},
    {0x42, "CommandOstrel"},
    {0x5A, "BatteryCommand"},
    {0x5D, "CoffeeToGoPowerOnMachine"},
    {0x80, "ChillerConfig"},
    {0x81, "ChillerSetOutputs"},
    {0x82, "ChillerStatusReq"},
    {0x83, "ChillerStatus"},
    {0x84, "ChillerEvent"},
    {0x85, "ChillerResetCanId"},
    {0x86, "ChillerNewId"},
    {0x87, "ChillerPowerOn"},
    {0x15D, "CanBusFinger"},
};
INSTANTIATE_TEST_SUITE_P(Rows, CommandNames, ::testing::ValuesIn(s_commandNameCases), numberName);

TEST(CommandNamesTest, CatalogueHas78Names)
{
    EXPECT_EQ(std::size(s_commandNameCases), 78U);
}

TEST(CommandNamesTest, UnnamedCommandIsGivenInDecimalAndUnpaddedHexadecimal)
{
    EXPECT_EQ(CanVy::commandCanToString(0x43), QStringLiteral("Unknown command 67 (0x43)"));
    EXPECT_EQ(CanVy::commandCanToString(0x5C), QStringLiteral("Unknown command 92 (0x5c)"));
    EXPECT_EQ(CanVy::commandCanToString(0x15C), QStringLiteral("Unknown command 348 (0x15c)"));
    EXPECT_EQ(CanVy::commandCanToString(0x15E), QStringLiteral("Unknown command 350 (0x15e)"));
    EXPECT_EQ(CanVy::commandCanToString(0xFFFF), QStringLiteral("Unknown command 65535 (0xffff)"));
    EXPECT_EQ(CanVy::commandCanToString(std::numeric_limits<int>::max()),
              QStringLiteral("Unknown command 2147483647 (0x7fffffff)"));
}

TEST(CommandNamesTest, EveryOtherSixteenBitNumberIsUnknown)
{
    for (int command = 0; command <= 0xFFFF; ++command) {
        if (isIn(s_commandNameCases, command))
            continue;
        ASSERT_EQ(CanVy::commandCanToString(command),
                  QStringLiteral("Unknown command %1 (0x%2)").arg(command).arg(command, 0, 16));
    }
}

TEST(CommandNamesTest, NegativeCommandIsUnknown)
{
    for (const int command : {-1, -2, std::numeric_limits<int>::min()}) {
        const QString name = CanVy::commandCanToString(command);
        EXPECT_TRUE(name.startsWith(QStringLiteral("Unknown command %1 (0x").arg(command)))
            << name.toStdString();
        EXPECT_TRUE(name.endsWith(QLatin1Char(')'))) << name.toStdString();
    }
}
