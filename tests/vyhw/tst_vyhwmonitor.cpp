#include "vyhw/linkedtool.h"

#include <QDateTime>
#include <QRegularExpression>

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr auto s_pMessage = "0025741c 06 02002a000028"; ///< 0x4ae to 0x41c, VirtualSelect
constexpr auto s_pStray = "0065741c 01 00";             ///< the second frame of no message

/// The lines with this text.
QStringList linesWith(const QString &out, const char *pText)
{
    return out.split(QLatin1Char('\n')).filter(QLatin1String(pText));
}

/// A terminal's other end.
class Terminal
{
public:
    Terminal()
        : m_master(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
        EXPECT_EQ(::grantpt(m_master), 0);
        EXPECT_EQ(::unlockpt(m_master), 0);
        m_path = QString::fromLatin1(::ptsname(m_master));
        m_slave = ::open(m_path.toLatin1().constData(), O_RDWR | O_NOCTTY); // keeps it open
    }
    ~Terminal()
    {
        ::close(m_slave);
        ::close(m_master);
    }
    Q_DISABLE_COPY_MOVE(Terminal)

    QString path() const { return m_path; }
    bool shows(const char *pText)
    {
        return comes([this, pText] {
            char bytes[4096];
            const ssize_t size = ::read(m_master, bytes, sizeof(bytes));
            if (size > 0)
                m_shown.append(bytes, static_cast<int>(size));
            return m_shown.contains(pText);
        });
    }
    QString shown() const { return QString::fromUtf8(m_shown); }

private:
    const int m_master;
    int m_slave = -1;
    QString m_path;
    QByteArray m_shown;
};

} // namespace

using VyhwMonitorTest = LinkedToolTest;

TEST_F(VyhwMonitorTest, PairsTheAcknowledgeWithItsMessage)
{
    RunningTool watching(monitor());
    ASSERT_TRUE(watching.watches());
    const Outcome sent = vyhw(canSend(
        {QStringLiteral("actuator"), QStringLiteral("VirtualSelect"), QStringLiteral("00 07")}));
    EXPECT_EQ(sent.exitCode, 0) << qPrintable(sent.err);
    EXPECT_TRUE(watching.prints("VirtualSelect (42)"));
    const Outcome outcome = watching.interrupted();
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err,
              QStringLiteral("CAN bus of the multiport server %1, from here on\n").arg(address()));
    const QStringList lines = linesWith(outcome.out, "VirtualSelect");
    ASSERT_EQ(lines.size(), 1) << qPrintable(outcome.out);
    const QRegularExpression form(
        QStringLiteral("^\\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\w+ \\(0x4ae\\) -> 0x41c  "
                       "VirtualSelect \\(42\\)  00 07  acknowledged after \\d+ ms$"));
    EXPECT_TRUE(form.match(lines.first()).hasMatch()) << qPrintable(lines.first());
    EXPECT_FALSE(outcome.out.contains(QLatin1Char('\033'))); // no terminal, no colour
}

TEST_F(VyhwMonitorTest, ShowsARefusal)
{
    setFault("actuator.answers", "refused");
    RunningTool watching(monitor());
    ASSERT_TRUE(watching.watches());
    RawController controller(m_daemon, 1);
    controller.send(s_pMessage);
    EXPECT_TRUE(watching.prints("(42)  refused after ")) << qPrintable(watching.out());
}

TEST_F(VyhwMonitorTest, ShowsAMessageThatNobodyAnswers)
{
    setFault("actuator.answers", "lost");
    RunningTool watching(monitor());
    ASSERT_TRUE(watching.watches());
    RawController controller(m_daemon, 1);
    controller.send(s_pMessage);
    EXPECT_TRUE(watching.prints("(42)  no answer\n")) << qPrintable(watching.out());
}

TEST_F(VyhwMonitorTest, ShowsThatNobodyAnswersWhatIsSentAgain)
{
    RunningTool watching(monitor()); // nobody takes the cup's reports
    ASSERT_TRUE(watching.watches());
    EXPECT_TRUE(watching.prints("0x41c -> ")) << qPrintable(watching.out());
    EXPECT_TRUE(watching.prints("(17)  00 00  no answer, sent again\n"))
        << qPrintable(watching.out());
}

TEST_F(VyhwMonitorTest, JsonIsAnObjectForEachMessage)
{
    RunningTool watching(monitor({QStringLiteral("--json")}));
    ASSERT_TRUE(watching.watches());
    const QDateTime before = QDateTime::currentDateTimeUtc();
    RawController controller(m_daemon, 1);
    controller.send(s_pMessage);
    controller.send(s_pStray);
    ASSERT_TRUE(watching.prints("\"fault\":true")) << qPrintable(watching.out());
    const QString out = watching.interrupted().out;
    int found = 0;
    const auto all = out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : all) {
        const QJsonDocument document = QJsonDocument::fromJson(line.toUtf8());
        ASSERT_TRUE(document.isObject()) << qPrintable(line);
        const QJsonObject object = document.object();
        if (object.value(QStringLiteral("source")).toInt() != 0x4AE)
            continue;
        ++found;
        EXPECT_EQ(object.value(QStringLiteral("destination")).toInt(), 0x41C);
        const QDateTime time = QDateTime::fromString(
            object.value(QStringLiteral("time")).toString(), Qt::ISODateWithMs);
        EXPECT_LE(before, time);
        EXPECT_LE(time, QDateTime::currentDateTimeUtc());
        if (object.value(QStringLiteral("fault")).toBool()) {
            EXPECT_FALSE(object.contains(QStringLiteral("command")));
            EXPECT_EQ(object.value(QStringLiteral("bytes")).toString(), QStringLiteral("00"));
            EXPECT_EQ(object.value(QStringLiteral("outcome")).toString(),
                      QStringLiteral("continues no message"));
            continue;
        }
        EXPECT_EQ(object.value(QStringLiteral("command")).toInt(), 42);
        EXPECT_TRUE(
            object.value(QStringLiteral("name")).toString().endsWith(QLatin1String("(42)")));
        EXPECT_EQ(object.value(QStringLiteral("bytes")), QJsonValue(QString()));
        EXPECT_TRUE(object.value(QStringLiteral("outcome"))
                        .toString()
                        .startsWith(QLatin1String("acknowledged after ")));
    }
    EXPECT_EQ(found, 2) << qPrintable(out);
}

TEST_F(VyhwMonitorTest, EndsAfterItsSeconds)
{
    const Outcome outcome = tool({QStringLiteral("can"), QStringLiteral("monitor"),
                                  QStringLiteral("--seconds"), QStringLiteral("0.3")});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err,
              QStringLiteral("CAN bus of the multiport server %1, from here on\n").arg(address()));
}

TEST_F(VyhwMonitorTest, EndsWithOneWhenTheServerGoes)
{
    RunningTool watching(monitor());
    ASSERT_TRUE(watching.watches());
    EXPECT_EQ(m_daemon.stop(), 0);
    const Outcome outcome = watching.ended();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.err.endsWith(
        QLatin1String("\nvyhw: the multiport server has closed the connection\n")))
        << qPrintable(outcome.err);
}

TEST_F(VyhwMonitorTest, ColoursWhatIsWrongOnATerminal)
{
    setFault("actuator.answers", "refused");
    Terminal terminal;
    RunningTool watching(monitor(), terminal.path());
    ASSERT_TRUE(watching.watches());
    RawController controller(m_daemon, 1);
    controller.send(s_pMessage);
    ASSERT_TRUE(terminal.shows(" refused after ")) << qPrintable(terminal.shown());
    ASSERT_TRUE(terminal.shows("no answer, sent again\033[0m")) << qPrintable(terminal.shown());
    const QString shown = terminal.shown();
    const auto all = linesWith(shown, " refused after ");
    for (const QString &line : all)
        EXPECT_TRUE(line.contains(QLatin1String("\033[31m"))) << qPrintable(line);
    EXPECT_TRUE(shown.contains(QLatin1String("\033[33m")));
}

TEST_F(VyhwMonitorTest, WithoutServerSaysWhereItLooked)
{
    EXPECT_EQ(m_daemon.stop(), 0);
    const Outcome outcome = tool({QStringLiteral("can"), QStringLiteral("monitor")});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(
        outcome.err,
        QStringLiteral("vyhw: no multiport server at %1: Connection refused\n").arg(address()));
}

TEST(VyhwMonitorAloneTest, EndsWithOneAtOnceOnABrokenStream)
{
    FakeServer server;
    RunningTool watching({QStringLiteral("can"), QStringLiteral("monitor"),
                          QStringLiteral("--multiport"), server.address()});
    server.say("0025741c 06 02002a000028 0025741c 09");
    const Outcome outcome = watching.ended();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.out.contains(QLatin1String("(42)  no answer"))) << qPrintable(outcome.out);
    EXPECT_TRUE(
        outcome.err.endsWith(QLatin1String("\nvyhw: the server sent what is no CAN frame\n")))
        << qPrintable(outcome.err);
}

TEST(VyhwMonitorAloneTest, WrongTimesAreToldWhatWasExpected)
{
    for (const char *const pSeconds : {"0", "-1", "nan", "soon", "1000001"}) {
        const Outcome outcome = vyhw({QStringLiteral("can"), QStringLiteral("monitor"),
                                      QStringLiteral("--seconds"), QLatin1String(pSeconds)});
        EXPECT_EQ(outcome.exitCode, 2) << pSeconds;
    }
}
