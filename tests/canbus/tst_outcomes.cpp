#include "outcomebench.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

// The rows of "What becomes of a message" in docs/architecture.md, as far as the first four groups
// go; the others are in tst_outcomes_meanwhile.cpp.

// Answered.

TEST_F(OutcomeTest, Acknowledged)
{
    sendReset();
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_idle, s_dequed));
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, AcknowledgedWithMoreInTheQueue)
{
    send(m_node, {s_reset, s_test});
    EXPECT_THAT(said(), ElementsAre(s_sendReset, "wire 36"));
    acknowledge(s_reset);
    EXPECT_THAT(said(),
                ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_sendTest, "wire 60"));
    acknowledge(s_test);
    EXPECT_THAT(said(), ElementsAre(s_foundTest, "A answerAcknowledged 1 1", s_idle, s_dequed));
}

TEST_F(OutcomeTest, AckNotOnce)
{
    sendReset();
    refuse(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_refusal, s_sendReset, "wire 36"));
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_idle, s_dequed));
}

TEST_F(OutcomeTest, AckNotTwice)
{
    sendReset();
    refuse(s_reset);
    refuse(s_reset);
    EXPECT_THAT(said(),
                ElementsAre(s_refusal, s_sendReset, "wire 36", s_refusal, s_sendReset, "wire 36"));
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_idle, s_dequed));
}

TEST_F(OutcomeTest, AckNotThreeTimes)
{
    sendReset();
    refuse(s_reset);
    refuse(s_reset);
    said();
    refuse(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_refusal, "A answerError 3 2", s_idle, s_dequed));
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, AckNotAndTimeOutsCountTogether)
{
    sendReset();
    advance(500ms);
    refuse(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_refusal, s_sendReset, "wire 36"));
    advance(1199ms); // the attempt has started the timer anew
    EXPECT_THAT(said(), IsEmpty());
    advance(1ms);
    EXPECT_THAT(said(), ElementsAre(s_sendReset, "wire 36"));
    expectReport(m_timedOut);
}

TEST_F(OutcomeTest, TimedOut)
{
    sendReset();
    expectTwoResends();
    expectReport(m_timedOut);
}

TEST_F(OutcomeTest, TimedOutWithTheTestProtocol)
{
    m_pBus->setProtocolType(CanBus::CanProtocolTest);
    sendReset();
    expectTwoResends();
    expectReport({"bus communicationTimeout 4 null", "A answerError 4 null", s_idle, s_dequed});
}

TEST_F(OutcomeTest, DroppedWithItsBatch)
{
    send(m_node, {s_reset, s_test, s_rotor});
    said();
    expectTwoResends();
    expectReport(m_timedOut);
}

TEST_F(OutcomeTest, DroppedBehindAMessageThatFails)
{
    sendReset();
    EXPECT_TRUE(send(m_otherNode, {s_test, s_rotor}));
    EXPECT_THAT(said(), IsEmpty());
    expectTwoResends();
    expectReport({"bus communicationTimeout 4 36", "A answerError 4 36", "B answerError 4 36",
                  s_idle, s_dequed});
}

TEST_F(OutcomeTest, DroppedBehindAMessageOfTheSameNode)
{
    sendReset();
    EXPECT_TRUE(send(m_node, {s_test}));
    expectTwoResends();
    expectReport({"bus communicationTimeout 4 36", "A answerError 4 36", "A answerError 4 36",
                  s_idle, s_dequed});
}

// Not sent.

TEST_F(OutcomeTest, RefusedWithoutInterface)
{
    m_pBus->setInterface(nullptr);
    EXPECT_FALSE(send(m_node, {s_reset}));
    EXPECT_THAT(said(),
                ElementsAre("log Interface not set. Call CanBus::setup or CanBus::setInterface",
                            s_aborting, MatchesRegex(s_notAvailable)));
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, RefusedWithAClosedInterface)
{
    m_pInterface->setOpen(false);
    EXPECT_FALSE(send(m_node, {s_reset}));
    EXPECT_THAT(said(), ElementsAre("log Interface is not opened (call ::open())", s_aborting,
                                    MatchesRegex(s_notAvailable)));
}

TEST_F(OutcomeTest, RefusedWithoutProtocol)
{
    CanBus::deleteInstance(); // a protocol that was set cannot be taken away
    m_pBus = CanBus::instance();
    m_journal.hear(m_pBus);
    m_pBus->setInterface(m_pInterface);
    EXPECT_FALSE(send(m_node, {s_reset}));
    EXPECT_THAT(said(),
                ElementsAre("log Protocol not set. Call CanBus::setup or CanBus::setProtocol",
                            s_aborting, MatchesRegex(s_notAvailable)));
}

TEST_F(OutcomeTest, RefusedBehindAQueue)
{
    send(m_node, {s_test, s_rotor});
    said();
    EXPECT_FALSE(send(m_otherNode, {s_reset}));
    EXPECT_THAT(said(), ElementsAre("log Protocol is busy sending or waiting for an answer",
                                    s_aborting, MatchesRegex(s_notAvailable)));
}

TEST_F(OutcomeTest, RefusedSilently)
{
    class QuietNode : public CanBusNode
    {
    public:
        using CanBusNode::CanBusNode;
        int type() const override { return 1; }
    } quiet(s_channelId);
    m_journal.hear(&quiet, QStringLiteral("quiet"));
    send(m_node, {s_test, s_rotor});
    said();
    EXPECT_FALSE(send(quiet, {s_reset}));
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, RefusedWithANullMessage)
{
    QList<CanMessage *> list = {message(s_reset), nullptr};
    EXPECT_FALSE(m_pBus->send(list, &m_node));
    EXPECT_THAT(said(), ElementsAre("log Tried to send a NULL message. Aborting sending",
                                    MatchesRegex(s_notAvailable)));
    EXPECT_TRUE(list.isEmpty());
}

TEST_F(OutcomeTest, RefusedWithoutNode)
{
    QList<CanMessage *> list = messages({s_reset});
    EXPECT_FALSE(m_pBus->send(list, nullptr));
    EXPECT_THAT(said(), ElementsAre("assert 330: CanBusNode cannot be null"));
    EXPECT_TRUE(list.isEmpty());
}

// Not written.

TEST_F(OutcomeTest, RefusedByTheInterface)
{
    m_pInterface->setRefusing(true);
    EXPECT_TRUE(send(m_node, {s_reset, s_test}));
    EXPECT_THAT(said(), ElementsAre(s_sendReset, "log : Sending failed."));
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, RefusedByTheInterfaceInTheMiddle)
{
    send(m_node, {s_reset, s_test, s_rotor});
    said();
    m_pInterface->setRefusing(true);
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_sendTest,
                                    "log : Sending failed."));
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, ResendRefusedByTheInterface)
{
    sendReset();
    m_pInterface->setRefusing(true);
    for (int attempt = 2; attempt <= 3; ++attempt) {
        advance(1199ms);
        EXPECT_THAT(said(), IsEmpty()) << attempt;
        advance(1ms);
        EXPECT_THAT(said(), ElementsAre(s_sendReset)) << attempt;
    }
    expectReport(m_timedOut);
}

TEST_F(OutcomeTest, SendingErrorGenerated)
{
    send(m_node, {s_reset, s_test});
    said();
    m_pBus->generateSendingErrorAnswer(s_channelId);
    EXPECT_THAT(said(), ElementsAre("A answerError 2 null", s_idle, s_dequed));
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, BatchFromASlot)
{
    sendReset();
    sendFromSlot({s_test, s_rotor});
    acknowledge(s_reset);
    EXPECT_THAT(
        said(),
        ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_sendTest, "wire 60",
                    "log ERROR: Failed to send message, chanell waiting for can answer",
                    "A answerError 2 null", s_idle, s_dequed,
                    "bus generateSendingErrorAnswerRequested 3")); // the bus hears it before us
    acknowledge(s_test);
    EXPECT_THAT(said(), ElementsAre(s_foundTest, s_idle, s_dequed));
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, OneFromASlot)
{
    sendReset();
    sendFromSlot({s_test});
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_sendTest, "wire 60",
                                    "log : No more messages to send but waiting for answser"));
    acknowledge(s_test);
    EXPECT_THAT(said(), ElementsAre(s_foundTest, "A answerAcknowledged 1 1", s_idle, s_dequed));
}

TEST_F(OutcomeTest, BatchFromASlotOnTheDummy)
{
    useDummy(true);
    send(m_node, {s_reset});
    said();
    sendFromSlot({s_test, s_rotor});
    advance(20ms);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_sendTest, "wire 60",
                                    "assert 478: Can protocol not instanciated, or channel waiting "
                                    "for can answer"));
    advance(20ms);
    EXPECT_THAT(said(),
                ElementsAre(s_foundTest, "A answerAcknowledged 1 1", s_sendRotor, "wire 63"));
}

TEST_F(OutcomeTest, StoppedMeanwhile)
{
    send(m_node, {s_reset, s_test});
    said();
    m_pBus->stopSending(channel());
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, s_idle, s_dequed));
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

// Acknowledges that come at another time.

TEST_F(OutcomeTest, AcknowledgedInsideTheWrite)
{
    m_pInterface->setOnWrite([this](const CanFrame &frame) {
        m_journal.addFrame(frame);
        acknowledge(s_reset);
    });
    EXPECT_TRUE(send(m_node, {s_reset}));
    EXPECT_THAT(said(), ElementsAre(s_sendReset, "wire 36", s_notFoundReset));
    advance(1199ms);
    EXPECT_THAT(said(), IsEmpty());
    advance(1ms); // the channel knows the message from its first attempt
    EXPECT_THAT(said(), ElementsAre(s_sendReset, "wire 36", s_foundReset,
                                    "A answerAcknowledged 1 1", s_idle, s_dequed));
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
}

TEST_F(OutcomeTest, AcknowledgedInsideMessageSent)
{
    bool isFirst = true;
    QObject::connect(m_pBus->canProtocol(), &AbstractCanProtocol::messageSent, m_pBus, [&] {
        if (std::exchange(isFirst, false))
            acknowledge(s_reset);
    });
    EXPECT_TRUE(send(m_node, {s_reset}));
    EXPECT_THAT(said(), ElementsAre(s_sendReset, "wire 36", s_foundReset,
                                    "A answerAcknowledged 1 1", s_idle, s_dequed));
    EXPECT_TRUE(channel()->isWaitingForAnswer()); // the send goes on after the slot
    expectTwoResends();
    expectReport({"bus communicationTimeout 4 36", s_idle, s_dequed});
}

TEST_F(OutcomeTest, AcknowledgedTwice)
{
    sendReset();
    acknowledge(s_reset);
    said();
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, s_idle, s_dequed));
}

TEST_F(OutcomeTest, AcknowledgedTwiceBeforeTheSameCommand)
{
    send(m_node, {s_reset, s_reset, s_test});
    acknowledge(s_reset);
    said();
    acknowledge(s_reset);
    EXPECT_THAT(said(),
                ElementsAre(s_foundReset, "A answerAcknowledged 1 1", s_sendTest, "wire 60"));
}

TEST_F(OutcomeTest, AcknowledgedTwiceBeforeAnotherCommand)
{
    send(m_node, {s_reset, s_test});
    acknowledge(s_reset);
    said();
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_notFoundReset));
    EXPECT_TRUE(channel()->isWaitingForAnswer());
}

TEST_F(OutcomeTest, AcknowledgedLate)
{
    sendReset();
    timeOut();
    acknowledge(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_foundReset, s_idle, s_dequed));
}

TEST_F(OutcomeTest, RefusedAgainAfterTheAcknowledge)
{
    sendReset();
    acknowledge(s_reset);
    said();
    refuse(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_refusal, s_sendReset, "wire 36"));
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, RefusedLate)
{
    sendReset();
    timeOut();
    refuse(s_reset);
    EXPECT_THAT(said(), ElementsAre(s_refusal, s_idle, s_dequed));
    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(OutcomeTest, AcknowledgedForAnotherCommand)
{
    sendReset();
    acknowledge(s_test);
    EXPECT_THAT(said(), ElementsAre(s_notFoundTest));
    expectTwoResends();
    expectReport(m_timedOut);
}

TEST_F(OutcomeTest, AcknowledgedByAnotherBoard)
{
    sendReset();
    acknowledge(s_reset, s_otherBoard);
    EXPECT_THAT(said(), ElementsAre(s_notFoundReset));
    expectTwoResends();
    expectReport(m_timedOut);
}

TEST_F(OutcomeTest, AcknowledgedForAnotherChannel)
{
    sendReset();
    acknowledge(s_reset);
    send(m_farNode, {s_reset});
    said();
    acknowledge(s_reset); // meant for channel 5; channel 3 has sent the same
    EXPECT_THAT(said(), ElementsAre(s_foundReset, s_idle, s_dequed));
    expectTwoResends();
    expectReport({"bus communicationTimeout 4 36", "C answerError 4 36", s_idle, s_dequed});
}
