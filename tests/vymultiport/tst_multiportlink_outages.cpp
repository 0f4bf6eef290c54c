#include "multiport.h"

#include "multiportprotocol.h"
#include "support/processcounts.h"
#include "vymultiport/linkbench.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <algorithm>
#include <gtest/gtest.h>

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
    QThread::msleep(20);                          // the claim's answer is on its way
    EXPECT_FALSE(client.writeToCanBus("during")); // the outage has not been told
    int openings = 0;
    QObject::connect(&client, &Multiport::canBusConnectedChanged, &client,
                     [&](bool isConnected) { openings += isConnected ? 1 : 0; });
    ASSERT_TRUE(waitUntil([&] { return openings == 1; }));
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
    const auto all = m_server.requests().mid(before);
    for (const Request &request : all) {
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
    EXPECT_EQ(m_server.requests(MultiportProtocol::CommandSetSerialLine).constLast().payload,
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

TEST_F(MultiportOutageTest, LineIsToldOpenOnceItsSetupIsAnswered)
{
    connectAll();
    setLineTo9Bits(client());
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 1; }));
    m_server.setAnswer([](const multiportlink::Request &request) -> std::optional<quint8> {
        if (request.command == MultiportProtocol::CommandSetSerialLine)
            return std::nullopt;
        return MultiportProtocol::StatusDone;
    });
    m_server.drop(LinkServer::Payment);
    ASSERT_TRUE(waitUntil(
        [this] { return m_server.requests(MultiportProtocol::CommandSetSerialLine).size() == 2; }));
    pass(50);
    EXPECT_FALSE(client().isPaymentConnected());
    // However it ends: the line is there, and the server says what it can.
    m_server.answer(m_server.requests(MultiportProtocol::CommandSetSerialLine).constLast(),
                    MultiportProtocol::StatusFailed);
    EXPECT_TRUE(waitUntil([this] { return client().isPaymentConnected(); }));
    EXPECT_EQ(m_journal.join(QStringLiteral(", ")),
              QStringLiteral("status 20 0, payment 0, payment 1"));
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
