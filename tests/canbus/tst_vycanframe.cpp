#include "canbus/vycanframe.h"

#include "canbus/canmessages.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <gtest/gtest.h>

namespace {

const char *const s_pCommandReader =
    "static int VYCanFrame::messageCommandInFirstFrame(const CanFrame&) ";
const char *const s_pLengthReader =
    "static int VYCanFrame::messageDataLengthInFirstFrame(const CanFrame&) ";

QString line(const char *pReader, const char *pText)
{
    return QLatin1String(pReader) + QLatin1String(pText);
}

} // namespace

TEST(VYCanFrameTest, NewFrameIsEmpty)
{
    const VYCanFrame one;
    EXPECT_EQ(one.id(), 0U);
    EXPECT_TRUE(one.data().isEmpty());
    EXPECT_EQ(one.reserved(), 0U);
    EXPECT_TRUE(one.isFirstFrame());
}

TEST(VYCanFrameTest, FrameMadeFromAnotherHasAllThreeFieldsAndIsIndependent)
{
    CanFrame plain;
    plain.setId(0xE0E54419);
    plain.setData(bytes("02 00 2a"));
    plain.setReserved(9);

    VYCanFrame one(plain);
    EXPECT_EQ(one.id(), 0xE0E54419U);
    EXPECT_EQ(one.data(), bytes("02 00 2a"));
    EXPECT_EQ(one.reserved(), 9U);
    one.setFrameIndex(0);
    EXPECT_EQ(plain.id(), 0xE0E54419U);
}

struct IdentifierCase
{
    const char *pName;
    int source;
    int destination;
    int index;
    quint32 id;
};

using VYCanFrameIdentifiers = ::testing::TestWithParam<IdentifierCase>;

TEST_P(VYCanFrameIdentifiers, AreBuiltOfTheirFields)
{
    VYCanFrame one;
    one.setSourceAddress(GetParam().source);
    one.setDestinationAddress(GetParam().destination);
    one.setFrameIndex(GetParam().index);
    EXPECT_EQ(one.id(), GetParam().id);
}

TEST_P(VYCanFrameIdentifiers, AreReadInTheirFields)
{
    VYCanFrame one;
    for (const quint32 above : {0x00000000U, 0xF0000000U}) {
        one.setId(GetParam().id | above);
        EXPECT_EQ(one.sourceAddress(), GetParam().source);
        EXPECT_EQ(one.destinationAddress(), GetParam().destination);
        EXPECT_EQ(one.frameIndex(), GetParam().index);
        EXPECT_EQ(one.isFirstFrame(), GetParam().index == 0);
        const CanFrame &plain = one;
        EXPECT_EQ(VYCanFrame::sourceAddress(plain), GetParam().source);
        EXPECT_EQ(VYCanFrame::destinationAddress(plain), GetParam().destination);
        EXPECT_EQ(VYCanFrame::frameIndex(plain), GetParam().index);
        EXPECT_EQ(VYCanFrame::isFirstFrame(plain), GetParam().index == 0);
    }
}

const IdentifierCase s_identifierCases[] = {
    {"FirstFrame", 0x4A8, 0x419, 0, 0x00254419},
    {"FourthFrame", 0x4A8, 0x419, 3, 0x00E54419},
    {"Nothing", 0, 0, 0, 0},
    {"DestinationAlone", 0, 0x7FF, 0, 0x000007FF},
    {"LowestBitOfTheSource", 1, 0, 0, 0x00000800},
    {"SourceAlone", 0x7FF, 0, 0, 0x003FF800},
    {"LowestBitOfTheIndex", 0, 0, 1, 0x00400000},
    {"IndexAlone", 0, 0, 63, 0x0FC00000},
    {"Everything", 0x7FF, 0x7FF, 63, 0x0FFFFFFF},
};
INSTANTIATE_TEST_SUITE_P(Rows, VYCanFrameIdentifiers, ::testing::ValuesIn(s_identifierCases),
                         caseName);

struct SetterCase
{
    const char *pName;
    void (VYCanFrame::*set)(int);
    int value;
    quint32 before;
    quint32 after;
};

using VYCanFrameSetters = ::testing::TestWithParam<SetterCase>;

TEST_P(VYCanFrameSetters, WriteTheirLowBitsAndNoOthers)
{
    VYCanFrame one;
    one.setId(GetParam().before);
    (one.*GetParam().set)(GetParam().value);
    EXPECT_EQ(one.id(), GetParam().after);
}

const SetterCase s_setterCases[] = {
    {"DestinationTooHigh", &VYCanFrame::setDestinationAddress, 0x1FFF, 0x00254000, 0x002547FF},
    {"DestinationJustTooHigh", &VYCanFrame::setDestinationAddress, 0x800, 0xFFFFFFFF, 0xFFFFF800},
    {"DestinationNotSet", &VYCanFrame::setDestinationAddress, -1, 0, 0x000007FF},
    {"DestinationOverOldBits", &VYCanFrame::setDestinationAddress, 0x419, 0xFFFFFFFF, 0xFFFFFC19},
    {"SourceTooHigh", &VYCanFrame::setSourceAddress, 0x1FFF, 0x00000419, 0x003FFC19},
    {"SourceJustTooHigh", &VYCanFrame::setSourceAddress, 0x800, 0xFFFFFFFF, 0xFFC007FF},
    {"SourceNotSet", &VYCanFrame::setSourceAddress, -1, 0, 0x003FF800},
    {"SourceOverOldBits", &VYCanFrame::setSourceAddress, 0x4A8, 0xFFFFFFFF, 0xFFE547FF},
    {"IndexTooHigh", &VYCanFrame::setFrameIndex, 64, 0x0FE54419, 0x00254419},
    {"IndexJustTooHigh", &VYCanFrame::setFrameIndex, 65, 0, 0x00400000},
    {"IndexNegative", &VYCanFrame::setFrameIndex, -1, 0, 0x0FC00000},
    {"IndexOverOldBits", &VYCanFrame::setFrameIndex, 3, 0xFFFFFFFF, 0xF0FFFFFF},
};
INSTANTIATE_TEST_SUITE_P(Rows, VYCanFrameSetters, ::testing::ValuesIn(s_setterCases), caseName);

TEST(VYCanFrameTest, IndexSixtyFourMakesAFirstFrame)
{
    VYCanFrame one;
    one.setFrameIndex(63);
    EXPECT_FALSE(one.isFirstFrame());
    one.setFrameIndex(64);
    EXPECT_EQ(one.frameIndex(), 0);
    EXPECT_TRUE(one.isFirstFrame());
}

struct HeaderCase
{
    const char *pName;
    int index;
    const char *pHex;
    int command;
    int length;
};

using VYCanFrameHeaders = ::testing::TestWithParam<HeaderCase>;

TEST_P(VYCanFrameHeaders, AreReadAlikeByBothForms)
{
    const CanFrame plain = frame(0x419, 0x4A8, GetParam().index, bytes(GetParam().pHex));
    const VYCanFrame one(plain);
    EXPECT_EQ(one.messageCommandInFirstFrame(), GetParam().command);
    EXPECT_EQ(VYCanFrame::messageCommandInFirstFrame(plain), GetParam().command);
    EXPECT_EQ(one.messageDataLengthInFirstFrame(), GetParam().length);
    EXPECT_EQ(VYCanFrame::messageDataLengthInFirstFrame(plain), GetParam().length);
}

const HeaderCase s_headerCases[] = {
    {"ThreeData", 0, "02 00 2a 00 03 11", 0x2A, 3},
    {"Acknowledge", 0, "02 00 01 00 2a 2b", 1, 2},
    {"NegativeAcknowledge", 0, "02 00 02 00 2a 28", 2, 2},
    {"AcknowledgeByItsLowByteOnly", 0, "02 01 01 00 2a", 0x101, 0x2A},
    {"FiveBytes", 0, "02 00 2a 00 00", 0x2A, 0},
    {"HighBytesFirst", 0, "02 12 34 56 78", 0x1234, 0x5678},
    {"EverythingSet", 0, "02 ff ff ff ff ff ff ff", 0xFFFF, 0xFFFF},
    {"FourBytes", 0, "02 00 2a 00", -1, -1},
    {"FourBytesOfAnAcknowledge", 0, "02 00 01 00", -1, -1},
    {"OneByte", 0, "02", -1, -1},
    {"NoData", 0, "", -1, -1},
    {"OtherStart", 0, "01 00 2a 00 03 11", -1, -1},
    {"FollowingFrame", 1, "02 00 2a 00 03 11", -1, -1},
    {"LastIndex", 63, "02 00 01 00 2a 2b", -1, -1},
};
INSTANTIATE_TEST_SUITE_P(Rows, VYCanFrameHeaders, ::testing::ValuesIn(s_headerCases), caseName);

struct RefusalCase
{
    const char *pName;
    int index;
    const char *pHex;
    const char *pText;
};

using VYCanFrameRefusals = ::testing::TestWithParam<RefusalCase>;

TEST_P(VYCanFrameRefusals, AreLoggedByTheCommandsReader)
{
    const LogSpy log;
    VYCanFrame(frame(0x419, 0x4A8, GetParam().index, bytes(GetParam().pHex)))
        .messageCommandInFirstFrame();
    ASSERT_EQ(log.records().size(), 1);
    const LogRecord record = log.records().constFirst();
    EXPECT_EQ(record.text, line(s_pCommandReader, GetParam().pText));
    EXPECT_EQ(record.level, 4);
    EXPECT_EQ(record.module, Log::CanBus);
}

TEST_P(VYCanFrameRefusals, AreLoggedByTheLengthsReader)
{
    const LogSpy log;
    VYCanFrame(frame(0x419, 0x4A8, GetParam().index, bytes(GetParam().pHex)))
        .messageDataLengthInFirstFrame();
    const QString text = line(s_pLengthReader, GetParam().pText);
    EXPECT_EQ(log.count(text, 4, Log::CanBus), 1);
    EXPECT_EQ(log.texts().count(text), 1);
    EXPECT_EQ(log.count(QLatin1String(s_pLengthReader)), 1);
}

// The length is read behind the command, whose reader says the same of what is too short.
TEST_P(VYCanFrameRefusals, OfShortFramesAreLoggedByTheCommandsReaderForTheLengthToo)
{
    const LogSpy log;
    VYCanFrame(frame(0x419, 0x4A8, GetParam().index, bytes(GetParam().pHex)))
        .messageDataLengthInFirstFrame();
    const QString incomplete = QStringLiteral("VY Message incomplete");
    const bool isShort = incomplete == QLatin1String(GetParam().pText);
    const QString text = line(s_pCommandReader, GetParam().pText);
    EXPECT_EQ(log.count(text, 4, Log::CanBus), isShort ? 1 : 0);
    EXPECT_EQ(log.records().size(), isShort ? 2 : 1);
    EXPECT_EQ(log.records().constFirst().text,
              isShort ? text : line(s_pLengthReader, GetParam().pText));
}

const RefusalCase s_refusalCases[] = {
    {"FollowingFrame", 1, "02 00 2a 00 03 11", "VY Message DataLength Unknown"},
    {"OtherStart", 0, "01 00 2a 00 03 11", "VY Message DataLength Unknown"},
    {"OtherStartAndIncomplete", 0, "01", "VY Message DataLength Unknown"},
    {"NoData", 0, "", "VY Message DataLength Unknown"},
    {"FourBytes", 0, "02 00 2a 00", "VY Message incomplete"},
    {"FourBytesOfAnAcknowledge", 0, "02 00 01 00", "VY Message incomplete"},
    {"OneByte", 0, "02", "VY Message incomplete"},
};
INSTANTIATE_TEST_SUITE_P(Rows, VYCanFrameRefusals, ::testing::ValuesIn(s_refusalCases), caseName);

TEST(VYCanFrameTest, WholeHeaderIsReadWithoutALine)
{
    const LogSpy log;
    const VYCanFrame one(frame(0x419, 0x4A8, 0, bytes("02 00 2a 00 03 11")));
    EXPECT_EQ(one.messageCommandInFirstFrame(), 0x2A);
    EXPECT_EQ(one.messageDataLengthInFirstFrame(), 3);
    EXPECT_TRUE(log.records().isEmpty());
}

TEST(VYCanFrameTest, FixedLengthOfAnAcknowledgeIsLogged)
{
    for (const char *pHex : {"02 00 01 00 2a 2b", "02 00 02 00 2a 28"}) {
        const LogSpy log;
        EXPECT_EQ(VYCanFrame::messageDataLengthInFirstFrame(frame(0x419, 0x4A8, 0, bytes(pHex))),
                  2);
        ASSERT_EQ(log.records().size(), 1);
        const LogRecord record = log.records().constFirst();
        EXPECT_EQ(record.text,
                  line(s_pLengthReader, "VY Message DataLength field Not present (but fixed)"));
        EXPECT_EQ(record.level, 4);
        EXPECT_EQ(record.module, Log::CanBus);
    }
}
