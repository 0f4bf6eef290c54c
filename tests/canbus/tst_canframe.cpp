#include "canbus/canframe.h"

#include "canbus/canmessages.h"
#include "support/casename.h"

#include <QMetaType>
#include <QVariant>
#include <gtest/gtest.h>

struct BytesCase
{
    const char *pName;
    const char *pHex;
    const char *pText;
};

using CanBytesTable = ::testing::TestWithParam<BytesCase>;

TEST_P(CanBytesTable, AreWrittenAsText)
{
    EXPECT_EQ(canBytesToString(bytes(GetParam().pHex)).toStdString(), GetParam().pText);
}

TEST_P(CanBytesTable, AreWrittenAsTextByAFrame)
{
    CanFrame one;
    one.setData(bytes(GetParam().pHex));
    EXPECT_EQ(one.dataToString().toStdString(), GetParam().pText);
}

TEST_P(CanBytesTable, AreWrittenAsTextByAMessage)
{
    const CanMessage message(5, 1, bytes(GetParam().pHex));
    EXPECT_EQ(message.dataToString().toStdString(), GetParam().pText);
}

const BytesCase s_bytesCases[] = {
    {"None", "", ""},
    {"Zero", "00", " 0x00"},
    {"OneDigit", "0f", " 0x0f"},
    {"TwoDigits", "10", " 0x10"},
    {"ThreeBytes", "02 00 1a", " 0x02 0x00 0x1a"},
    {"HighestAndLineFeed", "ff 0a", " 0xff 0x0a"},
    {"SignBit", "7f 80", " 0x7f 0x80"},
    {"WholeFrame", "00 11 22 33 44 55 66 77", " 0x00 0x11 0x22 0x33 0x44 0x55 0x66 0x77"},
    {"MoreThanAFrame", "00 11 22 33 44 55 66 77 88",
     " 0x00 0x11 0x22 0x33 0x44 0x55 0x66 0x77 0x88"},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanBytesTable, ::testing::ValuesIn(s_bytesCases), caseName);

TEST(CanFrameTest, NewFrameIsEmpty)
{
    const CanFrame one;
    EXPECT_EQ(one.id(), 0U);
    EXPECT_TRUE(one.data().isEmpty());
    EXPECT_EQ(one.dataSize(), 0);
    EXPECT_EQ(one.reserved(), 0U);
}

TEST(CanFrameTest, AppendDataAddsOneByteAtTheEnd)
{
    CanFrame one;
    for (const char byte : {'\x02', '\x00', '\x7f', '\x80', '\xff'})
        one.appendData(byte);
    EXPECT_EQ(one.data(), bytes("02 00 7f 80 ff"));
    EXPECT_EQ(one.dataSize(), 5);
}

TEST(CanFrameTest, CopyHasAllThreeFieldsAndIsIndependent)
{
    CanFrame one;
    one.setId(0xFFFFFFFF);
    one.setData(bytes("01 02"));
    one.setReserved(0x80000001);

    const CanFrame copy = one;
    one.setId(1);
    one.appendData('\x03');
    one.setReserved(2);
    EXPECT_EQ(copy.id(), 0xFFFFFFFFU);
    EXPECT_EQ(copy.data(), bytes("01 02"));
    EXPECT_EQ(copy.reserved(), 0x80000001U);
}

struct OverwriteCase
{
    const char *pName;
    const char *pBefore;
    const char *pAfter;
};

using CanFrameOverwrite = ::testing::TestWithParam<OverwriteCase>;

TEST_P(CanFrameOverwrite, LeavesNothingOfTheOldBytes)
{
    CanFrame one;
    one.setData(bytes(GetParam().pBefore));
    const CanFrame shared = one;
    const CanBytes after = bytes(GetParam().pAfter);
    one.overwriteData(after.cbegin(), after.cend());
    EXPECT_EQ(one.data(), after);
    EXPECT_EQ(shared.data(), bytes(GetParam().pBefore));
}

const OverwriteCase s_overwriteCases[] = {
    {"SameSize", "01 02", "03 04"},      {"Longer", "01 02", "03 04 05 06"},
    {"Shorter", "01 02 03 04", "05 06"}, {"FromEmpty", "", "01 02 03"},
    {"ToEmpty", "01 02 03", ""},         {"EmptyToEmpty", "", ""},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanFrameOverwrite, ::testing::ValuesIn(s_overwriteCases), caseName);

TEST(CanFrameTest, MetaTypeBearsItsName)
{
    EXPECT_STREQ(QMetaType::typeName(qMetaTypeId<CanFrame>()), "CanFrame");
}

TEST(CanFrameTest, CopyInAVariantIsWhole)
{
    CanFrame one = frame(0x4A8, 0x419, 3, bytes("02 00 2a"));
    one.setReserved(7);
    const auto copy = QVariant::fromValue(one).value<CanFrame>();
    EXPECT_EQ(copy.id(), one.id());
    EXPECT_EQ(copy.data(), one.data());
    EXPECT_EQ(copy.reserved(), 7U);
}
