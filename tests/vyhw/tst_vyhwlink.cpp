#include "support/casename.h"
#include "support/scopedvariable.h"
#include "vyhw/linkedtool.h"

#include <QJsonArray>
#include <QRegularExpression>

namespace {

QStringList linkStatus(const QStringList &words = {})
{
    return QStringList{QStringLiteral("link"), QStringLiteral("status")} + words;
}

/// A port where nobody listens.
quint16 closedPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

} // namespace

// -- link status ----------------------------------------------------------------------------------

using VyhwLinkTest = LinkedToolTest;

TEST_F(VyhwLinkTest, StatusIsForPeople)
{
    const Outcome outcome = tool(linkStatus());
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err, QString());
    const QString begin = QStringLiteral("Multiport server  %1, version 1\n"
                                         "CAN bus           port %2\n"
                                         "Payment line      port %3\n"
                                         "Answered after    ")
                              .arg(address())
                              .arg(m_daemon.port("can"))
                              .arg(m_daemon.port("payment"));
    EXPECT_TRUE(outcome.out.startsWith(begin)) << qPrintable(outcome.out);
    const QRegularExpression time(QStringLiteral("^\\d+\\.\\d ms\n$"));
    EXPECT_TRUE(time.match(outcome.out.mid(begin.size())).hasMatch()) << qPrintable(outcome.out);
}

TEST_F(VyhwLinkTest, StatusIsOneJsonObject)
{
    const Outcome outcome = tool(linkStatus({QStringLiteral("--json")}));
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.out.count(QLatin1Char('\n')), 1);
    const QJsonObject status = QJsonDocument::fromJson(outcome.out.toUtf8()).object();
    EXPECT_EQ(status.value(QStringLiteral("server")).toString(), address());
    EXPECT_EQ(status.value(QStringLiteral("version")).toInt(), 1);
    EXPECT_EQ(status.value(QStringLiteral("canPort")).toInt(), m_daemon.port("can"));
    EXPECT_EQ(status.value(QStringLiteral("paymentPort")).toInt(), m_daemon.port("payment"));
    EXPECT_TRUE(status.value(QStringLiteral("ms")).isDouble());
}

TEST_F(VyhwLinkTest, StatusDisturbsNoController)
{
    ControlPeer controller(m_daemon.port("control"));
    ASSERT_TRUE(controller.greets(multiportlink::Role::Controller));
    RunningTool status(here(linkStatus()));
    EXPECT_EQ(status.ended().exitCode, 0);
    EXPECT_EQ(controller.asks(30, QByteArray::fromHex("0901")), 0); // output 9 on
}

TEST_F(VyhwLinkTest, StatusFindsTheServerByItsVariable)
{
    const ScopedVariable variable("VY_MULTIPORT", address().toLatin1());
    EXPECT_EQ(vyhw(linkStatus()).exitCode, 0);
}

TEST_F(VyhwLinkTest, TheOptionWinsOverTheVariable)
{
    const ScopedVariable variable("VY_MULTIPORT", "127.0.0.1:1");
    EXPECT_EQ(tool(linkStatus()).exitCode, 0);
}

TEST_F(VyhwLinkTest, ADataPortIsNotTheServers)
{
    for (const char *const pPort : {"can", "payment"}) {
        const Outcome outcome = vyhw(linkStatus({QStringLiteral("--multiport"), address(pPort)}));
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_EQ(outcome.out, QString());
        EXPECT_EQ(outcome.err, QStringLiteral("vyhw: multiport server %1: no welcome of version 1; "
                                              "is it the control port?\n")
                                   .arg(address(pPort)));
    }
}

TEST(VyhwLinkAloneTest, WithoutServerSaysWhereItLooked)
{
    const QString address = QStringLiteral("127.0.0.1:%1").arg(closedPort());
    const Outcome outcome = vyhw(linkStatus({QStringLiteral("--multiport"), address}));
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_EQ(outcome.err,
              QStringLiteral("vyhw: no multiport server at %1: Connection refused\n").arg(address));
}

TEST(VyhwLinkAloneTest, AServerThatClosesIsTold)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QObject::connect(&server, &QTcpServer::newConnection, &server,
                     [&server] { server.nextPendingConnection()->close(); });
    const QString address = QStringLiteral("127.0.0.1:%1").arg(server.serverPort());
    RunningTool status(linkStatus({QStringLiteral("--multiport"), address}));
    const Outcome outcome = status.ended();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.err.contains(QLatin1String("no welcome of version 1")))
        << qPrintable(outcome.err);
}

TEST(VyhwLinkAloneTest, AGoodbyeIsTold)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&server] {
        server.nextPendingConnection()->write(
            multiportlink::encode(multiportlink::Goodbye{4, QStringLiteral("16 are here")}));
    });
    const QString address = QStringLiteral("127.0.0.1:%1").arg(server.serverPort());
    RunningTool status(linkStatus({QStringLiteral("--multiport"), address}));
    const Outcome outcome = status.ended();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.err,
              QStringLiteral("vyhw: multiport server %1: it says: 16 are here\n").arg(address));
}

struct WrongAddressCase
{
    const char *pName;
    const char *pAddress;
};

using VyhwWrongAddress = ::testing::TestWithParam<WrongAddressCase>;

TEST_P(VyhwWrongAddress, IsToldWhatWasExpected)
{
    const QString address = QString::fromLatin1(GetParam().pAddress);
    const Outcome outcome = vyhw(linkStatus({QStringLiteral("--multiport"), address}));
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_EQ(outcome.err, QStringLiteral("vyhw: \"%1\" is no server; expected a host such as "
                                          "127.0.0.1, or host:port with a port up to 65535\n")
                               .arg(address));
}

const WrongAddressCase s_wrongAddresses[] = {
    {"PortNone", "127.0.0.1:0"},     {"PortTooLarge", "127.0.0.1:65536"},
    {"PortNoNumber", "localhost:x"}, {"NoHost", ":4002"},
    {"Blank", "local host"},         {"IPv6WithoutBrackets", "::1"},
};
INSTANTIATE_TEST_SUITE_P(Addresses, VyhwWrongAddress, ::testing::ValuesIn(s_wrongAddresses),
                         caseName);

TEST(VyhwLinkAloneTest, AWrongAddressInTheVariableNamesIt)
{
    const ScopedVariable variable("VY_MULTIPORT", "localhost:x");
    const Outcome outcome = vyhw(linkStatus());
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_TRUE(outcome.err.startsWith(
        QLatin1String("vyhw: VY_MULTIPORT: \"localhost:x\" is no server; expected ")))
        << qPrintable(outcome.err);
}

TEST(VyhwLinkAloneTest, AnEmptyAddressIsAWrongCall)
{
    EXPECT_EQ(vyhw(linkStatus({QStringLiteral("--multiport"), QString()})).exitCode, 2);
}

// -- output ---------------------------------------------------------------------------------------

class VyhwOutputTest : public LinkedToolTest
{
protected:
    Outcome output(const char *pVerb, const char *pOutput, const char *pState) const
    {
        return tool({QStringLiteral("output"), QLatin1String(pVerb), QLatin1String(pOutput),
                     QLatin1String(pState)});
    }
    /// "9 on, 10 blinking"
    QString outputs() const
    {
        QStringList texts;
        const QJsonArray outputs = machine().value(QStringLiteral("outputs")).toArray();
        for (const QJsonValue &value : outputs) {
            const QJsonObject output = value.toObject();
            const bool isOn = output.value(QStringLiteral("on")).toBool();
            const bool isBlinking = output.value(QStringLiteral("blinking")).toBool();
            texts += QStringLiteral("%1%2%3")
                         .arg(output.value(QStringLiteral("output")).toInt())
                         .arg(isOn ? QStringLiteral(" on") : QString(),
                              isBlinking ? QStringLiteral(" blinking") : QString());
        }
        return texts.join(QStringLiteral(", "));
    }
};

TEST_F(VyhwOutputTest, IsSwitchedAndReadBack)
{
    const Outcome on = output("set", "9", "on");
    EXPECT_EQ(on.exitCode, 0) << qPrintable(on.err);
    EXPECT_EQ(on.out, QStringLiteral("output 9 on\n"));
    EXPECT_EQ(on.err, QString());
    EXPECT_EQ(outputs(), QStringLiteral("9 on"));
    EXPECT_EQ(output("set", "0", "on").exitCode, 0);
    EXPECT_EQ(outputs(), QStringLiteral("0 on, 9 on"));
    EXPECT_EQ(output("set", "9", "off").out, QStringLiteral("output 9 off\n"));
    EXPECT_EQ(outputs(), QStringLiteral("0 on"));
}

TEST_F(VyhwOutputTest, BlinksAndIsReadBack)
{
    EXPECT_EQ(output("blink", "31", "on").out, QStringLiteral("output 31 blinks\n"));
    EXPECT_EQ(outputs(), QStringLiteral("31 blinking"));
    EXPECT_EQ(output("blink", "31", "off").out, QStringLiteral("output 31 does not blink\n"));
    EXPECT_EQ(outputs(), QString());
}

TEST_F(VyhwOutputTest, OneThatTheBoardHasNotEndsWithOne)
{
    const Outcome outcome = output("set", "32", "on"); // it has 0 to 31
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_EQ(outcome.err,
              QStringLiteral("vyhw: the multiport server answers 1 (StatusRejected)\n"));
}

TEST_F(VyhwOutputTest, ASecondControllerIsToldWhy)
{
    ControlPeer controller(m_daemon.port("control"));
    ASSERT_TRUE(controller.greets(multiportlink::Role::Controller));
    controller.keepAlive();
    RunningTool second(here({QStringLiteral("output"), QStringLiteral("set"), QStringLiteral("9"),
                             QStringLiteral("on")}));
    const Outcome outcome = second.ended();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_EQ(outcome.err,
              QStringLiteral("vyhw: multiport server %1: it says: there is a controller already\n")
                  .arg(address()));
    EXPECT_EQ(controller.asks(30, QByteArray::fromHex("0a01")), 0); // is still the controller
    EXPECT_EQ(outputs(), QStringLiteral("10 on"));
}

struct WrongOutputCase
{
    const char *pName;
    QStringList words;
    const char *pError;
};

using VyhwWrongOutput = ::testing::TestWithParam<WrongOutputCase>;

TEST_P(VyhwWrongOutput, IsToldWhatWasExpected)
{
    const Outcome outcome = vyhw(QStringList{QStringLiteral("output")} + GetParam().words);
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_TRUE(outcome.err.contains(QLatin1String(GetParam().pError))) << qPrintable(outcome.err);
}

const WrongOutputCase s_wrongOutputs[] = {
    {"TooLarge", {QStringLiteral("set"), QStringLiteral("256"), QStringLiteral("on")}, "255"},
    {"NoNumber", {QStringLiteral("set"), QStringLiteral("x"), QStringLiteral("on")}, "OUTPUT"},
    {"NoSuchState",
     {QStringLiteral("set"), QStringLiteral("9"), QStringLiteral("perhaps")},
     "perhaps"},
    {"NoSuchBlinking",
     {QStringLiteral("blink"), QStringLiteral("9"), QStringLiteral("fast")},
     "fast"},
    {"NoState", {QStringLiteral("set"), QStringLiteral("9")}, "STATE is required"},
    {"NoOutput", {QStringLiteral("blink")}, "OUTPUT is required"},
    {"NoVerb", {}, "subcommand is required"},
};
INSTANTIATE_TEST_SUITE_P(Calls, VyhwWrongOutput, ::testing::ValuesIn(s_wrongOutputs), caseName);
