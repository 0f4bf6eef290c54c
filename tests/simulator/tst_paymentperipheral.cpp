#include "simulator/paymentperipheral.h"

#include "simulator/paymentline.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QFile>
#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace Multidrop;
using State = PaymentPeripheral::State;
using Fault = PaymentPeripheral::Fault;

namespace {

constexpr int s_funds = 150;

const QByteArray s_ack = "01 00";
const QByteArray s_nak = "01 ff";
const QByteArray s_outOfSequence = "00 0b 01 0b";
const QByteArray s_config = "00 01 00 01 00 19 00 78 00 01 00 02 00 05 00 00 01 9b";
const QByteArray s_silence = "";

/// Takes the reader to a state as a master would.
void bring(ReaderLine &line, State state)
{
    switch (state) {
    case State::Inactive:
        line.answerTo(Reset);
        line.told();
        return;
    case State::Disabled:
        line.enable();
        line.answerTo(ReaderDisable);
        return;
    case State::Enabled:
        line.enable();
        return;
    case State::Session:
        line.beginSession(s_funds);
        return;
    case State::Vend:
        line.beginSession(s_funds);
        line.answerTo(VendRequest, "00780007");
        line.told();
        return;
    }
}

} // namespace

struct ReaderCase
{
    const char *pName;
    State state;
    int request;
    const char *pPayload;
    QByteArray answer;
    QByteArray told; ///< with the next poll, when the answer was acknowledged
    State after;
};

using ReaderTable = ::testing::TestWithParam<ReaderCase>;

TEST_P(ReaderTable, AnswersAndGoesOn)
{
    ReaderLine line;
    bring(line, GetParam().state);
    ASSERT_EQ(line.reader.state(), GetParam().state);
    EXPECT_EQ(line.answerTo(GetParam().request, GetParam().pPayload), GetParam().answer);
    EXPECT_EQ(line.reader.state(), GetParam().after);
    line.acknowledge();
    EXPECT_EQ(line.told(), GetParam().told);
    EXPECT_EQ(line.told(), s_ack);
}

const ReaderCase s_readerCases[] = {
    {"ResetWhenInactive", State::Inactive, Reset, "", s_ack, "00 00 01 00", State::Inactive},
    {"ResetWhenEnabled", State::Enabled, Reset, "", s_ack, "00 00 01 00", State::Inactive},
    {"ResetInASession", State::Session, Reset, "", s_ack, "00 00 01 00", State::Inactive},
    {"ResetInAPayment", State::Vend, Reset, "", s_ack, "00 00 01 00", State::Inactive},
    {"SetupWhenInactive", State::Inactive, SetupConfig, "01000000", s_config, s_ack,
     State::Disabled},
    {"SetupAgain", State::Disabled, SetupConfig, "01000000", s_config, s_ack, State::Disabled},
    {"SetupWhenEnabled", State::Enabled, SetupConfig, "01000000", s_outOfSequence, s_ack,
     State::Enabled},
    {"PricesWhenDisabled", State::Disabled, SetupPrices, "ffff0000", s_ack, s_ack, State::Disabled},
    {"PricesWhenInactive", State::Inactive, SetupPrices, "ffff0000", s_outOfSequence, s_ack,
     State::Inactive},
    {"EnableWhenDisabled", State::Disabled, ReaderEnable, "", s_ack, s_ack, State::Enabled},
    {"EnableWhenEnabled", State::Enabled, ReaderEnable, "", s_ack, s_ack, State::Enabled},
    {"EnableWhenInactive", State::Inactive, ReaderEnable, "", s_outOfSequence, s_ack,
     State::Inactive},
    {"DisableWhenEnabled", State::Enabled, ReaderDisable, "", s_ack, s_ack, State::Disabled},
    {"DisableInASession", State::Session, ReaderDisable, "", s_outOfSequence, s_ack,
     State::Session},
    {"CancelWhenEnabled", State::Enabled, ReaderCancel, "", "00 08 01 08", s_ack, State::Enabled},
    {"CancelWhenInactive", State::Inactive, ReaderCancel, "", s_outOfSequence, s_ack,
     State::Inactive},
    {"PollWhenInactive", State::Inactive, Poll, "", s_ack, s_ack, State::Inactive},
    {"PollInASession", State::Session, Poll, "", s_ack, s_ack, State::Session},
    {"VendWithinTheFunds", State::Session, VendRequest, "00960007", s_ack,
     "00 05 00 00 00 96 01 9b", State::Vend},
    {"VendAboveTheFunds", State::Session, VendRequest, "00970007", s_ack, "00 06 01 06",
     State::Session},
    {"VendWhenEnabled", State::Enabled, VendRequest, "00780007", s_outOfSequence, s_ack,
     State::Enabled},
    {"VendInAPayment", State::Vend, VendRequest, "00780007", s_outOfSequence, s_ack, State::Vend},
    {"CancelledVend", State::Vend, VendCancel, "", "00 06 01 06", s_ack, State::Session},
    {"SucceededVend", State::Vend, VendSuccess, "0007", s_ack, s_ack, State::Session},
    {"FailedVend", State::Vend, VendFailure, "", s_ack, s_ack, State::Session},
    {"SuccessWithoutPayment", State::Session, VendSuccess, "0007", s_outOfSequence, s_ack,
     State::Session},
    {"CompleteSession", State::Session, SessionComplete, "", "00 07 01 07", s_ack, State::Enabled},
    {"CompleteInAPayment", State::Vend, SessionComplete, "", s_outOfSequence, s_ack, State::Vend},
    {"CompleteWithoutSession", State::Enabled, SessionComplete, "", s_outOfSequence, s_ack,
     State::Enabled},
};
INSTANTIATE_TEST_SUITE_P(Requests, ReaderTable, ::testing::ValuesIn(s_readerCases), caseName);

struct BytesCase
{
    const char *pName;
    const char *pBytes; ///< to an inactive reader
    QByteArray answer;
};

using BytesTable = ::testing::TestWithParam<BytesCase>;

TEST_P(BytesTable, AreAnsweredAndTheNextPollIsToo)
{
    ReaderLine line;
    EXPECT_EQ(line.answerToBytes(GetParam().pBytes), GetParam().answer);
    EXPECT_EQ(line.answerToBytes("01 12 00 12"), s_ack);
}

const BytesCase s_bytesCases[] = {
    {"Nothing", "", s_silence},
    {"Poll", "01 12 00 12", s_ack},
    {"WrongChecksum", "01 12 00 13", s_nak},
    {"AnotherPeripheral", "01 0a 00 0a", s_silence},
    {"AnotherPeripheralThenPoll", "01 0a 00 0a 01 12 00 12", s_ack},
    {"TheSameBytesForAnotherPeripheral", "01 08 00 12 00 12", s_silence},
    {"PollWithoutModeBit", "00 12 00 12", s_silence},
    {"BrokenOffByANewBlock", "01 13 00 00 00 00 01 12 00 12", s_ack},
    {"UnknownCommand", "01 15 00 15", s_silence},
    {"UnknownSubcommand", "01 13 00 09 00 1c", s_silence},
    {"WrongModeByte", "02 12 00 12 01 12 00 12", s_silence},
    {"TwoPolls", "01 12 00 12 01 12 00 12", "01 00 01 00"},
    {"StrayAcknowledge", "00 00", s_silence},
};
INSTANTIATE_TEST_SUITE_P(Lines, BytesTable, ::testing::ValuesIn(s_bytesCases), caseName);

class PaymentPeripheralTest : public ::testing::Test
{
protected:
    /// What the reader says to a block, which is acknowledged; all without mode bits.
    QByteArray saidTo(const QByteArray &request)
    {
        Characters characters;
        for (const char byte : request)
            characters.append({characters.isEmpty(), static_cast<unsigned char>(byte)});
        m_reader.hear(toBytes(characters));
        const QByteArray answer = QByteArray::fromHex(m_line.taken());
        QByteArray said;
        for (int i = 1; i < answer.size(); i += 2)
            said.append(answer.at(i));
        if (said.size() > 1)
            m_line.acknowledge();
        return said;
    }

    ReaderLine m_line;
    PaymentPeripheral &m_reader = m_line.reader;
};

TEST_F(PaymentPeripheralTest, AnswersOnALaterTurn)
{
    m_reader.hear(QByteArray::fromHex("01120012"));
    EXPECT_EQ(m_line.said, QByteArray());
    EXPECT_EQ(m_line.taken(), s_ack);
}

TEST_F(PaymentPeripheralTest, TakesBytesCutAnywhere)
{
    const QByteArray bytes = QByteArray::fromHex("01100010011200120000");
    for (int cut = 0; cut <= bytes.size(); ++cut) {
        ReaderLine line;
        line.reader.hear(bytes.left(cut));
        line.reader.hear(bytes.mid(cut));
        EXPECT_EQ(line.taken(), QByteArray("01 00 00 00 01 00")) << "cut at " << cut;
        EXPECT_EQ(line.told(), s_ack) << "cut at " << cut;
    }
}

TEST_F(PaymentPeripheralTest, RepeatsWhatIsNotAcknowledgedWithEachPoll)
{
    m_line.answerTo(Reset);
    EXPECT_EQ(m_line.answerTo(Poll), QByteArray("00 00 01 00"));
    EXPECT_EQ(m_line.answerTo(Poll), QByteArray("00 00 01 00"));
    EXPECT_EQ(m_line.answerToBytes("00 ff"), s_silence); // refused: with the next poll again
    EXPECT_EQ(m_line.answerTo(Poll), QByteArray("00 00 01 00"));
    m_line.acknowledge();
    EXPECT_EQ(m_line.answerTo(Poll), s_ack);
}

TEST_F(PaymentPeripheralTest, RepeatsAtOnceWhenItIsAskedTo)
{
    m_line.answerTo(Reset);
    m_line.answerTo(Poll);
    EXPECT_EQ(m_line.answerToBytes("00 aa"), QByteArray("00 00 01 00"));
    EXPECT_EQ(m_line.answerToBytes("00 aa"), QByteArray("00 00 01 00"));
    m_line.acknowledge();
    EXPECT_EQ(m_line.answerToBytes("00 aa"), s_silence);
}

TEST_F(PaymentPeripheralTest, ForgetsTheOldestOfWhatIsNeverAcknowledged)
{
    m_line.enable();
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(m_line.answerTo(ReaderCancel), QByteArray("00 08 01 08"));
    int polls = 0;
    while (m_line.told() != s_ack)
        ++polls;
    EXPECT_LE(polls, 16);
    EXPECT_GE(polls, 1);
}

TEST_F(PaymentPeripheralTest, ACardBeginsASessionWithTheNextPoll)
{
    m_line.enable();
    QSignalSpy changed(&m_reader, &PaymentPeripheral::changed);
    EXPECT_TRUE(m_reader.presentCard(300));
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(m_reader.funds(), 300);
    EXPECT_EQ(m_reader.state(), State::Enabled);
    EXPECT_EQ(m_line.taken(), s_silence);
    EXPECT_EQ(m_line.told(), QByteArray("00 03 00 01 00 2c 01 30"));
    EXPECT_EQ(m_reader.state(), State::Session);
    EXPECT_EQ(changed.count(), 2);
}

TEST_F(PaymentPeripheralTest, TakesOneCardAndOnlyWhileItIsEnabled)
{
    EXPECT_FALSE(m_reader.presentCard(300));
    m_line.enable();
    EXPECT_FALSE(m_reader.presentCard(0));
    EXPECT_FALSE(m_reader.presentCard(-1));
    EXPECT_FALSE(m_reader.presentCard(0xFFFF));
    EXPECT_TRUE(m_reader.presentCard(0xFFFE));
    EXPECT_FALSE(m_reader.presentCard(1));
    EXPECT_EQ(m_line.told(), QByteArray("00 03 00 ff 00 fe 01 00"));
    EXPECT_FALSE(m_reader.presentCard(1));
}

TEST_F(PaymentPeripheralTest, ACardTakenAwayBeforeThePollIsNotTold)
{
    m_line.enable();
    m_reader.presentCard(300);
    EXPECT_TRUE(m_reader.removeCard());
    EXPECT_EQ(m_reader.funds(), 0);
    EXPECT_EQ(m_line.told(), s_ack);
    EXPECT_FALSE(m_reader.removeCard());
}

TEST_F(PaymentPeripheralTest, ADisabledReaderForgetsTheCard)
{
    m_line.enable();
    m_reader.presentCard(300);
    EXPECT_EQ(m_line.answerTo(ReaderDisable), s_ack);
    EXPECT_EQ(m_line.answerTo(ReaderEnable), s_ack);
    EXPECT_EQ(m_line.told(), s_ack);
}

TEST_F(PaymentPeripheralTest, AResetForgetsTheCard)
{
    m_line.enable();
    m_reader.presentCard(300);
    m_line.enable(); // begins with a reset
    EXPECT_EQ(m_reader.funds(), 0);
    EXPECT_EQ(m_line.told(), s_ack);
    EXPECT_EQ(m_reader.state(), State::Enabled);
}

TEST_F(PaymentPeripheralTest, ACardTakenAwayAsksForTheEndOfTheSessionOnce)
{
    m_line.beginSession(300);
    EXPECT_TRUE(m_reader.removeCard());
    EXPECT_TRUE(m_reader.removeCard());
    EXPECT_EQ(m_line.told(), QByteArray("00 04 01 04"));
    EXPECT_EQ(m_line.told(), s_ack);
}

TEST_F(PaymentPeripheralTest, ACardStaysDuringAPayment)
{
    bring(m_line, State::Vend);
    EXPECT_FALSE(m_reader.removeCard());
}

TEST_F(PaymentPeripheralTest, TheAmountLeavesTheCardWithSuccessAlone)
{
    bring(m_line, State::Vend);
    EXPECT_EQ(m_reader.funds(), 150);
    m_line.answerTo(VendFailure);
    EXPECT_EQ(m_reader.funds(), 150);
    EXPECT_EQ(m_reader.vends(), 0);
    m_line.answerTo(VendRequest, "00780007");
    m_line.told();
    m_line.answerTo(VendSuccess, "0007");
    EXPECT_EQ(m_reader.funds(), 30);
    EXPECT_EQ(m_reader.vends(), 1);
    m_line.answerTo(SessionComplete);
    EXPECT_EQ(m_reader.funds(), 0);
}

TEST_F(PaymentPeripheralTest, IsSilentWithEightDataBits)
{
    EXPECT_TRUE(m_reader.setLine(8, 1));
    EXPECT_EQ(m_line.answerTo(Poll), s_silence);
    EXPECT_TRUE(m_reader.setLine(9, 0));
    EXPECT_EQ(m_line.answerTo(Poll), s_ack);
}

TEST(PaymentPeripheralLineTest, IsSilentUntilTheLineIsSetUp)
{
    PaymentPeripheral reader;
    QSignalSpy spoke(&reader, &PaymentPeripheral::spoke);
    EXPECT_EQ(reader.dataBits(), 8);
    reader.hear(QByteArray::fromHex("01120012"));
    ReaderLine::advance(1000);
    EXPECT_EQ(spoke.count(), 0);
}

TEST_F(PaymentPeripheralTest, RefusesLinesThatThereAreNot)
{
    EXPECT_FALSE(m_reader.setLine(7, 0));
    EXPECT_FALSE(m_reader.setLine(10, 0));
    EXPECT_FALSE(m_reader.setLine(8, 3));
    EXPECT_FALSE(m_reader.setLine(9, 1));
    EXPECT_EQ(m_reader.dataBits(), 9);
    EXPECT_TRUE(m_reader.setLine(8, 0));
    EXPECT_TRUE(m_reader.setLine(8, 2));
}

TEST_F(PaymentPeripheralTest, ForgetsHalfABlockWhenTheLineIsSetUp)
{
    m_line.answerToBytes("01 12 00");
    m_reader.setLine(9, 0);
    EXPECT_EQ(m_line.answerToBytes("12"), s_silence); // would be a mode byte, and a wrong one
    EXPECT_EQ(m_line.answerTo(Poll), s_ack);
}

TEST_F(PaymentPeripheralTest, SilenceIsNeitherHearingNorAnswering)
{
    m_line.enable();
    m_reader.setFault(Fault::Silence, true);
    EXPECT_EQ(m_line.answerTo(Reset), s_silence);
    EXPECT_EQ(m_reader.state(), State::Enabled);
    m_reader.setFault(Fault::Silence, false);
    EXPECT_EQ(m_line.answerTo(Poll), s_ack);
}

TEST_F(PaymentPeripheralTest, ABadChecksumIsInBlocksAndNotInSingleCharacters)
{
    m_reader.setFault(Fault::BadChecksum, true);
    EXPECT_EQ(m_line.answerTo(Reset), s_ack);
    EXPECT_EQ(m_line.answerTo(Poll), QByteArray("00 00 01 55"));
    m_reader.setFault(Fault::BadChecksum, false);
    EXPECT_EQ(m_line.answerToBytes("00 aa"), QByteArray("00 00 01 00"));
}

TEST_F(PaymentPeripheralTest, ABadModeByteBeginsEachAnswer)
{
    m_reader.setFault(Fault::BadMode, true);
    EXPECT_EQ(m_line.answerTo(Reset), QByteArray("02 00"));
    EXPECT_EQ(m_line.answerTo(Poll), QByteArray("02 00 01 00"));
}

TEST_F(PaymentPeripheralTest, ARepeatedAnswerComesTwice)
{
    m_reader.setFault(Fault::RepeatedAnswer, true);
    EXPECT_EQ(m_line.answerTo(Reset), QByteArray("01 00 01 00"));
    EXPECT_EQ(m_line.answerTo(Poll), QByteArray("00 00 01 00 00 00 01 00"));
}

TEST_F(PaymentPeripheralTest, SaysWhatItsPageSays)
{
    QFile page(QStringLiteral(DOCS_FOLDER "/simulator.md"));
    ASSERT_TRUE(page.open(QIODevice::ReadOnly));
    int rows = 0;
    const QList<QByteArray> lines = page.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> cells =
            line.split('|'); // the master's bytes at 1, the reader's at 3
        const QByteArray request = QByteArray::fromHex(cells.value(1));
        if (cells.size() != 6 || request.isEmpty() || request.toHex(' ') != cells.at(1).trimmed())
            continue;
        ++rows;
        EXPECT_EQ(saidTo(request).toHex(' '), cells.at(3).trimmed()) << line.constData();
        if (m_reader.state() == State::Enabled && m_reader.vends() == 0) {
            EXPECT_TRUE(m_reader.presentCard(150));
        }
    }
    EXPECT_EQ(rows, 10);
    EXPECT_EQ(m_reader.vends(), 1);
    EXPECT_EQ(m_reader.state(), State::Enabled);
}

TEST_F(PaymentPeripheralTest, LogsWhatItDoesNotUnderstand)
{
    LogSpy log;
    m_line.answerToBytes("01 15 00 15 00 00");
    EXPECT_EQ(log.count("unknown command 15", 3), 1); // and not at each of its bytes
    m_line.answerToBytes("05");
    EXPECT_EQ(log.count("mode byte 5", 3), 1);
}
