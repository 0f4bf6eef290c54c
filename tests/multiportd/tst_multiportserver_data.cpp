#include "multiportd/servertest.h"

#include <QFile>
#include <QThread>
#include <QtEndian>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <numeric>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

using multiportlink::Kind;
using multiportlink::Role;

namespace {

const CanBytes s_data{0x02, 0x00, 0x2a, 0x00, 0x00, 0x28};
constexpr quint32 s_id = 0x00254419;

/// The page's example: the frame above.
QByteArray example()
{
    return QByteArray::fromHex("00254419 06 02002a000028");
}

/// TCP segments with data that the other side has sent.
quint32 segmentsTo(const LinkPeer &peer)
{
    tcp_info info = {};
    socklen_t size = sizeof info;
    const auto descriptor = const_cast<LinkPeer &>(peer).socket().socketDescriptor();
    EXPECT_EQ(::getsockopt(static_cast<int>(descriptor), IPPROTO_TCP, TCP_INFO, &info, &size), 0);
    return info.tcpi_data_segs_in;
}

} // namespace

// -- claims ---------------------------------------------------------------------------------------

class ClaimTest : public ServerTest
{
protected:
    std::unique_ptr<ControlPeer> m_pController = controller();
};

TEST_F(ClaimTest, TakesTheConnectionThatIsThere)
{
    const auto pCan = canPeer();
    EXPECT_EQ(m_pController->claims(1, *pCan), 0);
    EXPECT_EQ(m_pController->claims(1, *pCan), 0); // once more is the same
    pCan->send(example());
    EXPECT_TRUE(comes([this] { return m_can.m_sent.size() == 1; }));
}

TEST_F(ClaimTest, OfTheOtherInterfacesConnectionFails)
{
    const auto pCan = canPeer();
    EXPECT_EQ(m_pController->claims(3, *pCan), 6);
    EXPECT_TRUE(pCan->isConnected());
}

TEST_F(ClaimTest, WaitsForAConnectionThatItHasOvertaken)
{
    QTcpSocket late;
    ASSERT_TRUE(late.bind(QHostAddress(QHostAddress::LocalHost))) << qPrintable(late.errorString());
    const quint16 port = late.localPort();
    m_pController->send(multiportlink::encode(
        multiportlink::Request{1001, 10, multiportlink::encode(multiportlink::Claim{1, port})}));
    QTest::qWait(300);
    EXPECT_TRUE(m_pController->records(Kind::Status).empty());
    late.connectToHost(QHostAddress::LocalHost, m_server.ports().can);
    EXPECT_EQ(m_pController->status(1001), 0);
    late.write(example());
    EXPECT_TRUE(comes([this] { return m_can.m_sent.size() == 1; }));
}

TEST_F(ClaimTest, FailsWhenNoConnectionComesAndKeepsTheOrderOfTheAnswers)
{
    QByteArray requests =
        multiportlink::encode(multiportlink::Request{1, 10, QByteArray::fromHex("01 0001")});
    for (quint16 sequence = 2; sequence < 5; ++sequence)
        requests += multiportlink::encode(
            multiportlink::Request{sequence, 30, QByteArray::fromHex("0901")});
    m_pController->send(requests);
    QTest::qWait(1500);
    EXPECT_TRUE(m_pController->records(Kind::Status).empty());
    ASSERT_TRUE(comes([this] { return m_pController->records(Kind::Status).size() == 4; }));
    std::vector<int> statuses;
    for (const QByteArray &body : m_pController->records(Kind::Status))
        statuses.push_back(multiportlink::decodeStatus(body)->status);
    EXPECT_EQ(statuses, (std::vector<int>{6, 0, 0, 0}));
}

TEST_F(ClaimTest, TwoThatWaitDoNotMakeTheClientSilent)
{
    for (const quint16 sequence : {quint16{1001}, quint16{1002}})
        m_pController->send(multiportlink::encode(
            multiportlink::Request{sequence, 10, QByteArray::fromHex("01 0001")}));
    EXPECT_EQ(m_pController->status(1002), 6);
    EXPECT_EQ(m_pController->asks(30, QByteArray::fromHex("0901")), 0);
}

TEST_F(ClaimTest, OfASecondConnectionEndsTheFirst)
{
    const auto pFirst = canPeer();
    const auto pSecond = canPeer();
    ASSERT_EQ(m_pController->claims(1, *pFirst), 0);
    pFirst->send(example().left(7)); // and never the rest
    settle();
    ASSERT_EQ(m_pController->claims(1, *pSecond), 0);
    EXPECT_TRUE(pFirst->isClosed());
    pSecond->send(example());
    EXPECT_TRUE(comes([this] { return m_can.m_sent.size() == 1; }));
    EXPECT_EQ(m_can.m_sent.constFirst().id(), s_id);
}

TEST_F(ClaimTest, EndsWithTheControlConnection)
{
    const auto pCan = canPeer();
    const auto pPayment = paymentPeer();
    const auto pObserver = canPeer();
    ASSERT_EQ(m_pController->claims(1, *pCan), 0);
    ASSERT_EQ(m_pController->claims(3, *pPayment), 0);
    m_pController.reset();
    EXPECT_TRUE(pCan->isClosed());
    EXPECT_TRUE(pPayment->isClosed());
    EXPECT_TRUE(pObserver->isConnected());
}

TEST_F(ClaimTest, ThatWaitedForAControllerWhoLeftHarmsNobody)
{
    QTcpSocket late;
    ASSERT_TRUE(late.bind(QHostAddress(QHostAddress::LocalHost))) << qPrintable(late.errorString());
    const quint16 port = late.localPort();
    m_pController->send(multiportlink::encode(
        multiportlink::Request{1, 10, multiportlink::encode(multiportlink::Claim{1, port})}));
    QTest::qWait(50);
    m_pController.reset();
    QTest::qWait(50);
    const auto pNext = controller();
    late.connectToHost(QHostAddress::LocalHost, m_server.ports().can);
    ASSERT_TRUE(late.waitForConnected(s_patienceMs));
    late.write(example());
    QTest::qWait(100);
    EXPECT_TRUE(m_can.m_sent.isEmpty()); // the connection is an observer's
    EXPECT_EQ(pNext->asks(30, QByteArray::fromHex("0901")), 0);
}

// -- the CAN connection ---------------------------------------------------------------------------

class CanRelayTest : public ClaimTest
{
protected:
    CanRelayTest()
    {
        m_pCan = canPeer();
        m_pObserver = canPeer();
        EXPECT_EQ(m_pController->claims(1, *m_pCan), 0);
    }

    std::unique_ptr<LinkPeer> m_pCan;
    std::unique_ptr<LinkPeer> m_pObserver;
};

TEST_F(CanRelayTest, FramesOfTheBusReachControllerAndObservers)
{
    m_can.speak(s_id, s_data);
    EXPECT_TRUE(m_pCan->hears(example()));
    EXPECT_TRUE(m_pObserver->hears(example()));
}

TEST_F(CanRelayTest, FramesOfTheControllerReachTheBusAndObserversOnly)
{
    m_pCan->send(example());
    EXPECT_TRUE(m_pObserver->hears(example()));
    ASSERT_EQ(m_can.m_sent.size(), 1);
    EXPECT_EQ(m_can.m_sent.constFirst().id(), s_id);
    EXPECT_EQ(m_can.m_sent.constFirst().data(), s_data);
    m_can.speak(1, {});
    EXPECT_TRUE(m_pCan->hears(QByteArray::fromHex("0000000100")));
    EXPECT_EQ(m_pCan->received(), QByteArray::fromHex("0000000100"));
}

TEST_F(CanRelayTest, RecordsMayBeCutAnywhereAndReachObserversWhole)
{
    const QByteArray records = QByteArray::fromHex("0fffffff 08 0102030405060708"
                                                   "00000001 00"
                                                   "ffffffff 01 ff");
    for (int cut = 0; cut <= records.size(); ++cut) {
        m_can.m_sent.clear();
        m_pObserver->forget();
        m_pCan->send(records.left(cut));
        settle();
        m_pCan->send(records.mid(cut));
        ASSERT_TRUE(m_pObserver->hears(records)) << cut;
        EXPECT_EQ(m_pObserver->received(), records);
        ASSERT_EQ(m_can.m_sent.size(), 3);
        EXPECT_EQ(m_can.m_sent.at(0).data(), (CanBytes{1, 2, 3, 4, 5, 6, 7, 8}));
        EXPECT_EQ(m_can.m_sent.at(1).id(), 1U);
        EXPECT_EQ(m_can.m_sent.at(1).dataSize(), 0);
        EXPECT_EQ(m_can.m_sent.at(2).id(), 0xFFFFFFFFU);
        EXPECT_EQ(m_can.m_sent.at(2).data(), CanBytes{0xff});
    }
}

TEST_F(CanRelayTest, HalfARecordIsShownToNobody)
{
    m_pCan->send(example().left(10));
    QTest::qWait(50);
    EXPECT_EQ(m_pObserver->received(), QByteArray());
    EXPECT_TRUE(m_can.m_sent.isEmpty());
}

TEST_F(CanRelayTest, MoreThan8BytesCloseThatConnectionAlone)
{
    m_pCan->send(example() + QByteArray::fromHex("00000001 09 010203040506070809") + example());
    EXPECT_TRUE(m_pCan->isClosed());
    EXPECT_TRUE(m_pObserver->hears(example()));
    EXPECT_EQ(m_pObserver->received(), example()); // what came before, and nothing of what followed
    EXPECT_EQ(m_can.m_sent.size(), 1);
    EXPECT_EQ(m_log.count("a record says that it has more than 8 bytes", 4), 1);

    const auto pAgain = canPeer();
    ASSERT_EQ(m_pController->claims(1, *pAgain), 0);
    pAgain->send(example());
    EXPECT_TRUE(comes([this] { return m_can.m_sent.size() == 2; }));
}

TEST_F(CanRelayTest, WhatAnObserverSendsIsThrownAwayAndLoggedOnce)
{
    for (int count = 0; count < 3; ++count) {
        m_pObserver->send(example());
        settle();
    }
    EXPECT_TRUE(m_can.m_sent.isEmpty());
    EXPECT_EQ(m_log.count("is an observer: what it sends is thrown away", 3), 1);
    m_can.speak(s_id, s_data);
    EXPECT_TRUE(m_pObserver->hears(example())); // and it goes on observing
}

TEST_F(CanRelayTest, WhatOneTurnWritesLeavesInOneSegment)
{
    const quint32 before = segmentsTo(*m_pCan);
    for (int frame = 0; frame < 64; ++frame)
        m_can.speak(static_cast<quint32>(frame), {1, 2, 3, 4, 5, 6, 7, 8});
    ASSERT_TRUE(comes([this] { return m_pCan->received().size() == 64 * 13; }));
    EXPECT_EQ(segmentsTo(*m_pCan) - before, 1U);
    EXPECT_EQ(segmentsTo(*m_pObserver), 1U);
    for (int frame = 0; frame < 64; ++frame)
        EXPECT_EQ(m_pCan->received().at(frame * 13 + 3), static_cast<char>(frame));
}

/// The kernel has taken it, and the server reads it only when it is too old.
TEST_F(CanRelayTest, WhatWasSentWhileTheServerStoodStillIsNotObeyed)
{
    m_pController->send(
        multiportlink::encode(multiportlink::Request{1001, 30, QByteArray::fromHex("0901")}));
    m_pCan->send(example());
    QThread::msleep(2600);
    EXPECT_EQ(m_pController->goodbye(), 8);
    EXPECT_TRUE(m_pCan->isClosed());
    EXPECT_EQ(m_outputs.m_calls, QStringList());
    EXPECT_TRUE(m_can.m_sent.isEmpty());
    EXPECT_EQ(m_pObserver->received(), QByteArray());
    EXPECT_EQ(m_log.count("This server has stood still", 4), 1);
    EXPECT_EQ(controller()->asks(30, QByteArray::fromHex("0801")), 0);
}

// -- the payment connection -----------------------------------------------------------------------

TEST_F(ClaimTest, PaymentBytesGoBothWaysAsTheyAre)
{
    const auto pPayment = paymentPeer();
    const auto pObserver = paymentPeer();
    ASSERT_EQ(m_pController->claims(3, *pPayment), 0);
    const QByteArray poll = QByteArray::fromHex("01120012");
    pPayment->send(poll);
    EXPECT_TRUE(pObserver->hears(poll));
    EXPECT_EQ(m_payment.m_written, poll);

    const QByteArray answer = QByteArray::fromHex("0100");
    Q_EMIT m_payment.dataReceived(answer);
    EXPECT_TRUE(pPayment->hears(answer));
    EXPECT_TRUE(pObserver->hears(poll + answer));
    EXPECT_EQ(pPayment->received(), answer);
}

// -- limits ---------------------------------------------------------------------------------------

TEST_F(ServerTest, TakesSixteenObserversOnADataPort)
{
    std::vector<std::unique_ptr<LinkPeer>> observers;
    for (int count = 0; count < 16; ++count)
        observers.push_back(canPeer());
    EXPECT_TRUE(canPeer()->isClosed());
    EXPECT_TRUE(canPeer()->isClosed());
    EXPECT_EQ(m_log.count("refused: there are 16 observers", 3), 1); // once while it lasts
    EXPECT_TRUE(paymentPeer()->isConnected());
    m_can.speak(s_id, s_data);
    for (const auto &pPeer : observers)
        EXPECT_TRUE(pPeer->hears(example()));
    observers.pop_back();
    settle();
    observers.push_back(canPeer());
    m_can.speak(s_id, s_data);
    EXPECT_TRUE(observers.back()->hears(example()));
}

/// A host that has vanished is found although nothing goes by: the kernel keeps asking for it.
TEST_F(ServerTest, ConnectionsAreKeptAlive)
{
    const auto pCan = canPeer();
    QFile table(QStringLiteral("/proc/self/net/tcp"));
    ASSERT_TRUE(table.open(QIODevice::ReadOnly));
    const auto port = [](quint16 number) {
        return QByteArray::number(number, 16).rightJustified(4, '0').toUpper();
    };
    QByteArray timer;
    const auto all = table.readAll().split('\n');
    for (const QByteArray &line : all) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() > 5 && fields.at(1).endsWith(':' + port(m_server.ports().can)) &&
            fields.at(2).endsWith(':' + port(pCan->localPort())))
            timer = fields.at(5).left(2);
    }
    EXPECT_EQ(timer, "02"); // keep-alive
}

TEST_F(ServerTest, MayBeCutWhileItHasNoDescriptorForAClient)
{
    LinkPeer waiting(m_server.ports().can); // the kernel has taken it
    rlimit limit = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const int next = ::dup(0); // the lowest that is free
    ::close(next);
    const rlimit none = {static_cast<rlim_t>(next), limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    settle();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(m_log.count("port accepts nobody", 4), 1);
    m_server.setCut(true);
    QTest::qWait(300); // accepting would go on after 200 ms
    EXPECT_TRUE(m_server.setCut(false));
    EXPECT_EQ(controller()->asks(30, QByteArray::fromHex("0901")), 0);
}

TEST_F(ServerTest, ControllersConnectionHasAPlaceBesideTheObservers)
{
    std::vector<std::unique_ptr<LinkPeer>> observers;
    for (int count = 0; count < 16; ++count)
        observers.push_back(canPeer());
    const auto pController = controller();
    const auto pCan = canPeer();
    const auto pOther = canPeer();
    ASSERT_EQ(pController->claims(1, *pCan), 0);
    m_can.speak(s_id, s_data);
    EXPECT_TRUE(pCan->hears(example()));
    EXPECT_TRUE(pOther->isClosed()); // nobody has claimed it
    EXPECT_EQ(pOther->received(), QByteArray());
    EXPECT_TRUE(pCan->isConnected());
    for (const auto &pPeer : observers)
        EXPECT_TRUE(pPeer->isConnected());
}

TEST_F(ServerTest, ConnectionsThatMayBeClaimedMakeRoomOldestFirst)
{
    std::vector<std::unique_ptr<LinkPeer>> observers;
    for (int count = 0; count < 16; ++count)
        observers.push_back(canPeer());
    const auto pController = controller();
    std::vector<std::unique_ptr<LinkPeer>> kept;
    for (int count = 0; count < 17; ++count)
        kept.push_back(canPeer());
    EXPECT_TRUE(kept.front()->isClosed());
    EXPECT_EQ(pController->claims(1, *kept.at(1)), 0);
    EXPECT_EQ(pController->claims(1, *kept.back()), 0);
}

class BacklogTest : public CanRelayTest
{
protected:
    /// Numbered frames until the log says that somebody was dropped; their number.
    quint32 speakUntilDropped(const char *pText)
    {
        quint32 frames = 0;
        while (m_log.count(pText) == 0 && frames < s_most) {
            for (int burst = 0; burst < 1000; ++burst)
                m_can.speak(frames++, {1, 2, 3, 4, 5, 6, 7, 8});
            settle();
        }
        return frames;
    }

    static bool hasAll(LinkPeer &peer, quint32 frames)
    {
        if (!comes([&] { return peer.received().size() >= static_cast<int>(frames * 13); }))
            return false;
        QByteArray expected;
        for (quint32 frame = 0; frame < frames; ++frame) {
            expected += QByteArray(4, '\0');
            qToBigEndian(frame, expected.data() + expected.size() - 4);
            expected += QByteArray::fromHex("080102030405060708");
        }
        return peer.received() == expected;
    }

    static constexpr quint32 s_most = 2'000'000; ///< 26 MB, more than any socket buffers
};

TEST_F(BacklogTest, ObserverThatNeverReadsIsDroppedAndTheOthersLoseNothing)
{
    LinkPeer bad(m_server.ports().can);
    bad.stopReading();
    settle();
    const quint32 frames = speakUntilDropped("does not read and is dropped");
    EXPECT_EQ(m_log.count("does not read and is dropped: more than 1048576 bytes wait", 3), 1);
    EXPECT_GT(frames * 13, 1048576U);
    EXPECT_TRUE(hasAll(*m_pCan, frames));
    EXPECT_TRUE(hasAll(*m_pObserver, frames));
    EXPECT_EQ(m_pController->asks(30, QByteArray::fromHex("0901")), 0);
}

TEST_F(BacklogTest, MoreThanAMebibyteInOneTurnIsNoFaultOfTheClients)
{
    constexpr quint32 frames = 100'000; // 1.3 MB
    for (quint32 frame = 0; frame < frames; ++frame)
        m_can.speak(frame, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_TRUE(hasAll(*m_pCan, frames));
    EXPECT_TRUE(hasAll(*m_pObserver, frames));
}

/// Their ends are found in the middle of writing to all of them.
TEST_F(BacklogTest, ObserversThatAreGoneDoNotKeepTheOthersFromAFrame)
{
    std::vector<std::unique_ptr<LinkPeer>> gone;
    std::vector<std::unique_ptr<LinkPeer>> others;
    for (int count = 0; count < 5; ++count) {
        gone.push_back(canPeer());
        others.push_back(canPeer());
    }
    for (const auto &pPeer : gone) {
        const linger reset{1, 0};
        ASSERT_EQ(::setsockopt(static_cast<int>(pPeer->socket().socketDescriptor()), SOL_SOCKET,
                               SO_LINGER, &reset, sizeof reset),
                  0);
        pPeer->socket().abort();
    }
    constexpr quint32 frames = 100'000; // 1.3 MB in one turn: it is written before the turn ends
    for (quint32 frame = 0; frame < frames; ++frame)
        m_can.speak(frame, {1, 2, 3, 4, 5, 6, 7, 8});
    for (const auto &pPeer : others)
        EXPECT_TRUE(hasAll(*pPeer, frames));
    EXPECT_TRUE(hasAll(*m_pCan, frames));
}

TEST_F(BacklogTest, ControllerThatNeverReadsIsDroppedWhole)
{
    m_pCan->stopReading();
    const quint32 frames = speakUntilDropped("does not read and is dropped");
    EXPECT_EQ(m_log.count("does not read and is dropped: more than 1048576 bytes wait", 3), 1);
    EXPECT_EQ(m_pController->goodbye(), 9);
    EXPECT_TRUE(hasAll(*m_pObserver, frames));
    EXPECT_EQ(controller()->asks(30, QByteArray::fromHex("0901")), 0);
}

TEST_F(BacklogTest, ClientThatNeverReadsItsAnswersIsDropped)
{
    const auto pObserver = observer();
    pObserver->stopReading();
    QByteArray requests;
    for (int count = 0; count < 10000; ++count)
        requests += multiportlink::encode(multiportlink::Request{1, 30, {}});
    for (int round = 0; round < 200 && m_log.count("dropped:") == 0; ++round) {
        pObserver->send(requests);
        ASSERT_TRUE(comes([&] {
            return pObserver->socket().bytesToWrite() == 0 || m_log.count("dropped:") > 0;
        }));
    }
    EXPECT_EQ(m_log.count("dropped: more than 1048576 bytes wait to be read", 3), 1);
    EXPECT_EQ(m_pController->asks(30, QByteArray::fromHex("0901")), 0);
}
