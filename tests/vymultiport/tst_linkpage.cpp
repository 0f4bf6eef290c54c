#include "linkrecords.h"

#include "multiportprotocol.h"
#include "vymultiport/linkpage.h"

#include <QMetaEnum>
#include <gtest/gtest.h>

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
