#include "linkrecords.h"

#include "support/casename.h"

#include <QStringList>
#include <gtest/gtest.h>
#include <ostream>

using namespace multiportlink;

namespace {

QByteArray hex(const char *pHex)
{
    return QByteArray::fromHex(pHex);
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
