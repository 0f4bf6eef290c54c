#include "canbus/reassemblytest.h"

#include "support/casename.h"
#include "support/logspy.h"

#include <QPointer>
#include <QTimer>

#include <gtest/gtest.h>

using namespace ProtocolAddress;

namespace {

const QString s_newFails = QStringLiteral("new CAN message decoding FAIL");
const QString s_followingFails = QStringLiteral("multiple frames CAN message decoding FAIL");

} // namespace

// -- which frame continues which message ----------------------------------------------------------

TEST_F(CanReassembly, MessagesOfTwoBoardsArriveAlternately)
{
    for (int i = 0; i < 4; ++i) {
        receivePart(i, Board, 42);
        receivePart(i, OtherBoard, 43);
        EXPECT_EQ(count(), i == 3 ? 0 : 2);
    }
    EXPECT_EQ(timeline(), (Timeline{"0 writes 1", "0 received 42", "0 writes 1", "0 received 43"}));
    for (const Message &pMessage : qAsConst(m_received))
        EXPECT_EQ(pMessage->data(), bigEndian(19) + countingBytes(19));
}

struct StrangerCase
{
    const char *pName;
    int source;
    int destination;
    int index;
};

class CanStrangerFrames : public CanReassembly, public ::testing::WithParamInterface<StrangerCase>
{
};

TEST_P(CanStrangerFrames, DoNotJoinTheMessage)
{
    receivePart(0);
    receivePart(1);
    LogSpy log;
    const auto &row = GetParam();
    receive(frame(row.source, row.destination, row.index, part(2).data()));
    EXPECT_EQ(log.count(s_newFails), 1) << "it is taken for a message of its own";
    EXPECT_EQ(log.count(s_followingFails), 0);
    EXPECT_EQ(count(), 1);

    receiveFrom(2);
    ASSERT_EQ(m_received.size(), 1) << "which the message itself survives";
    EXPECT_EQ(m_received.first()->data(), bigEndian(19) + countingBytes(19));
}

const StrangerCase s_strangerCases[] = {
    {"OtherSource", OtherBoard, Own, 2}, {"OtherDestination", Board, Shared, 2},
    {"SkippedIndex", Board, Own, 3},     {"SameIndexAgain", Board, Own, 1},
    {"LastIndex", Board, Own, 63},       {"FirstIndexWithoutHeader", Board, Own, 0},
};
INSTANTIATE_TEST_SUITE_P(Frames, CanStrangerFrames, ::testing::ValuesIn(s_strangerCases), caseName);

TEST_F(CanReassembly, MessageThatLostAFrameIsRefusedWhenItsTimeIsOver)
{
    receivePart(0);
    receivePart(2);
    receivePart(3);
    advance(1199);
    EXPECT_EQ(timeline(), Timeline{});
    advance(1);
    EXPECT_EQ(timeline(), Timeline{"1200 writes 2"});
}

TEST_F(CanReassembly, FrameJoinsTheOldestMessageThatItFollows)
{
    receivePart(0, Board, 42);
    receivePart(0, Board, 43);
    EXPECT_EQ(count(), 2);
    EXPECT_EQ(m_pProtocol->findMatchingIncompleteMessage(part(1)), 0);
    receivePart(1);
    EXPECT_EQ(m_pProtocol->findMatchingIncompleteMessage(part(1)), 1);
    EXPECT_EQ(m_pProtocol->findMatchingIncompleteMessage(part(2)), 0);
    EXPECT_EQ(m_pProtocol->findMatchingIncompleteMessage(part(3)), -1);
    EXPECT_EQ(m_pProtocol->findMatchingIncompleteMessage(part(0)), -1);
}

TEST_F(CanReassembly, MessageOfOneFrameComesBetween)
{
    receivePart(0);
    receive(Board, 0, streamOf(50, {}));
    receiveFrom(1);
    EXPECT_EQ(timeline(), (Timeline{"0 writes 1", "0 received 50", "0 writes 1", "0 received 42"}));
}

TEST_F(CanReassembly, AnswerIsHeardWhileAMessageArrives)
{
    send(7);
    receivePart(0);
    timeline();
    answer(1, 7);
    EXPECT_EQ(timeline(), Timeline{"0 answer 1"});
    receiveFrom(1);
    EXPECT_EQ(m_received.size(), 1);
}

TEST_F(CanReassembly, MessageOfMoreThan64FramesIsNeverWhole)
{
    const CanBytes stream = streamOf(42, countingBytes(507));
    LogSpy log;
    for (int i = 0; i < 65; ++i)
        receive(Board, i % 64, stream.mid(8 * i, 8));
    EXPECT_EQ(log.count(s_newFails), 1);
    EXPECT_TRUE(m_received.isEmpty());
    advance(1200);
    EXPECT_EQ(timeline(), Timeline{"1200 writes 2"});
    EXPECT_EQ(count(), 0);
}

// -- what ends a message --------------------------------------------------------------------------

TEST_F(CanReassembly, WrongChecksumOfALongMessageDropsIt)
{
    receivePart(0);
    receivePart(1);
    receivePart(2);
    CanFrame last = part(3);
    last.setData({static_cast<unsigned char>(last.data().first() ^ 1)});
    LogSpy log;
    receive(last);
    EXPECT_EQ(log.count("CHECKSUM Error", 4, Log::CanBus), 1);
    EXPECT_EQ(log.count(s_followingFails), 1);
    EXPECT_EQ(log.count(s_newFails), 0);
    EXPECT_EQ(count(), 0);
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{}) << "neither told nor refused";
}

TEST_F(CanReassembly, FollowingFrameOfTheWrongSizeDropsTheMessage)
{
    receivePart(0);
    LogSpy log;
    receive(Board, 1, countingBytes(7));
    EXPECT_EQ(log.count(s_followingFails), 1);
    EXPECT_EQ(count(), 0);
    receivePart(2);
    receivePart(3);
    EXPECT_EQ(log.count(s_newFails), 2) << "the rest belongs to nothing";
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanReassembly, ShortFirstFrameIsNeverMadeUpFor)
{
    // 16 bytes are announced, of the first 8 only 5 came; frame 2 may then hold none.
    receive(Board, 0, bytes("02 00 2a 00 0a"));
    receive(Board, 1, countingBytes(8));
    EXPECT_EQ(count(), 1);
    receive(Board, 2, {});
    EXPECT_EQ(count(), 1);
    LogSpy log;
    receive(Board, 3, {});
    EXPECT_EQ(log.count("thisFrameDataSize( -8 )", 4), 1);
    EXPECT_EQ(count(), 0);
}

TEST_F(CanReassembly, LongFirstFrameIsNeverMadeUpFor)
{
    receive(Board, 0, streamOf(42, countingBytes(3)));
    EXPECT_EQ(count(), 1);
    receive(Board, 1, bytes("00"));
    EXPECT_EQ(count(), 1);
    advance(1200);
    EXPECT_EQ(timeline(), Timeline{"1200 writes 2"});
}

// -- what goes away meanwhile ---------------------------------------------------------------------

TEST_F(CanReassembly, MessageWithoutInterfaceIsForgottenInSilenceOnTheBus)
{
    receivePart(0);
    m_pInterface.reset();
    LogSpy log;
    advance(1200);
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(log.count("incomingcanMessage cmdID:"), 1);
}

TEST_F(CanReassembly, MessageOutlivesAChangeOfInterface)
{
    receivePart(0);
    receivePart(1);
    TracingInterface other;
    m_pProtocol->setCanInterface(&other);
    other.onFrameReceived(part(2));
    other.onFrameReceived(part(3));
    EXPECT_EQ(m_received.size(), 1);
    EXPECT_EQ(other.written().size(), 1);
    EXPECT_TRUE(m_pInterface->written().isEmpty());
}

TEST_F(CanReassembly, DeletedProtocolLeavesNoTimer)
{
    receivePart(0);
    receivePart(0, OtherBoard);
    m_pProtocol.reset();
    advance(10000);
    EXPECT_TRUE(m_pInterface->written().isEmpty());
}

// -- how many -------------------------------------------------------------------------------------

TEST_F(CanReassembly, OldestMessageGoesWhenThereIsOneTooMany)
{
    const int most = AbstractCanProtocol::MaxIncomingMessages;
    for (int i = 0; i < most; ++i)
        receivePart(0, i);
    EXPECT_EQ(count(), most);

    LogSpy log;
    receivePart(0, most);
    EXPECT_EQ(count(), most);
    EXPECT_EQ(log.count("", 3) + log.count("", 4), 1);

    receivePart(1, 0);
    EXPECT_EQ(log.count(s_newFails), 1) << "the first has gone";
    receiveFrom(1, 1);
    receiveFrom(1, most);
    EXPECT_EQ(m_received.size(), 2) << "the second and the last are there";
    timeline();
    advance(10000);
    EXPECT_EQ(timeline().size(), static_cast<std::size_t>(most - 2))
        << "what has gone is not refused";
}

TEST_F(CanReassembly, HostileBusCannotFillTheMemory)
{
    for (int i = 0; i < 3000; ++i)
        receivePart(0, i % 0x7FF);
    EXPECT_EQ(count(), AbstractCanProtocol::MaxIncomingMessages);
    advance(1200);
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(m_pInterface->written().size(), AbstractCanProtocol::MaxIncomingMessages);
}

// -- entries that a variant adds ------------------------------------------------------------------

TEST_F(CanReassembly, AddedMessageIsContinued)
{
    IncomingCanMessage entry;
    entry.lastFrameIndex = 0;
    entry.totalSize = 25;
    entry.pMessage->setSource(Board);
    entry.pMessage->setDestination(Own);
    entry.pMessage->setCommand(42);
    entry.pMessage->setData(part(0).data());
    m_pProtocol->addIncomingMessage(entry);
    EXPECT_EQ(count(), 1);
    receiveFrom(1);
    EXPECT_EQ(m_received.size(), 1);
    EXPECT_EQ(count(), 0);
}

TEST_F(CanReassembly, AddedMessageStandsBehindTheOthers)
{
    receivePart(0);
    IncomingCanMessage entry;
    entry.lastFrameIndex = 0;
    entry.pMessage->setSource(Board);
    entry.pMessage->setDestination(Own);
    m_pProtocol->addIncomingMessage(entry);
    EXPECT_EQ(count(), 2);
    EXPECT_EQ(m_pProtocol->findMatchingIncompleteMessage(part(1)), 0);
}

TEST_F(CanReassembly, AddedMessageTimesOutByItsOwnTimer)
{
    IncomingCanMessage entry;
    entry.pMessage->setSource(OtherBoard);
    entry.pMessage->setCommand(42);
    entry.pReceptionTimer = new QTimer;
    QObject::connect(entry.pReceptionTimer, &QTimer::timeout, m_pProtocol.get(),
                     &AbstractCanProtocol::onReceptionTimeout);
    entry.pReceptionTimer->setSingleShot(true);
    entry.pReceptionTimer->start(50);
    m_pProtocol->addIncomingMessage(entry);
    advance(49);
    EXPECT_EQ(count(), 1);
    advance(1);
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(timeline(), Timeline{"50 writes 2"});
}

TEST_F(CanReassembly, TimerOfAWholeMessageDoesNotRunOn)
{
    IncomingCanMessage entry;
    entry.lastFrameIndex = 0;
    entry.totalSize = 25;
    entry.pMessage->setSource(Board);
    entry.pMessage->setDestination(Own);
    entry.pMessage->setData(part(0).data());
    const QPointer<QTimer> pTimer = new QTimer;
    entry.pReceptionTimer = pTimer;
    pTimer->start(500);
    m_pProtocol->addIncomingMessage(entry);
    receiveFrom(1);
    EXPECT_EQ(m_received.size(), 1);
    EXPECT_TRUE(!pTimer || !pTimer->isActive());
    m_pProtocol.reset();
    EXPECT_FALSE(pTimer) << "the protocol's from the moment it was added";
}

TEST_F(CanReassembly, AddedMessagesAreNotUnlimitedEither)
{
    for (int i = 0; i < 200; ++i)
        m_pProtocol->addIncomingMessage(IncomingCanMessage());
    EXPECT_EQ(count(), AbstractCanProtocol::MaxIncomingMessages);
}
