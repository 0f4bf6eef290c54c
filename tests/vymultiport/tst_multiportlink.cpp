#include "multiport.h"

#include "multiportprotocol.h"
#include "support/casename.h"
#include "vymultiport/linkbench.h"
#include "vymultiport/linkpage.h"

#include <QDir>
#include <QSignalSpy>
#include <gtest/gtest.h>
#include <ostream>

using namespace multiportlink;

namespace {

QByteArray hex(const char *pHex)
{
    return QByteArray::fromHex(pHex);
}

QStringList list(std::initializer_list<const char *> texts)
{
    QStringList all;
    for (const char *const pText : texts)
        all.append(QString::fromLatin1(pText));
    return all;
}

} // namespace

using MultiportLinkTest = LinkBench;

// -- the link comes and goes ----------------------------------------------------------------------

TEST_F(MultiportLinkTest, NothingIsConnectedBeforeInit)
{
    client().setEnabled(Multiport::CanBusInterface);
    pass(150);
    EXPECT_EQ(m_server.controlConnections(), 0);
    EXPECT_EQ(m_server.connections(LinkServer::CanBus), 0);
    EXPECT_TRUE(m_journal.isEmpty());
}

TEST_F(MultiportLinkTest, HelloIsThatOfThePage)
{
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_EQ(m_server.hello(), linkpage::examples().value(2).bytes);
    EXPECT_EQ(m_journal, list({"server 1"})); // nothing else was asked for
    EXPECT_EQ(m_server.connections(LinkServer::CanBus), 0);
    EXPECT_EQ(m_server.connections(LinkServer::Payment), 0);
}

TEST_F(MultiportLinkTest, ServerIsToldBeforeItsLines)
{
    client().setEnabled(Multiport::CanBusInterface);
    client().setEnabled(Multiport::PaymentInterface);
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    ASSERT_EQ(m_journal.size(), 3);
    EXPECT_EQ(m_journal.takeFirst(), QStringLiteral("server 1"));
    m_journal.sort();
    EXPECT_EQ(m_journal, list({"can 1", "payment 1"}));
}

TEST_F(MultiportLinkTest, LinesAreToldGoneBeforeTheirServer)
{
    connectAll();
    m_server.stop();
    ASSERT_TRUE(waitUntil([this] { return isDown(); }));
    ASSERT_EQ(m_journal.size(), 3);
    EXPECT_EQ(m_journal.takeLast(), QStringLiteral("server 0"));
    m_journal.sort();
    EXPECT_EQ(m_journal, list({"can 0", "payment 0"}));
}

TEST_F(MultiportLinkTest, LinesAreToldGoneBeforeTheirServerWhenOnlyTheControlConnectionEnds)
{
    connectAll();
    m_server.dropControl();
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 6; }));
    EXPECT_EQ(m_journal.at(2), QStringLiteral("server 0"));
    EXPECT_EQ(m_journal.at(3), QStringLiteral("server 1"));
    EXPECT_TRUE(isUp());
    EXPECT_EQ(m_server.connections(LinkServer::CanBus), 2);
}

TEST_F(MultiportLinkTest, InterfaceIsOpenedAndClosedOnALinkThatIsUp)
{
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_TRUE(QMetaObject::invokeMethod(&client(), "setEnabled",
                                          Q_ARG(Multiport::Interface, Multiport::CanBusInterface)));
    EXPECT_TRUE(client().isOpen(Multiport::CanBusInterface));
    EXPECT_FALSE(client().isCanBusConnected());
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_EQ(m_journal, list({"server 1", "can 1"}));
    EXPECT_TRUE(m_server.isOpen(LinkServer::CanBus));

    EXPECT_TRUE(QMetaObject::invokeMethod(&client(), "setEnabled",
                                          Q_ARG(Multiport::Interface, Multiport::CanBusInterface),
                                          Q_ARG(bool, false)));
    EXPECT_FALSE(client().isOpen(Multiport::CanBusInterface));
    ASSERT_TRUE(waitUntil([this] { return !m_server.isOpen(LinkServer::CanBus) && isUp(); }));
    pass(150); // does not come back
    EXPECT_EQ(m_journal, list({"server 1", "can 1", "can 0"}));
    EXPECT_EQ(m_server.connections(LinkServer::CanBus), 1);
    EXPECT_EQ(m_server.controlConnections(), 1);
}

TEST_F(MultiportLinkTest, InterfaceOpenedTwiceIsOneConnection)
{
    connectAll();
    client().setEnabled(Multiport::CanBusInterface);
    client().setEnabled(Multiport::CanBusInterface, true);
    pass(100);
    EXPECT_TRUE(m_journal.isEmpty());
    EXPECT_EQ(m_server.connections(LinkServer::CanBus), 1);
}

TEST_F(MultiportLinkTest, LostDataConnectionComesBackAlone)
{
    connectAll();
    const LogSpy log;
    m_server.drop(LinkServer::CanBus);
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 2; }));
    EXPECT_EQ(m_journal, list({"can 0", "can 1"}));
    EXPECT_EQ(log.count("No connection of port 4001", 3, Log::Hardware), 1);
    EXPECT_EQ(m_server.controlConnections(), 1);
    EXPECT_EQ(m_server.connections(LinkServer::Payment), 1);
    EXPECT_TRUE(client().writeToCanBus("again"));
    EXPECT_TRUE(waitUntil([this] { return m_server.received(LinkServer::CanBus) == "again"; }));
    m_server.drop(LinkServer::CanBus);
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 4; }));
    EXPECT_EQ(log.count("No connection of port 4001", 3, Log::Hardware), 2); // each time
}

TEST_F(MultiportLinkTest, InitFalseClosesEverythingAndInitTrueOpensItAgain)
{
    connectAll();
    for (int round = 0; round < 2; ++round) {
        m_journal.clear();
        client().init(false);
        ASSERT_TRUE(waitUntil([this] { return isDown() && !m_server.hasController(); }));
        ASSERT_TRUE(waitUntil([this] { return !m_server.isOpen(LinkServer::CanBus); }));
        ASSERT_TRUE(waitUntil([this] { return !m_server.isOpen(LinkServer::Payment); }));
        EXPECT_EQ(m_journal.size(), 3);
        EXPECT_EQ(m_journal.value(2), QStringLiteral("server 0"));
        EXPECT_TRUE(client().isOpen(Multiport::CanBusInterface));
        EXPECT_FALSE(client().writeToCanBus("lost"));
        pass(150);
        EXPECT_EQ(m_server.controlConnections(), round + 1);

        client().init(true);
        ASSERT_TRUE(waitUntil([this] { return isUp(); }));
        EXPECT_EQ(m_server.controlConnections(), round + 2);
    }
    EXPECT_EQ(m_server.received(LinkServer::CanBus), QByteArray());
}

TEST_F(MultiportLinkTest, InterfacesAreThereBeforeTheLinkAndOnlyThese)
{
    EXPECT_NE(client().interface(Multiport::CanBusInterface), nullptr);
    EXPECT_NE(client().interface(Multiport::PaymentInterface), nullptr);
    EXPECT_EQ(client().interface(static_cast<Multiport::Interface>(2)), nullptr);
    EXPECT_FALSE(client().isOpen(static_cast<Multiport::Interface>(2)));
    client().setEnabled(static_cast<Multiport::Interface>(2));
    EXPECT_FALSE(client().isOpen(static_cast<Multiport::Interface>(2)));
    QThread *const pThread = client().interface(Multiport::CanBusInterface)->thread();
    EXPECT_NE(pThread, client().thread());
    EXPECT_EQ(pThread->objectName(), QStringLiteral("Multiport"));
    EXPECT_EQ(client().interface(Multiport::PaymentInterface)->thread(), pThread);
}

// -- claims ---------------------------------------------------------------------------------------

TEST_F(MultiportLinkTest, ClaimNamesTheLineAndTheClientsOwnPort)
{
    connectAll();
    const QList<Request> claims = m_server.requests(MultiportProtocol::CommandClaim);
    ASSERT_EQ(claims.size(), 2);
    for (const Request &request : claims) {
        const std::optional<Claim> claim = decodeClaim(request.payload);
        ASSERT_TRUE(claim);
        const auto line = claim->interface == 1 ? LinkServer::CanBus : LinkServer::Payment;
        ASSERT_NE(m_server.socket(line), nullptr);
        EXPECT_EQ(claim->port, m_server.socket(line)->peerPort());
    }
    EXPECT_TRUE(m_journal.isEmpty()); // the statuses of claims are nobody else's
}

TEST_F(MultiportLinkTest, NothingIsWrittenBeforeTheClaimIsAnswered)
{
    std::optional<Request> asked;
    m_server.setAnswer([&](const Request &request) -> std::optional<quint8> {
        asked = request;
        return std::nullopt;
    });
    client().setEnabled(Multiport::CanBusInterface);
    client().init(true);
    ASSERT_TRUE(waitUntil([&] { return asked.has_value(); }));
    pass(50);
    EXPECT_EQ(m_journal, list({"server 1"}));
    EXPECT_FALSE(client().writeToCanBus("early"));

    m_server.answer(*asked, MultiportProtocol::StatusDone);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_TRUE(client().writeToCanBus("in time"));
    ASSERT_TRUE(waitUntil([this] { return !m_server.received(LinkServer::CanBus).isEmpty(); }));
    EXPECT_EQ(m_server.received(LinkServer::CanBus), QByteArray("in time"));
    EXPECT_EQ(m_server.receivedEarly(LinkServer::CanBus), 0);
}

TEST_F(MultiportLinkTest, BytesThatComeBeforeTheClaimIsAnsweredAreToldBehindIt)
{
    std::optional<Request> asked;
    m_server.setAnswer([&](const Request &request) -> std::optional<quint8> {
        asked = request;
        return std::nullopt;
    });
    client().setEnabled(Multiport::CanBusInterface);
    client().init(true);
    ASSERT_TRUE(waitUntil([&] { return asked.has_value(); }));
    m_server.send(LinkServer::CanBus, "early");
    pass(50);
    EXPECT_EQ(m_canData, QByteArray());
    m_server.answer(*asked, MultiportProtocol::StatusDone);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_TRUE(waitUntil([this] { return m_canData == "early"; }, 500));
}

TEST_F(MultiportLinkTest, RefusedClaimIsTriedAgainAfterAPauseAndLoggedOnce)
{
    const LogSpy log;
    int refusals = 0;
    m_server.setAnswer([&](const Request &) -> std::optional<quint8> {
        return ++refusals < 3 ? MultiportProtocol::StatusFailed : MultiportProtocol::StatusDone;
    });
    client().setEnabled(Multiport::CanBusInterface);
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_EQ(m_journal, list({"server 1", "can 1"}));
    EXPECT_EQ(refusals, 3);
    EXPECT_EQ(m_server.connections(LinkServer::CanBus), 3);
    EXPECT_EQ(m_server.controlConnections(), 1);
    EXPECT_EQ(log.count("status 6"), 1);
}

// -- writing --------------------------------------------------------------------------------------

TEST_F(MultiportLinkTest, CanBytesAreTakenOnlyWhileTheChannelIsConnected)
{
    EXPECT_FALSE(client().writeToCanBus("before init"));
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_FALSE(client().writeToCanBus("closed"));
    client().setEnabled(Multiport::CanBusInterface);
    EXPECT_FALSE(client().writeToCanBus("too early"));
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_TRUE(client().writeToCanBus("taken"));
    client().setEnabled(Multiport::CanBusInterface, false);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_FALSE(client().writeToCanBus("too late"));
    pass(50);
    EXPECT_EQ(m_server.received(LinkServer::CanBus), QByteArray("taken"));
}

TEST_F(MultiportLinkTest, PaymentBytesAreTakenOnlyWhileTheLineIsConnected)
{
    EXPECT_EQ(writeToPayment("before init"), -1);
    connectAll();
    EXPECT_EQ(writeToPayment(hex("01 12 00 12")), 4);
    EXPECT_EQ(writeToPayment(QByteArray()), 0);
    ASSERT_TRUE(waitUntil([this] { return m_server.received(LinkServer::Payment).size() == 4; }));
    client().init(false);
    ASSERT_TRUE(waitUntil([this] { return isDown(); }));
    EXPECT_EQ(writeToPayment("too late"), -1);
    pass(50);
    EXPECT_EQ(m_server.received(LinkServer::Payment), hex("01 12 00 12"));
}

TEST_F(MultiportLinkTest, SixtyFourRecordsOfOneTurnLeaveInOneWrite)
{
    connectAll();
    QByteArray all;
    for (int round = 1; round <= 20; ++round) {
        for (char i = 0; i < 64; ++i) {
            const QByteArray record = hex("00 25 44 19 08 02 00 2a 00 00 28 00") + i;
            EXPECT_TRUE(client().writeToCanBus(record));
            all += record;
        }
        ASSERT_TRUE(
            waitUntil([&] { return m_server.received(LinkServer::CanBus).size() == all.size(); }));
        EXPECT_EQ(m_server.segments(LinkServer::CanBus), round);
    }
    EXPECT_EQ(m_server.received(LinkServer::CanBus), all);
}

TEST_F(MultiportLinkTest, BytesWrittenInTheSlotThatToldTheChannelAreTaken)
{
    QObject::connect(&client(), &Multiport::canBusConnectedChanged, &client(), [this](bool is) {
        EXPECT_EQ(client().writeToCanBus(is ? "first" : "last"), is);
    });
    connectAll();
    ASSERT_TRUE(waitUntil([this] { return m_server.received(LinkServer::CanBus) == "first"; }));
    client().init(false);
    ASSERT_TRUE(waitUntil([this] { return isDown(); }));
    EXPECT_EQ(m_server.received(LinkServer::CanBus), QByteArray("first"));
}

TEST_F(MultiportLinkTest, WhatWasTakenStillLeavesWhenTheClientIsStopped)
{
    connectAll();
    EXPECT_TRUE(client().writeToCanBus("last words"));
    EXPECT_EQ(writeToPayment("money"), 5);
    client().setOutputEnabled(9, true);
    client().init(false);
    ASSERT_TRUE(waitUntil([this] { return isDown() && !m_server.hasController(); }));
    EXPECT_EQ(m_server.requests(MultiportProtocol::CommandSetOutput).size(), 1);
    EXPECT_TRUE(
        waitUntil([this] { return m_server.received(LinkServer::CanBus) == "last words"; }, 500));
    EXPECT_TRUE(
        waitUntil([this] { return m_server.received(LinkServer::Payment) == "money"; }, 500));
}

TEST_F(MultiportLinkTest, WhatWasTakenStillLeavesWhenTheClientIsDeleted)
{
    connectAll();
    const QByteArray large(200000, 'x');
    EXPECT_TRUE(client().writeToCanBus(large));
    EXPECT_TRUE(client().writeToCanBus("last words"));
    EXPECT_EQ(writeToPayment("money"), 5);
    client().setOutputEnabled(9, true);
    m_pClient.reset();
    ASSERT_TRUE(waitUntil([this] { return !m_server.hasController(); }));
    EXPECT_EQ(m_server.requests(MultiportProtocol::CommandSetOutput).size(), 1);
    EXPECT_TRUE(waitUntil(
        [&] { return m_server.received(LinkServer::CanBus) == large + "last words"; }, 1000));
    EXPECT_EQ(m_server.received(LinkServer::Payment), QByteArray("money"));
}

// -- reading --------------------------------------------------------------------------------------

TEST_F(MultiportLinkTest, BytesOfTheCanChannelArriveInTheirOrder)
{
    connectAll();
    QByteArray sent;
    for (int i = 0; i < 2000; ++i) {
        const QByteArray bytes = QByteArray::number(i) + ' ';
        m_server.send(LinkServer::CanBus, bytes);
        sent += bytes;
    }
    ASSERT_TRUE(waitUntil([&] { return m_canData.size() == sent.size(); }));
    EXPECT_EQ(m_canData, sent);
    EXPECT_EQ(m_paymentData, QByteArray());
}

TEST_F(MultiportLinkTest, BytesOfThePaymentLineArriveWithItsPortInTheClientsThread)
{
    QSignalSpy received(client().interface(Multiport::PaymentInterface),
                        &MultiportInterface::dataReceived);
    QThread *pThread = nullptr;
    QObject::connect(
        client().interface(Multiport::PaymentInterface), &MultiportInterface::dataReceived,
        &client(), [&] { pThread = QThread::currentThread(); }, Qt::DirectConnection);
    connectAll();
    m_server.send(LinkServer::Payment, hex("01 12 00 12"));
    ASSERT_TRUE(waitUntil([this] { return m_paymentData.size() == 4; }));
    EXPECT_EQ(m_paymentData, hex("01 12 00 12"));
    EXPECT_EQ(received.at(0).at(0).toUInt(), 4000U); // the usual one, whatever the server's is
    EXPECT_EQ(pThread, client().thread());
    EXPECT_EQ(m_canData, QByteArray());
}

TEST_F(MultiportLinkTest, BytesThatCameBeforeALineWasLostAreToldBeforeItsLoss)
{
    connectAll();
    QByteArray atLoss;
    QObject::connect(&client(), &Multiport::canBusConnectedChanged, &client(),
                     [&] { atLoss = m_canData; });
    m_server.send(LinkServer::CanBus, "last");
    m_server.socket(LinkServer::CanBus)->disconnectFromHost();
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 1; }));
    EXPECT_EQ(atLoss, QByteArray("last"));
}
