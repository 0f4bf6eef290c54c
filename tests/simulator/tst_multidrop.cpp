#include "simulator/multidrop.h"

#include "support/casename.h"

#include <gtest/gtest.h>

using namespace Multidrop;

struct RequestCase
{
    const char *pName;
    int request;
    const char *pPayload;
    const char *pBytes; ///< on the link, mode bytes included
};

using RequestTable = ::testing::TestWithParam<RequestCase>;

TEST_P(RequestTable, IsWrittenWithItsModeAndChecksum)
{
    const Characters characters =
        requestCharacters(GetParam().request, QByteArray::fromHex(GetParam().pPayload));
    EXPECT_EQ(toBytes(characters).toHex(' '), QByteArray(GetParam().pBytes));
}

TEST_P(RequestTable, IsRecognisedAtItsLastByteAndNotBefore)
{
    QByteArray block;
    const Characters characters =
        requestCharacters(GetParam().request, QByteArray::fromHex(GetParam().pPayload));
    for (const auto &[isMode, byte] : characters) {
        EXPECT_NE(requestSize(block), block.size() == 0 ? -1 : block.size());
        block.append(static_cast<char>(byte));
    }
    EXPECT_EQ(requestSize(block), block.size());
    EXPECT_EQ(requestOf(block), GetParam().request);
    EXPECT_TRUE(checked(block));
}

const RequestCase s_requests[] = {
    {"Reset", Reset, "", "01 10 00 10"},
    {"SetupConfig", SetupConfig, "01020304", "01 11 00 00 00 01 00 02 00 03 00 04 00 1b"},
    {"SetupPrices", SetupPrices, "ffff0000", "01 11 00 01 00 ff 00 ff 00 00 00 00 00 10"},
    {"Poll", Poll, "", "01 12 00 12"},
    {"VendRequest", VendRequest, "00780007", "01 13 00 00 00 00 00 78 00 00 00 07 00 92"},
    {"VendCancel", VendCancel, "", "01 13 00 01 00 14"},
    {"VendSuccess", VendSuccess, "0007", "01 13 00 02 00 00 00 07 00 1c"},
    {"VendFailure", VendFailure, "", "01 13 00 03 00 16"},
    {"SessionComplete", SessionComplete, "", "01 13 00 04 00 17"},
    {"ReaderDisable", ReaderDisable, "", "01 14 00 00 00 14"},
    {"ReaderEnable", ReaderEnable, "", "01 14 00 01 00 15"},
    {"ReaderCancel", ReaderCancel, "", "01 14 00 02 00 16"},
};
INSTANTIATE_TEST_SUITE_P(Requests, RequestTable, ::testing::ValuesIn(s_requests), caseName);

TEST(MultidropTest, AnAnswerEndsWithTheModeBit)
{
    EXPECT_EQ(toBytes(answerCharacters(QByteArray::fromHex("030096"))).toHex(' '),
              QByteArray("00 03 00 00 00 96 01 99"));
}

TEST(MultidropTest, NobodyKnowsTheSizeOfAnUnknownCommand)
{
    EXPECT_EQ(requestSize({}), 0);
    EXPECT_EQ(requestSize(QByteArray::fromHex("13")), 0);
    EXPECT_EQ(requestSize(QByteArray::fromHex("1309")), -1);
    EXPECT_EQ(requestSize(QByteArray::fromHex("17")), -1);
}

TEST(MultidropTest, AWrongChecksumIsFound)
{
    EXPECT_EQ(checked(QByteArray::fromHex("030096"
                                          "99")),
              QByteArray::fromHex("030096"));
    EXPECT_FALSE(checked(QByteArray::fromHex("03009698")));
    EXPECT_FALSE(checked({}));
}
