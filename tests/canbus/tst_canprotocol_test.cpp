#include "canbus/canprotocol_test.h"

#include "canbus/protocoltest.h"
#include "canbus/testmachine.h"

#include "support/casename.h"
#include "support/logspy.h"

#include <gtest/gtest.h>

using namespace ProtocolAddress;

namespace {

/// The protocol with its settings at hand.
class SteeredProtocol : public CanProtocol_Test
{
public:
    using CanProtocol_Test::CanProtocol_Test;

    using CanProtocol_Test::isRealMode;
    using CanProtocol_Test::m_answerTypeTest;
    using CanProtocol_Test::m_incomingMessagesTypeTest;
    using CanProtocol_Test::setAutomaticAcknowledge;
};

class RealMode : public ProtocolFixture<SteeredProtocol>
{
protected:
    RealMode()
        : ProtocolFixture(true)
    {
    }

    TestMachine m_machine{HardwareEnvironment::Ostrel};
};

class PureTestMode : public ProtocolFixture<SteeredProtocol>
{
protected:
    PureTestMode()
        : ProtocolFixture(false)
    {
    }

    /// Any bytes will do.
    void receiveAnything(int source = Board) { receive(source, 0, bytes("99")); }

    /// Answers are matched by the first two bytes of what was sent.
    bool sendItsOwnCommand() { return m_pProtocol->send(outgoing(42, bytes("00 2a")), channel()); }
};

} // namespace

// -- both modes -----------------------------------------------------------------------------------

TEST(TestProtocolMode, IsWhatTheConstructorWasGiven)
{
    EXPECT_TRUE(SteeredProtocol(nullptr, true).isRealMode());
    EXPECT_FALSE(SteeredProtocol(nullptr, false).isRealMode());
}

TEST(TestProtocolMode, SettingsBeginWithAcknowledges)
{
    const SteeredProtocol protocol(nullptr, false);
    EXPECT_EQ(protocol.m_incomingMessagesTypeTest, 0);
    EXPECT_EQ(protocol.m_answerTypeTest, 1);
}

TEST_F(RealMode, LastTimeOutIsReportedWithoutMessage)
{
    send();
    timeline();
    advance(10000);
    EXPECT_EQ(timeline(), (Timeline{"1200 writes 42", "1200 sent 42", "2400 writes 42",
                                    "2400 sent 42", "3600 answer 4"}));
    EXPECT_EQ(m_answers.first().pMessage, nullptr);
    EXPECT_FALSE(channel()->isWaitingForAnswer());
}

TEST_F(PureTestMode, LastTimeOutIsReportedWithoutMessage)
{
    send();
    m_pProtocol->onAnswerTimeoutError(channel());
    ASSERT_EQ(m_answers.size(), 1);
    EXPECT_EQ(m_answers.first().type, CanAnswer::AnswerTimeout);
    EXPECT_EQ(m_answers.first().pMessage, nullptr);
    EXPECT_EQ(m_answers.first().pChannel, channel());
    EXPECT_FALSE(channel()->isWaitingForAnswer());
}

TEST_F(RealMode, FramesForEveryAddressAreTaken)
{
    receive(frame(Board, OtherBoard, 0, streamOf(42, {})));
    EXPECT_EQ(m_received.size(), 1);
}

// -- real mode ------------------------------------------------------------------------------------

TEST_F(RealMode, MessagesOfSeveralFramesArePutTogether)
{
    const auto all = framesOf(Board, Own, 42, countingBytes(19));
    for (const CanFrame &one : all)
        receive(one);
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.first()->data(), bigEndian(19) + countingBytes(19));
    EXPECT_EQ(m_pInterface->written().first().data(), answerStream(1, 42));
}

TEST_F(RealMode, MissingFramesAreLoggedWithEveryFrameButTheLast)
{
    const QList<CanFrame> frames = framesOf(Board, Own, 42, countingBytes(19));
    LogSpy log;
    const int lines[] = {0, 1, 2, 2};
    for (int i = 0; i < frames.size(); ++i) {
        receive(frames.at(i));
        EXPECT_EQ(log.count("-> still missing one or more frames"), lines[i]);
    }
}

TEST_F(RealMode, FollowingFrameOfTheWrongSizeDropsTheMessage)
{
    LogSpy log;
    receive(framesOf(Board, Own, 42, countingBytes(19)).constFirst());
    receive(Board, 1, bytes("11 22 33 44 55 66 77"));
    EXPECT_EQ(log.count("0x11 0x22 0x33 0x44 0x55 0x66 0x77 size( 7 )!= thisFrameDataSize( 8 ) - "
                        "FrameDataMaxSize: 8 dataSize: 25 lastFrameNumber: 1",
                        4, Log::CanBus),
              1);
    EXPECT_EQ(log.count("multiple frames CAN message decoding FAIL"), 1);
    EXPECT_EQ(log.count("-> still missing one or more frames"), 0);
    EXPECT_EQ(m_pProtocol->incomingMessageCount(), 0);
}

TEST_F(RealMode, WrongChecksumDropsTheMessage)
{
    LogSpy log;
    receive(Board, 0, bytes("02 00 2a 00 00 29"));
    EXPECT_EQ(log.count("CHECKSUM Error", 4), 1);
    EXPECT_EQ(log.count("new CAN message decoding FAIL"), 1);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(RealMode, OtherStartByteIsNotDecoded)
{
    LogSpy log;
    receive(Board, 0, bytes("01 00 2a 00 00 2b"));
    EXPECT_EQ(log.count("new CAN message decoding FAIL"), 1);
}

TEST_F(RealMode, AnswersAreThoseOfTheBoards)
{
    m_pProtocol->m_answerTypeTest = CanAnswer::AnswerAckNot;
    m_pProtocol->m_incomingMessagesTypeTest = 1;
    LogSpy log;
    send();
    answer(1);
    ASSERT_EQ(m_answers.size(), 1);
    EXPECT_EQ(m_answers.first().type, CanAnswer::AnswerAck);
    EXPECT_EQ(log.count("m_answerTypeTest:"), 0) << "the settings are for the other mode";
    bool isAnswer = true;
    EXPECT_EQ(m_pProtocol->identifyAnswer(CanMessage(Own, 2), &isAnswer).type(),
              CanAnswer::AnswerAckNot);
    EXPECT_TRUE(isAnswer);
    EXPECT_EQ(m_pProtocol->identifyAnswer(CanMessage(Own, 3), &isAnswer).type(),
              CanAnswer::AnswerNone);
    EXPECT_FALSE(isAnswer);
    EXPECT_EQ(m_pProtocol->identifyAnswer(CanMessage(Own, 1), nullptr).type(),
              CanAnswer::AnswerAck);
}

TEST_F(RealMode, HeaderIsTheFrameItself)
{
    const CanFrame received = frame(Board, Own, 9, bytes("01 02"));
    EXPECT_EQ(m_pProtocol->decodeMessageHeader(received).id(), received.id());
    EXPECT_EQ(m_pProtocol->decodeMessageHeader(received).data(), received.data());
}

TEST_F(RealMode, LoopBackIsNotCompleted)
{
    channel()->setLoopBack(true);
    EXPECT_TRUE(send());
    turn();
    EXPECT_TRUE(m_answers.isEmpty());
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    advance(3599);
    EXPECT_TRUE(m_answers.isEmpty());
    advance(1);
    ASSERT_EQ(m_answers.size(), 1);
    EXPECT_EQ(m_answers.first().type, CanAnswer::AnswerTimeout);
    EXPECT_TRUE(m_pInterface->written().isEmpty());
}

TEST_F(RealMode, NothingIsAcknowledgedByItself)
{
    send();
    timeline();
    turn();
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(RealMode, AutomaticAcknowledgeIsAMessageOfItsOwn)
{
    m_pProtocol->setAutomaticAcknowledge(true);
    m_pProtocol->send(outgoing(0x123), channel());
    EXPECT_EQ(timeline(), (Timeline{"0 writes 291", "0 sent 291"}));
    turn();
    EXPECT_EQ(timeline(), (Timeline{"0 writes 1", "0 received 1"})) << "on a later turn";
    const Message &pAcknowledge = m_received.first();
    EXPECT_EQ(pAcknowledge->destination(), 0x4A8) << "this machine's own board";
    EXPECT_EQ(pAcknowledge->source(), -1);
    EXPECT_EQ(pAcknowledge->data(), bytes("01 23"));
    EXPECT_TRUE(pAcknowledge->isSimulated());
    EXPECT_TRUE(channel()->isWaitingForAnswer()) << "it answers no channel";
    ASSERT_EQ(m_pInterface->traces().size(), 1);
    EXPECT_EQ(m_pInterface->traces().first().comment,
              QLatin1String("->SimulatedIncomingMessage commandId: 1"));

    advance(10000);
    EXPECT_EQ(m_received.size(), 3) << "one for each resend too";
    ASSERT_EQ(m_answers.size(), 1);
    EXPECT_EQ(m_answers.first().type, CanAnswer::AnswerTimeout);
}

// -- pure test mode: what answers -----------------------------------------------------------------

struct TypeCase
{
    const char *pName;
    int incomingType;
    int answerType;
    bool isAnswer;
    CanAnswer::AnswerType type;
};

class PureTestModeTypes : public PureTestMode, public ::testing::WithParamInterface<TypeCase>
{
};

TEST_P(PureTestModeTypes, AreWhatTheSettingsSay)
{
    m_pProtocol->m_incomingMessagesTypeTest = GetParam().incomingType;
    m_pProtocol->m_answerTypeTest = GetParam().answerType;
    LogSpy log;
    for (const int command : {1, 2, 42}) {
        bool isAnswer = !GetParam().isAnswer;
        const CanAnswer answer = m_pProtocol->identifyAnswer(CanMessage(Own, command), &isAnswer);
        EXPECT_EQ(isAnswer, GetParam().isAnswer);
        EXPECT_EQ(answer.type(), GetParam().type);
    }
    EXPECT_EQ(log.count(QStringLiteral("m_answerTypeTest: %1  m_incomingMessagesTypeTest: %2")
                            .arg(GetParam().answerType)
                            .arg(GetParam().incomingType)),
              3);
    m_pProtocol->identifyAnswer(CanMessage(Own, 1), nullptr);
}

const TypeCase s_typeCases[] = {
    {"Ack", 0, 1, true, CanAnswer::AnswerAck},
    {"AckNot", 0, 3, true, CanAnswer::AnswerAckNot},
    {"TimeoutIsNoAnswer", 0, 4, false, CanAnswer::AnswerNone},
    {"None", 0, 0, true, CanAnswer::AnswerNone},
    {"SendingError", 0, 2, true, CanAnswer::AnswerNone},
    {"Unknown", 0, 5, true, CanAnswer::AnswerNone},
    {"Negative", 0, -1, true, CanAnswer::AnswerNone},
    {"SpontaneousAck", 1, 1, false, CanAnswer::AnswerNone},
    {"SpontaneousAckNot", 7, 3, false, CanAnswer::AnswerNone},
    {"SpontaneousForANegative", -1, 1, false, CanAnswer::AnswerNone},
};
INSTANTIATE_TEST_SUITE_P(Settings, PureTestModeTypes, ::testing::ValuesIn(s_typeCases), caseName);

// -- pure test mode: exchanges --------------------------------------------------------------------

TEST_F(PureTestMode, AnyFrameAcknowledgesWhatWasSent)
{
    sendItsOwnCommand();
    timeline();
    receiveAnything();
    EXPECT_EQ(timeline(), Timeline{"0 answer 1"});
    EXPECT_FALSE(channel()->isWaitingForAnswer());
    const Message &pMessage = m_answers.first().pMessage;
    EXPECT_EQ(pMessage->command(), 42);
    EXPECT_EQ(pMessage->data(), bytes("00 2a"));
    EXPECT_EQ(pMessage->source(), Board);
    EXPECT_EQ(pMessage->destination(), Own);
}

TEST_F(PureTestMode, RefusedMessageIsSentThreeTimesAndThenTimesOut)
{
    m_pProtocol->m_answerTypeTest = CanAnswer::AnswerAckNot;
    sendItsOwnCommand();
    for (int i = 0; i < 3; ++i) {
        advance(100);
        receiveAnything();
    }
    advance(10000);
    EXPECT_EQ(timeline(),
              (Timeline{"0 writes 42", "0 sent 42", "100 writes 42", "100 sent 42", "200 writes 42",
                        "200 sent 42", "300 answer 3", "1400 answer 4"}));
}

TEST_F(PureTestMode, AnswerOfNoTypeIsHandledAsARefusal)
{
    m_pProtocol->m_answerTypeTest = CanAnswer::AnswerNone;
    LogSpy log;
    sendItsOwnCommand();
    timeline();
    receiveAnything();
    receiveAnything();
    receiveAnything();
    EXPECT_EQ(timeline(),
              (Timeline{"0 writes 42", "0 sent 42", "0 writes 42", "0 sent 42", "0 answer 0"}));
    EXPECT_EQ(log.count("Received an ACK NOT, handled as timeout, resending last message", 3), 3);
}

TEST_F(PureTestMode, TimeOutTypeMakesFramesSpontaneousAndTheSenderTimesOut)
{
    m_pProtocol->m_answerTypeTest = CanAnswer::AnswerTimeout;
    sendItsOwnCommand();
    timeline();
    receiveAnything();
    EXPECT_EQ(timeline(), (Timeline{"0 writes 1", "0 received 42"}));
    advance(3599);
    EXPECT_TRUE(m_answers.isEmpty());
    advance(1);
    ASSERT_EQ(m_answers.size(), 1);
    EXPECT_EQ(m_answers.first().type, CanAnswer::AnswerTimeout);
    EXPECT_EQ(m_answers.first().pMessage, nullptr);
}

TEST_F(PureTestMode, SpontaneousTypeLeavesTheChannelWaiting)
{
    m_pProtocol->m_incomingMessagesTypeTest = 1;
    sendItsOwnCommand();
    timeline();
    receiveAnything();
    EXPECT_EQ(timeline(), (Timeline{"0 writes 1", "0 received 42"}));
    EXPECT_TRUE(channel()->isWaitingForAnswer());
}

TEST_F(PureTestMode, PayloadThatNamesAnotherCommandMatchesNoChannel)
{
    LogSpy log;
    m_pProtocol->send(outgoing(42, bytes("00 07")), channel());
    receiveAnything();
    EXPECT_TRUE(m_answers.isEmpty());
    EXPECT_EQ(log.count("Corresponding channel not found for a CAN answer: answer to command: 7, "
                        "ignoring it",
                        3),
              1);
}

TEST_F(PureTestMode, LowestChannelIsCopied)
{
    m_pProtocol->m_incomingMessagesTypeTest = 1;
    m_pProtocol->send(outgoing(43), channel(9));
    m_pProtocol->send(outgoing(42), channel(2));
    receiveAnything();
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.first()->command(), 42);
}

TEST_F(PureTestMode, SentMessageIsNotChangedByItsCopy)
{
    m_pProtocol->m_incomingMessagesTypeTest = 1;
    const auto pMessage = outgoing(42, bytes("01"));
    m_pProtocol->send(pMessage, channel());
    receiveAnything(OtherBoard);
    EXPECT_EQ(m_received.first()->source(), OtherBoard);
    EXPECT_NE(m_received.first(), pMessage);
    EXPECT_EQ(pMessage->source(), -1);
    EXPECT_EQ(pMessage->destination(), Board);
}

TEST_F(PureTestMode, FrameWithoutChannelOrMessageHarmsNothing)
{
    receiveAnything();
    channel()->setLastMessageSent({});
    receiveAnything();
    advance(10000);
    EXPECT_TRUE(m_answers.isEmpty());
    EXPECT_TRUE(m_received.isEmpty());
    EXPECT_EQ(m_pProtocol->incomingMessageCount(), 0);
}

TEST_F(PureTestMode, NothingIsAcknowledgedByItself)
{
    m_pProtocol->setAutomaticAcknowledge(true);
    send();
    channel(6)->setLoopBack(true);
    send(42, channel(6));
    timeline();
    turn();
    EXPECT_EQ(timeline(), Timeline{});
}

// -- pure test mode: decoding ---------------------------------------------------------------------

TEST_F(PureTestMode, EveryNewFrameCompletesAMessage)
{
    m_pProtocol->send(outgoing(42, bytes("01 02 03 04 05 06 07 08 09")), channel());
    IncomingCanMessage entry;
    // An index, a start byte and a checksum that real boards would not get away with.
    EXPECT_TRUE(m_pProtocol->decodeNewMessageFrame(frame(OtherBoard, Shared, 5, {}), &entry));
    EXPECT_TRUE(entry.isComplete);
    EXPECT_EQ(entry.totalSize, 9);
    EXPECT_EQ(entry.pMessage->command(), 42);
    EXPECT_EQ(entry.pMessage->data(), bytes("01 02 03 04 05 06 07 08 09"));
    EXPECT_EQ(entry.pMessage->source(), OtherBoard);
    EXPECT_EQ(entry.pMessage->destination(), Shared);
}

TEST_F(PureTestMode, FollowingFrameIsAppendedUnchecked)
{
    IncomingCanMessage entry;
    entry.totalSize = 100;
    entry.pMessage->setData(bytes("01 02"));
    LogSpy log;
    EXPECT_TRUE(
        m_pProtocol->decodeIncompleteMessageFrame(frame(Board, Own, 1, bytes("03")), &entry));
    EXPECT_TRUE(entry.isComplete);
    EXPECT_EQ(entry.pMessage->data(), bytes("01 02 03"));
    EXPECT_EQ(log.count("thisFrameDataSize"), 0);
    EXPECT_EQ(log.count("-> still missing"), 0);
}

TEST_F(PureTestMode, HeaderHasIndexZero)
{
    send();
    EXPECT_TRUE(
        VYCanFrame::isFirstFrame(m_pProtocol->decodeMessageHeader(frame(Board, Own, 9, {}))));
}

TEST_F(PureTestMode, HeaderIsFilledFromWhatTheLowestChannelSentLast)
{
    m_pProtocol->send(outgoing(0x15D, bytes("11 22 33 44")), channel(7));
    m_pProtocol->send(outgoing(42), channel(9));
    const CanFrame received = frame(Board, Own, 9, bytes("99"));
    const CanFrame header = m_pProtocol->decodeMessageHeader(received);
    EXPECT_EQ(header.data(), bytes("02 01 5d 00 04 11 22 33"));
    EXPECT_EQ(VYCanFrame::sourceAddress(header), Board);
    EXPECT_EQ(VYCanFrame::destinationAddress(header), Own);
}

TEST_F(PureTestMode, HeaderNeedsNoChannel)
{
    EXPECT_TRUE(
        VYCanFrame::isFirstFrame(m_pProtocol->decodeMessageHeader(frame(Board, Own, 9, {}))));
    channel()->setLastMessageSent({});
    EXPECT_TRUE(
        VYCanFrame::isFirstFrame(m_pProtocol->decodeMessageHeader(frame(Board, Own, 9, {}))));
}
