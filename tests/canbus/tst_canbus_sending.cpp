#include "busbench.h"

#include "support/assertspy.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <utility>

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

constexpr const char *s_idle = "log : No more messages to send";
constexpr const char *s_dequed = "bus dequedAllmessages";

} // namespace

// Queueing.

TEST_F(BusBench, EveryFormSendsOnItsChannelAndEmptiesTheList)
{
    QList<CanMessage *> list = messages({s_reset});
    EXPECT_TRUE(m_pBus->send(list, &m_node));
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(channel()->node(), &m_node);
    EXPECT_TRUE(m_pBus->send(message(s_reset), &m_farNode));
    EXPECT_EQ(channel(s_otherChannelId)->node(), &m_farNode);
    list = messages({s_reset});
    EXPECT_TRUE(m_pBus->send(11, list));
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(channel(11)->node(), nullptr);
    EXPECT_TRUE(m_pBus->send(12, message(s_reset)));
    for (const int id : {s_channelId, s_otherChannelId, 11, 12})
        EXPECT_TRUE(channel(id)->isWaitingForAnswer()) << id;
    EXPECT_EQ(m_pInterface->written().size(), 4);
}

TEST_F(BusBench, ThreeMessagesGoOneByOneAndATimeOutDropsTheRest)
{
    EXPECT_TRUE(send(m_node, {s_reset, s_test, s_rotor}));
    EXPECT_THAT(said(), ElementsAre("log cmd = 36 ResetBoard", "wire 36"));
    EXPECT_EQ(channel()->pendingMessages().size(), 2);
    acknowledge(s_reset);
    EXPECT_EQ(m_pInterface->written().size(), 2);
    EXPECT_EQ(channel()->pendingMessages().size(), 1);
    said();
    advance(3600ms);
    const Entries entries = said();
    EXPECT_THAT(
        Entries(entries.end() - 4, entries.end()),
        ElementsAre("bus communicationTimeout 4 60", "A answerError 4 60", s_idle, s_dequed));
    EXPECT_EQ(m_pInterface->written().size(), 4);
    EXPECT_FALSE(m_pBus->hasPendingMessages(s_channelId));
}

TEST_F(BusBench, ChannelThatOnlyWaitsTakesABatch)
{
    send(m_node, {s_reset});
    EXPECT_TRUE(m_pBus->isAvailable(s_channelId));
    EXPECT_TRUE(send(m_node, {s_test}));
    EXPECT_FALSE(m_pBus->isAvailable(s_channelId));
    EXPECT_TRUE(m_pBus->hasPendingMessages(s_channelId));
    EXPECT_EQ(m_pInterface->written().size(), 1);
}

TEST_F(BusBench, ChannelsDoNotWaitForOneAnother)
{
    send(m_node, {s_reset, s_test});
    send(m_farNode, {s_rotor, s_test});
    said();
    acknowledge(s_rotor);
    EXPECT_EQ(channel()->pendingMessages().size(), 1);
    EXPECT_FALSE(m_pBus->hasPendingMessages(s_otherChannelId));
}

TEST_F(BusBench, NodeKnowsTheMessageThatIsBeingAnswered)
{
    EXPECT_TRUE(m_node.messageBeingAnswered().isNull());
    send(m_node, {s_reset, s_test});
    EXPECT_EQ(m_node.messageBeingAnswered()->command(), s_reset);
    EXPECT_EQ(m_node.messageBeingAnswered(), channel()->lastMessageSent());
    acknowledge(s_reset);
    EXPECT_EQ(m_node.messageBeingAnswered()->command(), s_test);
    acknowledge(s_test);
    EXPECT_EQ(m_node.messageBeingAnswered()->command(), s_test); // the last one stays
}

TEST_F(BusBench, QueueOfAThousandKeepsItsOrder)
{
    constexpr int count = 1000;
    QList<CanMessage *> list;
    for (int command = 3; command < 3 + count; ++command)
        list << message(command);
    ASSERT_TRUE(m_pBus->send(list, &m_node));
    for (int command = 3; command < 3 + count; ++command) {
        ASSERT_EQ(channel()->lastMessageSent()->command(), command);
        acknowledge(command);
    }
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
    EXPECT_EQ(m_pInterface->written().size(), count);
}

TEST_F(BusBench, EmptyListIsDoneAtOnce)
{
    EXPECT_TRUE(send(m_node, {}));
    EXPECT_THAT(said(), ElementsAre(s_idle, s_dequed));
    EXPECT_EQ(channel()->node(), nullptr);
}

TEST_F(BusBench, EmptyListBehindAMessageIsDoneWithIt)
{
    send(m_node, {s_reset});
    EXPECT_TRUE(send(m_otherNode, {}));
    said();
    acknowledge(s_reset);
    const Entries entries = said();
    EXPECT_THAT(Entries(entries.begin() + 1, entries.end()),
                ElementsAre("A answerAcknowledged 1 1", s_idle, s_dequed));
}

struct EmptyListCase
{
    const char *pName;
    bool isBehindAMessage;
};

class CanBusEmptyListTable : public BusBench, public ::testing::WithParamInterface<EmptyListCase>
{
};

TEST_P(CanBusEmptyListTable, LeavesNoNodeBehindForAnotherChannel)
{
    send(m_farNode, {s_rotor, s_test});
    if (GetParam().isBehindAMessage)
        send(m_node, {s_reset});
    send(m_otherNode, {});
    acknowledge(s_rotor);
    EXPECT_EQ(channel(s_otherChannelId)->node(), &m_farNode);
}

TEST_P(CanBusEmptyListTable, LeavesNoNodeToBeToldOfAFailure)
{
    if (GetParam().isBehindAMessage)
        send(m_node, {s_reset});
    send(m_otherNode, {});
    said();
    m_pBus->generateSendingErrorAnswer(s_channelId);
    for (const std::string &entry : said())
        EXPECT_NE(entry.front(), 'B') << entry;
}

const EmptyListCase s_emptyListCases[] = {{"OnAnIdleChannel", false}, {"BehindAMessage", true}};
INSTANTIATE_TEST_SUITE_P(Empty, CanBusEmptyListTable, ::testing::ValuesIn(s_emptyListCases),
                         caseName);

// Stopping.

TEST_F(BusBench, StopSendingForgetsNodeQueueAndWaiting)
{
    send(m_node, {s_reset, s_test});
    said();
    m_pBus->stopSending(channel());
    EXPECT_EQ(channel()->node(), nullptr);
    EXPECT_FALSE(channel()->hasPendingMessages());
    EXPECT_FALSE(channel()->isWaitingForAnswer());
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(BusBench, ClearPendingMessagesLeavesTheMessageThatIsSent)
{
    send(m_node, {s_reset, s_test});
    said();
    m_pBus->clearPendingMessagesToSend(channel());
    EXPECT_FALSE(m_pBus->hasPendingMessages(s_channelId));
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    acknowledge(s_reset);
    const Entries entries = said();
    EXPECT_THAT(Entries(entries.begin() + 1, entries.end()),
                ElementsAre("A answerAcknowledged 1 1", s_idle, s_dequed));
}

TEST_F(BusBench, NullChannelHarmsNothing)
{
    CanBusChannel *const pNone = nullptr;
    EXPECT_FALSE(m_pBus->isAvailable(pNone));
    m_pBus->stopSending(pNone);
    m_pBus->clearPendingMessagesToSend(pNone);
    m_pBus->onAnswerReceived(pNone, CanAnswer::AnswerAck, {});
    m_pBus->onAnswerReceived(pNone, CanAnswer::AnswerTimeout, {});
    m_pBus->onMessageReceived({});
}

TEST_F(BusBench, ChannelIsMadeWhenItsAvailabilityIsAsked)
{
    EXPECT_FALSE(CanBusChannel::channels().contains(77));
    EXPECT_TRUE(m_pBus->isAvailable(77));
    EXPECT_TRUE(CanBusChannel::channels().contains(77));
}

// Answers.

struct AnswerCase
{
    const char *pName;
    CanAnswer::AnswerType type;
    std::vector<std::string> entries;
};

class CanBusAnswerTable : public BusBench, public ::testing::WithParamInterface<AnswerCase>
{
};

TEST_P(CanBusAnswerTable, TellsTheNodeAndGoesOnOrEnds)
{
    send(m_node, {s_reset, s_test});
    said();
    m_pBus->onAnswerReceived(channel(), GetParam().type, messageFrom(s_board, 99));
    EXPECT_THAT(said(), ElementsAreArray(GetParam().entries));
}

const AnswerCase s_answerCases[] = {
    {"None",
     CanAnswer::AnswerNone,
     {"A answerError 0 99", "log cmd = 60 Test", "wire 60"}}, // not above an acknowledge
    {"Ack", CanAnswer::AnswerAck, {"A answerAcknowledged 1 99", "log cmd = 60 Test", "wire 60"}},
    {"SendingError", CanAnswer::AnswerSendingError, {"A answerError 2 99", s_idle, s_dequed}},
    {"AckNot", CanAnswer::AnswerAckNot, {"A answerError 3 99", s_idle, s_dequed}},
    {"Timeout",
     CanAnswer::AnswerTimeout,
     {"bus communicationTimeout 4 99", "A answerError 4 99", s_idle, s_dequed}},
};
INSTANTIATE_TEST_SUITE_P(Types, CanBusAnswerTable, ::testing::ValuesIn(s_answerCases), caseName);

TEST_F(BusBench, SendingErrorOfAChannelThatSendsNothingHarmsNothing)
{
    m_pBus->generateSendingErrorAnswer(99);
    m_pBus->generateSendingErrorAnswer(-1);
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
    EXPECT_TRUE(send(m_node, {s_reset}));
}

TEST_F(BusBench, FailureInTheSlotThatHearsOneStartsTheNextBatch)
{
    bool isFirst = true;
    QObject::connect(&m_node, &CanBusNode::answerError, &m_node, [&] {
        if (std::exchange(isFirst, false))
            send(m_node, {s_rotor});
    });
    send(m_node, {s_reset, s_test});
    said();
    m_pBus->generateSendingErrorAnswer(s_channelId);
    EXPECT_THAT(said(), ElementsAre("A answerError 2 null", "log cmd = 63 Rotor", "wire 63",
                                    "log : No more messages to send but waiting for answser"));
    acknowledge(s_rotor);
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
}

TEST_F(BusBench, RealInterfaceAfterADummyIsNoDummy)
{
    m_pBus->setInterfaceType(CanBus::CanInterfaceDummy);
    m_pInterface = new RecordingInterface;
    m_pBus->setInterface(m_pInterface);
    bool isFirst = true;
    QObject::connect(&m_node, &CanBusNode::answerAcknowledged, &m_node, [&] {
        if (std::exchange(isFirst, false))
            send(m_node, {s_test, s_rotor});
    });
    send(m_node, {s_reset});
    AssertSpy asserts;
    acknowledge(s_reset);
    EXPECT_TRUE(asserts.records().isEmpty());
    EXPECT_FALSE(m_pBus->isInterfaceBusy()); // ended by the error that was generated
}

TEST_F(BusBench, BusyDummyIsAnAssertionWithItsCondition)
{
    m_pBus->setInterfaceType(CanBus::CanInterfaceDummy);
    bool isFirst = true;
    QObject::connect(&m_node, &CanBusNode::answerError, &m_node, [&] {
        if (std::exchange(isFirst, false))
            send(m_node, {s_test, s_rotor});
    });
    send(m_node, {s_reset});
    AssertSpy asserts;
    m_pBus->generateSendingErrorAnswer(s_channelId);
    EXPECT_EQ(asserts.count("m_pCanProtocol && (!pChannel->isWaitingForAnswer())",
                            "Can protocol not instanciated, or channel waiting for can answer",
                            "src/canbus/canbus"),
              1);
    EXPECT_EQ(asserts.records().constFirst().line, 478);
    EXPECT_FALSE(asserts.records().constFirst().isRelease);
    EXPECT_EQ(channel()->pendingMessages().size(), 1);
}

TEST_F(BusBench, FailureOfAnotherChannelIsToldToTheNodeOfABatchThatIsQueued)
{
    send(m_farNode, {s_rotor});
    send(m_node, {s_reset});
    send(m_otherNode, {s_test});
    said();
    m_pBus->generateSendingErrorAnswer(s_otherChannelId);
    EXPECT_THAT(said(),
                ElementsAre("C answerError 2 null", "B answerError 2 null", s_idle, s_dequed));
    // Once: the batch goes on the bus all the same, for the node of the message before it.
    m_pBus->generateSendingErrorAnswer(s_otherChannelId);
    EXPECT_THAT(said(), ElementsAre(s_idle, s_dequed));
    EXPECT_EQ(channel()->pendingMessages().size(), 1);
}

TEST_F(BusBench, QueueWithoutProtocolEndsInAnError)
{
    send(m_node, {s_reset, s_test});
    delete m_pBus->canProtocol();
    said();
    const LogSpy log;
    m_pBus->onAnswerReceived(channel(), CanAnswer::AnswerAck, {});
    EXPECT_THAT(said(), ElementsAre("A answerAcknowledged 1 null",
                                    "log ERROR: Failed to send message, protocol not set",
                                    "A answerError 2 null", s_idle, s_dequed,
                                    "bus generateSendingErrorAnswerRequested 3"));
    EXPECT_EQ(log.count("ERROR: Failed to send message, protocol not set", LogError, Log::CanBus),
              1);
    EXPECT_FALSE(channel()->hasPendingMessages());
    EXPECT_FALSE(channel()->isWaitingForAnswer());
}

// Its second message makes the channel fail that still waits for the first, and so on.
TEST_F(BusBench, NodeThatSendsABatchWheneverItHearsOfAnErrorDoesNotNestForEver)
{
    constexpr int enough = 100;
    int errors = 0;
    QObject::connect(&m_node, &CanBusNode::answerError, &m_node, [&] {
        if (++errors < enough)
            send(m_node, {s_test, s_rotor});
    });
    send(m_node, {s_reset});
    m_pBus->generateSendingErrorAnswer(s_channelId);
    EXPECT_LT(errors, enough / 2); // it has returned, and goes on later
    advance(10s);
    EXPECT_EQ(errors, enough);
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
}
