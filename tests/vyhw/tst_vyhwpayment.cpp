#include "vyhw/linkedtool.h"

#include <QRegularExpression>

namespace {

constexpr auto s_pSerialLine = "0fa0 00002580 09 00 00"; ///< 9600 baud, 9 data bits, no parity
constexpr auto s_pReset = "01 10 00 10";
constexpr auto s_pPoll = "01 12 00 12";

/// The bytes of all lines with their marks, without times.
QString bytesOf(const QString &out)
{
    static const QRegularExpression s_time(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d\\.\\d{3} "),
                                           QRegularExpression::MultilineOption);
    return QString(out).remove(s_time).remove(QLatin1Char('\n'));
}

bool shows(RunningTool &watching, const char *pBytes)
{
    return comes([&watching, pBytes] { return bytesOf(watching.out()) == QLatin1String(pBytes); });
}

} // namespace

class VyhwPaymentTest : public LinkedToolTest
{
protected:
    QStringList watch(const QStringList &words = {}) const
    {
        return here(QStringList{QStringLiteral("payment"), QStringLiteral("monitor")} + words);
    }
};

TEST_F(VyhwPaymentTest, ShowsCharactersOf9BitsBothWays)
{
    RunningTool watching(watch());
    ASSERT_TRUE(watching.watches());
    RawController master(m_daemon, 3);
    ASSERT_EQ(master.control().asks(20, QByteArray::fromHex(s_pSerialLine)), 0);
    master.send(s_pReset); // the answer is one character with the mode bit
    ASSERT_TRUE(shows(watching, " *10  10 *00")) << qPrintable(watching.out());
    master.send(s_pPoll); // "just reset" and the checksum
    EXPECT_TRUE(shows(watching, " *10  10 *00 *12  12  00 *00")) << qPrintable(watching.out());
    const Outcome outcome = watching.interrupted();
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(
        outcome.err,
        QStringLiteral("Payment line of the multiport server %1, from here on\n").arg(address()));
}

TEST_F(VyhwPaymentTest, ShowsBytesWith8Bits)
{
    RunningTool watching(watch({QStringLiteral("--bits"), QStringLiteral("8")}));
    ASSERT_TRUE(watching.watches());
    RawController master(m_daemon, 3);
    ASSERT_EQ(master.control().asks(20, QByteArray::fromHex("0fa0 00002580 08 01 00")), 0);
    master.send("00 7f 12"); // with 8 bits the reader is silent
    EXPECT_TRUE(shows(watching, " 00 7f 12")) << qPrintable(watching.out());
}

TEST_F(VyhwPaymentTest, EndsWithOneWhenTheServerGoes)
{
    RunningTool watching(watch());
    ASSERT_TRUE(watching.watches());
    EXPECT_EQ(m_daemon.stop(), 0);
    const Outcome outcome = watching.ended();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.err.endsWith(
        QLatin1String("\nvyhw: the multiport server has closed the connection\n")))
        << qPrintable(outcome.err);
}

TEST_F(VyhwPaymentTest, EndsAfterItsSeconds)
{
    EXPECT_EQ(vyhw(watch({QStringLiteral("--seconds"), QStringLiteral("0.2")})).exitCode, 0);
}

TEST(VyhwPaymentAloneTest, WrongBitsAreToldWhatWasExpected)
{
    const Outcome outcome = vyhw({QStringLiteral("payment"), QStringLiteral("monitor"),
                                  QStringLiteral("--bits"), QStringLiteral("7")});
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_TRUE(outcome.err.contains(QLatin1String("--bits"))) << qPrintable(outcome.err);
}

/// Beside a line whose bytes the test chooses.
class VyhwPaymentLineTest : public ::testing::Test
{
protected:
    FakeServer m_server;
    RunningTool m_watching{{QStringLiteral("payment"), QStringLiteral("monitor"),
                            QStringLiteral("--multiport"), m_server.address()}};
};

TEST_F(VyhwPaymentLineTest, FindsItsPlaceAtAByteThatIsNoMode)
{
    m_server.say("12 00 12 01 10"); // from the middle of a character on
    EXPECT_TRUE(shows(m_watching, " ?12  12 *10")) << qPrintable(m_watching.out());
}

TEST_F(VyhwPaymentLineTest, FindsItsPlaceAfterAPause)
{
    m_server.say("00 01 00"); // a data byte, then the character 1 00, all like modes
    EXPECT_TRUE(shows(m_watching, "  01 ?00")) << qPrintable(m_watching.out());
    m_server.say("01 12 00 12");
    EXPECT_TRUE(shows(m_watching, "  01 ?00 *12  12")) << qPrintable(m_watching.out());
}

TEST_F(VyhwPaymentLineTest, ACharacterMayComeInTwoParts)
{
    m_server.say("01");
    m_server.say("12");
    EXPECT_TRUE(shows(m_watching, " *12")) << qPrintable(m_watching.out());
}

TEST_F(VyhwPaymentLineTest, SixteenBytesAreALine)
{
    m_server.say(QByteArray("0041").repeated(17).constData());
    ASSERT_TRUE(comes([this] { return m_watching.out().count(QLatin1String("  41")) == 17; }));
    const QStringList lines = m_watching.out().split(QLatin1Char('\n'));
    EXPECT_EQ(lines.first().count(QLatin1String("  41")), 16);
}
