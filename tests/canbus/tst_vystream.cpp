#include "canbus/canmessages.h"
#include "canbus/vystream.h"

#include "support/casename.h"

#include <gtest/gtest.h>

using CanVy::Decoded;

struct StreamCase
{
    const char *pName;
    int payloadSize;
    int frames;
    int lastFrameSize;
};

using CanStreamTable = ::testing::TestWithParam<StreamCase>;

TEST_P(CanStreamTable, IsCutAndPutTogether)
{
    CanBytes payload;
    for (int i = 0; i < GetParam().payloadSize; ++i)
        payload.append(static_cast<unsigned char>(i));

    const QList<CanFrame> frames = framesOf(0x419, 0x4A8, 0x2A, payload);
    ASSERT_EQ(frames.size(), GetParam().frames);
    EXPECT_EQ(frames.last().dataSize(), GetParam().lastFrameSize);

    IncomingCanMessage entry;
    Decoded decoded = CanVy::decodeFirstFrame(frames.first(), entry);
    for (int i = 1; i < frames.size(); ++i) {
        EXPECT_EQ(decoded, Decoded::Incomplete);
        EXPECT_EQ(VYCanFrame::frameIndex(frames.at(i)), i);
        decoded = CanVy::decodeFollowingFrame(frames.at(i), entry);
    }
    ASSERT_EQ(decoded, Decoded::Whole);
    ASSERT_TRUE(CanVy::takeOffEnvelope(entry.pMessage->data()));
    const CanBytes length{static_cast<unsigned char>(payload.size() >> 8),
                          static_cast<unsigned char>(payload.size() & 0xFF)};
    EXPECT_EQ(entry.pMessage->data(), length + payload);
    EXPECT_EQ(entry.pMessage->command(), 0x2A);
    EXPECT_EQ(entry.pMessage->source(), 0x419);
    EXPECT_EQ(entry.pMessage->destination(), 0x4A8);
}

const StreamCase s_streamCases[] = {
    {"NoData", 0, 1, 6},
    {"OneByte", 1, 1, 7},
    {"TwoBytesFillAFrame", 2, 1, 8},
    {"ThreeBytesSpill", 3, 2, 1},
    {"TenBytesFillTwo", 10, 2, 8},
    {"ElevenBytesSpill", 11, 3, 1},
    {"MostThatCanBeNumbered", 506, 64, 8},
};
INSTANTIATE_TEST_SUITE_P(Sizes, CanStreamTable, ::testing::ValuesIn(s_streamCases), caseName);

TEST(CanStreamTest, MessageHasItsBytesInTheirPlaces)
{
    CanBytes stream = bytes("99 99");
    CanVy::writeStream(CanMessage(0x419, 0x2A, bytes("01 02 03")), stream);
    EXPECT_EQ(stream, bytes("02 00 2a 00 03 01 02 03 2b"));
    CanVy::writeStream(CanMessage(0x419, 0x2A), stream);
    EXPECT_EQ(stream, bytes("02 00 2a 00 00 28"));
    CanBytes zeros;
    for (int i = 0; i < 0x102; ++i)
        zeros.append(0);
    CanVy::writeStream(CanMessage(0x419, 0x15D, zeros), stream);
    EXPECT_EQ(stream, bytes("02 01 5d 01 02") + zeros + bytes("5d"));
}

TEST(CanStreamTest, FramesAreCutAfterEightBytesAndNumbered)
{
    QList<CanFrame> frames;
    CanVy::writeFrames(bytes("02 00 2a 00 03 01 02 03 2b"), 0x4A8, 0x419, frames);
    ASSERT_EQ(frames.size(), 2);
    EXPECT_EQ(frames.first().id(), 0x00254419U);
    EXPECT_EQ(frames.first().data(), bytes("02 00 2a 00 03 01 02 03"));
    EXPECT_EQ(frames.last().id(), 0x00654419U);
    EXPECT_EQ(frames.last().data(), bytes("2b"));
}

TEST(CanStreamTest, AcknowledgeHasTheAnsweredCommandInPlaceOfTheLength)
{
    const CanFrame acknowledge = CanVy::acknowledgeFrame(0x4A8, 0x419, 1, 0x2A);
    EXPECT_EQ(acknowledge.id(), 0x00254419U);
    EXPECT_EQ(acknowledge.data(), bytes("02 00 01 00 2a 29"));
    EXPECT_EQ(CanVy::acknowledgeFrame(0x4A8, 0x419, 2, 0x15D).data(), bytes("02 00 02 01 5d 5c"));
    EXPECT_EQ(CanVy::acknowledgeFrame(0x4A8, 0x419, 1, -1).data(), bytes("02 00 01 ff ff 03"));
}

struct FirstFrameCase
{
    const char *pName;
    int index;
    const char *pHex;
    Decoded decoded;
    int totalSize; ///< -1: nothing was begun
};

using CanStreamFirstFrames = ::testing::TestWithParam<FirstFrameCase>;

TEST_P(CanStreamFirstFrames, BeginAMessageOrDoNot)
{
    IncomingCanMessage entry;
    const CanBytes data = bytes(GetParam().pHex);
    EXPECT_EQ(CanVy::decodeFirstFrame(frame(0x419, 0x4A8, GetParam().index, data), entry),
              GetParam().decoded);
    EXPECT_EQ(entry.totalSize, GetParam().totalSize);
    const bool isTaken = GetParam().decoded != Decoded::Bad;
    EXPECT_EQ(entry.pMessage->data(), isTaken ? data : CanBytes());
    EXPECT_EQ(entry.lastFrameIndex, isTaken ? 0 : -1);
}

const FirstFrameCase s_firstFrameCases[] = {
    {"WholeMessage", 0, "02 00 2a 00 02 01 02 29", Decoded::Whole, 8},
    {"OneByteMoreToCome", 0, "02 00 2a 00 03 01 02 03", Decoded::Incomplete, 9},
    {"MostThatCanBeAnnounced", 0, "02 00 2a ff ff 01 02 03", Decoded::Incomplete, 0xFFFF + 6},
    {"Acknowledge", 0, "02 00 01 ff ff 03", Decoded::Whole, 6},
    {"NegativeAcknowledge", 0, "02 00 02 00 2a 2a", Decoded::Whole, 6},
    {"FollowingFrame", 1, "02 00 2a 00 02 01 02 29", Decoded::Bad, -1},
    {"OtherStart", 0, "03 00 2a 00 02 01 02 28", Decoded::Bad, -1},
    {"FourBytes", 0, "02 00 2a 00", Decoded::Bad, -1},
    {"FourBytesOfAnAcknowledge", 0, "02 00 01 00", Decoded::Bad, -1},
    {"NoData", 0, "", Decoded::Bad, -1},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanStreamFirstFrames, ::testing::ValuesIn(s_firstFrameCases),
                         caseName);

struct FollowingFrameCase
{
    const char *pName;
    int totalSize;
    int index;
    const char *pHex;
    Decoded decoded;
};

using CanStreamFollowingFrames = ::testing::TestWithParam<FollowingFrameCase>;

TEST_P(CanStreamFollowingFrames, MustHaveTheBytesThatAreMissing)
{
    IncomingCanMessage entry;
    entry.totalSize = GetParam().totalSize;
    entry.pMessage->data() = bytes("02 00 2a 00 04 01 02 03");
    const CanBytes data = bytes(GetParam().pHex);
    const CanBytes both = entry.pMessage->data() + data;
    EXPECT_EQ(CanVy::decodeFollowingFrame(frame(0x419, 0x4A8, GetParam().index, data), entry),
              GetParam().decoded);
    EXPECT_EQ(entry.lastFrameIndex, GetParam().index);
    EXPECT_EQ(entry.pMessage->data(), both); // appended even when it is bad
}

const FollowingFrameCase s_followingFrameCases[] = {
    {"Last", 10, 1, "04 28", Decoded::Whole},
    {"OneByteLess", 10, 1, "04", Decoded::Bad},
    {"OneByteMore", 10, 1, "04 28 00", Decoded::Bad},
    {"NoData", 10, 1, "", Decoded::Bad},
    {"LastAndFull", 16, 1, "04 05 06 07 08 09 0a 0b", Decoded::Whole},
    {"FullAndMoreToCome", 17, 1, "04 05 06 07 08 09 0a 0b", Decoded::Incomplete},
    {"NotFullAndMoreToCome", 17, 1, "04 05 06 07 08 09 0a", Decoded::Bad},
    {"MoreThanAFrameHolds", 17, 1, "04 05 06 07 08 09 0a 0b 0c", Decoded::Bad},
    {"IndexBehindTheLast", 10, 2, "04 28", Decoded::Bad},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanStreamFollowingFrames, ::testing::ValuesIn(s_followingFrameCases),
                         caseName);

TEST(CanStreamTest, EnvelopeIsTakenOff)
{
    CanBytes stream = bytes("02 00 2a 00 03 01 02 03 2b");
    EXPECT_TRUE(CanVy::takeOffEnvelope(stream));
    EXPECT_EQ(stream, bytes("00 03 01 02 03"));
    stream = bytes("02 00 01 00 2a 29");
    EXPECT_TRUE(CanVy::takeOffEnvelope(stream));
    EXPECT_EQ(stream, bytes("00 2a"));
}

TEST(CanStreamTest, EnvelopeThatIsWrongStaysOn)
{
    // Each of the short ones has the right checksum, and nothing for it to close.
    for (const char *pHex : {"02 00 2a 00 03 01 02 03 2a", "02 00 2a 00 03 01 02 2b",
                             "03 00 2a 00 03 01 02 03 2b", "", "00", "02 02", "02 00 02"}) {
        CanBytes stream = bytes(pHex);
        EXPECT_FALSE(CanVy::takeOffEnvelope(stream)) << pHex;
        EXPECT_EQ(stream, bytes(pHex));
    }
}

TEST(CanStreamTest, OnlyTheAcknowledgesAreAnswers)
{
    EXPECT_EQ(CanVy::answerOf(1).type(), CanAnswer::AnswerAck);
    EXPECT_EQ(CanVy::answerOf(2).type(), CanAnswer::AnswerAckNot);
    for (const int command : {-1, 0, 3, 4, 0x101, 0x102, 2047})
        EXPECT_EQ(CanVy::answerOf(command).type(), CanAnswer::AnswerNone) << command;
}

TEST(CanStreamTest, FramesAreWrittenOverOldOnesOfAnySize)
{
    QList<CanFrame> frames;
    for (const int size : {300, 2, 60, 0, 300}) {
        CanBytes stream;
        CanVy::writeStream(
            CanMessage(0x419, 1000, CanBytes::fromVector(QVector<unsigned char>(size, 7))), stream);
        CanVy::writeFrames(stream, 0x4A8, 0x419, frames);
        CanBytes joined;
        for (const CanFrame &one : qAsConst(frames))
            joined += one.data();
        EXPECT_EQ(joined, stream);
    }
}
