#include "canbus/canmessage.h"

#include "canbus/canmessages.h"
#include "support/assertspy.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QMetaType>
#include <gtest/gtest.h>
#include <limits>
#include <type_traits>

namespace {

constexpr int s_lowest = std::numeric_limits<int>::min();
constexpr int s_highest = std::numeric_limits<int>::max();

/// How often a message has been told that this command is none.
int refusals(const LogSpy &log, int command)
{
    return log.count(
        QStringLiteral("void CanMessage::setCommand(int) Invalid command %1").arg(command), 4,
        Log::CanBus);
}

} // namespace

TEST(CanMessageTest, NewMessageIsEmpty)
{
    const CanMessage message;
    EXPECT_EQ(message.source(), -1);
    EXPECT_EQ(message.destination(), -1);
    EXPECT_EQ(message.command(), -1);
    EXPECT_TRUE(message.data().isEmpty());
    EXPECT_EQ(message.dataSize(), 0);
    EXPECT_FALSE(message.isSimulated());
}

TEST(CanMessageTest, DestinationIsTheFirstArgumentAndTheSourceIsNotSet)
{
    const CanMessage messages[] = {
        CanMessage(0x419, 42),
        CanMessage(0x419, 42, bytes("01 02")),
        CanMessage(0x419, 42, "AB"),
        CanMessage(0x419, 42, QByteArray("AB")),
    };
    for (const CanMessage &message : messages) {
        EXPECT_EQ(message.destination(), 0x419);
        EXPECT_EQ(message.command(), 42);
        EXPECT_EQ(message.source(), -1);
        EXPECT_FALSE(message.isSimulated());
    }
}

TEST(CanMessageTest, ConstructorsTakeTheirDataByTheRuleOfTheirType)
{
    EXPECT_EQ(CanMessage(5, 1).data(), CanBytes());
    EXPECT_EQ(CanMessage(5, 1, bytes("01 02 03")).data(), bytes("01 02 03"));
    EXPECT_EQ(CanMessage(5, 1, "ABC").data(), bytes("41 42"));
    EXPECT_EQ(CanMessage(5, 1, QByteArray("ABC")).data(), bytes("41 42"));
}

TEST(CanMessageTest, InitSetsAllBackButTheData)
{
    CanMessage message(0x419, 42, bytes("01 02"));
    message.setSource(0x4A8);
    message.setSimulated(true);

    message.init();
    EXPECT_EQ(message.source(), -1);
    EXPECT_EQ(message.destination(), -1);
    EXPECT_EQ(message.command(), -1);
    EXPECT_FALSE(message.isSimulated());
    EXPECT_EQ(message.data(), bytes("01 02"));
}

TEST(CanMessageTest, MessageMadeFromAReceivedOneHasNoSourceAndIsNotSimulated)
{
    CanMessage received(0x4A8, 42, bytes("01 02"));
    received.setSource(0x419);
    received.setSimulated(true);

    const CanMessage made(&received);
    EXPECT_EQ(made.destination(), 0x4A8);
    EXPECT_EQ(made.command(), 42);
    EXPECT_EQ(made.data(), bytes("01 02"));
    EXPECT_EQ(made.source(), -1);
    EXPECT_FALSE(made.isSimulated());
}

TEST(CanMessageTest, MessageMadeFromNoneIsEmpty)
{
    const LogSpy log;
    const CanMessage made(static_cast<const CanMessage *>(nullptr));
    EXPECT_EQ(made.source(), -1);
    EXPECT_EQ(made.destination(), -1);
    EXPECT_EQ(made.command(), -1);
    EXPECT_TRUE(made.data().isEmpty());
    EXPECT_FALSE(made.isSimulated());
    EXPECT_TRUE(log.records().isEmpty());
}

TEST(CanMessageTest, CopyIsWholeAndIndependent)
{
    CanMessage message(0x4A8, 42, bytes("01 02"));
    message.setSource(0x419);
    message.setSimulated(true);

    const CanMessage copy = message;
    message.init();
    message.appendDataUnsignedChar(3);
    EXPECT_EQ(copy.destination(), 0x4A8);
    EXPECT_EQ(copy.command(), 42);
    EXPECT_EQ(copy.data(), bytes("01 02"));
    EXPECT_EQ(copy.source(), 0x419);
    EXPECT_TRUE(copy.isSimulated());
}

struct CommandCase
{
    const char *pName;
    int command;
    bool isValid;
};

using CanMessageCommands = ::testing::TestWithParam<CommandCase>;

TEST_P(CanMessageCommands, AreKeptOrRefusedWithOneLine)
{
    const int command = GetParam().command;
    const LogSpy log;
    CanMessage message;
    message.setCommand(1);
    message.setCommand(command);
    EXPECT_EQ(message.command(), GetParam().isValid ? command : -1);
    EXPECT_EQ(log.records().size(), GetParam().isValid ? 0 : 1);
    EXPECT_EQ(refusals(log, command), GetParam().isValid ? 0 : 1);
}

TEST_P(CanMessageCommands, AreCheckedByEveryConstructor)
{
    const int command = GetParam().command;
    const int expected = GetParam().isValid ? command : -1;
    const LogSpy log;
    EXPECT_EQ(CanMessage(5, command).command(), expected);
    EXPECT_EQ(CanMessage(5, command, bytes("01")).command(), expected);
    EXPECT_EQ(CanMessage(5, command, "AB").command(), expected);
    EXPECT_EQ(CanMessage(5, command, QByteArray("AB")).command(), expected);
    EXPECT_EQ(log.records().size(), GetParam().isValid ? 0 : 4);
    EXPECT_EQ(refusals(log, command), GetParam().isValid ? 0 : 4);
}

const CommandCase s_commandCases[] = {
    {"NotSet", -1, true},
    {"Zero", 0, true},
    {"Highest", 0x7FF, true},
    {"OneAboveTheHighest", 0x800, false},
    {"OneBelowNotSet", -2, false},
    {"SixteenBits", 0xFFFF, false},
    {"LowestNumber", s_lowest, false},
    {"HighestNumber", s_highest, false},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanMessageCommands, ::testing::ValuesIn(s_commandCases), caseName);

struct DataCase
{
    const char *pName;
    QByteArray given;
    const char *pHex; ///< what becomes of it
};

using CanMessageData = ::testing::TestWithParam<DataCase>;

TEST_P(CanMessageData, LosesTheLastByteOfAnArray)
{
    CanMessage message(5, 1, bytes("aa bb cc dd"));
    message.setData(GetParam().given);
    EXPECT_EQ(message.data(), bytes(GetParam().pHex));
}

const DataCase s_dataCases[] = {
    {"NullArray", QByteArray(), ""},
    {"EmptyArray", QByteArray(""), ""},
    {"OneByte", QByteArray("A"), ""},
    {"TwoBytes", QByteArray("AB"), "41"},
    {"ThreeBytes", QByteArray("\x01\x02\x03"), "01 02"},
    {"ZerosInside", QByteArray("\x00\x00\x05\x00", 4), "00 00 05"},
    {"HighBytes", QByteArray("\x80\xff\x00", 3), "80 ff"},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanMessageData, ::testing::ValuesIn(s_dataCases), caseName);

struct TextCase
{
    const char *pName;
    const char *pText;
    const char *pHex; ///< what becomes of it
};

using CanMessageText = ::testing::TestWithParam<TextCase>;

TEST_P(CanMessageText, LosesItsLastCharacter)
{
    CanMessage message(5, 1, bytes("aa bb cc dd"));
    message.setData(GetParam().pText);
    EXPECT_EQ(message.data(), bytes(GetParam().pHex));
}

const TextCase s_textCases[] = {
    {"Null", nullptr, ""},
    {"Empty", "", ""},
    {"OneCharacter", "A", ""},
    {"TwoCharacters", "AB", "41"},
    {"HighCharacters", "\x80\xff\x7f", "80 ff"},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanMessageText, ::testing::ValuesIn(s_textCases), caseName);

TEST(CanMessageTest, LongDataAreKeptWhole)
{
    CanMessage message;
    message.setData(QByteArray(100001, 'x'));
    EXPECT_EQ(message.dataSize(), 100000);
}

TEST(CanMessageTest, NumbersAreAppendedAndReadBigEndian)
{
    CanMessage message;
    message.appendDataUnsignedShort(0x1234);
    message.appendDataUnsignedInt(0xA1B2C3D4);
    EXPECT_EQ(message.data(), bytes("12 34 a1 b2 c3 d4"));
    EXPECT_EQ(message.dataUnsignedShortAt(0), 0x1234);
    EXPECT_EQ(message.dataUnsignedIntAt(2), 0xA1B2C3D4);
    EXPECT_EQ(message.dataSignedShortAt(2), -24142);

    message.appendDataUnsignedChar(0x85);
    EXPECT_EQ(message.data(), bytes("12 34 a1 b2 c3 d4 85"));
    EXPECT_EQ(message.dataUnsignedCharAt(6), 0x85);
    EXPECT_EQ(message.dataSignedCharAt(6), -123);
}

TEST(CanMessageTest, EdgesOfEachNumberAreReadAsTheyWereAppended)
{
    CanMessage message;
    const auto all = bytes("00 7f 80 ff");
    for (const unsigned char byte : all)
        message.appendDataUnsignedChar(byte);
    EXPECT_EQ(message.dataSignedCharAt(0), 0);
    EXPECT_EQ(message.dataSignedCharAt(1), 127);
    EXPECT_EQ(message.dataSignedCharAt(2), -128);
    EXPECT_EQ(message.dataSignedCharAt(3), -1);
    EXPECT_EQ(message.dataUnsignedCharAt(3), 255);
    EXPECT_EQ(message.dataUnsignedShortAt(2), 0x80FF);
    EXPECT_EQ(message.dataSignedShortAt(1), 0x7F80);
    EXPECT_EQ(message.dataUnsignedIntAt(0), 0x007F80FFU);
}

namespace {

/// Reads at `index` by all five operations.
void readAll(const CanMessage &message, int index)
{
    message.dataUnsignedCharAt(index);
    message.dataSignedCharAt(index);
    message.dataUnsignedShortAt(index);
    message.dataSignedShortAt(index);
    message.dataUnsignedIntAt(index);
}

} // namespace

struct IndexCase
{
    const char *pName;
    int index;
    bool isInside;
};

using CanMessageIndexes = ::testing::TestWithParam<IndexCase>;

// Three bytes: an int does not fit in anywhere, a short not at the last; the first byte alone
// counts.
TEST_P(CanMessageIndexes, AreCheckedForTheFirstByteByEveryRead)
{
    const CanMessage message(5, 1, bytes("01 02 03"));
    const AssertSpy asserts;
    readAll(message, GetParam().index);

    const QString text = QStringLiteral("Reading invalid index (%1) from CAN message");
    ASSERT_EQ(asserts.records().size(), GetParam().isInside ? 0 : 5);
    for (const AssertRecord &record : asserts.records()) {
        EXPECT_EQ(record.condition, QStringLiteral("index >= 0 && index < dataSize()"));
        EXPECT_EQ(record.message, text.arg(GetParam().index));
        EXPECT_EQ(record.file, QStringLiteral("src/canbus/canmessage"));
        EXPECT_EQ(record.line, 146);
        EXPECT_FALSE(record.isRelease);
    }
}

const IndexCase s_indexCases[] = {
    {"OneBelow", -1, false},
    {"First", 0, true},
    {"Last", 2, true},
    {"Size", 3, false},
    {"LowestNumber", s_lowest, false},
    {"HighestNumber", s_highest, false},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanMessageIndexes, ::testing::ValuesIn(s_indexCases), caseName);

TEST(CanMessageTest, EveryReadOfAnEmptyMessageIsReported)
{
    const CanMessage message;
    const AssertSpy asserts;
    readAll(message, 0);
    EXPECT_EQ(asserts.count("index >= 0 && index < dataSize()",
                            "Reading invalid index (0) from CAN message", "src/canbus/canmessage"),
              5);
}

TEST(CanMessageTest, BytesBehindTheDataReadAsZero)
{
    const CanMessage message(5, 1, bytes("01 02 83"));
    const AssertSpy asserts;
    EXPECT_EQ(message.dataUnsignedShortAt(2), 0x8300);
    EXPECT_EQ(message.dataSignedShortAt(2), -32000);
    EXPECT_EQ(message.dataUnsignedIntAt(0), 0x01028300U);
    EXPECT_EQ(message.dataUnsignedIntAt(2), 0x83000000U);
    EXPECT_TRUE(asserts.records().isEmpty());
}

TEST(CanMessageTest, ReadsHaveTheTypesOfTheirNames)
{
    const CanMessage message(5, 1, bytes("01 02 03 04"));
    static_assert(std::is_same_v<decltype(message.dataUnsignedCharAt(0)), unsigned char>);
    static_assert(std::is_same_v<decltype(message.dataSignedCharAt(0)), signed char>);
    static_assert(std::is_same_v<decltype(message.dataUnsignedShortAt(0)), unsigned short>);
    static_assert(std::is_same_v<decltype(message.dataSignedShortAt(0)), short>);
    static_assert(std::is_same_v<decltype(message.dataUnsignedIntAt(0)), unsigned int>);
    EXPECT_EQ(message.dataUnsignedIntAt(0), 0x01020304U);
}

TEST(CanMessageTest, MetaTypesBearTheirNames)
{
    EXPECT_STREQ(QMetaType::typeName(qMetaTypeId<CanMessage>()), "CanMessage");
    EXPECT_STREQ(QMetaType::typeName(qMetaTypeId<QSharedPointer<const CanMessage>>()),
                 "QSharedPointer<const CanMessage>");
}
