#include "canbus/canmessages.h"
#include "canbus/recordinginterface.h"
#include "canbus/testmachine.h"
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
