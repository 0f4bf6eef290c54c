#include "simulator/paymentmaster.h"

#include "simulator/paymentline.h"
#include "support/casename.h"

#include <QStringList>
#include <gtest/gtest.h>

using namespace Multidrop;
using State = PaymentPeripheral::State;
using Fault = PaymentPeripheral::Fault;

/// A master and a card reader on one line, and what the master tells, in order. Between them is
/// what a UART makes of the bytes: from a wrong mode byte on it drops what it has.
class PaymentMasterTest : public ::testing::Test
{
protected:
    PaymentMasterTest()
    {
        m_reader.setLine(9, 0);
        QObject::connect(&m_reader, &PaymentPeripheral::spoke, &m_master,
                         [this](const QByteArray &bytes) { deliver(bytes); });
        hear(&PaymentMaster::ready, "ready");
        hear(&PaymentMaster::vendDenied, "denied");
        hear(&PaymentMaster::vendSucceeded, "succeeded");
        hear(&PaymentMaster::sessionEnded, "ended");
        QObject::connect(&m_master, &PaymentMaster::sessionBegan, &m_master, [this](int funds) {
            m_told.append(QStringLiteral("began %1").arg(funds));
        });
        QObject::connect(&m_master, &PaymentMaster::vendApproved, &m_master, [this](int amount) {
            m_told.append(QStringLiteral("approved %1").arg(amount));
        });
        QObject::connect(
            &m_master, &PaymentMaster::lineFailed, &m_master,
            [this](const QString &reason) { m_told.append(QStringLiteral("failed: ") + reason); });
    }

    void hear(void (PaymentMaster::*pSignal)(), const char *pName)
    {
        QObject::connect(&m_master, pSignal, &m_master,
                         [this, pName] { m_told.append(QString::fromLatin1(pName)); });
    }

    bool write(const Characters &characters)
    {
        if (!m_isWritable)
            return false;
        m_written.append(QString::fromLatin1(toBytes(characters).toHex(' ')));
        m_reader.hear(toBytes(characters));
        return true;
    }

    void deliver(const QByteArray &bytes)
    {
        for (int i = 0; i + 1 < bytes.size(); i += 2) {
            if (bytes.at(i) > 1)
                return;
            m_master.onCharacter(bytes.at(i) == 1, static_cast<unsigned char>(bytes.at(i + 1)));
        }
    }

    /// What the master tells in this time.
    QStringList toldIn(int ms)
    {
        ReaderLine::advance(ms);
        QStringList told;
        told.swap(m_told);
        return told;
    }

    void start()
    {
        m_master.start();
        ASSERT_EQ(toldIn(1000), QStringList{QStringLiteral("ready")});
        m_written.clear();
    }
    void beginSession(int cents = 150)
    {
        start();
        ASSERT_TRUE(m_reader.presentCard(cents));
        ASSERT_EQ(toldIn(200), QStringList{QStringLiteral("began %1").arg(cents)});
        m_written.clear();
    }

    PaymentPeripheral m_reader;
    bool m_isWritable = true;
    QStringList m_written;
    QStringList m_told;
    PaymentMaster m_master{[this](const Characters &characters) { return write(characters); }};
};

TEST_F(PaymentMasterTest, ResetsSetsUpAndEnablesTheReader)
{
    m_master.start();
    EXPECT_FALSE(m_master.isReady());
    EXPECT_EQ(toldIn(1000), QStringList{QStringLiteral("ready")});
    EXPECT_TRUE(m_master.isReady());
    EXPECT_EQ(m_reader.state(), State::Enabled);
    EXPECT_EQ(m_written.mid(0, 8),
              QStringList({QStringLiteral("01 10 00 10"), QStringLiteral("01 12 00 12"),
                           QStringLiteral("00 00"), // the reader has told that it was reset
                           QStringLiteral("01 11 00 00 00 01 00 00 00 00 00 00 00 12"),
                           QStringLiteral("00 00"), // and its configuration
                           QStringLiteral("01 11 00 01 00 ff 00 fe 00 00 00 00 00 0f"),
                           QStringLiteral("01 14 00 01 00 15"), QStringLiteral("01 12 00 12")}));
}

TEST_F(PaymentMasterTest, PollsTenTimesASecondAndSaysNothingElse)
{
    start();
    EXPECT_EQ(toldIn(10000), QStringList());
    EXPECT_EQ(m_written.size(), 100);
    EXPECT_EQ(m_written.count(QStringLiteral("01 12 00 12")), 100);
}

TEST_F(PaymentMasterTest, TakesACardPaymentThrough)
{
    beginSession(150);
    EXPECT_TRUE(m_master.isInSession());
    EXPECT_TRUE(m_master.requestVend(120, 7));
    EXPECT_FALSE(m_master.requestVend(120, 7));
    EXPECT_FALSE(m_master.finishVend(true));
    EXPECT_EQ(toldIn(200), QStringList{QStringLiteral("approved 120")});
    EXPECT_FALSE(m_master.endSession());
    EXPECT_EQ(toldIn(5000), QStringList()); // the product is being made
    EXPECT_TRUE(m_master.finishVend(true));
    EXPECT_EQ(toldIn(1000), QStringList({QStringLiteral("succeeded"), QStringLiteral("ended")}));
    EXPECT_EQ(m_reader.vends(), 1);
    EXPECT_EQ(m_reader.state(), State::Enabled);
    EXPECT_EQ(m_written.count(QStringLiteral("01 13 00 00 00 00 00 78 00 00 00 07 00 92")), 1);
    EXPECT_EQ(m_written.count(QStringLiteral("01 13 00 02 00 00 00 07 00 1c")), 1);
}

TEST_F(PaymentMasterTest, TakesTheNextCardAfterwards)
{
    for (int payment = 1; payment <= 50; ++payment) {
        if (payment == 1)
            start();
        ASSERT_TRUE(m_reader.presentCard(100 + payment));
        ASSERT_EQ(toldIn(200), QStringList{QStringLiteral("began %1").arg(100 + payment)});
        ASSERT_TRUE(m_master.requestVend(100, payment));
        ASSERT_EQ(toldIn(200), QStringList{QStringLiteral("approved 100")});
        ASSERT_TRUE(m_master.finishVend(true));
        ASSERT_EQ(toldIn(200), QStringList({QStringLiteral("succeeded"), QStringLiteral("ended")}));
    }
    EXPECT_EQ(m_reader.vends(), 50);
}

TEST_F(PaymentMasterTest, AnApplicationMayAnswerInsideTheSignals)
{
    QObject::connect(&m_master, &PaymentMaster::sessionBegan, &m_master,
                     [this] { m_master.requestVend(120, 7); });
    QObject::connect(&m_master, &PaymentMaster::vendApproved, &m_master,
                     [this] { m_master.finishVend(true); });
    start();
    ASSERT_TRUE(m_reader.presentCard(150));
    EXPECT_EQ(toldIn(1000),
              QStringList({QStringLiteral("began 150"), QStringLiteral("approved 120"),
                           QStringLiteral("succeeded"), QStringLiteral("ended")}));
}

TEST_F(PaymentMasterTest, APriceAboveTheFundsIsDeniedAndAnotherMayBeAsked)
{
    beginSession(150);
    EXPECT_TRUE(m_master.requestVend(151, 7));
    EXPECT_EQ(toldIn(200), QStringList{QStringLiteral("denied")});
    EXPECT_TRUE(m_master.requestVend(150, 8));
    EXPECT_EQ(toldIn(200), QStringList{QStringLiteral("approved 150")});
}

TEST_F(PaymentMasterTest, AFailedVendCostsNothing)
{
    beginSession(150);
    m_master.requestVend(120, 7);
    ReaderLine::advance(200);
    m_told.clear();
    EXPECT_TRUE(m_master.finishVend(false));
    EXPECT_EQ(toldIn(1000), QStringList{QStringLiteral("ended")});
    EXPECT_EQ(m_reader.vends(), 0);
}

TEST_F(PaymentMasterTest, ACardTakenAwayEndsTheSession)
{
    beginSession();
    EXPECT_TRUE(m_reader.removeCard());
    EXPECT_EQ(toldIn(1000), QStringList{QStringLiteral("ended")});
    EXPECT_EQ(m_reader.state(), State::Enabled);
}

TEST_F(PaymentMasterTest, TheApplicationMayEndTheSession)
{
    EXPECT_FALSE(m_master.endSession());
    beginSession();
    EXPECT_TRUE(m_master.endSession());
    EXPECT_EQ(toldIn(1000), QStringList{QStringLiteral("ended")});
    EXPECT_FALSE(m_master.isInSession());
}

TEST_F(PaymentMasterTest, AsksForNothingOutsideItsBounds)
{
    EXPECT_FALSE(m_master.requestVend(1, 1)); // no session
    beginSession();
    EXPECT_FALSE(m_master.requestVend(0, 1));
    EXPECT_FALSE(m_master.requestVend(0xFFFF, 1));
    EXPECT_FALSE(m_master.requestVend(1, -1));
    EXPECT_FALSE(m_master.requestVend(1, 0x10000));
}

TEST_F(PaymentMasterTest, AStoppedMasterIsSilent)
{
    beginSession();
    m_master.stop();
    EXPECT_EQ(toldIn(60000), QStringList{QStringLiteral("ended")});
    EXPECT_EQ(m_written, QStringList());
    EXPECT_FALSE(m_master.isReady());
}

struct FaultCase
{
    const char *pName;
    Fault fault;
    QString told; ///< while the fault lasts
};

using PaymentMasterBase = PaymentMasterTest;

class PaymentFaultTable : public PaymentMasterBase, public ::testing::WithParamInterface<FaultCase>
{
};

TEST_P(PaymentFaultTable, AtTheStartIsToldOnceAndOverWhenItEnds)
{
    m_reader.setFault(GetParam().fault, true);
    m_master.start();
    EXPECT_EQ(toldIn(60000), QStringList{GetParam().told});
    m_reader.setFault(GetParam().fault, false);
    // The pause, at worst after an attempt that has just begun.
    const QStringList told = toldIn(3000);
    EXPECT_EQ(told, GetParam().fault == Fault::RepeatedAnswer
                        ? QStringList()
                        : QStringList{QStringLiteral("ready")});
    EXPECT_TRUE(m_master.isReady());
}

const FaultCase s_faultCases[] = {
    {"Silence", Fault::Silence, QStringLiteral("failed: no answer to request 0x1000")},
    {"BadChecksum", Fault::BadChecksum,
     QStringLiteral("failed: wrong checksum in the answer to request 0x1200")},
    {"BadMode", Fault::BadMode, QStringLiteral("failed: no answer to request 0x1000")},
    {"RepeatedAnswer", Fault::RepeatedAnswer, QStringLiteral("ready")},
};
INSTANTIATE_TEST_SUITE_P(Faults, PaymentFaultTable, ::testing::ValuesIn(s_faultCases), caseName);

TEST_F(PaymentMasterTest, SilenceIsFoundAfterThreeAttempts)
{
    start();
    m_reader.setFault(Fault::Silence, true);
    ReaderLine::advance(100); // a poll has been sent by then
    const int sent = m_written.size();
    EXPECT_EQ(toldIn(499), QStringList());
    EXPECT_EQ(toldIn(101), QStringList{QStringLiteral("failed: no answer to request 0x1200")});
    EXPECT_LE(m_written.size() - sent, 3);
    EXPECT_FALSE(m_master.isReady());
}

TEST_F(PaymentMasterTest, SilenceForLessThanThreeAttemptsIsNotTold)
{
    start();
    m_reader.setFault(Fault::Silence, true);
    EXPECT_EQ(toldIn(450), QStringList());
    m_reader.setFault(Fault::Silence, false);
    EXPECT_EQ(toldIn(5000), QStringList());
    EXPECT_TRUE(m_master.isReady());
}

TEST_F(PaymentMasterTest, ALineThatFailsInASessionEndsIt)
{
    beginSession();
    m_reader.setFault(Fault::Silence, true);
    EXPECT_EQ(toldIn(1000), QStringList({QStringLiteral("ended"),
                                         QStringLiteral("failed: no answer to request 0x1200")}));
    EXPECT_FALSE(m_master.requestVend(1, 1));
}

TEST_F(PaymentMasterTest, ASecondFailureIsToldAgain)
{
    const QStringList failure = {QStringLiteral("failed: no answer to request 0x1200")};
    start();
    for (int i = 0; i < 2; ++i) {
        m_reader.setFault(Fault::Silence, true);
        EXPECT_EQ(toldIn(10000), failure);
        m_reader.setFault(Fault::Silence, false);
        EXPECT_EQ(toldIn(3000), QStringList{QStringLiteral("ready")});
    }
}

TEST_F(PaymentMasterTest, APaymentThatTheLineBrokeOffDoesNotStandInTheWayOfTheNext)
{
    beginSession(150);
    m_master.requestVend(120, 7);
    EXPECT_EQ(toldIn(200), QStringList{QStringLiteral("approved 120")});
    m_reader.setFault(Fault::Silence, true);
    ReaderLine::advance(1000);
    EXPECT_FALSE(m_master.finishVend(true));
    m_reader.setFault(Fault::Silence, false);
    ReaderLine::advance(3000);
    m_told.clear();
    ASSERT_TRUE(m_reader.presentCard(150));
    EXPECT_EQ(toldIn(200), QStringList{QStringLiteral("began 150")});
    EXPECT_TRUE(m_master.requestVend(120, 7));
    EXPECT_EQ(toldIn(200), QStringList{QStringLiteral("approved 120")});
}

TEST_F(PaymentMasterTest, AReaderMayEndASessionByItself)
{
    beginSession(150);
    m_master.requestVend(120, 7);
    EXPECT_EQ(toldIn(200), QStringList{QStringLiteral("approved 120")});
    m_reader.setFault(Fault::Silence, true);
    ReaderLine::advance(100); // a poll has been sent
    m_master.onCharacter(false, EndSession);
    m_master.onCharacter(true, EndSession);
    EXPECT_EQ(m_told, QStringList{QStringLiteral("ended")});
    EXPECT_FALSE(m_master.isInSession());
    EXPECT_FALSE(m_master.finishVend(true));
}

TEST_F(PaymentMasterTest, TwoWrongChecksumsAreRepeatedAndNothingIsLost)
{
    start();
    m_reader.setFault(Fault::BadChecksum, true);
    ASSERT_TRUE(m_reader.presentCard(150));
    QObject context;
    QObject::connect(
        &m_reader, &PaymentPeripheral::spoke, &context, [this](const QByteArray &bytes) {
            if (bytes.size() > 2) // by now the master has it, and the reader was asked again
                m_reader.setFault(Fault::BadChecksum, false);
        });
    EXPECT_EQ(toldIn(1000), QStringList{QStringLiteral("began 150")});
    EXPECT_EQ(m_written.count(QStringLiteral("00 aa")), 2);
}

TEST_F(PaymentMasterTest, AWholePaymentGoesThroughWhileEveryAnswerComesTwice)
{
    m_reader.setFault(Fault::RepeatedAnswer, true);
    beginSession(150);
    EXPECT_TRUE(m_master.requestVend(120, 7));
    EXPECT_EQ(toldIn(500), QStringList{QStringLiteral("approved 120")});
    EXPECT_TRUE(m_master.finishVend(true));
    EXPECT_EQ(toldIn(1000), QStringList({QStringLiteral("succeeded"), QStringLiteral("ended")}));
    EXPECT_EQ(m_reader.vends(), 1);
    EXPECT_EQ(m_reader.funds(), 0);
}

TEST_F(PaymentMasterTest, ALineThatCannotBeWrittenFailsAndComesBack)
{
    m_isWritable = false;
    m_master.start();
    EXPECT_EQ(toldIn(10000), QStringList{QStringLiteral("failed: the line cannot be written")});
    m_isWritable = true;
    EXPECT_EQ(toldIn(3000), QStringList{QStringLiteral("ready")});
}

TEST_F(PaymentMasterTest, AReaderThatRestartsIsSetUpAgain)
{
    beginSession();
    m_reader.hear(toBytes(requestCharacters(Reset))); // as after a power cut
    EXPECT_EQ(toldIn(1000), QStringList({QStringLiteral("ended"), QStringLiteral("ready")}));
    EXPECT_EQ(m_reader.state(), State::Enabled);
}

TEST_F(PaymentMasterTest, AReaderOutOfSequenceIsReset)
{
    beginSession();
    m_reader.hear(toBytes(requestCharacters(SessionComplete))); // somebody else has ended it
    m_reader.hear(QByteArray::fromHex("0000"));
    EXPECT_TRUE(m_master.requestVend(1, 1));
    EXPECT_EQ(toldIn(3000),
              QStringList({QStringLiteral("ended"), QStringLiteral("failed: answer 0x0b"),
                           QStringLiteral("ready")}));
}

struct AnswerCase
{
    const char *pName;
    const char *pBytes; ///< to every request
    QString reason;
};

class PaymentAnswerTable : public PaymentMasterBase,
                           public ::testing::WithParamInterface<AnswerCase>
{
};

TEST_P(PaymentAnswerTable, FailsTheLineOnce)
{
    m_reader.setFault(Fault::Silence, true);
    const QByteArray bytes = QByteArray::fromHex(GetParam().pBytes);
    PaymentMaster master([&bytes, &master](const Characters & /*characters*/) {
        QTimer::singleShot(5, &master, [&master, &bytes] {
            for (int i = 0; i + 1 < bytes.size(); i += 2)
                master.onCharacter(bytes.at(i) == 1, static_cast<unsigned char>(bytes.at(i + 1)));
        });
        return true;
    });
    QStringList reasons;
    QObject::connect(&master, &PaymentMaster::lineFailed, &master,
                     [&reasons](const QString &reason) { reasons.append(reason); });
    master.start();
    ReaderLine::advance(60000);
    EXPECT_EQ(reasons, QStringList{GetParam().reason});
}

const AnswerCase s_answerCases[] = {
    {"Refused", "01 ff", QStringLiteral("refusal as answer to request 0x1000")},
    {"Nonsense", "01 42", QStringLiteral("refusal as answer to request 0x1000")},
    {"NeverReset", "01 00", QStringLiteral("the reader does not tell that it was reset")},
    {"Unknown", "00 77 01 77", QStringLiteral("answer 0x77")},
    {"ShortFunds", "00 03 00 01 01 04", QStringLiteral("answer too short")},
    {"NoEnd", "00 00", QStringLiteral("no answer to request 0x1000")},
};
INSTANTIATE_TEST_SUITE_P(Answers, PaymentAnswerTable, ::testing::ValuesIn(s_answerCases), caseName);

TEST_F(PaymentMasterTest, AnEndlessAnswerFailsTheLine)
{
    start();
    m_reader.setFault(Fault::Silence, true);
    ReaderLine::advance(100);
    for (int i = 0; i < MaxBlock; ++i)
        m_master.onCharacter(false, 0);
    EXPECT_EQ(m_told, QStringList());
    m_master.onCharacter(false, 0);
    EXPECT_EQ(m_told, QStringList{QStringLiteral("failed: endless answer")});
}
