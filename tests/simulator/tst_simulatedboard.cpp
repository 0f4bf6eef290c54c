#include "simulator/simulatedboard.h"

#include "simulator/simulatedbus.h"
#include "support/logspy.h"

#include <gtest/gtest.h>

namespace {

constexpr int s_address = 0x419;
constexpr int s_other = 0x721;

const QString s_ack = QStringLiteral("419>4a8 0: 0x02 0x00 0x01 0x00 0x24 0x27");
const QString s_nack = QStringLiteral("419>4a8 0: 0x02 0x00 0x02 0x00 0x24 0x24");

} // namespace

class SimulatedBoardTest : public ::testing::Test
{
protected:
    SimulatedBoardTest() { m_bus.bus.attach(&m_board); }

    static CanBytes payload(int size)
    {
        CanBytes bytes;
        for (int i = 0; i < size; ++i)
            bytes.append(static_cast<unsigned char>(i));
        return bytes;
    }

    SimulatedBus m_bus;
    HookedBoard m_board{s_address};
};

TEST_F(SimulatedBoardTest, AcknowledgesOnALaterTurn)
{
    m_bus.send(s_address, 0x24);
    EXPECT_EQ(m_bus.said, QStringList());
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_ack});
    EXPECT_EQ(m_board.taken(0x24), 1);
    EXPECT_EQ(m_board.taken(0x25), 0);
    EXPECT_EQ(m_board.taken(), 1);
}

TEST_F(SimulatedBoardTest, TakesTheLongestMessage)
{
    m_bus.send(s_address, 0x24, payload(506));
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_ack});
    ASSERT_EQ(m_board.messages.size(), 1);
    const CanMessage &message = m_board.messages.first();
    EXPECT_EQ(message.command(), 0x24);
    EXPECT_EQ(message.source(), SimulatedBus::Computer);
    EXPECT_EQ(message.data().mid(2), payload(506));
}

TEST_F(SimulatedBoardTest, TakesWhatIsSentToTheSharedAddressAndAnswersFromItsOwn)
{
    m_bus.send(CanVy::Address::Shared, 0x24);
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_ack});
}

TEST_F(SimulatedBoardTest, IgnoresWhatIsForOthers)
{
    m_bus.send(s_other, 0x24);
    EXPECT_EQ(m_bus.saidAfter(1000), QStringList());
    EXPECT_EQ(m_board.taken(), 0);
}

TEST_F(SimulatedBoardTest, IgnoresWhatItHasSaidItself)
{
    m_bus.send(CanVy::Address::Shared, 0x24, {}, s_address);
    EXPECT_EQ(m_bus.saidAfter(1000), QStringList());
}

TEST_F(SimulatedBoardTest, AnswersNoAcknowledge)
{
    m_bus.send({CanVy::acknowledgeFrame(SimulatedBus::Computer, s_address, 1, 0x11)});
    m_bus.send({CanVy::acknowledgeFrame(SimulatedBus::Computer, s_address, 2, 0x11)});
    EXPECT_EQ(m_bus.saidAfter(1000), QStringList());
    EXPECT_EQ(m_board.messages.size(), 0);
}

TEST_F(SimulatedBoardTest, TakesAnAcknowledgeBetweenTheFramesOfAMessage)
{
    QList<CanFrame> frames = framesOf(SimulatedBus::Computer, s_address, 0x24, payload(10));
    frames.insert(1, CanVy::acknowledgeFrame(SimulatedBus::Computer, s_address, 1, 0x11));
    m_bus.send(frames);
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_ack});
}

TEST_F(SimulatedBoardTest, TakesInterleavedMessagesOfTwoSenders)
{
    const QList<CanFrame> one = framesOf(SimulatedBus::Computer, s_address, 0x24, payload(10));
    const QList<CanFrame> two = framesOf(s_other, s_address, 0x24, payload(10));
    m_bus.send({one.at(0), two.at(0), one.at(1), two.at(1)});
    EXPECT_EQ(m_bus.saidAfter(0),
              QStringList({s_ack, QStringLiteral("419>721 0: 0x02 0x00 0x01 0x00 0x24 0x27")}));
}

TEST_F(SimulatedBoardTest, TakesInterleavedMessagesToItsOwnAndTheSharedAddress)
{
    const QList<CanFrame> one = framesOf(SimulatedBus::Computer, s_address, 0x24, payload(10));
    const QList<CanFrame> two =
        framesOf(SimulatedBus::Computer, CanVy::Address::Shared, 0x24, payload(10));
    m_bus.send({one.at(0), two.at(0), one.at(1), two.at(1)});
    EXPECT_EQ(m_bus.saidAfter(0), QStringList({s_ack, s_ack}));
}

TEST_F(SimulatedBoardTest, IsSilentToAWrongChecksum)
{
    QList<CanFrame> frames = framesOf(SimulatedBus::Computer, s_address, 0x24, payload(10));
    CanBytes data = frames.last().data();
    data.last() = static_cast<unsigned char>(data.last() ^ 1);
    frames.last().setData(data);
    m_bus.send(frames);
    EXPECT_EQ(m_bus.saidAfter(1000), QStringList());
    EXPECT_EQ(m_board.taken(), 0);
}

TEST_F(SimulatedBoardTest, IsSilentToAMessageWithoutItsMiddle)
{
    QList<CanFrame> frames = framesOf(SimulatedBus::Computer, s_address, 0x24, payload(20));
    frames.removeAt(1);
    m_bus.send(frames);
    EXPECT_EQ(m_bus.saidAfter(1000), QStringList());
    m_bus.send(s_address, 0x24); // and nothing of it is left
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_ack});
}

TEST_F(SimulatedBoardTest, OverlooksAFrameThatComesTwice)
{
    QList<CanFrame> frames = framesOf(SimulatedBus::Computer, s_address, 0x24, payload(20));
    frames.insert(1, frames.at(1));
    m_bus.send(frames);
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_ack});
    ASSERT_EQ(m_board.messages.size(), 1);
    EXPECT_EQ(m_board.messages.first().data().mid(2), payload(20));
}

TEST_F(SimulatedBoardTest, ANewMessageOfTheSameSenderEndsTheOneBefore)
{
    const QList<CanFrame> frames = framesOf(SimulatedBus::Computer, s_address, 0x24, payload(18));
    m_bus.send({frames.at(0), frames.at(1)});
    m_bus.send(frames);
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_ack});
    m_bus.send({frames.at(0), frames.at(1)});
    m_bus.send(s_address, 0x24); // of one frame
    m_bus.send({frames.at(2)});
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_ack});
}

TEST_F(SimulatedBoardTest, ForgetsTheOldestOfTooManyUnfinishedMessages)
{
    QList<QList<CanFrame>> messages;
    for (int source = 1; source <= SimulatedBoard::MaxParts + 1; ++source) {
        messages.append(framesOf(source, s_address, 0x24, payload(3)));
        m_bus.send({messages.last().first()});
    }
    for (const QList<CanFrame> &frames : messages)
        m_bus.send({frames.last()});
    const QStringList said = m_bus.saidAfter(0);
    EXPECT_EQ(said.size(), SimulatedBoard::MaxParts);
    EXPECT_TRUE(said.first().startsWith(QLatin1String("419>2 "))) << qPrintable(said.first());
}

TEST_F(SimulatedBoardTest, AnswersLateWithADelay)
{
    m_board.setAnswerDelay(std::chrono::milliseconds(70));
    m_bus.send(s_address, 0x24);
    EXPECT_EQ(m_bus.saidAfter(69), QStringList());
    EXPECT_EQ(m_bus.saidAfter(1), QStringList{s_ack});
}

TEST_F(SimulatedBoardTest, ObeysButSaysNothingWhileAnswersAreLost)
{
    m_board.setAnswers(SimulatedBoard::Answers::Lost);
    m_bus.send(s_address, 0x24);
    EXPECT_EQ(m_bus.saidAfter(1000), QStringList());
    EXPECT_EQ(m_board.taken(0x24), 1);
    EXPECT_EQ(m_board.messages.size(), 1);
}

TEST_F(SimulatedBoardTest, RefusesWithoutObeying)
{
    m_board.setAnswers(SimulatedBoard::Answers::Refused);
    m_bus.send(s_address, 0x24);
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_nack});
    EXPECT_EQ(m_board.taken(), 0);
    EXPECT_EQ(m_board.messages.size(), 0);
}

TEST_F(SimulatedBoardTest, AVariantRefusesWhatItDoesNotAccept)
{
    m_board.refusedCommand = 0x24;
    m_bus.send(s_address, 0x24);
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_nack});
    EXPECT_EQ(m_board.messages.size(), 0);
    m_bus.send(s_address, 0x25);
    EXPECT_EQ(m_bus.saidAfter(0).size(), 1);
    EXPECT_EQ(m_board.messages.size(), 1);
}

TEST_F(SimulatedBoardTest, NeitherHearsNorSpeaksWhileItRestarts)
{
    m_board.restart(std::chrono::milliseconds(500));
    EXPECT_TRUE(m_board.isRestarting());
    m_bus.send(s_address, 0x24);
    m_board.speak(SimulatedBus::Computer, 0x11);
    EXPECT_EQ(m_bus.saidAfter(499), QStringList());
    EXPECT_EQ(m_board.restarts, 0);
    m_bus.advance(1);
    EXPECT_FALSE(m_board.isRestarting());
    EXPECT_EQ(m_board.restarts, 1);
    m_bus.send(s_address, 0x24);
    EXPECT_EQ(m_bus.saidAfter(0), QStringList{s_ack});
}

TEST_F(SimulatedBoardTest, ForgetsWhatItWasAboutToSayWhenItRestarts)
{
    m_board.setAnswerDelay(std::chrono::milliseconds(100));
    m_bus.send(s_address, 0x24);
    m_board.restart(std::chrono::milliseconds(10));
    EXPECT_EQ(m_bus.saidAfter(1000), QStringList());
}

TEST_F(SimulatedBoardTest, ForgetsWhatItHasHeardOfAMessageWhenItRestarts)
{
    const QList<CanFrame> frames = framesOf(SimulatedBus::Computer, s_address, 0x24, payload(10));
    m_bus.send({frames.first()});
    m_board.restart(std::chrono::milliseconds(10));
    m_bus.advance(10);
    m_bus.send({frames.last()});
    EXPECT_EQ(m_bus.saidAfter(1000), QStringList());
}

TEST_F(SimulatedBoardTest, SpeaksTheFramesOfAMessageInOrderOnALaterTurn)
{
    m_board.speak(SimulatedBus::Computer, 0x11, payload(10));
    EXPECT_EQ(m_bus.said, QStringList());
    EXPECT_EQ(m_bus.saidAfter(0),
              QStringList({QStringLiteral("419>4a8 0: 0x02 0x00 0x11 0x00 0x0a 0x00 0x01 0x02"),
                           QStringLiteral("419>4a8 1: 0x03 0x04 0x05 0x06 0x07 0x08 0x09 0x18")}));
}

TEST_F(SimulatedBoardTest, LosesWhatIsMoreThanCanWait)
{
    for (int i = 0; i < SimulatedBoard::MaxWaiting + 5; ++i)
        m_board.speak(SimulatedBus::Computer, 0x11);
    EXPECT_EQ(m_bus.saidAfter(0).size(), SimulatedBoard::MaxWaiting);
    m_board.speak(SimulatedBus::Computer, 0x11);
    EXPECT_EQ(m_bus.saidAfter(0).size(), 1);
}

TEST_F(SimulatedBoardTest, LogsOnceThatItLosesMessagesUntilItHasSaidAll)
{
    LogSpy log;
    for (int episode = 1; episode <= 2; ++episode) {
        for (int i = 0; i < SimulatedBoard::MaxWaiting + 5; ++i)
            m_board.speak(SimulatedBus::Computer, 0x11);
        EXPECT_EQ(log.count("has too much to say", 3), episode);
        m_bus.saidAfter(0);
    }
}

TEST_F(SimulatedBoardTest, HasRoomForAsMuchAgainAfterARestart)
{
    for (int i = 0; i < SimulatedBoard::MaxWaiting; ++i)
        m_board.speak(SimulatedBus::Computer, 0x11);
    m_board.restart(std::chrono::milliseconds(10));
    EXPECT_EQ(m_bus.saidAfter(10).size(), 0);
    for (int i = 0; i < SimulatedBoard::MaxWaiting; ++i)
        m_board.speak(SimulatedBus::Computer, 0x11);
    EXPECT_EQ(m_bus.saidAfter(0).size(), SimulatedBoard::MaxWaiting);
}

TEST_F(SimulatedBoardTest, MayBeDeletedByWhoeverHearsIt)
{
    auto *const pBoard = new HookedBoard(s_other);
    m_bus.bus.attach(pBoard);
    QObject::connect(&m_bus.bus, &SimulatedCanBus::frameOnBus, pBoard, [pBoard] { delete pBoard; });
    pBoard->speak(SimulatedBus::Computer, 0x11, payload(10));
    EXPECT_EQ(m_bus.saidAfter(0).size(), 1);
}
