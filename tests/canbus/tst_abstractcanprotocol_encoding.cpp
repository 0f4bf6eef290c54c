#include "canbus/canprotocol_vy.h"
#include "canbus/protocoltest.h"

#include "support/casename.h"
#include "support/logspy.h"

#include <gtest/gtest.h>

using namespace ProtocolAddress;

namespace {

class CanEncoding : public ProtocolFixture<CanProtocol_Vy>
{
protected:
    QList<CanFrame> encoded(int command, const CanBytes &payload)
    {
        return m_pProtocol->encode(CanMessage(Board, command, payload));
    }

    static CanBytes joined(const QList<CanFrame> &frames)
    {
        CanBytes stream;
        for (const CanFrame &one : frames)
            stream += one.data();
        return stream;
    }
};

} // namespace

// -- the stream -----------------------------------------------------------------------------------

struct EncodingCase
{
    const char *pName;
    int payloadSize;
    int frames;
    int lastFrameSize;
};

class CanEncodingTable : public CanEncoding, public ::testing::WithParamInterface<EncodingCase>
{
};

TEST_P(CanEncodingTable, MessageIsCutIntoNumberedFrames)
{
    LogSpy log;
    const CanBytes payload = countingBytes(GetParam().payloadSize);
    const QList<CanFrame> frames = encoded(0x2A, payload);

    ASSERT_EQ(frames.size(), GetParam().frames);
    for (int i = 0; i < frames.size(); ++i) {
        const bool isLast = i + 1 == frames.size();
        EXPECT_EQ(frames.at(i).dataSize(), isLast ? GetParam().lastFrameSize : 8);
        EXPECT_EQ(VYCanFrame::frameIndex(frames.at(i)), i % 64) << "six bits";
        EXPECT_EQ(VYCanFrame::sourceAddress(frames.at(i)), Own);
        EXPECT_EQ(VYCanFrame::destinationAddress(frames.at(i)), Board);
        EXPECT_EQ(frames.at(i).id() >> 28, 0U);
        EXPECT_EQ(frames.at(i).reserved(), 0U);
    }
    EXPECT_EQ(joined(frames), streamOf(0x2A, payload));
    EXPECT_EQ(log.count("", 4, Log::CanBus), GetParam().frames > 64 ? 1 : 0);
}

const EncodingCase s_encodingCases[] = {
    {"NoData", 0, 1, 6},
    {"OneByte", 1, 1, 7},
    {"TwoBytesFillAFrame", 2, 1, 8},
    {"ThreeBytesSpillTheChecksum", 3, 2, 1},
    {"TenBytesFillTwo", 10, 2, 8},
    {"ElevenBytesSpill", 11, 3, 1},
    {"Long", 250, 32, 8},
    {"LongAndLengthOfTwoBytes", 500, 64, 2},
    {"MostThatCanBeNumbered", 506, 64, 8},
    {"OneByteTooMany", 507, 65, 1},
    {"FarTooMany", 5000, 626, 6},
    {"LengthWraps", 65537, 8193, 7},
};
INSTANTIATE_TEST_SUITE_P(Sizes, CanEncodingTable, ::testing::ValuesIn(s_encodingCases), caseName);

struct BytesCase
{
    const char *pName;
    int command;
    const char *pPayload;
    std::vector<const char *> frames;
};

class CanEncodingBytes : public CanEncoding, public ::testing::WithParamInterface<BytesCase>
{
};

TEST_P(CanEncodingBytes, StandInTheFrames)
{
    const QList<CanFrame> frames = encoded(GetParam().command, bytes(GetParam().pPayload));
    ASSERT_EQ(static_cast<std::size_t>(frames.size()), GetParam().frames.size());
    for (int i = 0; i < frames.size(); ++i)
        EXPECT_EQ(frames.at(i).data(), bytes(GetParam().frames.at(static_cast<std::size_t>(i))));
}

const BytesCase s_bytesCases[] = {
    {"NoData", 0x2A, "", {"02 00 2a 00 00 28"}},
    {"OneByte", 0x2A, "ff", {"02 00 2a 00 01 ff d6"}},
    {"TwoBytes", 0x2A, "10 20", {"02 00 2a 00 02 10 20 1a"}},
    {"ThreeBytes", 0x2A, "10 20 30", {"02 00 2a 00 03 10 20 30", "2b"}},
    {"BothCommandBytes", 0x7FF, "", {"02 07 ff 00 00 fa"}},
    {"NoCommand", -1, "", {"02 ff ff 00 00 02"}},
    {"AcknowledgeHasALengthToo", 1, "00 2a", {"02 00 01 00 02 00 2a 2b"}},
    {"RefusalHasALengthToo", 2, "00 2a", {"02 00 02 00 02 00 2a 28"}},
};
INSTANTIATE_TEST_SUITE_P(Messages, CanEncodingBytes, ::testing::ValuesIn(s_bytesCases), caseName);

// -- the frames -----------------------------------------------------------------------------------

struct SplitCase
{
    const char *pName;
    int streamSize;
    std::vector<int> sizes;
};

class CanSplitting : public CanEncoding, public ::testing::WithParamInterface<SplitCase>
{
};

TEST_P(CanSplitting, CutsAfterEveryEighthByte)
{
    const CanBytes stream = countingBytes(GetParam().streamSize);
    const QList<CanFrame> frames = m_pProtocol->splitIntoFrames(stream, CanMessage(Board, 42));
    std::vector<int> sizes;
    sizes.reserve(static_cast<std::size_t>(frames.size()));
    for (const CanFrame &one : frames)
        sizes.push_back(one.dataSize());
    EXPECT_EQ(sizes, GetParam().sizes);
    EXPECT_EQ(joined(frames), stream);
}

const SplitCase s_splitCases[] = {
    {"Nothing", 0, {}},       {"OneByte", 1, {1}},     {"OneBelow", 7, {7}},
    {"OneFrame", 8, {8}},     {"OneAbove", 9, {8, 1}}, {"TwoFrames", 16, {8, 8}},
    {"Third", 17, {8, 8, 1}},
};
INSTANTIATE_TEST_SUITE_P(Streams, CanSplitting, ::testing::ValuesIn(s_splitCases), caseName);

TEST_F(CanEncoding, FramesGivenOutBeforeAreNotChangedByLaterOnes)
{
    const QList<CanFrame> first = encoded(0x2A, bytes("10 20 30"));
    const QList<CanFrame> second = encoded(0x2B, bytes("11 21 31"));
    EXPECT_EQ(joined(first), bytes("02 00 2a 00 03 10 20 30 2b"));
    EXPECT_EQ(joined(second), bytes("02 00 2b 00 03 11 21 31 2b"));
}

struct AddressCase
{
    const char *pName;
    int source;
    int destination;
    int sourceInFrame;
    int destinationInFrame;
};

class CanFrameAddresses : public CanEncoding, public ::testing::WithParamInterface<AddressCase>
{
};

TEST_P(CanFrameAddresses, AreThoseOfTheMessage)
{
    CanMessage message(GetParam().destination, 42, bytes("01 02 03"));
    message.setSource(GetParam().source);
    const QList<CanFrame> frames = m_pProtocol->encode(message);
    ASSERT_EQ(frames.size(), 2);
    for (const CanFrame &one : frames) {
        EXPECT_EQ(VYCanFrame::sourceAddress(one), GetParam().sourceInFrame);
        EXPECT_EQ(VYCanFrame::destinationAddress(one), GetParam().destinationInFrame);
    }
    EXPECT_EQ(VYCanFrame::frameIndex(frames.last()), 1);
}

const AddressCase s_addressCases[] = {
    {"OwnSourceWhereThereIsNone", -1, Board, Own, Board},
    {"OwnSourceForAnyNegative", -2, Board, Own, Board},
    {"SourceZeroIsOne", 0, Board, 0, Board},
    {"SourceOfTheMessage", 0x123, Board, 0x123, Board},
    {"LowBitsOfNoDestination", -1, -1, Own, 0x7FF},
    {"LowBitsOfALongDestination", -1, 0xFFFF, Own, 0x7FF},
    {"LowBitsOfALongSource", 0x1001, Board, 1, Board},
};
INSTANTIATE_TEST_SUITE_P(Addresses, CanFrameAddresses, ::testing::ValuesIn(s_addressCases),
                         caseName);

namespace {

/// Encodes a message inside the encoding of another.
class NestingProtocol : public Exposed<CanProtocol_Vy>
{
public:
    using Exposed<CanProtocol_Vy>::Exposed;

    QList<CanFrame> splitIntoFrames(const QList<quint8> &stream, const CanMessage &message) override
    {
        if (message.command() != 1)
            encode(CanMessage(OtherBoard, 1, bytes("ff ff ff ff ff ff ff")));
        return Exposed<CanProtocol_Vy>::splitIntoFrames(stream, message);
    }
};

} // namespace

TEST(CanEncodingOverridden, AnotherMessageInsideChangesNothing)
{
    NestingProtocol protocol(nullptr);
    const QList<CanFrame> frames = protocol.encode(CanMessage(Board, 0x2A, bytes("10 20")));
    ASSERT_EQ(frames.size(), 1);
    EXPECT_EQ(frames.first().data(), bytes("02 00 2a 00 02 10 20 1a"));
}

// -- answers --------------------------------------------------------------------------------------

struct AnswerFrameCase
{
    const char *pName;
    int replyCommand;
    int receivedCommand;
    const char *pData;
};

class CanAnswerFrames : public CanEncoding, public ::testing::WithParamInterface<AnswerFrameCase>
{
};

TEST_P(CanAnswerFrames, HaveTheAnsweredCommandInPlaceOfTheLength)
{
    CanMessage reply(Board, GetParam().replyCommand, bytes("aa bb cc"));
    reply.setSource(0x123);
    const auto pReceived = messageFrom(OtherBoard, GetParam().receivedCommand, bytes("00 01 77"));
    // The type of the answer has no say here.
    for (const auto type :
         {CanAnswer::AnswerNone, CanAnswer::AnswerAck, CanAnswer::AnswerTimeout}) {
        const CanFrame made = m_pProtocol->encodeAnswer(CanAnswer(type), *pReceived, reply);
        EXPECT_EQ(made.data(), bytes(GetParam().pData));
        EXPECT_EQ(VYCanFrame::frameIndex(made), 0);
        EXPECT_EQ(VYCanFrame::sourceAddress(made), 0x123);
        EXPECT_EQ(VYCanFrame::destinationAddress(made), Board);
    }
}

const AnswerFrameCase s_answerFrameCases[] = {
    {"Acknowledge", 1, 0x2A, "02 00 01 00 2a 29"},  {"Refusal", 2, 0x2A, "02 00 02 00 2a 2a"},
    {"LongCommand", 2, 0x7FF, "02 00 02 07 ff f8"}, {"LongReply", 0x123, 0, "02 01 23 00 00 20"},
    {"NoCommand", 1, -1, "02 00 01 ff ff 03"},
};
INSTANTIATE_TEST_SUITE_P(Answers, CanAnswerFrames, ::testing::ValuesIn(s_answerFrameCases),
                         caseName);

struct ReplyCase
{
    const char *pName;
    CanAnswer::AnswerType type;
    int command;
    int warnings;
};

class CanReplies : public CanEncoding, public ::testing::WithParamInterface<ReplyCase>
{
};

TEST_P(CanReplies, AcknowledgeOrRefuse)
{
    LogSpy log;
    CanMessage reply(Board, 77, bytes("55"));
    const auto pReceived = messageFrom(Board, 42, bytes("00 01 0a"));
    m_pProtocol->generateAnswerMessage(CanAnswer(GetParam().type), *pReceived, &reply);
    EXPECT_EQ(reply.command(), GetParam().command);
    EXPECT_EQ(reply.destination(), Board);
    EXPECT_EQ(log.count("|ans:Error| messageReceived.cmdID= 42  messageReceived.data=  "
                        "0x00 0x01 0x0a",
                        3, Log::CanBus),
              GetParam().warnings);
    EXPECT_EQ(log.count("", 3), GetParam().warnings);
}

TEST_P(CanReplies, GoToWhoeverSentTheMessage)
{
    const auto pReceived = messageFrom(OtherBoard, 42);
    EXPECT_TRUE(m_pProtocol->sendAnswerMessage(CanAnswer(GetParam().type), pReceived));
    ASSERT_EQ(m_pInterface->written().size(), 1);
    const CanFrame &written = m_pInterface->written().first();
    EXPECT_EQ(written.data(), answerStream(GetParam().command, 42));
    EXPECT_EQ(VYCanFrame::sourceAddress(written), Own);
    EXPECT_EQ(VYCanFrame::destinationAddress(written), OtherBoard);
    EXPECT_EQ(VYCanFrame::frameIndex(written), 0);
}

TEST_P(CanReplies, AreMadeOfTheirTypeAlone)
{
    m_pProtocol->answerMessage(GetParam().type, messageFrom(OtherBoard, 42));
    ASSERT_EQ(m_pInterface->written().size(), 1);
    EXPECT_EQ(m_pInterface->written().first().data(), answerStream(GetParam().command, 42));
}

const ReplyCase s_replyCases[] = {
    {"None", CanAnswer::AnswerNone, 2, 1},
    {"Ack", CanAnswer::AnswerAck, 1, 0},
    {"SendingError", CanAnswer::AnswerSendingError, 2, 1},
    {"AckNot", CanAnswer::AnswerAckNot, 2, 1},
    {"Timeout", CanAnswer::AnswerTimeout, 2, 1},
};
INSTANTIATE_TEST_SUITE_P(Types, CanReplies, ::testing::ValuesIn(s_replyCases), caseName);

TEST_F(CanEncoding, AnswerIsNotAwaitedAndNotSentAgain)
{
    EXPECT_TRUE(
        m_pProtocol->sendAnswerMessage(CanAnswer(CanAnswer::AnswerAck), messageFrom(Board, 42)));
    advance(5000);
    EXPECT_EQ(timeline(), Timeline{"0 writes 1"});
    EXPECT_TRUE(CanBusChannel::channels().isEmpty());
}

TEST_F(CanEncoding, AnswerWithoutInterfaceSaysNo)
{
    m_pProtocol->setCanInterface(nullptr);
    EXPECT_FALSE(
        m_pProtocol->sendAnswerMessage(CanAnswer(CanAnswer::AnswerAck), messageFrom(Board, 42)));
    EXPECT_TRUE(m_pInterface->written().isEmpty());
}

TEST_F(CanEncoding, AnswerThatIsRefusedSaysNo)
{
    m_pInterface->setRefusing(true);
    EXPECT_FALSE(
        m_pProtocol->sendAnswerMessage(CanAnswer(CanAnswer::AnswerAck), messageFrom(Board, 42)));
}
