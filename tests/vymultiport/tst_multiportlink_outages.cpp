#include "multiport.h"

#include "linkclient_p.h"
#include "multiportprotocol.h"
#include "support/casename.h"
#include "support/processcounts.h"
#include "vymultiport/linkbench.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <algorithm>
#include <gtest/gtest.h>
#include <ostream>

using namespace multiportlink;

namespace {

QByteArray hex(const char *pHex)
{
    return QByteArray::fromHex(pHex);
}

void setLineTo9Bits(Multiport &client)
{
    client.setSerialLineParameters(MultiportInterface::PaymentPort, MultiportProtocol::Baud9600,
                                   MultiportProtocol::DataBits9, MultiportProtocol::ParityNone,
                                   MultiportProtocol::MDBModeOff);
}

} // namespace

using MultiportOutageTest = LinkBench;

// -- what was asked for during an outage ----------------------------------------------------------

TEST_F(MultiportOutageTest, BytesOfAnOutageAreNeverSent)
{
    connectAll();
    m_server.stop();
    ASSERT_TRUE(waitUntil([this] { return isDown(); }));
    EXPECT_FALSE(client().writeToCanBus("outage"));
    EXPECT_EQ(writeToPayment("outage"), -1);
    ASSERT_TRUE(m_server.start());
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_TRUE(client().writeToCanBus("after"));
    EXPECT_EQ(writeToPayment("after"), 5);
    ASSERT_TRUE(waitUntil([this] { return m_server.received(LinkServer::CanBus).size() >= 5; }));
    pass(50);
    EXPECT_EQ(m_server.received(LinkServer::CanBus), QByteArray("after"));
    EXPECT_EQ(m_server.received(LinkServer::Payment), QByteArray("after"));
}

// The whole outage passes between the write and the end of this turn of the event loop.
TEST(MultiportOutageThreadTest, BytesThatWaitForTheEndOfTheTurnAreNotSentOnTheNextConnection)
{
    LinkServerThread server;
    QString address;
    server.run([&] { address = server.server().address(); });
    Multiport client(address, Multiport::ModeLocal, nullptr);
    client.setEnabled(Multiport::CanBusInterface);
    client.init(true);
    ASSERT_TRUE(waitUntil([&] { return client.isCanBusConnected(); }));

    EXPECT_TRUE(client.writeToCanBus("before"));
    server.run([&] {
        server.server().stop();
        EXPECT_TRUE(server.server().start());
    });
    bool isBack = false;
    for (int i = 0; i < 300 && !isBack; ++i) { // no event loop here meanwhile
        QThread::msleep(10);
        server.run([&] { isBack = server.server().isOpen(LinkServer::CanBus); });
    }
    ASSERT_TRUE(isBack);
    QThread::msleep(20); // the claim's answer is on its way
    EXPECT_TRUE(client.writeToCanBus("after"));
    QByteArray received;
    ASSERT_TRUE(waitUntil([&] {
        server.run([&] { received = server.server().received(LinkServer::CanBus); });
        return !received.isEmpty();
    }));
    waitUntil([] { return false; }, 50);
    server.run([&] { received = server.server().received(LinkServer::CanBus); });
    EXPECT_EQ(received, QByteArray("after"));
}

// -- what is restored -----------------------------------------------------------------------------

TEST_F(MultiportOutageTest, OpenInterfacesAndTheSerialLineAreRestoredAndNothingIsToldOfIt)
{
    connectAll();
    setLineTo9Bits(client());
    client().setOutputEnabled(9, true);
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 2; }));
    const int before = m_server.requests().size();

    m_journal.clear();
    restartServer();
    ASSERT_TRUE(waitUntil([=] { return m_server.requests().size() >= before + 3; }));
    pass(50);
    EXPECT_TRUE(m_journal.filter(QStringLiteral("status")).isEmpty());
    QStringList restored;
    for (const Request &request : m_server.requests().mid(before)) {
        const bool isClaim = request.command == MultiportProtocol::CommandClaim;
        restored.append(QStringLiteral("%1 %2")
                            .arg(request.command)
                            .arg(QString::fromLatin1(
                                (isClaim ? request.payload.left(1) : request.payload).toHex())));
    }
    restored.sort();
    EXPECT_EQ(restored.join(QStringLiteral(", ")),
              QStringLiteral("10 01, 10 03, 20 0fa000002580090000"));
    EXPECT_TRUE(m_server.isOpen(LinkServer::CanBus));
    EXPECT_TRUE(m_server.isOpen(LinkServer::Payment));
}

TEST_F(MultiportOutageTest, InterfaceThatWasClosedStaysClosed)
{
    connectAll();
    client().setEnabled(Multiport::PaymentInterface, false);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    restartServer();
    pass(100);
    EXPECT_EQ(m_server.connections(LinkServer::Payment), 1);
    EXPECT_EQ(m_server.connections(LinkServer::CanBus), 2);
}

TEST_F(MultiportOutageTest, InterfaceOpenedDuringAnOutageIsOpenAfterIt)
{
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    m_server.stop();
    ASSERT_TRUE(waitUntil([this] { return isDown(); }));
    client().setEnabled(Multiport::CanBusInterface);
    ASSERT_TRUE(m_server.start());
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_TRUE(client().isCanBusConnected());
}

TEST_F(MultiportOutageTest, SerialLineOfAnOutageIsSetUpAfterIt)
{
    setLineTo9Bits(client()); // before there is any link
    connectAll();
    ASSERT_TRUE(waitUntil(
        [this] { return m_server.requests(MultiportProtocol::CommandSetSerialLine).size() == 1; }));
    m_server.stop();
    ASSERT_TRUE(waitUntil([this] { return isDown(); }));
    client().setSerialLineParameters(MultiportInterface::PaymentPort, MultiportProtocol::Baud9600,
                                     MultiportProtocol::DataBits8, MultiportProtocol::ParityEven,
                                     MultiportProtocol::MDBModeOff);
    ASSERT_TRUE(m_server.start());
    ASSERT_TRUE(waitUntil(
        [this] { return m_server.requests(MultiportProtocol::CommandSetSerialLine).size() == 2; }));
    EXPECT_EQ(m_server.requests(MultiportProtocol::CommandSetSerialLine).last().payload,
              hex("0f a0 00 00 25 80 08 01 00"));
    pass(50);
    EXPECT_TRUE(m_journal.filter(QStringLiteral("status")).isEmpty());
}

TEST_F(MultiportOutageTest, SerialLineIsSetUpAgainWhenOnlyThePaymentLineWasLost)
{
    connectAll();
    setLineTo9Bits(client());
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 1; }));
    m_server.drop(LinkServer::Payment);
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 3; }));
    ASSERT_TRUE(waitUntil(
        [this] { return m_server.requests(MultiportProtocol::CommandSetSerialLine).size() == 2; }));
    m_server.drop(LinkServer::CanBus);
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 5; }));
    pass(50);
    EXPECT_EQ(m_journal.join(QStringLiteral(", ")),
              QStringLiteral("status 20 0, payment 0, payment 1, can 0, can 1"));
    EXPECT_EQ(m_server.requests(MultiportProtocol::CommandSetSerialLine).size(), 2);
}

// The server grants the payment line and dies: the setup that follows finds nobody.
TEST_F(MultiportOutageTest, LineWhoseServerDiesWhileItIsOpenedIsNotToldOpen)
{
    setLineTo9Bits(client());
    client().setEnabled(Multiport::PaymentInterface);
    std::optional<Request> asked;
    m_server.setAnswer([&](const Request &request) -> std::optional<quint8> {
        asked = request;
        return std::nullopt;
    });
    client().init(true);
    ASSERT_TRUE(waitUntil([&] { return asked.has_value(); }));
    {
        const ThreadHold hold(client());
        m_server.answer(*asked, MultiportProtocol::StatusDone);
        m_server.resetControl();
    }
    m_server.stop();
    ASSERT_TRUE(waitUntil([this] { return m_journal.contains(QStringLiteral("server 0")); }));
    pass(100);
    const int down = m_journal.indexOf(QStringLiteral("server 0"));
    EXPECT_EQ(m_journal.mid(down), QStringList{QStringLiteral("server 0")});
    EXPECT_FALSE(client().isPaymentConnected());
}

// -- many outages ---------------------------------------------------------------------------------

/// Every "can 1" and "payment 1" lies between a "server 1" and its "server 0", and each is followed
/// by its own 0 before the server's.
void expectInOrder(const QStringList &journal)
{
    bool isServer = false;
    bool isCan = false;
    bool isPayment = false;
    for (const QString &line : journal) {
        const bool isTrue = line.endsWith(QLatin1Char('1'));
        const QString what = line.section(QLatin1Char(' '), 0, 0);
        bool &is = what == QLatin1String("server") ? isServer
                   : what == QLatin1String("can")  ? isCan
                                                   : isPayment;
        EXPECT_NE(is, isTrue) << line.toStdString();
        if (what == QLatin1String("server")) {
            EXPECT_FALSE(isCan || isPayment);
        } else {
            EXPECT_TRUE(isServer);
        }
        is = isTrue;
    }
}

TEST_F(MultiportOutageTest, TwentyRestartsAtRandomMomentsWithinTwoSecondsEachAndNothingLeaks)
{
    connectAll();
    m_journal.prepend(QStringLiteral("payment 1"));
    m_journal.prepend(QStringLiteral("can 1"));
    m_journal.prepend(QStringLiteral("server 1"));
    setLineTo9Bits(client());
    QTimer traffic;
    QObject::connect(&traffic, &QTimer::timeout, &traffic, [this] {
        if (client().isCanBusConnected())
            client().writeToCanBus(QByteArray(13, 'x'));
        m_server.send(LinkServer::CanBus, QByteArray(13, 'y'));
        m_server.send(LinkServer::Payment, "z");
    });
    traffic.start(1);
    pass(20);
    const int descriptors = descriptorCount();
    const int threads = threadCount();
    auto *const pRandom = QRandomGenerator::global();
    qint64 longest = 0;
    for (int round = 0; round < 20; ++round) {
        pass(pRandom->bounded(60));
        m_server.stop();
        pass(pRandom->bounded(150));
        ASSERT_TRUE(m_server.start());
        QElapsedTimer elapsed;
        elapsed.start();
        ASSERT_TRUE(waitUntil([this] {
            return isUp() && m_server.isOpen(LinkServer::CanBus) &&
                   m_server.isOpen(LinkServer::Payment);
        })) << round;
        longest = std::max(longest, elapsed.elapsed());
    }
    traffic.stop();
    EXPECT_LT(longest, 2000);
    RecordProperty("longest_ms", static_cast<int>(longest));
    m_journal = m_journal.filter(QRegularExpression(QStringLiteral("^(server|can|payment)")));
    expectInOrder(m_journal);
    EXPECT_GE(m_journal.count(QStringLiteral("server 1")), 11); // short outages may pass unseen
    ASSERT_TRUE(waitUntil([&] { return descriptorCount() == descriptors; }, 1000))
        << descriptorCount() << " before " << descriptors;
    EXPECT_EQ(threadCount(), threads);
}

// -- servers that are not there, or not ours ------------------------------------------------------

TEST_F(MultiportOutageTest, GoodbyeIsLoggedOnceForEachEpisode)
{
    const LogSpy log;
    m_server.refuse(3, "there is a controller already");
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return m_server.controlConnections() >= 4; }));
    EXPECT_EQ(log.count("there is a controller already"), 1);
    EXPECT_EQ(log.count("there is a controller already", 3, Log::Hardware), 1);
    EXPECT_TRUE(m_journal.isEmpty());

    m_server.welcome();
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    m_server.refuse(10, "the server stops");
    m_server.dropControl();
    const int connections = m_server.controlConnections();
    ASSERT_TRUE(waitUntil([=] { return m_server.controlConnections() >= connections + 3; }));
    // The loss is what the second episode began with.
    EXPECT_EQ(log.count("No link to the multiport server", 3, Log::Hardware), 2);
}

TEST_F(MultiportOutageTest, GoodbyeOnALinkThatIsUpEndsItAndIsLogged)
{
    connectAll();
    const LogSpy log;
    m_server.sendControl(encode(Goodbye{9, QStringLiteral("too much waits")}));
    ASSERT_TRUE(waitUntil([this] { return m_journal.contains(QStringLiteral("server 0")); }));
    EXPECT_EQ(log.count("too much waits", 3, Log::Hardware), 1);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
}

TEST_F(MultiportOutageTest, PausesBetweenAttemptsGrowToOneAndAHalfSeconds)
{
    m_server.refuse(4, "too many clients");
    QElapsedTimer elapsed;
    QList<qint64> moments;
    elapsed.start();
    client().init(true);
    ASSERT_TRUE(waitUntil(
        [&] {
            if (m_server.controlConnections() > moments.size())
                moments.append(elapsed.elapsed());
            return moments.size() == 6;
        },
        6000));
    const int largest[] = {100, 200, 400, 800, 1500};
    for (int i = 0; i < 5; ++i) {
        const qint64 pause = moments.at(i + 1) - moments.at(i);
        EXPECT_GE(pause, std::max(100, largest[i] * 3 / 4) - 20) << i;
        EXPECT_LE(pause, largest[i] + 200) << i; // a busy computer is late
    }
}

// -- silence --------------------------------------------------------------------------------------

TEST_F(MultiportOutageTest, SilentServerIsFoundWithinThreeHeartbeats)
{
    connectAll();
    m_server.setSilent(true);
    QElapsedTimer elapsed;
    elapsed.start();
    ASSERT_TRUE(waitUntil([this] { return isDown(); }));
    EXPECT_LE(elapsed.elapsed(), 3000);
    EXPECT_GE(elapsed.elapsed(), 1400); // 2.5 s after the last heartbeat, which was before
    EXPECT_FALSE(client().isCanBusConnected());
    EXPECT_FALSE(client().isPaymentConnected());
}

TEST_F(MultiportOutageTest, ServerThatNeverAnswersTheHelloIsLeft)
{
    m_server.setGreeting(QByteArray());
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return m_server.controlConnections() == 2; }));
    EXPECT_TRUE(m_journal.isEmpty());
    m_server.welcome();
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
}

TEST_F(MultiportOutageTest, IdleLinkIsKeptByAHeartbeatEachSecond)
{
    connectAll();
    pass(3300);
    EXPECT_TRUE(m_journal.isEmpty());
    EXPECT_EQ(m_server.heartbeats(), 3);
}

// -- what only a broken server sends --------------------------------------------------------------

struct BrokenCase
{
    const char *pName;
    const char *pHex;
};

void PrintTo(const BrokenCase &row, std::ostream *pOut)
{
    *pOut << row.pName;
}

class MultiportBrokenRecords : public LinkBench, public ::testing::WithParamInterface<BrokenCase>
{
};

TEST_P(MultiportBrokenRecords, EndTheConnectionWithALineAndItComesBack)
{
    connectAll();
    const LogSpy log;
    m_server.sendControl(hex(GetParam().pHex));
    ASSERT_TRUE(waitUntil([this] { return m_journal.contains(QStringLiteral("server 0")); }, 1500));
    EXPECT_EQ(log.count("No link to the multiport server", 3, Log::Hardware), 1);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_EQ(m_server.controlConnections(), 2);
}

constexpr BrokenCase s_brokenCases[] = {
    {"LengthZero", "00 00"},
    {"LengthOneAbove", "0f ff"},
    {"LengthOfAllBits", "ff ff"},
    {"UnknownKind", "00 01 7f"},
    {"Hello", "00 07 01 56 59 4d 50 01 01"},
    {"Request", "00 04 02 00 00 31"},
    {"SecondWelcome", "00 0b 81 56 59 4d 50 01 01 0f a1 0f a0"},
    {"StatusOneShort", "00 04 82 00 07 1e"},
    {"StatusOneLong", "00 06 82 00 07 1e 00 00"},
    {"EventEmpty", "00 01 83"},
    {"GoodbyeEmpty", "00 01 85"},
    {"HeartbeatOneLong", "00 02 04 00"},
};
INSTANTIATE_TEST_SUITE_P(Rows, MultiportBrokenRecords, ::testing::ValuesIn(s_brokenCases),
                         caseName);

class MultiportBrokenGreetings : public LinkBench, public ::testing::WithParamInterface<BrokenCase>
{
};

TEST_P(MultiportBrokenGreetings, AreNoLinkAndAreLoggedOnce)
{
    const LogSpy log;
    m_server.setGreeting(hex(GetParam().pHex));
    client().setEnabled(Multiport::CanBusInterface);
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return m_server.controlConnections() >= 3; }, 2000));
    EXPECT_TRUE(m_journal.isEmpty());
    EXPECT_EQ(log.count("No link to the multiport server", 3, Log::Hardware), 1);
    m_server.welcome();
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
}

constexpr BrokenCase s_greetingCases[] = {
    {"AnotherVersion", "00 0b 81 56 59 4d 50 02 01 0f a1 0f a0"},
    {"AnotherProtocol", "00 0b 81 56 59 4d 51 01 01 0f a1 0f a0"},
    {"RoleOfAnObserver", "00 0b 81 56 59 4d 50 01 00 0f a1 0f a0"},
    {"OneShort", "00 0a 81 56 59 4d 50 01 01 0f a1 0f"},
    {"HttpAnswer", "48 54 54 50 2f 31 2e 31 20 34 30 30"},
    {"HelloOfAnother", "00 07 01 56 59 4d 50 01 01"},
};
INSTANTIATE_TEST_SUITE_P(Rows, MultiportBrokenGreetings, ::testing::ValuesIn(s_greetingCases),
                         caseName);

// -- one turn of the client's thread --------------------------------------------------------------

/// The client's own part, in the test's thread: its generations can be told wrong.
class LinkClientTest : public ::testing::Test
{
protected:
    LinkClientTest() { EXPECT_TRUE(m_server.start()); }

    bool connect()
    {
        m_client.start(QStringLiteral("127.0.0.1"), m_server.controlPort());
        return waitUntil([this] { return m_client.generation() != 0; });
    }

    LinkServer m_server;
    LinkQueue m_events{[] {}};
    LinkClient m_client{&m_events};
};

TEST_F(LinkClientTest, RequestOfAnEarlierLinkIsNotSent)
{
    ASSERT_TRUE(connect());
    const unsigned int first = m_client.generation();
    m_client.request(first, 54, "1");
    ASSERT_TRUE(waitUntil([this] { return m_server.requests().size() == 1; }));
    m_server.dropControl();
    ASSERT_TRUE(waitUntil([this] { return m_client.generation() == 0; }));
    m_client.request(first, 54, "2");
    ASSERT_TRUE(waitUntil([this] { return m_client.generation() != 0; }));
    EXPECT_NE(m_client.generation(), first);
    const LogSpy log;
    m_client.request(first, 54, "3");
    EXPECT_EQ(log.count("command 54 not sent", 3, Log::Hardware), 1);
    m_client.request(m_client.generation(), 54, "4");
    ASSERT_TRUE(waitUntil([this] { return m_server.requests().size() > 1; }));
    EXPECT_EQ(m_server.requests().size(), 2);
    EXPECT_EQ(m_server.requests().last().payload, QByteArray("4"));
}

TEST_F(LinkClientTest, SerialLineOfAnEarlierLinkIsSetUpOnlyWhenTheLineIsOpened)
{
    ASSERT_TRUE(connect());
    const unsigned int first = m_client.generation();
    m_server.dropControl();
    ASSERT_TRUE(waitUntil([this] { return m_client.generation() == 0; }));
    ASSERT_TRUE(waitUntil([this] { return m_client.generation() != 0; }));
    m_client.setSerialLine(first, "line");
    m_client.request(m_client.generation(), 54, "1");
    ASSERT_TRUE(waitUntil([this] { return !m_server.requests().isEmpty(); }));
    EXPECT_EQ(m_server.requests().constFirst().command, 54);
    m_client.payment()->setWanted(true);
    ASSERT_TRUE(waitUntil([this] { return m_server.requests().size() == 3; }));
    EXPECT_EQ(m_server.requests().last().payload, QByteArray("line"));
}

TEST_F(LinkClientTest, BytesOfAnEarlierOpeningAreNotSent)
{
    ASSERT_TRUE(connect());
    DataConnection *const pCanBus = m_client.canBus();
    pCanBus->setWanted(true);
    ASSERT_TRUE(waitUntil([=] { return pCanBus->generation() != 0; }));
    const unsigned int first = pCanBus->generation();
    m_server.drop(LinkServer::CanBus);
    ASSERT_TRUE(waitUntil([=] { return pCanBus->generation() == 0; }));
    pCanBus->writeIf(first, "during");
    ASSERT_TRUE(waitUntil([=] { return pCanBus->generation() != 0; }));
    const LogSpy log;
    pCanBus->writeIf(first, "old");
    EXPECT_EQ(log.count("3 bytes not sent", 3, Log::Hardware), 1);
    pCanBus->writeIf(pCanBus->generation(), "new");
    ASSERT_TRUE(waitUntil([this] { return !m_server.received(LinkServer::CanBus).isEmpty(); }));
    EXPECT_EQ(m_server.received(LinkServer::CanBus), QByteArray("new"));
}
