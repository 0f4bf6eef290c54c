#include "linkclient_p.h"

#include "support/logspy.h"
#include "support/messagespy.h"
#include "vymultiport/linkserver.h"

#include <QTcpSocket>
#include <gtest/gtest.h>

using namespace multiportlink;

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

    /// Takes what the client tells, as the thread of Multiport does; the connection's opening, 0
    /// while it is not open.
    unsigned int opening(DataConnection *pConnection)
    {
        while (const auto taken = m_events.take()) {
            if (taken->event.type == LinkEvent::Type::CanConnected)
                m_client.canBus()->setTold(taken->event.number);
            if (taken->event.type == LinkEvent::Type::PaymentConnected)
                m_client.payment()->setTold(taken->event.number);
        }
        return pConnection->generation();
    }
    bool opens(DataConnection *pConnection)
    {
        return waitUntil([=] { return opening(pConnection) != 0; });
    }
    bool closes(DataConnection *pConnection)
    {
        return waitUntil([=] { return opening(pConnection) == 0; });
    }

    /// How many statuses the client has told since.
    int takeStatuses()
    {
        int statuses = 0;
        while (const auto taken = m_events.take()) {
            statuses += taken->event.type == LinkEvent::Type::Terminated ? 1 : 0;
            if (taken->wasFull)
                m_client.readOn();
        }
        return statuses;
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
    ASSERT_TRUE(opens(pCanBus));
    const unsigned int first = pCanBus->generation();
    m_server.drop(LinkServer::CanBus);
    ASSERT_TRUE(closes(pCanBus));
    pCanBus->writeIf(first, "during");
    ASSERT_TRUE(opens(pCanBus));
    const LogSpy log;
    pCanBus->writeIf(first, "old");
    EXPECT_EQ(log.count("3 bytes not sent", 3, Log::Hardware), 1);
    pCanBus->writeIf(pCanBus->generation(), "new");
    ASSERT_TRUE(waitUntil([this] { return !m_server.received(LinkServer::CanBus).isEmpty(); }));
    EXPECT_EQ(m_server.received(LinkServer::CanBus), QByteArray("new"));
}

// Whoever does not know of an outage does not write after it.
TEST_F(LinkClientTest, OpeningTakesBytesOnceItHasBeenTold)
{
    ASSERT_TRUE(connect());
    DataConnection *const pCanBus = m_client.canBus();
    pCanBus->setWanted(true);
    ASSERT_TRUE(waitUntil([this] { return m_server.isOpen(LinkServer::CanBus); }));
    waitUntil([] { return false; }, 50); // the claim's answer has come
    EXPECT_EQ(pCanBus->generation(), 0U);
    EXPECT_EQ(pCanBus->write("early"), -1);
    EXPECT_EQ(opening(pCanBus), 1U);
    EXPECT_EQ(pCanBus->write("first"), 5);
    ASSERT_TRUE(waitUntil([this] { return !m_server.received(LinkServer::CanBus).isEmpty(); }));

    m_server.drop(LinkServer::CanBus);
    ASSERT_TRUE(waitUntil([this] { return m_server.connections(LinkServer::CanBus) == 2; }));
    ASSERT_TRUE(waitUntil([this] { return m_server.isOpen(LinkServer::CanBus); }));
    waitUntil([] { return false; }, 50);
    EXPECT_EQ(pCanBus->generation(), 0U); // the outage has not been told
    EXPECT_EQ(pCanBus->write("during"), -1);
    EXPECT_EQ(opening(pCanBus), 2U);
    EXPECT_EQ(pCanBus->write("second"), 6);
    ASSERT_TRUE(
        waitUntil([this] { return m_server.received(LinkServer::CanBus).endsWith("second"); }));
    EXPECT_EQ(m_server.received(LinkServer::CanBus), QByteArray("firstsecond"));
}

// The connection was lost and made again while the server was asked: it has another port now.
TEST_F(LinkClientTest, AnswerToTheClaimOfAnEarlierConnectionOpensNothing)
{
    QList<Request> asked;
    m_server.setAnswer([&](const Request &request) -> std::optional<quint8> {
        asked.append(request);
        return std::nullopt;
    });
    ASSERT_TRUE(connect());
    DataConnection *const pCanBus = m_client.canBus();
    pCanBus->setWanted(true);
    ASSERT_TRUE(waitUntil([&] { return asked.size() == 1; }));
    m_server.drop(LinkServer::CanBus);
    ASSERT_TRUE(waitUntil([&] { return asked.size() == 2; }));
    m_server.answer(asked.at(0), 0);
    EXPECT_FALSE(waitUntil([=] { return opening(pCanBus) != 0; }, 200));
    EXPECT_EQ(m_server.connections(LinkServer::CanBus), 2);
    m_server.answer(asked.at(1), 0);
    EXPECT_TRUE(opens(pCanBus));
}

// Sequence numbers begin again after 65535: what an earlier link did not live to answer is
// forgotten, and takes no other request's status.
TEST_F(LinkClientTest, NumbersOfAnEarlierLinkAreFree)
{
    m_server.setAnswer([](const Request &request) -> std::optional<quint8> {
        const std::optional<Claim> claim = decodeClaim(request.payload);
        if (claim && claim->interface == 3)
            return quint8{
                0}; // the payment line, whose setup is left unanswered as the CAN claim is
        return std::nullopt;
    });
    m_client.setSerialLine(0, "line");
    m_client.canBus()->setWanted(true);
    m_client.payment()->setWanted(true);
    ASSERT_TRUE(connect());
    ASSERT_TRUE(waitUntil([this] { return m_server.requests(20).size() == 1; }));
    m_client.canBus()->setWanted(false);
    m_client.payment()->setWanted(false);
    m_server.setAnswer([](const Request &) { return quint8{0}; });
    m_server.dropControl();
    ASSERT_TRUE(waitUntil([this] { return m_client.generation() == 0; }));
    ASSERT_TRUE(waitUntil([this] { return m_client.generation() != 0; }));
    const int before = m_server.requests().size();
    int told = 0;
    for (int sent = 0; sent < 65536; sent += 512) {
        for (int i = 0; i < 512; ++i)
            m_client.request(m_client.generation(), 54, {});
        ASSERT_TRUE(waitUntil([&] {
            told += takeStatuses();
            return m_server.requests().size() == before + sent + 512;
        }));
    }
    EXPECT_TRUE(waitUntil([&] { return (told += takeStatuses()) == 65536; }, 2000)) << told;
}

TEST_F(LinkClientTest, EventsThatNobodyTakesStayWithTheServerAndAreNotLost)
{
    ASSERT_TRUE(connect());
    m_events.take(); // the server is connected
    constexpr int sent = 100000;
    // At once: a link that hears nothing for 2.5 s is lost, and a sanitizer takes its time.
    m_server.sendControl(
        multiportlink::encode(multiportlink::Event{7, QByteArray(1, '\1')}).repeated(sent));
    waitUntil([] { return false; }, 300);
    int taken = 0;
    while (m_events.take())
        ++taken;
    EXPECT_GT(taken, 1000);
    EXPECT_LT(taken, 30000); // what fills the queue, and one reading of the socket
    EXPECT_TRUE(waitUntil([&] {
        m_client.readOn();
        while (m_events.take())
            ++taken;
        return taken == sent;
    })) << taken;
}

TEST_F(LinkClientTest, BytesThatHadNoRoomAreToldBeforeTheirConnectionIsClosed)
{
    ASSERT_TRUE(connect());
    m_client.canBus()->setWanted(true);
    ASSERT_TRUE(opens(m_client.canBus()));
    m_events.put({LinkEvent::Type::PaymentData, 0, 0, QByteArray(256 * 1024, 'x')});
    m_server.send(LinkServer::CanBus, "rest");
    auto *const pSocket = m_client.canBus()->findChild<QTcpSocket *>();
    ASSERT_TRUE(waitUntil([=] { return pSocket->bytesAvailable() == 4; }));
    m_client.canBus()->setWanted(false);
    QByteArray bytes;
    bool isClosed = false;
    while (const auto taken = m_events.take()) {
        if (taken->event.type == LinkEvent::Type::CanConnected)
            isClosed = taken->event.number == 0;
        if (taken->event.type != LinkEvent::Type::CanData)
            continue;
        bytes += taken->event.bytes;
        EXPECT_FALSE(isClosed);
    }
    EXPECT_TRUE(isClosed);
    EXPECT_EQ(bytes, QByteArray("rest"));
}

TEST_F(LinkClientTest, NoConnectionHoldsSmallWritesBack)
{
    ASSERT_TRUE(connect());
    m_client.canBus()->setWanted(true);
    m_client.payment()->setWanted(true);
    ASSERT_TRUE(opens(m_client.canBus()));
    ASSERT_TRUE(opens(m_client.payment()));
    const auto sockets = m_client.findChildren<QTcpSocket *>();
    ASSERT_EQ(sockets.size(), 3);
    for (QTcpSocket *const pSocket : sockets)
        EXPECT_EQ(pSocket->socketOption(QAbstractSocket::LowDelayOption).toInt(), 1);
}

TEST_F(LinkClientTest, ConnectionThatIsMadeInAPauseIsNotMadeTwice)
{
    ASSERT_TRUE(connect());
    DataConnection *const pCanBus = m_client.canBus();
    pCanBus->setWanted(true);
    ASSERT_TRUE(opens(pCanBus));
    m_server.drop(LinkServer::CanBus);
    ASSERT_TRUE(closes(pCanBus));
    const MessageSpy messages;
    pCanBus->setWanted(false);
    pCanBus->setWanted(true);
    ASSERT_TRUE(waitUntil([=] { return opening(pCanBus) == 2; }));
    waitUntil([] { return false; }, 150); // past the end of the pause
    EXPECT_EQ(opening(pCanBus), 2U);
    EXPECT_EQ(m_server.connections(LinkServer::CanBus), 2);
    const auto all = messages.messages();
    for (const MessageSpy::Message &message : all)
        EXPECT_NE(message.category, QStringLiteral("default")) << message.text.toStdString();
}
