#include "canbus/canprotocol_vy.h"
#include "canbus/protocoltest.h"

#include "support/casename.h"
#include "support/logspy.h"

#include <gtest/gtest.h>

using namespace ProtocolAddress;

namespace {

class CanAnswers : public ProtocolFixture<CanProtocol_Vy>
{
protected:
    bool sendShared(int command = 42)
    {
        return m_pProtocol->send(outgoing(command, {}, Shared), channel());
    }

    void process(int answerCommand, const CanBytes &data)
    {
        m_pProtocol->processDecodedIncomingMessage(messageFrom(Board, answerCommand, data));
    }
};

QString noChannel(int command)
{
    return QStringLiteral("Corresponding channel not found for a CAN answer: answer to command: "
                          "%1, ignoring it")
        .arg(command);
}

const QString s_acknowledged = QStringLiteral("Received ACK for command: 42 | answer command: 42");
const QString s_refused =
    QStringLiteral("Sent command: 42 | answer command: 42 | Received an ACK NOT, handled as "
                   "timeout, resending last message");

} // namespace

// -- acknowledged ---------------------------------------------------------------------------------

TEST_F(CanAnswers, AcknowledgeEndsTheExchange)
{
    LogSpy log;
    send();
    timeline();
    advance(100);
    answer(1);
    EXPECT_EQ(timeline(), Timeline{"100 answer 1"});
    EXPECT_FALSE(channel()->isWaitingForAnswer());
    EXPECT_EQ(m_answers.first().pChannel, channel());
    EXPECT_EQ(m_answers.first().pMessage->command(), 1);
    EXPECT_EQ(m_answers.first().pMessage->source(), Board);
    EXPECT_EQ(m_answers.first().pMessage->data(), bytes("00 2a")) << "the answered command";
    EXPECT_EQ(log.count(s_acknowledged), 1);
    EXPECT_EQ(log.count("", 3), 0);
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanAnswers, WaitIsOverWhenTheAcknowledgeIsTold)
{
    bool isWaiting = true;
    QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::answerReceived, m_pProtocol.get(),
                     [&](CanBusChannel *pChannel) { isWaiting = pChannel->isWaitingForAnswer(); });
    send();
    answer(1);
    EXPECT_FALSE(isWaiting);
}

TEST_F(CanAnswers, AcknowledgeAfterAResendEndsTheExchange)
{
    send();
    advance(2400);
    timeline();
    answer(1);
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{"2400 answer 1"});
}

TEST_F(CanAnswers, SecondAcknowledgeIsReportedAgain)
{
    send();
    answer(1);
    answer(1);
    EXPECT_EQ(m_answers.size(), 2);
}

TEST_F(CanAnswers, AcknowledgeAfterTheTimeOutIsReported)
{
    send();
    advance(3600);
    timeline();
    answer(1);
    EXPECT_EQ(timeline(), Timeline{"3600 answer 1"});
}

TEST_F(CanAnswers, AcknowledgeInsideTheWriteIsNotTheAnswerToThatMessage)
{
    // A board cannot know of the message yet: it is not the channel's last one.
    LogSpy log;
    bool isAnswered = false;
    m_pInterface->setOnWrite([&](const CanFrame &) {
        if (!std::exchange(isAnswered, true))
            answer(1);
    });
    EXPECT_TRUE(send());
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    EXPECT_TRUE(m_answers.isEmpty());
    EXPECT_EQ(log.count(noChannel(42), 3), 1);
}

// -- refused --------------------------------------------------------------------------------------

TEST_F(CanAnswers, ThirdRefusalIsReportedAndThenTheTimeOut)
{
    LogSpy log;
    send();
    timeline();
    advance(100);
    answer(2);
    EXPECT_EQ(timeline(), (Timeline{"100 writes 42", "100 sent 42"}));
    EXPECT_EQ(channel()->resendCounter(), 1);
    advance(100);
    answer(2);
    EXPECT_EQ(timeline(), (Timeline{"200 writes 42", "200 sent 42"}));
    EXPECT_EQ(channel()->resendCounter(), 2);
    advance(100);
    answer(2);
    EXPECT_EQ(timeline(), Timeline{"300 answer 3"});
    EXPECT_EQ(m_answers.first().pMessage->command(), 2);
    EXPECT_EQ(m_answers.first().pChannel, channel());
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    EXPECT_EQ(log.count(s_refused, 3, Log::CanBus), 3);

    advance(1099);
    EXPECT_EQ(timeline(), Timeline{});
    advance(1);
    EXPECT_EQ(timeline(), Timeline{"1400 answer 4"}) << "1200 ms after the second resend";
    EXPECT_FALSE(channel()->isWaitingForAnswer());
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanAnswers, RefusalAndTimeOutCountTogether)
{
    send();
    advance(1200);
    timeline();
    advance(100);
    answer(2);
    EXPECT_EQ(timeline(), (Timeline{"1300 writes 42", "1300 sent 42"}));
    advance(1199);
    EXPECT_EQ(timeline(), Timeline{});
    advance(1);
    EXPECT_EQ(timeline(), Timeline{"2500 answer 4"});
}

TEST_F(CanAnswers, RefusalAfterTwoTimeOutsIsReported)
{
    send();
    advance(2400);
    timeline();
    advance(50);
    answer(2);
    advance(10000);
    EXPECT_EQ(timeline(), (Timeline{"2450 answer 3", "3600 answer 4"}));
}

TEST_F(CanAnswers, AcknowledgeAfterRefusalsEndsTheExchange)
{
    send();
    answer(2);
    answer(2);
    timeline();
    answer(1);
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{"0 answer 1"});
}

TEST_F(CanAnswers, RefusalThatComesAfterTheAcknowledgeResendsAndAwaitsNothing)
{
    send();
    answer(1);
    timeline();
    advance(100);
    answer(2);
    EXPECT_EQ(timeline(), (Timeline{"100 writes 42", "100 sent 42"}));
    EXPECT_FALSE(channel()->isWaitingForAnswer());
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanAnswers, RefusalAfterTheReportedTimeOutIsReportedToo)
{
    send();
    advance(3600);
    timeline();
    answer(2);
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{"3600 answer 3"});
}

// -- foreign --------------------------------------------------------------------------------------

struct ForeignCase
{
    const char *pName;
    int answerCommand;
    int answered;
    int source;
};

class CanForeignAnswers : public CanAnswers, public ::testing::WithParamInterface<ForeignCase>
{
};

TEST_P(CanForeignAnswers, AreLoggedAndChangeNothing)
{
    LogSpy log;
    send(42);
    timeline();
    answer(GetParam().answerCommand, GetParam().answered, GetParam().source);
    EXPECT_EQ(timeline(), Timeline{}) << "and no answer is acknowledged";
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    EXPECT_EQ(channel()->resendCounter(), 0);
    EXPECT_EQ(log.count(noChannel(GetParam().answered), 3, Log::CanBus), 1);
    advance(1199);
    EXPECT_EQ(timeline(), Timeline{});
    advance(1);
    EXPECT_EQ(timeline(), (Timeline{"1200 writes 42", "1200 sent 42"}));
}

const ForeignCase s_foreignCases[] = {
    {"AckOfAnotherCommand", 1, 43, Board},
    {"RefusalOfAnotherCommand", 2, 43, Board},
    {"AckOfAnotherBoard", 1, 42, OtherBoard},
    {"RefusalOfAnotherBoard", 2, 42, OtherBoard},
    {"FromTheSharedAddress", 1, 42, Shared},
    {"HighByteOnly", 1, 0x2A00, Board},
    {"WithTheHighByteSet", 1, 0x012A, Board},
    {"NoCommand", 1, 0xFFFF, Board},
    {"CommandZero", 2, 0, Board},
};
INSTANTIATE_TEST_SUITE_P(Answers, CanForeignAnswers, ::testing::ValuesIn(s_foreignCases), caseName);

TEST_F(CanAnswers, EarlyAnswerFindsNoChannel)
{
    LogSpy log;
    answer(1);
    EXPECT_EQ(log.count(noChannel(42), 3, Log::CanBus), 1);
    channel();
    answer(1);
    EXPECT_EQ(log.count(noChannel(42), 3, Log::CanBus), 2);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanAnswers, ChannelThatNeverSentMatchesNoAnswer)
{
    // Its message has command and destination -1, 0xFFFF and 0x7FF in an answer's fields.
    channel();
    answer(1, 0xFFFF, 0x7FF);
    answer(2, 0xFFFF, 0x7FF);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanAnswers, ChannelWithoutLastMessageIsPassedOver)
{
    channel(1)->setLastMessageSent({});
    send(42, channel(2));
    answer(1);
    ASSERT_EQ(m_answers.size(), 1);
    EXPECT_EQ(m_answers.first().pChannel, channel(2));
}

TEST_F(CanAnswers, ChannelWithTheLowestNumberIsTheOne)
{
    send(42, channel(9));
    send(42, channel(3));
    answer(1);
    ASSERT_EQ(m_answers.size(), 1);
    EXPECT_EQ(m_answers.first().pChannel, channel(3));
    EXPECT_TRUE(channel(9)->isWaitingForAnswer());
    answer(1);
    EXPECT_EQ(m_answers.last().pChannel, channel(3)) << "whether it still waits or not";
    EXPECT_TRUE(channel(9)->isWaitingForAnswer());
}

TEST_F(CanAnswers, ChannelIsFoundByTheBoardToo)
{
    send(42, channel(3));
    m_pProtocol->send(outgoing(42, {}, OtherBoard), channel(9));
    answer(1, 42, OtherBoard);
    ASSERT_EQ(m_answers.size(), 1);
    EXPECT_EQ(m_answers.first().pChannel, channel(9));
}

TEST_F(CanAnswers, LongCommandsAreMatchedWhole)
{
    send(0x7FF);
    answer(1, 0x7FF);
    EXPECT_EQ(m_answers.size(), 1);
}

TEST_F(CanAnswers, AnswerWithoutDataIsOneToCommandZero)
{
    LogSpy log;
    process(1, {});
    EXPECT_EQ(log.count(noChannel(0), 3, Log::CanBus), 1);
    send(0);
    process(1, {});
    EXPECT_EQ(m_answers.size(), 1);
}

TEST_F(CanAnswers, MissingByteCountsAsZero)
{
    LogSpy log;
    process(1, bytes("01"));
    EXPECT_EQ(log.count(noChannel(256), 3, Log::CanBus), 1);
}

TEST_F(CanAnswers, NullMessageIsNone)
{
    LogSpy log;
    m_pProtocol->processDecodedIncomingMessage({});
    EXPECT_EQ(timeline(), Timeline{});
    EXPECT_TRUE(log.texts().isEmpty());
}

TEST_F(CanAnswers, SimulatedAcknowledgeIsAMessageOfItsOwn)
{
    send();
    timeline();
    auto pMessage = QSharedPointer<CanMessage>::create(Own, 1, bytes("00 2a"));
    pMessage->setSource(Board);
    pMessage->setSimulated(true);
    m_pProtocol->processDecodedIncomingMessage(pMessage);
    EXPECT_EQ(timeline(), (Timeline{"0 writes 1", "0 received 1"}));
    EXPECT_TRUE(channel()->isWaitingForAnswer());
}

// -- the shared address ---------------------------------------------------------------------------

TEST_F(CanAnswers, AnyBoardAnswersForTheSharedAddress)
{
    for (const int source : {Board, OtherBoard, Shared, 0}) {
        m_answers.clear();
        sendShared();
        answer(1, 42, source);
        ASSERT_EQ(m_answers.size(), 1);
        EXPECT_EQ(m_answers.first().type, CanAnswer::AnswerAck);
    }
}

TEST_F(CanAnswers, AnswerForTheSharedAddressMustBeToItsCommand)
{
    sendShared();
    answer(1, 43);
    EXPECT_TRUE(m_answers.isEmpty());
    EXPECT_TRUE(channel()->isWaitingForAnswer());
}

TEST_F(CanAnswers, SecondBoardThatAnswersForTheSharedAddressIsNotHeard)
{
    LogSpy log;
    sendShared();
    answer(1, 42, Board);
    EXPECT_EQ(channel()->lastMessageSent()->command(), -1);
    EXPECT_EQ(channel()->lastMessageSent()->destination(), 0xFFFF);
    answer(1, 42, OtherBoard);
    answer(2, 42, OtherBoard);
    EXPECT_EQ(m_answers.size(), 1);
    EXPECT_EQ(log.count(noChannel(42), 3, Log::CanBus), 2);
}

TEST_F(CanAnswers, MessageToOneBoardIsKeptAfterItsAnswer)
{
    send();
    answer(1);
    EXPECT_EQ(channel()->lastMessageSent()->command(), 42);
}

TEST_F(CanAnswers, SharedMessageIsForgottenAfterTheAnswerIsTold)
{
    int command = 0;
    QObject::connect(
        m_pProtocol.get(), &AbstractCanProtocol::answerReceived, m_pProtocol.get(),
        [&](CanBusChannel *pChannel) { command = pChannel->lastMessageSent()->command(); });
    sendShared();
    answer(1);
    EXPECT_EQ(command, 42);
}

TEST_F(CanAnswers, SharedMessageSentInTheAnswersSlotIsForgottenWithIt)
{
    const auto connection =
        QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::answerReceived, m_pProtocol.get(),
                         [this] { sendShared(43); });
    sendShared(42);
    answer(1, 42);
    QObject::disconnect(connection);
    timeline();
    answer(1, 43);
    EXPECT_EQ(timeline(), Timeline{});
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    advance(10000);
    EXPECT_EQ(m_answers.last().type, CanAnswer::AnswerTimeout);
}

TEST_F(CanAnswers, MessageToABoardSentInTheSlotOfASharedAnswerIsKept)
{
    const auto connection =
        QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::answerReceived, m_pProtocol.get(),
                         [this] { send(43); });
    sendShared(42);
    answer(1, 42);
    QObject::disconnect(connection);
    answer(1, 43);
    EXPECT_EQ(m_answers.size(), 2);
}

TEST_F(CanAnswers, SharedMessageIsKeptThroughTwoRefusalsAndForgottenWithTheThird)
{
    sendShared();
    answer(2, 42, Board);
    answer(2, 42, OtherBoard);
    EXPECT_EQ(channel()->lastMessageSent()->command(), 42);
    EXPECT_EQ(timeline(), (Timeline{"0 writes 42", "0 sent 42", "0 writes 42", "0 sent 42",
                                    "0 writes 42", "0 sent 42"}));
    answer(2, 42, Board);
    EXPECT_EQ(timeline(), Timeline{"0 answer 3"});
    EXPECT_EQ(channel()->lastMessageSent()->command(), -1);
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    answer(1, 42, Board);
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{"1200 answer 4"});
}
