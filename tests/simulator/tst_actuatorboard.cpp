#include "simulator/actuatorboard.h"

#include "simulator/simulatedbus.h"

#include <gtest/gtest.h>

namespace {

const QString s_none = QStringLiteral("419>4a8 0: 0x02 0x00 0x11 0x00 0x02 0x00 0x00 0x11");
const QString s_300 = QStringLiteral("419>4a8 0: 0x02 0x00 0x11 0x00 0x02 0x01 0x2c 0x3c");

} // namespace

class ActuatorBoardTest : public ::testing::Test
{
protected:
    ActuatorBoardTest() { m_bus.bus.attach(&m_board); }

    SimulatedBus m_bus;
    ActuatorBoard m_board{0x419, SimulatedBus::Computer};
};

TEST_F(ActuatorBoardTest, ReportsTheCupEverySecond)
{
    EXPECT_EQ(m_bus.saidAfter(999), QStringList());
    EXPECT_EQ(m_bus.saidAfter(1), QStringList{s_none});
    EXPECT_EQ(m_bus.saidAfter(3000), QStringList({s_none, s_none, s_none}));
}

TEST_F(ActuatorBoardTest, ReportsAChangeAtOnceAndThenEverySecond)
{
    m_bus.advance(600);
    EXPECT_TRUE(m_board.setCupReading(300));
    EXPECT_EQ(m_board.cupReading(), 300);
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_300});
    EXPECT_EQ(m_bus.saidAfter(999), QStringList());
    EXPECT_EQ(m_bus.saidAfter(1), QStringList{s_300});
}

TEST_F(ActuatorBoardTest, ReportsNothingAtOnceWhenNothingChanged)
{
    EXPECT_TRUE(m_board.setCupReading(0));
    EXPECT_EQ(m_bus.saidAfter(999), QStringList());
}

TEST_F(ActuatorBoardTest, TakesReadingsOf16Bits)
{
    EXPECT_TRUE(m_board.setCupReading(65535));
    EXPECT_FALSE(m_board.setCupReading(65536));
    EXPECT_FALSE(m_board.setCupReading(-1));
    EXPECT_EQ(m_board.cupReading(), 65535);
}

TEST_F(ActuatorBoardTest, AcknowledgesAndCountsWhatItIsSent)
{
    m_bus.send(0x419, 0x2A, bytes("00 07"));
    m_bus.send(0x419, 0x2A, bytes("00 08"));
    EXPECT_EQ(m_bus.saidAfter(0).size(), 2);
    EXPECT_EQ(m_board.taken(0x2A), 2);
}

TEST_F(ActuatorBoardTest, IsSilentWhileItRestartsAndReportsWhenItIsBack)
{
    m_bus.advance(900);
    m_board.restart(std::chrono::milliseconds(2500));
    m_board.setCupReading(300);
    EXPECT_EQ(m_bus.saidAfter(2499), QStringList());
    EXPECT_EQ(m_bus.saidAfter(1), QStringList{s_300});
    EXPECT_EQ(m_bus.saidAfter(999), QStringList());
    EXPECT_EQ(m_bus.saidAfter(1), QStringList{s_300});
}
