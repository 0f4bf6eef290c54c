#include "canbus/vycan_cmds_and_addr.h"

#include "canbus/numberedname.h"

#include <QString>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>

using CanVy::Address;

using AddressNames = ::testing::TestWithParam<NumberedName>;

TEST_P(AddressNames, AreThoseOfTheBoards)
{
    EXPECT_EQ(Address::toString(GetParam().number).toStdString(), GetParam().pText);
}

// Two actuator boards and the filtered address have no name.
const NumberedName s_addressNameCases[] = {
    {0x40B, "ActuatorBoardMarbo_Old"},
    {0x40E, "ActuatorBoardLirenta_Old"},
    {0x419, "ActuatorBoardOstrel"},
    {0x41A, "ActuatorBoardDuvana"},
    {0x41B, "ActuatorBoardLirenta_Touch"},
    {0x41C, "1052"},
    {0x41D, "ActuatorBoardMarboPrime"},
    {0x41E, "CoffeeToGo"},
    {0x430, "ActuatorBoardCorvel"},
    {0x431, "1073"},
    {0x432, "ActuatorBoardCorvelRasmo"},
    {0x433, "ActuatorBoardNewQuindoTouch"},
    {0x434, "ActuatorBoardNewQuindoTouchRasmo"},
    {0x495, "CpuBoardMarbo_Old"},
    {0x499, "CpuBoardLirenta_Old"},
    {0x4A8, "CpuBoardOstrel"},
    {0x4AD, "CpuBoardDuvana"},
    {0x4AE, "CpuBoardLirentaTouch"},
    {0x4AF, "CpuBoardMarboPrime"},
    {0x4B1, "CpuBoardCorvel"},
    {0x4B8, "CpuBoardNewQuindo"},
    {0x705, "1797"},
    {0x721, "DADD"},
};
INSTANTIATE_TEST_SUITE_P(Rows, AddressNames, ::testing::ValuesIn(s_addressNameCases), numberName);

TEST(AddressTest, TableHas23Addresses)
{
    EXPECT_EQ(std::size(s_addressNameCases), 23U);
}

TEST(AddressTest, EveryOtherAddressIsItsDecimalNumber)
{
    for (int address = -0x800; address <= 0x1000; ++address) {
        if (!isIn(s_addressNameCases, address)) {
            ASSERT_EQ(Address::toString(address), QString::number(address));
        }
    }
    for (const int address :
         {0x10000 + 0x721, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
        EXPECT_EQ(Address::toString(address), QString::number(address));
}

TEST(AddressTest, FixedBoardsHaveTheirAddresses)
{
    EXPECT_EQ(Address::coffeeToGoBoard(), 0x41E);
    EXPECT_EQ(Address::daddBoard(), 0x721);
}

TEST(AddressTest, OneAddressIsTheDoorOneIsCoffeeToGoAndOneIsFiltered)
{
    for (int address = -0x800; address <= 0x1000; ++address) {
        ASSERT_EQ(Address::isDadd(address), address == 0x721);
        ASSERT_EQ(Address::isCoffeeToGo(address), address == 0x41E);
        ASSERT_EQ(Address::isReceivedAddressFiltered(address), address == 0x705);
    }
    for (const int address :
         {0x10000 + 0x705, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
        EXPECT_FALSE(Address::isReceivedAddressFiltered(address));
}

TEST(AddressTest, AcknowledgesAreCommands1And2)
{
    for (int command = -1; command <= 0x800; ++command)
        ASSERT_EQ(CanVy::isAcknowledge(command), command == 1 || command == 2);
}
