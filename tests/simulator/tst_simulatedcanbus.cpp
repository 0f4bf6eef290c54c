#include "simulator/simulatedcanbus.h"

#include "simulator/simulatedbus.h"

#include <gtest/gtest.h>
#include <memory>

TEST(SimulatedCanBusTest, AFrameFromOutsideReachesAllBoardsAndIsNotEchoed)
{
    SimulatedBus bus;
    HookedBoard one(0x419);
    HookedBoard two(0x41A);
    bus.bus.attach(&one);
    bus.bus.attach(&two);
    bus.send(CanVy::Address::Shared, 0x24);
    EXPECT_EQ(one.messages.size(), 1);
    EXPECT_EQ(two.messages.size(), 1);
    const QStringList said = bus.saidAfter(0);
    ASSERT_EQ(said.size(), 2); // the acknowledges alone
    EXPECT_TRUE(said.at(0).startsWith(QLatin1String("419>4a8 ")));
    EXPECT_TRUE(said.at(1).startsWith(QLatin1String("41a>4a8 ")));
}

TEST(SimulatedCanBusTest, BoardsHearOneAnother)
{
    SimulatedBus bus;
    HookedBoard one(0x419);
    HookedBoard two(0x41A);
    bus.bus.attach(&one);
    bus.bus.attach(&two);
    one.speak(0x41A, 0x30);
    const QStringList said = bus.saidAfter(0);
    EXPECT_EQ(two.taken(0x30), 1);
    EXPECT_EQ(one.taken(), 0);
    ASSERT_EQ(said.size(), 2);
    EXPECT_TRUE(said.at(1).startsWith(QLatin1String("41a>419 ")));
}

TEST(SimulatedCanBusTest, ABoardThatIsGoneIsSilent)
{
    SimulatedBus bus;
    auto pBoard = std::make_unique<HookedBoard>(0x419);
    bus.bus.attach(pBoard.get());
    bus.send(0x419, 0x24);
    pBoard.reset();
    bus.send(0x419, 0x24);
    EXPECT_EQ(bus.saidAfter(1000), QStringList());
}
