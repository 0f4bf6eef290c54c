#include "outcomebench.h"

#include <memory>

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

// The rows of "What becomes of a message" in docs/architecture.md, from its fifth group on.

// What goes away meanwhile.

TEST_F(OutcomeTest, NodeDeletedMeanwhile)
{
    auto pNode = std::make_unique<CanBusNode>(s_channelId);
    m_journal.hear(pNode.get(), QStringLiteral("gone"));
    send(*pNode, {s_reset, s_test});
    said();
    pNode.reset();
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, s_sendTest, "wire 60"));
    acknowledge(s_test);
    EXPECT_THAT(said(), ElementsAre(s_foundTest, s_idle, s_dequed));
}

TEST_F(OutcomeTest, NodeDeletedInItsSlot)
{
    auto *const pNode = new CanBusNode(s_channelId);
    QObject::connect(pNode, &CanBusNode::answerAcknowledged, m_pBus, [&] {
        m_journal.add(QStringLiteral("deleted"));
        delete pNode;
    });
    send(*pNode, {s_reset, s_test});
    said();
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, "deleted", s_sendTest, "wire 60"));
    acknowledge(s_test);
    EXPECT_THAT(said(), ElementsAre(s_foundTest, s_idle, s_dequed));
}

TEST_F(OutcomeTest, NodeOfAWaitingBatchDeleted)
{
    sendReset();
    auto pNode = std::make_unique<CanBusNode>(s_channelId);
    EXPECT_TRUE(send(*pNode, {s_test}));
    pNode.reset();
    expectTwoResends();
    expectReport(m_timedOut);
}

TEST_F(OutcomeTest, ChannelDeletedMeanwhile)
{
    send(m_node, {s_reset, s_test});
    said();
    CanBusChannel::deleteChannels();
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_notFoundReset));
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, ChannelDeletedInASlot)
{
    QObject::connect(&m_node, &CanBusNode::answerAcknowledged, m_pBus,
                     [] { CanBusChannel::deleteChannels(); });
    send(m_node, {s_reset, s_test});
    said();
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, "A answerAcknowledged 1 1"));
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
    sendReset(); // on a channel that is made anew
}

TEST_F(OutcomeTest, InterfaceDeletedMeanwhile)
{
    send(m_node, {s_reset, s_test});
    said();
    delete m_pInterface;
    for (int attempt = 2; attempt <= 3; ++attempt) {
        advance(1199ms);
        EXPECT_THAT(said(), IsEmpty()) << attempt;
        advance(1ms);
        EXPECT_THAT(said(), ElementsAre(s_sendReset)) << attempt;
    }
    expectReport(m_timedOut);
}

TEST_F(OutcomeTest, BusDeletedMeanwhile)
{
    send(m_node, {s_reset, s_test});
    said();
    CanBus::deleteInstance();
    acknowledge(s_reset);
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

// Other ways.

TEST_F(OutcomeTest, LoopBack)
{
    channel()->setLoopBack(true);
    QList<int> addresses;
    QObject::connect(&m_node, &CanBusNode::answerAcknowledged, &m_node,
                     [&](const CanAnswer &, const auto &pMessage) {
                         addresses = {pMessage->source(), pMessage->destination()};
                     });
    EXPECT_TRUE(send(m_node, {s_reset}));
    EXPECT_THAT(said(), ElementsAre(s_sendReset));
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    advance(0ms);
    EXPECT_THAT(said(), ElementsAre("A answerAcknowledged 1 36", s_idle, s_dequed));
    EXPECT_EQ(addresses, (QList<int>{s_board, -1}));
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, LoopBackWithTheTestProtocol)
{
    m_pBus->setProtocolType(CanBus::CanProtocolTest);
    channel()->setLoopBack(true);
    EXPECT_TRUE(send(m_node, {s_reset}));
    EXPECT_THAT(said(), ElementsAre(s_sendReset));
    for (int attempt = 2; attempt <= 3; ++attempt) {
        advance(1200ms);
        EXPECT_THAT(said(), ElementsAre(MatchesRegex(s_emptyMessage))) << attempt;
    }
    expectReport({"bus communicationTimeout 4 null", "A answerError 4 null", s_idle, s_dequed});
}

TEST_F(OutcomeTest, OnASilentDummy)
{
    useDummy(false);
    sendReset();
    for (int attempt = 2; attempt <= 3; ++attempt) {
        advance(199ms);
        EXPECT_THAT(said(), IsEmpty()) << attempt;
        advance(1ms);
        EXPECT_THAT(said(), ElementsAre(s_sendReset, "wire 36")) << attempt;
    }
    advance(199ms);
    EXPECT_THAT(said(), IsEmpty());
    advance(1ms);
    EXPECT_THAT(said(), ElementsAreArray(m_timedOut));
}

TEST_F(OutcomeTest, OnAnAnsweringDummy)
{
    useDummy(true);
    sendReset();
    advance(19ms);
    EXPECT_THAT(said(), IsEmpty());
    advance(1ms);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_idle, s_dequed));
}

TEST_F(OutcomeTest, ToTheSharedAddress)
{
    send(m_node, {s_reset}, s_shared);
    said();
    acknowledge(s_reset, s_otherBoard);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_idle, s_dequed));
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_notFoundReset));
}

TEST_F(OutcomeTest, ToTheSharedAddressRefused)
{
    send(m_node, {s_reset}, s_shared);
    said();
    refuse(s_reset);
    refuse(s_reset, s_otherBoard);
    EXPECT_THAT(said(),
                ElementsAre(s_refusal, s_sendReset, "wire 36", s_refusal, s_sendReset, "wire 36"));
    refuse(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_refusal, "A answerError 3 2", s_idle, s_dequed));
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_notFoundReset));
}

TEST_F(OutcomeTest, ToTheSharedAddressInABatch)
{
    send(m_node, {s_reset, s_test}, s_shared);
    acknowledge(s_reset);
    said();
    acknowledge(s_test);
    EXPECT_THAT(said(), ElementsAre(s_notFoundTest));
    for (int attempt = 2; attempt <= 3; ++attempt) {
        advance(1200ms);
        EXPECT_THAT(said(), ElementsAre(MatchesRegex(s_emptyMessage), "wire 65535")) << attempt;
    }
    expectReport({"bus communicationTimeout 4 -1", "A answerError 4 -1", s_idle, s_dequed});
}

// Batches of two nodes.

TEST_F(OutcomeTest, QueuedBehindAnotherNodesMessage)
{
    sendReset();
    EXPECT_TRUE(send(m_otherNode, {s_test, s_rotor}));
    EXPECT_THAT(said(), IsEmpty());
    acknowledge(s_reset);
    EXPECT_THAT(said(),
                ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_sendTest, "wire 60"));
    acknowledge(s_test);
    EXPECT_THAT(said(),
                ElementsAre(s_foundTest, "B answerAcknowledged 1 1", s_sendRotor, "wire 63"));
}

TEST_F(OutcomeTest, NodeLostToABatchOnAnotherChannel)
{
    sendReset();
    send(m_otherNode, {s_test});
    send(m_farNode, {s_rotor});
    said();
    acknowledge(s_reset);
    EXPECT_THAT(said(),
                ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_sendTest, "wire 60"));
    acknowledge(s_test);
    EXPECT_THAT(said(), ElementsAre(s_foundTest, "A answerAcknowledged 1 1", s_idle, s_dequed));
}

TEST_F(OutcomeTest, NodeGivenToABatchOnAnotherChannel)
{
    send(m_farNode, {s_rotor, s_test});
    send(m_node, {s_reset});
    send(m_otherNode, {s_test});
    said();
    acknowledge(s_rotor);
    EXPECT_THAT(said(), ElementsAre("log Received ACK for command: 63 | answer command: 63",
                                    "C answerAcknowledged 1 1", s_sendTest, "wire 60"));
    acknowledge(s_test); // channel 3 has not sent it yet
    EXPECT_THAT(said(), ElementsAre(s_foundTest, "B answerAcknowledged 1 1", s_idle, s_dequed));
}
