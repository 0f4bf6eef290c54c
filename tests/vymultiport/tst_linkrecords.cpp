#include "linkrecords.h"

#include "support/casename.h"

#include <gtest/gtest.h>
#include <ostream>

using namespace multiportlink;

namespace {

QByteArray hex(const char *pHex)
{
    return QByteArray::fromHex(pHex);
}

std::string textOf(const QByteArray &bytes)
{
    return bytes.toHex(' ').toStdString();
}

/// What stands behind the length and the kind.
QByteArray bodyOf(const QByteArray &record)
{
    return record.mid(3);
}

} // namespace

// -- records as bytes -----------------------------------------------------------------------------

struct EncodedCase
{
    const char *pName;
    QByteArray bytes;
    const char *pHex;
};

void PrintTo(const EncodedCase &row, std::ostream *pOut)
{
    *pOut << row.pName;
}

using LinkRecordBytes = ::testing::TestWithParam<EncodedCase>;

TEST_P(LinkRecordBytes, AreThoseOfThePage)
{
    EXPECT_EQ(textOf(GetParam().bytes), GetParam().pHex);
}

const EncodedCase s_encodedCases[] = {
    {"HelloOfAnObserver", encode(Hello{1, Role::Observer}), "00 07 01 56 59 4d 50 01 00"},
    {"HelloOfVersion255", encode(Hello{255, Role::Controller}), "00 07 01 56 59 4d 50 ff 01"},
    {"WelcomeOfAnObserver", encode(Welcome{1, Role::Observer, 0, 65535}),
     "00 0b 81 56 59 4d 50 01 00 00 00 ff ff"},
    {"RequestWithoutPayload", encode(Request{0, 49, {}}), "00 04 02 00 00 31"},
    {"RequestWithTheLargestNumbers", encode(Request{65535, 255, hex("ff")}),
     "00 05 02 ff ff ff ff"},
    {"RequestWithZeroBytes", encode(Request{256, 0, hex("00 00")}), "00 06 02 01 00 00 00 00"},
    {"StatusWithTheLargestNumbers", encode(Status{65535, 255, 255}), "00 05 82 ff ff ff ff"},
    {"StatusRejected", encode(Status{258, 74, 1}), "00 05 82 01 02 4a 01"},
    {"EventOfASwitch", encode(Event{7, hex("01")}), "00 03 83 07 01"},
    {"EventWithoutPayload", encode(Event{255, {}}), "00 02 83 ff"},
    {"GoodbyeWithoutText", encode(Goodbye{10, {}}), "00 02 85 0a"},
    {"GoodbyeInUtf8", encode(Goodbye{3, QStringLiteral("à bientôt")}),
     "00 0d 85 03 c3 a0 20 62 69 65 6e 74 c3 b4 74"},
    {"ClaimOfCan", encode(Claim{1, 40000}), "01 9c 40"},
    {"ClaimOfPayment", encode(Claim{3, 1}), "03 00 01"},
    {"SerialLineOf8Bits", encode(SerialLine{4000, 9600, 8, 1, 0}), "0f a0 00 00 25 80 08 01 00"},
    {"SerialLineWithTheLargestNumbers", encode(SerialLine{65535, 4294967295U, 255, 255, 255}),
     "ff ff ff ff ff ff ff ff ff"},
};
INSTANTIATE_TEST_SUITE_P(Rows, LinkRecordBytes, ::testing::ValuesIn(s_encodedCases), caseName);

// -- what a body may be ---------------------------------------------------------------------------

/// Which decoder, and whether it takes the body.
struct BodyCase
{
    const char *pName;
    bool (*pTakes)(const QByteArray &body);
    const char *pBody;
    bool isTaken;
};

void PrintTo(const BodyCase &row, std::ostream *pOut)
{
    *pOut << row.pName;
}

using LinkRecordBodies = ::testing::TestWithParam<BodyCase>;

TEST_P(LinkRecordBodies, AreTakenOnlyWhenTheyAreOfTheirKind)
{
    EXPECT_EQ(GetParam().pTakes(hex(GetParam().pBody)), GetParam().isTaken);
}

bool hello(const QByteArray &body)
{
    return decodeHello(body).has_value();
}
bool welcome(const QByteArray &body)
{
    return decodeWelcome(body).has_value();
}
bool request(const QByteArray &body)
{
    return decodeRequest(body).has_value();
}
bool status(const QByteArray &body)
{
    return decodeStatus(body).has_value();
}
bool event(const QByteArray &body)
{
    return decodeEvent(body).has_value();
}
bool goodbye(const QByteArray &body)
{
    return decodeGoodbye(body).has_value();
}
bool claim(const QByteArray &payload)
{
    return decodeClaim(payload).has_value();
}
bool serialLine(const QByteArray &payload)
{
    return decodeSerialLine(payload).has_value();
}

constexpr BodyCase s_bodyCases[] = {
    {"Hello", hello, "56 59 4d 50 01 01", true},
    {"HelloEmpty", hello, "", false},
    {"HelloOneShort", hello, "56 59 4d 50 01", false},
    {"HelloOneLong", hello, "56 59 4d 50 01 01 00", false},
    {"HelloOfAnotherProtocol", hello, "56 59 4d 51 01 01", false},
    {"HelloInLowerCase", hello, "76 79 6d 70 01 01", false},
    {"HelloOfRole2", hello, "56 59 4d 50 01 02", false},
    {"HelloOfVersion2", hello, "56 59 4d 50 02 01", true},
    {"HelloOfVersion0", hello, "56 59 4d 50 00 01", true},
    {"HelloOfVersion2AndMore", hello, "56 59 4d 50 02 01 00 ff", true},
    {"HelloOfVersion2OneShort", hello, "56 59 4d 50 02", false},
    {"Welcome", welcome, "56 59 4d 50 01 01 0f a1 0f a0", true},
    {"WelcomeEmpty", welcome, "", false},
    {"WelcomeOneShort", welcome, "56 59 4d 50 01 01 0f a1 0f", false},
    {"WelcomeOneLong", welcome, "56 59 4d 50 01 01 0f a1 0f a0 00", false},
    {"WelcomeOfAnotherProtocol", welcome, "56 59 4d 00 01 01 0f a1 0f a0", false},
    {"WelcomeOfRole2", welcome, "56 59 4d 50 01 02 0f a1 0f a0", false},
    {"WelcomeOfVersion2AndMore", welcome, "56 59 4d 50 02 01 0f a1 0f a0 00", true},
    {"WelcomeOfVersion2AndLess", welcome, "56 59 4d 50 02 01", true},
    {"Request", request, "00 07 1e", true},
    {"RequestEmpty", request, "", false},
    {"RequestOneShort", request, "00 07", false},
    {"RequestWithPayload", request, "00 07 1e 09", true},
    {"Status", status, "00 07 1e 00", true},
    {"StatusEmpty", status, "", false},
    {"StatusOneShort", status, "00 07 1e", false},
    {"StatusOneLong", status, "00 07 1e 00 00", false},
    {"Event", event, "07", true},
    {"EventEmpty", event, "", false},
    {"EventWithPayload", event, "41 00 01", true},
    {"Goodbye", goodbye, "0a", true},
    {"GoodbyeEmpty", goodbye, "", false},
    {"GoodbyeOfALaterReason", goodbye, "ff 61", true},
    {"Claim", claim, "01 9c 40", true},
    {"ClaimEmpty", claim, "", false},
    {"ClaimOneShort", claim, "01 9c", false},
    {"ClaimOneLong", claim, "01 9c 40 00", false},
    {"SerialLine", serialLine, "0f a0 00 00 25 80 09 00 00", true},
    {"SerialLineEmpty", serialLine, "", false},
    {"SerialLineOneShort", serialLine, "0f a0 00 00 25 80 09 00", false},
    {"SerialLineOneLong", serialLine, "0f a0 00 00 25 80 09 00 00 00", false},
};
INSTANTIATE_TEST_SUITE_P(Rows, LinkRecordBodies, ::testing::ValuesIn(s_bodyCases), caseName);

// -- what is decoded is what was encoded ----------------------------------------------------------

TEST(LinkRecordsTest, EveryFieldComesBackInItsPlace)
{
    const auto hello = decodeHello(bodyOf(encode(Hello{2, Role::Observer})));
    ASSERT_TRUE(hello);
    EXPECT_EQ(hello->version, 2);
    EXPECT_EQ(hello->role, Role::Observer);

    const auto welcome = decodeWelcome(bodyOf(encode(Welcome{1, Role::Observer, 0x0102, 0xfffe})));
    ASSERT_TRUE(welcome);
    EXPECT_EQ(welcome->role, Role::Observer);
    EXPECT_EQ(welcome->canPort, 0x0102);
    EXPECT_EQ(welcome->paymentPort, 0xfffe);

    const auto request = decodeRequest(bodyOf(encode(Request{0xfffe, 74, hex("00 01 02")})));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->sequence, 0xfffe);
    EXPECT_EQ(request->command, 74);
    EXPECT_EQ(request->payload, hex("00 01 02"));

    const auto status = decodeStatus(bodyOf(encode(Status{0x8001, 0xfe, 0xfd})));
    ASSERT_TRUE(status);
    EXPECT_EQ(status->sequence, 0x8001);
    EXPECT_EQ(status->command, 0xfe);
    EXPECT_EQ(status->status, 0xfd);

    const auto event = decodeEvent(bodyOf(encode(Event{67, hex("01 02")})));
    ASSERT_TRUE(event);
    EXPECT_EQ(event->event, 67);
    EXPECT_EQ(event->payload, hex("01 02"));

    const auto goodbye = decodeGoodbye(bodyOf(encode(Goodbye{9, QStringLiteral("très long")})));
    ASSERT_TRUE(goodbye);
    EXPECT_EQ(goodbye->reason, 9);
    EXPECT_EQ(goodbye->text, QStringLiteral("très long"));

    const auto claim = decodeClaim(encode(Claim{3, 0xabcd}));
    ASSERT_TRUE(claim);
    EXPECT_EQ(claim->interface, 3);
    EXPECT_EQ(claim->port, 0xabcd);

    const auto line = decodeSerialLine(encode(SerialLine{0x8001, 0x89abcdef, 8, 2, 1}));
    ASSERT_TRUE(line);
    EXPECT_EQ(line->port, 0x8001);
    EXPECT_EQ(line->baudRate, 0x89abcdefU);
    EXPECT_EQ(line->dataBits, 8);
    EXPECT_EQ(line->parity, 2);
    EXPECT_EQ(line->mdbMode, 1);
}

TEST(LinkRecordsTest, TextThatWouldMakeTheRecordTooLongIsCut)
{
    const int room = MaxRecordSize - 4; // length, kind and reason
    const QString fits(room, QLatin1Char('x'));
    EXPECT_EQ(encode(Goodbye{1, fits}).size(), MaxRecordSize);
    EXPECT_EQ(decodeGoodbye(bodyOf(encode(Goodbye{1, fits})))->text, fits);

    const QByteArray cut = encode(Goodbye{1, fits + QLatin1Char('y')});
    EXPECT_EQ(cut.size(), MaxRecordSize);
    EXPECT_EQ(cut, encode(Goodbye{1, fits}));

    RecordReader reader;
    reader.append(encode(Goodbye{1, QString(100000, QChar(0x20ac))}) + encodeHeartbeat());
    const std::optional<Record> record = reader.next();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->kind, Kind::Goodbye);
    const std::optional<Record> next = reader.next();
    ASSERT_TRUE(next);
    EXPECT_EQ(next->kind, Kind::Heartbeat);
}

// The bytes of a character stay together: what is cut is still UTF-8.
TEST(LinkRecordsTest, TextIsCutBetweenTwoCharacters)
{
    for (int lead = 0; lead < 4; ++lead) {
        const QString text = QString(lead, QLatin1Char('x')) + QString(4096, QChar(0x20ac));
        const auto goodbye = decodeGoodbye(bodyOf(encode(Goodbye{1, text})));
        ASSERT_TRUE(goodbye);
        EXPECT_TRUE(text.startsWith(goodbye->text)) << lead;
        EXPECT_GE(goodbye->text.size(), 1360) << lead; // of 4092 bytes
    }
}

TEST(LinkRecordsTest, TextThatIsNotUtf8IsTaken)
{
    const auto goodbye = decodeGoodbye(hex("0a ff c3"));
    ASSERT_TRUE(goodbye);
    EXPECT_EQ(goodbye->reason, 10);
}
