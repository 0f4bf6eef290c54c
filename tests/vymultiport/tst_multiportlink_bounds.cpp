#include "multiport.h"

#include "multiportprotocol.h"
#include "support/casename.h"
#include "support/processcounts.h"
#include "vymultiport/linkbench.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <algorithm>
#include <gtest/gtest.h>
#include <ostream>

using namespace multiportlink;

namespace {

constexpr int s_mebibyte = 1024 * 1024;

/// Bytes that tell their place.
QByteArray numbered(int from, int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    std::generate(bytes.begin(), bytes.end(), [&from] { return static_cast<char>(from++ % 251); });
    return bytes;
}

} // namespace

using MultiportBoundsTest = LinkBench;

// -- a server that does not read ------------------------------------------------------------------

TEST_F(MultiportBoundsTest, ChannelWhoseServerDoesNotReadIsDroppedAtOneMebibyte)
{
    connectAll();
    m_server.setReading(false);
    const LogSpy log;
    const QByteArray block(16 * 1024, 'x');
    int taken = 0;
    ASSERT_TRUE(waitUntil([&] {
        if (client().writeToCanBus(block))
            taken += block.size();
        return m_journal.contains(QStringLiteral("can 0"));
    }));
    EXPECT_GE(taken, s_mebibyte);
    EXPECT_LE(taken, 32 * s_mebibyte); // the kernel takes some on both sides
    EXPECT_EQ(log.count("the server does not read", 3, Log::Hardware), 1);
    EXPECT_TRUE(client().isServerConnected());
    EXPECT_TRUE(client().isPaymentConnected());
}

TEST_F(MultiportBoundsTest, LinkWhoseServerDoesNotReadIsDroppedAtOneMebibyte)
{
    connectAll();
    m_server.setReading(false);
    const LogSpy log;
    int asked = 0;
    ASSERT_TRUE(waitUntil(
        [&] {
            for (int i = 0; i < 1000; ++i)
                client().startDaddMotor({1, 2, 3, 4, 5, 6});
            asked += 1000;
            return isDown();
        },
        50000)); // the kernel's buffers come first, and a sanitizer takes its time
    EXPECT_EQ(log.count("the server does not read", 3, Log::Hardware), 1);
    EXPECT_GE(asked, s_mebibyte / 15);
    EXPECT_EQ(m_journal.last(), QStringLiteral("server 0"));
}

// The client's thread does not come to what is written: it is not let pile up.
TEST_F(MultiportBoundsTest, BytesOnTheirWayToTheClientsThreadAreBounded)
{
    connectAll();
    const QByteArray block = numbered(0, 251 * 64);
    int taken = 0;
    {
        const ThreadHold hold(client());
        for (int i = 0; i < 1000; ++i)
            taken += client().writeToCanBus(block) ? block.size() : 0;
    }
    EXPECT_GT(taken, s_mebibyte / 2);
    EXPECT_LE(taken, s_mebibyte);
    ASSERT_TRUE(waitUntil([&] { return m_server.received(LinkServer::CanBus).size() == taken; }));
    EXPECT_EQ(m_server.received(LinkServer::CanBus), numbered(0, taken));
    EXPECT_TRUE(client().writeToCanBus(block)); // there is room again
    EXPECT_TRUE(isUp());
}

// -- a receiver that does not take ----------------------------------------------------------------

class MultiportBusyTest : public ::testing::Test
{
protected:
    MultiportBusyTest()
    {
        m_server.run([this] { m_address = m_server.server().address(); });
        m_pClient = std::make_unique<Multiport>(m_address, Multiport::ModeLocal, nullptr);
        QObject::connect(m_pClient.get(), &Multiport::multiportServerConnectedChanged,
                         m_pClient.get(), [this](bool) { ++m_changes; });
        QObject::connect(m_pClient.get(), &Multiport::newDataOnCanBus, m_pClient.get(),
                         [this](const QByteArray &bytes) {
                             m_received += bytes;
                             m_largest = std::max(m_largest, bytes.size());
                         });
        QObject::connect(m_pClient.get(), &Multiport::motorStatusChanged, m_pClient.get(),
                         [this](unsigned char motor, unsigned char) { m_events.append(motor); });
        m_pClient->setEnabled(Multiport::CanBusInterface);
        m_pClient->init(true);
        EXPECT_TRUE(waitUntil([this] { return m_pClient->isCanBusConnected(); }));
    }

    LinkServerThread m_server;
    QString m_address;
    std::unique_ptr<Multiport> m_pClient;
    int m_changes = 0;
    QByteArray m_received;
    QList<int> m_events;
    int m_largest = 0;
};

// Longer than a silence is borne, with events behind bytes that nobody takes.
TEST_F(MultiportBusyTest, ReceiverThatIsBusyForSecondsLosesNothingAndTheQueueIsBounded)
{
    constexpr int total = 16 * s_mebibyte;
    const QByteArray all = numbered(0, total);
    m_server.run([&] { m_server.server().send(LinkServer::CanBus, all); });
    QThread::msleep(200);
    m_server.run([&] {
        for (char i = 0; i < 100; ++i)
            m_server.server().sendEvent(67, QByteArray(1, i) + '\1');
    });
    QThread::msleep(2900);
    qint64 waiting = 0;
    m_server.run([&] {
        if (const QTcpSocket *const pSocket = m_server.server().socket(LinkServer::CanBus))
            waiting = pSocket->bytesToWrite();
    });
    EXPECT_GT(waiting, 8 * s_mebibyte); // the server keeps what nobody takes
    EXPECT_TRUE(m_events.isEmpty());

    ASSERT_TRUE(
        waitUntil([this] { return m_received.size() >= total && m_events.size() >= 100; }, 10000));
    EXPECT_TRUE(m_received == all);
    EXPECT_LE(m_largest, 512 * 1024); // the queue's quarter and one reading
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(m_events.at(i), i);
    EXPECT_EQ(m_changes, 1); // the link was never lost
}

// -- slots that go their own way ------------------------------------------------------------------

TEST_F(MultiportBoundsTest, NestedEventLoopInTheSlotForCanBytesHearsTheNextOnes)
{
    connectAll();
    m_server.send(LinkServer::CanBus, "1");
    QStringList order;
    int depth = 0;
    QObject::connect(&client(), &Multiport::newDataOnCanBus, &client(),
                     [&](const QByteArray &bytes) {
                         order.append(QString::fromLatin1(bytes) + QLatin1Char('<'));
                         if (++depth < 4) {
                             m_server.send(LinkServer::CanBus, QByteArray::number(depth + 1));
                             EXPECT_TRUE(waitUntil([&] { return depth == 4; }, 1000));
                         }
                         order.append(QString::fromLatin1(bytes) + QLatin1Char('>'));
                     });
    ASSERT_TRUE(waitUntil([&] { return order.size() == 8; }));
    EXPECT_EQ(order.join(QString()), QStringLiteral("1<2<3<4<4>3>2>1>"));
    EXPECT_EQ(m_canData, QByteArray("1234"));
}

TEST_F(MultiportBoundsTest, WhatIsWrittenInTheSlotForCanBytesLeaves)
{
    connectAll();
    QObject::connect(&client(), &Multiport::newDataOnCanBus, &client(),
                     [&](const QByteArray &bytes) { client().writeToCanBus(bytes); });
    m_server.send(LinkServer::CanBus, "echo");
    EXPECT_TRUE(waitUntil([this] { return m_server.received(LinkServer::CanBus) == "echo"; }));
}

struct DeletionCase
{
    const char *pName;
    void (*pArm)(Multiport *pClient, const std::function<void()> &deleteIt);
};

void PrintTo(const DeletionCase &row, std::ostream *pOut)
{
    *pOut << row.pName;
}

class MultiportDeletion : public LinkBench, public ::testing::WithParamInterface<DeletionCase>
{
};

TEST_P(MultiportDeletion, InASlotIsNothingSpecial)
{
    int deletions = 0;
    GetParam().pArm(m_pClient.get(), [&] {
        ++deletions;
        m_pClient.reset();
    });
    client().setEnabled(Multiport::CanBusInterface);
    client().setEnabled(Multiport::PaymentInterface);
    client().init(true);
    QTimer::singleShot(100, &m_server, [this] {
        m_server.sendEvent(MultiportProtocol::EventUpperMicroswitch, QByteArray(1, '\1'));
        m_server.send(LinkServer::CanBus, "x");
        m_server.send(LinkServer::Payment, "y");
        if (m_pClient)
            m_pClient->stopMotor(1);
    });
    QTimer::singleShot(200, &m_server, [this] { m_server.stop(); });
    ASSERT_TRUE(waitUntil([&] { return deletions == 1; }));
    pass(50);
    EXPECT_EQ(deletions, 1);
    EXPECT_FALSE(m_server.hasController());
    EXPECT_FALSE(m_server.isOpen(LinkServer::CanBus));
}

const DeletionCase s_deletionCases[] = {
    {"ServerConnected",
     [](Multiport *pClient, const std::function<void()> &deleteIt) {
         QObject::connect(pClient, &Multiport::multiportServerConnectedChanged, deleteIt);
     }},
    {"ServerLost",
     [](Multiport *pClient, const std::function<void()> &deleteIt) {
         QObject::connect(pClient, &Multiport::multiportServerConnectedChanged, pClient,
                          [=](bool is) {
                              if (!is)
                                  deleteIt();
                          });
     }},
    {"CanBusConnected",
     [](Multiport *pClient, const std::function<void()> &deleteIt) {
         QObject::connect(pClient, &Multiport::canBusConnectedChanged, deleteIt);
     }},
    {"PaymentConnected",
     [](Multiport *pClient, const std::function<void()> &deleteIt) {
         QObject::connect(pClient, &Multiport::paymentConnectedChanged, deleteIt);
     }},
    {"CanBytes",
     [](Multiport *pClient, const std::function<void()> &deleteIt) {
         QObject::connect(pClient, &Multiport::newDataOnCanBus, deleteIt);
     }},
    {"PaymentBytes",
     [](Multiport *pClient, const std::function<void()> &deleteIt) {
         QObject::connect(pClient->interface(Multiport::PaymentInterface),
                          &MultiportInterface::dataReceived, pClient, deleteIt);
     }},
    {"Status",
     [](Multiport *pClient, const std::function<void()> &deleteIt) {
         QObject::connect(pClient, &Multiport::lastCommandTerminationStatus, deleteIt);
     }},
    {"Event",
     [](Multiport *pClient, const std::function<void()> &deleteIt) {
         QObject::connect(pClient, &Multiport::daddUpperMicroswitchStatus, deleteIt);
     }},
};
INSTANTIATE_TEST_SUITE_P(Rows, MultiportDeletion, ::testing::ValuesIn(s_deletionCases), caseName);

// -- coming and going -----------------------------------------------------------------------------

TEST_F(MultiportBoundsTest, InitTrueTwiceKeepsTheLink)
{
    connectAll();
    client().init(true);
    pass(100);
    EXPECT_TRUE(m_journal.isEmpty());
    EXPECT_EQ(m_server.controlConnections(), 1);
}

TEST_F(MultiportBoundsTest, InitTrueAndFalseInOneTurnEndsAsTheLastOneSays)
{
    for (int i = 0; i < 50; ++i)
        client().init(i % 2 == 0);
    pass(100);
    EXPECT_FALSE(client().isServerConnected());
    EXPECT_FALSE(m_server.hasController());
    for (int i = 0; i < 51; ++i)
        client().init(i % 2 == 0);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
}

TEST_F(MultiportBoundsTest, InterfaceSwitchedOftenEndsAsTheLastCallSays)
{
    connectAll();
    for (int i = 0; i < 51; ++i)
        client().setEnabled(Multiport::CanBusInterface, i % 2 != 0);
    pass(200);
    EXPECT_FALSE(client().isCanBusConnected());
    EXPECT_FALSE(m_server.isOpen(LinkServer::CanBus));
    for (int i = 0; i < 51; ++i)
        client().setEnabled(Multiport::CanBusInterface, i % 2 == 0);
    // What the switching before has left on its way is told first.
    ASSERT_TRUE(waitUntil([this] { return client().writeToCanBus("x"); }));
    EXPECT_TRUE(waitUntil([this] { return m_server.received(LinkServer::CanBus) == "x"; }));
}

TEST_F(MultiportBoundsTest, ThousandClientsComeAndGoWithoutALeak)
{
    m_pClient.reset();
    const auto cycle = [this](int i) {
        Multiport client(m_server.address(), Multiport::ModeLocal, nullptr);
        client.setEnabled(Multiport::CanBusInterface);
        client.init(i % 2 == 0);
        if (i % 10 == 0) {
            ASSERT_TRUE(waitUntil([&] { return client.isCanBusConnected(); }));
        } else if (i % 3 == 0) {
            QCoreApplication::processEvents();
        }
    };
    cycle(0);
    pass(50);
    const int descriptors = descriptorCount();
    const int threads = threadCount();
    for (int i = 0; i < 1000; ++i)
        cycle(i);
    EXPECT_TRUE(waitUntil([&] { return descriptorCount() == descriptors; }, 2000))
        << descriptorCount() << " before " << descriptors;
    EXPECT_EQ(threadCount(), threads);
}

TEST_F(MultiportBoundsTest, ClientIsAThreadNamedMultiport)
{
    const auto names = [] {
        QStringList all;
        const QDir tasks(QStringLiteral("/proc/self/task"));
        const auto tasksNow = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString &task : tasksNow) {
            QFile comm(tasks.filePath(task) + QStringLiteral("/comm"));
            if (comm.open(QIODevice::ReadOnly))
                all.append(QString::fromLatin1(comm.readAll()).trimmed());
        }
        return all;
    };
    EXPECT_TRUE(waitUntil([&] { return names().count(QStringLiteral("Multiport")) == 1; }));
    m_pClient.reset();
    EXPECT_TRUE(waitUntil([&] { return names().count(QStringLiteral("Multiport")) == 0; }));
}
