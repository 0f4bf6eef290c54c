#include "canbus/reassemblytest.h"

#include "support/casename.h"
#include "support/logspy.h"

#include <QTimer>

#include <gtest/gtest.h>

using namespace ProtocolAddress;

namespace {

const QString s_newFails = QStringLiteral("new CAN message decoding FAIL");
const QString s_timedOut = QStringLiteral("incomingcanMessage cmdID:");

} // namespace

// -- time-outs ------------------------------------------------------------------------------------

TEST_F(CanReassembly, MessageThatStaysIncompleteIsRefused)
{
    LogSpy log;
    receivePart(0, OtherBoard, 42);
    advance(1199);
    EXPECT_EQ(timeline(), Timeline{});
    EXPECT_EQ(count(), 1);
    advance(1);
    EXPECT_EQ(timeline(), Timeline{"1200 writes 2"});
    EXPECT_EQ(count(), 0);
    const CanFrame &written = m_pInterface->written().first();
    EXPECT_EQ(written.data(), answerStream(2, 42));
    EXPECT_EQ(VYCanFrame::destinationAddress(written), OtherBoard);
    EXPECT_EQ(VYCanFrame::sourceAddress(written), Own);

    const QStringList lines = log.texts().filter(s_timedOut);
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.first().contains(QLatin1String("::onReceptionTimeout()")));
    EXPECT_TRUE(lines.first().endsWith(QLatin1String("incomingcanMessage cmdID: 42")));
    EXPECT_EQ(log.count("|ans:Error| messageReceived.cmdID=", 3), 1);
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{});
}

struct PauseCase
{
    const char *pName;
    std::vector<int> pausesMs; ///< between one frame and the next
    int refusedAtMs;
};

class CanPauses : public CanReassembly, public ::testing::WithParamInterface<PauseCase>
{
};

TEST_P(CanPauses, AreCountedFromTheLastFrame)
{
    int index = 0;
    receivePart(index);
    for (const int pause : GetParam().pausesMs) {
        advance(pause);
        receivePart(++index);
    }
    const auto passed = VirtualTime::instance()->now() - m_start;
    advance(GetParam().refusedAtMs - 1 - static_cast<int>(passed.count()));
    EXPECT_EQ(timeline(), Timeline{});
    EXPECT_EQ(count(), 1);
    advance(1);
    EXPECT_EQ(timeline(), Timeline{std::to_string(GetParam().refusedAtMs) + " writes 2"});
    EXPECT_EQ(count(), 0);
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{});
}

const PauseCase s_pauseCases[] = {
    {"NoFurtherFrame", {}, 1200},         {"AtOnce", {0}, 1200},
    {"OneMillisecond", {1}, 1201},        {"Half", {600}, 1800},
    {"JustInTime", {1199}, 2399},         {"TwiceJustInTime", {1199, 1199}, 3598},
    {"ShortThenLong", {1, 1199}, 2400},   {"LongThenShort", {1199, 1}, 2400},
    {"TwoInOnePeriod", {300, 300}, 1800},
};
INSTANTIATE_TEST_SUITE_P(Pauses, CanPauses, ::testing::ValuesIn(s_pauseCases), caseName);

TEST_F(CanReassembly, MessageThatIsWholeJustInTimeIsTold)
{
    for (int i = 0; i < 4; ++i) {
        receivePart(i);
        advance(1199);
    }
    advance(10000);
    EXPECT_EQ(timeline(), (Timeline{"3597 writes 1", "3597 received 42"}));
}

TEST_F(CanReassembly, FrameThatComesTooLateBelongsToNothing)
{
    receivePart(0);
    advance(1200);
    timeline();
    LogSpy log;
    receivePart(1);
    EXPECT_EQ(log.count(s_newFails), 1);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanReassembly, FrameThatDoesNotJoinGivesNoTime)
{
    receivePart(0);
    advance(600);
    receivePart(2);
    receivePart(1, OtherBoard);
    advance(599);
    EXPECT_EQ(timeline(), Timeline{});
    advance(1);
    EXPECT_EQ(timeline(), Timeline{"1200 writes 2"});
}

TEST_F(CanReassembly, SeveralMessagesTimeOutEachOnItsOwn)
{
    receivePart(0, Board, 42);
    advance(100);
    receivePart(0, OtherBoard, 43);
    advance(100);
    receivePart(0, 0x41E, 44);
    advance(400);
    receivePart(1, Board, 42);
    LogSpy log;
    advance(10000);
    EXPECT_EQ(timeline(), (Timeline{"1300 writes 2", "1400 writes 2", "1800 writes 2"}));
    ASSERT_EQ(m_pInterface->written().size(), 3);
    EXPECT_EQ(m_pInterface->written().at(0).data(), answerStream(2, 43));
    EXPECT_EQ(m_pInterface->written().at(1).data(), answerStream(2, 44));
    EXPECT_EQ(m_pInterface->written().at(2).data(), answerStream(2, 42));
    EXPECT_EQ(log.count(s_timedOut), 3);
}

TEST_F(CanReassembly, MessagesThatBeganTogetherTimeOutTogether)
{
    receivePart(0, Board, 42);
    receivePart(0, OtherBoard, 43);
    advance(10000);
    EXPECT_EQ(timeline(), (Timeline{"1200 writes 2", "1200 writes 2"}));
    EXPECT_EQ(count(), 0);
}

TEST_F(CanReassembly, MessageUnderWayKeepsTheTimeOutThatItBeganWith)
{
    receivePart(0, Board, 42);
    CanBusChannel::setGlobalTimeoutValue(300);
    advance(500);
    receivePart(1, Board, 42);
    receivePart(0, OtherBoard, 43);
    advance(299);
    EXPECT_EQ(timeline(), Timeline{});
    advance(1);
    EXPECT_EQ(timeline(), Timeline{"800 writes 2"}) << "the new one";
    advance(899);
    EXPECT_EQ(timeline(), Timeline{});
    advance(1);
    EXPECT_EQ(timeline(), Timeline{"1700 writes 2"}) << "1200 ms after its last frame";
}

TEST_F(CanReassembly, LongerTimeOutHoldsForMessagesThatBeginLater)
{
    receivePart(0, Board, 42);
    CanBusChannel::setGlobalTimeoutValue(5000);
    receivePart(0, OtherBoard, 43);
    advance(1000);
    receivePart(1, OtherBoard, 43);
    advance(10000);
    EXPECT_EQ(timeline(), (Timeline{"1200 writes 2", "6000 writes 2"}));
}

TEST_F(CanReassembly, TimeOutsAreExactAfterEarlierMessages)
{
    receivePart(0);
    advance(400);
    receiveFrom(1);
    receivePart(0, Board, 43);
    advance(1200);
    EXPECT_EQ(timeline(), (Timeline{"400 writes 1", "400 received 42", "1600 writes 2"}));
    CanBusChannel::setGlobalTimeoutValue(70);
    receivePart(0, Board, 44);
    advance(60);
    receivePart(1, Board, 44);
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{"1730 writes 2"});
}

TEST_F(CanReassembly, TimeOutNobodyAskedForChangesNothing)
{
    receivePart(0);
    LogSpy log;
    m_pProtocol->onReceptionTimeout();
    EXPECT_EQ(count(), 1);
    EXPECT_TRUE(log.texts().isEmpty());
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanReassembly, ForeignTimerChangesNothing)
{
    receivePart(0);
    QTimer foreign;
    QObject::connect(&foreign, &QTimer::timeout, m_pProtocol.get(),
                     &AbstractCanProtocol::onReceptionTimeout);
    foreign.setSingleShot(true);
    foreign.start(100);
    advance(100);
    EXPECT_EQ(count(), 1);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanReassembly, TimerOfAnAddedMessageStartsAnewWithEachFrame)
{
    IncomingCanMessage entry;
    entry.lastFrameIndex = 0;
    entry.totalSize = 25;
    entry.pMessage->setSource(Board);
    entry.pMessage->setDestination(Own);
    entry.pMessage->setCommand(42);
    entry.pMessage->setData(part(0).data());
    entry.pReceptionTimer = new QTimer;
    QObject::connect(entry.pReceptionTimer, &QTimer::timeout, m_pProtocol.get(),
                     &AbstractCanProtocol::onReceptionTimeout);
    entry.pReceptionTimer->setSingleShot(true);
    entry.pReceptionTimer->start(50);
    m_pProtocol->addIncomingMessage(entry);
    advance(30);
    receivePart(1);
    advance(40);
    receivePart(2);
    advance(49);
    EXPECT_EQ(timeline(), Timeline{});
    advance(1);
    EXPECT_EQ(timeline(), Timeline{"120 writes 2"});
}
