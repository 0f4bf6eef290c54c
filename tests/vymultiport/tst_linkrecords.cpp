#include "linkrecords.h"

#include "multiportprotocol.h"
#include "support/casename.h"
#include "vymultiport/linkpage.h"

#include <QMetaEnum>
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

/// "82:0007" for each record that the bytes hold.
QStringList recordsIn(RecordReader &reader)
{
    QStringList texts;
    while (const std::optional<Record> record = reader.next())
        texts.append(QStringLiteral("%1:%2")
                         .arg(static_cast<int>(record->kind), 2, 16, QLatin1Char('0'))
                         .arg(QString::fromLatin1(record->body.toHex())));
    return texts;
}

} // namespace

// -- the page's examples --------------------------------------------------------------------------

class LinkPageTest : public ::testing::Test
{
protected:
    /// The number-th example of the page.
    QByteArray example(int number, const char *pFrom)
    {
        const QList<linkpage::Example> examples = linkpage::examples();
        EXPECT_EQ(examples.size(), 9); // one that is added needs a test
        const linkpage::Example example = examples.value(number - 1);
        EXPECT_EQ(example.from, QString::fromLatin1(pFrom));
        EXPECT_FALSE(example.bytes.isEmpty());
        return example.bytes;
    }
};

TEST_F(LinkPageTest, HelloOfTheExample)
{
    const QByteArray bytes = example(3, "client");
    EXPECT_EQ(textOf(encode(Hello{1, Role::Controller})), textOf(bytes));
    const std::optional<Hello> hello = decodeHello(bodyOf(bytes));
    ASSERT_TRUE(hello);
    EXPECT_EQ(hello->version, 1);
    EXPECT_EQ(hello->role, Role::Controller);
}

TEST_F(LinkPageTest, WelcomeOfTheExample)
{
    const QByteArray bytes = example(4, "server");
    EXPECT_EQ(textOf(encode(Welcome{1, Role::Controller, 4001, 4000})), textOf(bytes));
    const std::optional<Welcome> welcome = decodeWelcome(bodyOf(bytes));
    ASSERT_TRUE(welcome);
    EXPECT_EQ(welcome->version, 1);
    EXPECT_EQ(welcome->role, Role::Controller);
    EXPECT_EQ(welcome->canPort, 4001);
    EXPECT_EQ(welcome->paymentPort, 4000);
}

TEST_F(LinkPageTest, HeartbeatOfTheExample)
{
    EXPECT_EQ(textOf(encodeHeartbeat()), textOf(example(5, "either")));
}

TEST_F(LinkPageTest, OutputAndItsStatusOfTheExample)
{
    const QByteArray asked = example(6, "client");
    EXPECT_EQ(textOf(encode(Request{7, MultiportProtocol::CommandSetOutput, hex("09 01")})),
              textOf(asked));
    const std::optional<Request> request = decodeRequest(bodyOf(asked));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->sequence, 7);
    EXPECT_EQ(request->command, 30);
    EXPECT_EQ(textOf(request->payload), "09 01");

    const QByteArray answered = example(7, "server");
    EXPECT_EQ(textOf(encode(Status{7, MultiportProtocol::CommandSetOutput, 0})), textOf(answered));
    const std::optional<Status> status = decodeStatus(bodyOf(answered));
    ASSERT_TRUE(status);
    EXPECT_EQ(status->sequence, 7);
    EXPECT_EQ(status->command, 30);
    EXPECT_EQ(status->status, 0);
}

TEST_F(LinkPageTest, SerialLineAndItsStatusOfTheExample)
{
    const QByteArray asked = example(8, "client");
    const QByteArray payload = encode(SerialLine{4000, 9600, 9, 0, 0});
    EXPECT_EQ(textOf(encode(Request{8, MultiportProtocol::CommandSetSerialLine, payload})),
              textOf(asked));
    const std::optional<Request> request = decodeRequest(bodyOf(asked));
    ASSERT_TRUE(request);
    const std::optional<SerialLine> line = decodeSerialLine(request->payload);
    ASSERT_TRUE(line);
    EXPECT_EQ(line->port, 4000);
    EXPECT_EQ(line->baudRate, 9600U);
    EXPECT_EQ(line->dataBits, 9);
    EXPECT_EQ(line->parity, 0);
    EXPECT_EQ(line->mdbMode, 0);
    EXPECT_EQ(textOf(encode(Status{8, 20, 0})), textOf(example(9, "server")));
}

// -- the page's numbers ---------------------------------------------------------------------------

template <typename Enum>
QList<int> numbersOf()
{
    const QMetaEnum numbers = QMetaEnum::fromType<Enum>();
    QList<int> list;
    for (int i = 0; i < numbers.keyCount(); ++i)
        list.append(numbers.value(i));
    return list;
}

TEST_F(LinkPageTest, CommandsStatusesAndEventsAreThoseOfTheTables)
{
    EXPECT_EQ(linkpage::table(QStringLiteral("command")).keys(),
              numbersOf<MultiportProtocol::Command>());
    EXPECT_EQ(linkpage::table(QStringLiteral("status")).keys(),
              numbersOf<MultiportProtocol::Status>());
    EXPECT_EQ(linkpage::table(QStringLiteral("event")).keys(),
              numbersOf<MultiportProtocol::Event>());
}

TEST_F(LinkPageTest, KindsAreThoseOfTheTable)
{
    const QMap<int, QString> expected = {
        {static_cast<int>(Kind::Hello), QStringLiteral("hello")},
        {static_cast<int>(Kind::Request), QStringLiteral("request")},
        {static_cast<int>(Kind::Heartbeat), QStringLiteral("heartbeat")},
        {static_cast<int>(Kind::Welcome), QStringLiteral("welcome")},
        {static_cast<int>(Kind::Status), QStringLiteral("status")},
        {static_cast<int>(Kind::Event), QStringLiteral("event")},
        {static_cast<int>(Kind::Goodbye), QStringLiteral("goodbye")},
    };
    EXPECT_EQ(linkpage::table(QStringLiteral("kind")), expected);
}

TEST_F(LinkPageTest, ReasonsAreThoseOfTheTable)
{
    const QMap<int, QString> reasons = linkpage::table(QStringLiteral("reason"));
    EXPECT_EQ(reasons.keys(), (QList<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    const auto text = [&](Reason reason) { return reasons.value(static_cast<int>(reason)); };
    EXPECT_EQ(text(Reason::NotThisLink), QStringLiteral("the hello is not one of this link"));
    EXPECT_TRUE(text(Reason::OtherVersion).startsWith(QLatin1String("another version")));
    EXPECT_EQ(text(Reason::ControllerTaken), QStringLiteral("there is a controller already"));
    EXPECT_EQ(text(Reason::TooManyClients), QStringLiteral("too many clients"));
    EXPECT_EQ(text(Reason::Malformed), QStringLiteral("malformed record"));
    EXPECT_EQ(text(Reason::TooLong), QStringLiteral("a record longer than 4096 bytes"));
    EXPECT_EQ(text(Reason::NoHello), QStringLiteral("no hello within 5 s"));
    EXPECT_EQ(text(Reason::Silent), QStringLiteral("silent for too long"));
    EXPECT_EQ(text(Reason::Backlog), QStringLiteral("too much waits to be read by this client"));
    EXPECT_EQ(text(Reason::ServerStops), QStringLiteral("the server stops"));
}

TEST_F(LinkPageTest, BoundsAreThoseOfTheTable)
{
    const QString page = linkpage::lines().join(QLatin1Char('\n'));
    const auto row = [&](const char *pWhat, const QString &bound) {
        const QString line = QStringLiteral("| %1 | %2").arg(QString::fromLatin1(pWhat), bound);
        EXPECT_TRUE(page.contains(line)) << line.toStdString();
    };
    const auto seconds = [](std::chrono::milliseconds time) {
        return QStringLiteral("%1 s").arg(static_cast<double>(time.count()) / 1000);
    };
    row("control record", QStringLiteral("%1 bytes |").arg(MaxRecordSize));
    row("what may wait for a client that does not read",
        QStringLiteral("%1 MiB,").arg(MaxBacklog / 1024 / 1024));
    EXPECT_EQ(MaxBacklog % (1024 * 1024), 0);
    row("hello", seconds(HelloTimeout) + QStringLiteral(" |"));
    row("heartbeat, silence", seconds(HeartbeatInterval) + QStringLiteral(", ") +
                                  seconds(SilenceLimit) + QStringLiteral(" |"));
    row("claim of a connection that has not come", seconds(ClaimTimeout) + QStringLiteral(" |"));
    row("CAN", QStringLiteral("%1 |").arg(CanPort));
    row("payment", QStringLiteral("%1 |").arg(PaymentPort));
    row("control", QStringLiteral("%1 |").arg(ControlPort));
}

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

// -- records out of a stream ----------------------------------------------------------------------

class RecordReaderTest : public ::testing::Test
{
protected:
    const QByteArray m_stream =
        encode(Status{7, 30, 0}) + encodeHeartbeat() + encode(Event{65, hex("00 01")});
    const QStringList m_records = {QStringLiteral("82:00071e00"), QStringLiteral("04:"),
                                   QStringLiteral("83:410001")};
    RecordReader m_reader;
};

TEST_F(RecordReaderTest, AllAtOnce)
{
    m_reader.append(m_stream);
    EXPECT_EQ(recordsIn(m_reader), m_records);
    EXPECT_FALSE(m_reader.fault());
}

TEST_F(RecordReaderTest, ByteByByte)
{
    QStringList records;
    for (const char byte : m_stream) {
        m_reader.append(QByteArray(1, byte));
        records += recordsIn(m_reader);
    }
    EXPECT_EQ(records, m_records);
    EXPECT_FALSE(m_reader.fault());
}

TEST_F(RecordReaderTest, EverySplitPoint)
{
    const QList<int> ends = {7, 10, 16}; // where a record is whole
    ASSERT_EQ(m_stream.size(), ends.last());
    for (int at = 0; at <= m_stream.size(); ++at) {
        RecordReader reader;
        reader.append(m_stream.left(at));
        const QStringList first = recordsIn(reader);
        EXPECT_EQ(first.size(), (at >= 7) + (at >= 10) + (at >= 16)) << at;
        reader.append(m_stream.mid(at));
        EXPECT_EQ(first + recordsIn(reader), m_records) << at;
        EXPECT_FALSE(reader.fault());
    }
}

TEST_F(RecordReaderTest, NewOneHasNothing)
{
    EXPECT_FALSE(m_reader.next());
    m_reader.append(QByteArray());
    EXPECT_FALSE(m_reader.next());
    EXPECT_FALSE(m_reader.fault());
}

TEST_F(RecordReaderTest, RecordsTakenOneByOneWhileMoreArrive)
{
    QStringList records;
    for (int round = 0; round < 1000; ++round) {
        m_reader.append(m_stream);
        const std::optional<Record> record = m_reader.next();
        ASSERT_TRUE(record) << round;
        EXPECT_EQ(record->kind, round % 3 == 0   ? Kind::Status
                                : round % 3 == 1 ? Kind::Heartbeat
                                                 : Kind::Event);
    }
    EXPECT_EQ(recordsIn(m_reader).size(), 2000);
}

struct StreamCase
{
    const char *pName;
    const char *pHex;
    int records; ///< that are whole before the fault
    std::optional<Reason> fault;
};

void PrintTo(const StreamCase &row, std::ostream *pOut)
{
    *pOut << row.pName;
}

using RecordReaderStreams = ::testing::TestWithParam<StreamCase>;

TEST_P(RecordReaderStreams, EndAtWhatIsNoRecord)
{
    for (const bool isWhole : {true, false}) { // byte by byte else
        RecordReader reader;
        const QByteArray stream = hex(GetParam().pHex);
        int records = 0;
        for (int at = 0; at < stream.size(); at += isWhole ? stream.size() : 1) {
            reader.append(isWhole ? stream : stream.mid(at, 1));
            records += recordsIn(reader).size();
        }
        EXPECT_EQ(records, GetParam().records);
        EXPECT_EQ(reader.fault(), GetParam().fault);
        if (!GetParam().fault)
            continue;
        reader.append(encodeHeartbeat());
        EXPECT_FALSE(reader.next()); // for ever
        EXPECT_EQ(reader.fault(), GetParam().fault);
    }
}

constexpr StreamCase s_streamCases[] = {
    {"LengthZero", "00 00 04", 0, Reason::Malformed},
    {"LengthZeroBehindARecord", "00 01 04 00 00", 1, Reason::Malformed},
    {"LengthOne", "00 01 04", 1, {}},
    {"LengthLargest", "0f fe 85", 0, {}},
    {"LengthOneAbove", "0f ff 85", 0, Reason::TooLong},
    {"LengthOneAboveWithoutAKind", "0f ff", 0, Reason::TooLong},
    {"LengthOfAllBits", "ff ff", 0, Reason::TooLong},
    {"OneByte", "ff", 0, {}},
    {"UnknownKind", "00 01 05", 0, Reason::Malformed},
    {"UnknownKindZero", "00 01 00", 0, Reason::Malformed},
    {"UnknownKindOfAllBits", "00 02 ff 00", 0, Reason::Malformed},
    {"UnknownKindBehindTwoRecords", "00 01 04 00 05 82 00 07 1e 00 00 01 86", 2, Reason::Malformed},
    {"IncompleteRecord", "00 05 82 00 07 1e", 0, {}},
};
INSTANTIATE_TEST_SUITE_P(Rows, RecordReaderStreams, ::testing::ValuesIn(s_streamCases), caseName);

TEST_F(RecordReaderTest, LongestRecordIsTaken)
{
    const QByteArray payload(MaxRecordSize - 6, 'p');
    const QByteArray record = encode(Request{1, 2, payload});
    ASSERT_EQ(record.size(), 4096);
    m_reader.append(record + encodeHeartbeat());
    const std::optional<Record> taken = m_reader.next();
    ASSERT_TRUE(taken);
    EXPECT_EQ(decodeRequest(taken->body)->payload, payload);
    ASSERT_TRUE(m_reader.next());
    EXPECT_FALSE(m_reader.fault());
}

// A peer that sends a long record and never ends it is bounded by the record's own size.
TEST_F(RecordReaderTest, UnknownKindIsFoundBeforeItsBodyHasCome)
{
    m_reader.append(hex("0f fe 7f"));
    EXPECT_FALSE(m_reader.next());
    EXPECT_EQ(m_reader.fault(), Reason::Malformed);
}
