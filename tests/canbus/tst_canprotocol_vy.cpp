#include "canbus/canprotocol_vy.h"

#include "canbus/protocoltest.h"

#include "support/casename.h"
#include "support/logspy.h"

#include <gtest/gtest.h>

using namespace ProtocolAddress;

namespace {

class VyProtocol : public ProtocolFixture<CanProtocol_Vy>
{
protected:
    /// A message with `taken` bytes of its stream, whose last frame had this index.
    static IncomingCanMessage entryOf(int total, int taken, int lastIndex)
    {
        IncomingCanMessage entry;
        entry.lastFrameIndex = lastIndex;
        entry.totalSize = total;
        entry.pMessage->setData(streamOf(42, countingBytes(total - 6)).mid(0, taken));
        return entry;
    }
};

} // namespace

// -- which frames are for this computer -----------------------------------------------------------

struct AcceptCase
{
    const char *pName;
    int own;
    int destination;
    bool isAccepted;
};

class VyAccepting : public VyProtocol, public ::testing::WithParamInterface<AcceptCase>
{
};

TEST_P(VyAccepting, GoesByTheDestination)
{
    LogSpy log;
    m_pProtocol->setOwnAddress(GetParam().own);
    const CanFrame received = frame(Board, GetParam().destination, 3, bytes("02 ff"));
    EXPECT_EQ(m_pProtocol->isFrameAccepted(received), GetParam().isAccepted);
    const QString rejected = QStringLiteral("Frame id %1 rejected (data =  0x02 0xff ), "
                                            "destination %2")
                                 .arg(received.id())
                                 .arg(GetParam().destination);
    const QStringList lines = log.texts().filter(QStringLiteral("Frame id"));
    ASSERT_EQ(lines.size(), GetParam().isAccepted ? 0 : 1);
    if (GetParam().isAccepted)
        return;
    EXPECT_TRUE(lines.first().endsWith(rejected)) << lines.first().toStdString();
    EXPECT_TRUE(
        lines.first().contains(QLatin1String("CanProtocol_Vy::isFrameAccepted(const CanFrame&)")));
    EXPECT_EQ(log.records().constFirst().module, Log::CanBus);
}

const AcceptCase s_acceptCases[] = {
    {"Own", Own, Own, true},
    {"Shared", Own, Shared, true},
    {"SharedWhateverTheOwn", 0, Shared, true},
    {"OwnZero", 0, 0, true},
    {"OtherBoard", Own, OtherBoard, false},
    {"OneBelow", Own, Own - 1, false},
    {"OneAbove", Own, Own + 1, false},
    {"BesideShared", Own, Shared + 1, false},
    {"Zero", Own, 0, false},
    {"Highest", Own, 0x7FF, false},
};
INSTANTIATE_TEST_SUITE_P(Addresses, VyAccepting, ::testing::ValuesIn(s_acceptCases), caseName);

TEST_F(VyProtocol, RejectedFrameLeavesNoTrace)
{
    receive(frame(Board, OtherBoard, 0, streamOf(42, {})));
    receive(frame(Board, OtherBoard, 0, streamOf(42, countingBytes(9)).mid(0, 8)));
    EXPECT_EQ(timeline(), Timeline{});
    EXPECT_EQ(m_pProtocol->incomingMessageCount(), 0);
}

TEST_F(VyProtocol, MessageToTheSharedAddressIsAcknowledgedFromTheOwn)
{
    receive(frame(Board, Shared, 0, streamOf(42, {})));
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.first()->destination(), Shared);
    EXPECT_EQ(VYCanFrame::sourceAddress(m_pInterface->written().first()), Own);
}

TEST_F(VyProtocol, HighBitsOfTheIdentifierAreIgnored)
{
    CanFrame received = frame(Board, Own, 0, streamOf(42, {}));
    received.setId(received.id() | 0xF0000000U);
    receive(received);
    EXPECT_EQ(m_received.size(), 1);
}

TEST_F(VyProtocol, HeaderIsTheFrameItself)
{
    CanFrame received = frame(Board, OtherBoard, 7, bytes("01 02 03"));
    received.setReserved(99);
    const CanFrame header = m_pProtocol->decodeMessageHeader(received);
    EXPECT_EQ(header.id(), received.id());
    EXPECT_EQ(header.data(), received.data());
    EXPECT_EQ(header.reserved(), 99U);
}

// -- which messages are answers -------------------------------------------------------------------

struct IdentifyCase
{
    const char *pName;
    int command;
    CanAnswer::AnswerType type;
    bool isAnswer;
};

class VyIdentifying : public VyProtocol, public ::testing::WithParamInterface<IdentifyCase>
{
};

TEST_P(VyIdentifying, GoesByTheCommand)
{
    const CanMessage message(Own, GetParam().command, bytes("00 2a"));
    for (bool isAnswer : {false, true}) {
        EXPECT_EQ(m_pProtocol->identifyAnswer(message, &isAnswer).type(), GetParam().type);
        EXPECT_EQ(isAnswer, GetParam().isAnswer);
    }
    EXPECT_EQ(m_pProtocol->identifyAnswer(message, nullptr).type(), GetParam().type);
}

const IdentifyCase s_identifyCases[] = {
    {"None", -1, CanAnswer::AnswerNone, false},       {"Zero", 0, CanAnswer::AnswerNone, false},
    {"Ack", 1, CanAnswer::AnswerAck, true},           {"AckNot", 2, CanAnswer::AnswerAckNot, true},
    {"Parameter", 3, CanAnswer::AnswerNone, false},   {"Four", 4, CanAnswer::AnswerNone, false},
    {"Highest", 0x7FF, CanAnswer::AnswerNone, false},
};
INSTANTIATE_TEST_SUITE_P(Commands, VyIdentifying, ::testing::ValuesIn(s_identifyCases), caseName);

// -- first frames ---------------------------------------------------------------------------------

struct FirstFrameCase
{
    const char *pName;
    const char *pData;
    bool isDecoded;
    bool isComplete;
    int totalSize;
    int command;
    const char *pLeft; ///< the message's data behind it
};

class VyFirstFrames : public VyProtocol, public ::testing::WithParamInterface<FirstFrameCase>
{
};

TEST_P(VyFirstFrames, BeginAMessage)
{
    IncomingCanMessage entry;
    const CanFrame received = frame(Board, Shared, 0, bytes(GetParam().pData));
    EXPECT_EQ(m_pProtocol->decodeNewMessageFrame(received, &entry), GetParam().isDecoded);
    EXPECT_EQ(entry.isComplete, GetParam().isComplete);
    EXPECT_EQ(entry.totalSize, GetParam().totalSize);
    EXPECT_EQ(entry.lastFrameIndex, 0);
    EXPECT_EQ(entry.pMessage->command(), GetParam().command);
    EXPECT_EQ(entry.pMessage->source(), Board);
    EXPECT_EQ(entry.pMessage->destination(), Shared);
    EXPECT_EQ(entry.pMessage->data(), bytes(GetParam().pLeft));
    EXPECT_EQ(entry.pReceptionTimer, nullptr);
}

const FirstFrameCase s_firstFrameCases[] = {
    {"NoData", "02 00 2a 00 00 28", true, true, 6, 42, "00 00"},
    {"TwoBytes", "02 00 2a 00 02 10 20 1a", true, true, 8, 42, "00 02 10 20"},
    {"ThreeBytes", "02 00 2a 00 03 10 20 30", true, false, 9, 42, "02 00 2a 00 03 10 20 30"},
    {"LongLength", "02 00 2a 01 04 10 20 30", true, false, 266, 42, "02 00 2a 01 04 10 20 30"},
    {"LongestLength", "02 00 2a ff ff 10 20 30", true, false, 65541, 42, "02 00 2a ff ff 10 20 30"},
    {"LongCommand", "02 07 ff 00 00 fa", true, true, 6, 0x7FF, "00 00"},
    {"Acknowledge", "02 00 01 00 2a 29", true, true, 6, 1, "00 2a"},
    {"AcknowledgeOfALongCommand", "02 00 01 07 ff fb", true, true, 6, 1, "07 ff"},
    {"Refusal", "02 00 02 00 2a 2a", true, true, 6, 2, "00 2a"},
    {"WrongChecksum", "02 00 2a 00 00 29", false, false, 6, 42, "02 00 2a 00 00 29"},
};
INSTANTIATE_TEST_SUITE_P(Frames, VyFirstFrames, ::testing::ValuesIn(s_firstFrameCases), caseName);

struct NoFirstFrameCase
{
    const char *pName;
    int index;
    const char *pData;
};

class VyNoFirstFrames : public VyProtocol, public ::testing::WithParamInterface<NoFirstFrameCase>
{
};

TEST_P(VyNoFirstFrames, AreNotDecoded)
{
    IncomingCanMessage entry;
    const CanFrame received = frame(Board, Own, GetParam().index, bytes(GetParam().pData));
    EXPECT_FALSE(m_pProtocol->decodeNewMessageFrame(received, &entry));
    EXPECT_FALSE(entry.isComplete);
}

const NoFirstFrameCase s_noFirstFrameCases[] = {
    {"FollowingFrame", 1, "02 00 2a 00 00 28"},
    {"OtherStartByte", 0, "01 00 2a 00 00 2b"},
    {"StartByteZero", 0, "00 00 2a 00 00 2a"},
    {"Empty", 0, ""},
    {"FourBytes", 0, "02 00 2a 00"},
    {"FourBytesOfAnAcknowledge", 0, "02 00 01 00"},
};
INSTANTIATE_TEST_SUITE_P(Frames, VyNoFirstFrames, ::testing::ValuesIn(s_noFirstFrameCases),
                         caseName);

// -- following frames -----------------------------------------------------------------------------

struct FollowingCase
{
    const char *pName;
    int total;
    int taken; ///< bytes before it
    int index;
    int size;
    bool isDecoded;
    bool isComplete;
    int required; ///< in the log; 0 when nothing is logged
};

class VyFollowingFrames : public VyProtocol, public ::testing::WithParamInterface<FollowingCase>
{
};

TEST_P(VyFollowingFrames, MustHaveTheirSize)
{
    LogSpy log;
    const auto &row = GetParam();
    IncomingCanMessage entry = entryOf(row.total, row.taken, row.index - 1);
    const CanBytes before = entry.pMessage->data();
    const CanBytes data =
        (streamOf(42, countingBytes(row.total - 6)) + countingBytes(8)).mid(row.taken, row.size);
    EXPECT_EQ(m_pProtocol->decodeIncompleteMessageFrame(frame(Board, Own, row.index, data), &entry),
              row.isDecoded);
    EXPECT_EQ(entry.isComplete, row.isComplete);
    EXPECT_EQ(entry.lastFrameIndex, row.index);
    if (row.isComplete) {
        EXPECT_EQ(entry.pMessage->data(), bigEndian(row.total - 6) + countingBytes(row.total - 6));
    } else {
        EXPECT_EQ(entry.pMessage->data(), before + data);
    }
    const QString wrong =
        QStringLiteral("message: %1 size( %2 )!= thisFrameDataSize( %3 ) - FrameDataMaxSize: 8 "
                       "dataSize: %4 lastFrameNumber: %5")
            .arg(canBytesToString(before + data))
            .arg(row.size)
            .arg(row.required)
            .arg(row.total)
            .arg(row.index);
    EXPECT_EQ(log.count(wrong, 4, Log::CanBus), row.isDecoded ? 0 : 1);
    EXPECT_EQ(log.count("CanProtocol_Vy::decodeIncompleteMessageFrame(", 4), row.isDecoded ? 0 : 1);
}

const FollowingCase s_followingCases[] = {
    {"LastOfOneByte", 9, 8, 1, 1, true, true, 0},
    {"LastOfEightBytes", 16, 8, 1, 8, true, true, 0},
    {"MoreToCome", 17, 8, 1, 8, true, false, 0},
    {"LastOfThree", 17, 16, 2, 1, true, true, 0},
    {"ShortInTheMiddle", 25, 8, 1, 7, false, false, 8},
    {"EmptyInTheMiddle", 25, 8, 1, 0, false, false, 8},
    {"LongInTheMiddle", 25, 8, 1, 9, false, false, 8},
    {"ShortAtTheEnd", 12, 8, 1, 3, false, false, 4},
    {"LongAtTheEnd", 12, 8, 1, 5, false, false, 4},
    {"FullWhereOneByteIsLeft", 9, 8, 1, 8, false, false, 1},
    {"BehindTheEnd", 9, 9, 3, 1, false, false, -15},
    {"MessageTooShortSoFar", 16, 5, 1, 8, true, false, 0},
};
INSTANTIATE_TEST_SUITE_P(Frames, VyFollowingFrames, ::testing::ValuesIn(s_followingCases),
                         caseName);

TEST_F(VyProtocol, LastFrameWithAWrongChecksumIsNotDecoded)
{
    LogSpy log;
    IncomingCanMessage entry = entryOf(9, 8, 0);
    const CanFrame received = frame(Board, Own, 1, bytes("ff"));
    EXPECT_FALSE(m_pProtocol->decodeIncompleteMessageFrame(received, &entry));
    EXPECT_FALSE(entry.isComplete);
    EXPECT_EQ(log.count("CHECKSUM Error", 4), 1);
    EXPECT_EQ(log.count("thisFrameDataSize"), 0);
}

// -- the last time-out ----------------------------------------------------------------------------

TEST_F(VyProtocol, LastTimeOutIsReportedWithTheMessage)
{
    const auto pMessage = outgoing(42);
    m_pProtocol->send(pMessage, channel());
    timeline();
    bool isWaiting = true;
    QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::answerReceived, m_pProtocol.get(),
                     [&](CanBusChannel *pChannel) { isWaiting = pChannel->isWaitingForAnswer(); });
    m_pProtocol->onAnswerTimeoutError(channel());
    EXPECT_FALSE(isWaiting) << "the wait is over when it is told";
    ASSERT_EQ(m_answers.size(), 1);
    EXPECT_EQ(m_answers.first().type, CanAnswer::AnswerTimeout);
    EXPECT_EQ(m_answers.first().pMessage, pMessage);
    EXPECT_EQ(m_answers.first().pChannel, channel());
    timeline();
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{});
}
