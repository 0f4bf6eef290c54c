#include "canbus/caninterface_multiport.h"

#include "canbus/canbus.h"
#include "canbus/canbusnode.h"
#include "canbus/candispatchrule.h"
#include "canbus/canmessages.h"
#include "canbus/canrecord.h"
#include "canbus/frametext.h"
#include "canbus/testmachine.h"
#include "multiport.h"
#include "support/casename.h"
#include "support/logspy.h"
#include "vymultiport/linkserver.h"

#include <QEventLoop>
#include <QThread>
#include <QTimer>
#include <gtest/gtest.h>

namespace {

/// Time for bytes to reach the client's thread while ours hears nothing.
constexpr unsigned long s_arrivalMs = 100;

QByteArray hex(const char *pHex)
{
    return QByteArray::fromHex(pHex);
}

/// The stream of these frames.
QByteArray streamOf(const QList<CanFrame> &frames)
{
    QByteArray stream;
    for (const CanFrame &one : frames)
        CanRecord::append(stream, one);
    return stream;
}

/// A machine whose client finds a server, on real sockets.
class LinkedMachine
{
public:
    LinkedMachine()
    {
        EXPECT_TRUE(m_server.start());
        m_machine.environment().setMultiport(
            new Multiport(m_server.address(), Multiport::ModeLocal, &m_machine.environment()));
        QObject::connect(&client(), &Multiport::newDataOnCanBus, &client(),
                         [this](const QByteArray &bytes) {
                             ++m_deliveries;
                             m_arrived += bytes.size();
                         });
        client().init(true);
    }

    LinkServer &server() { return m_server; }
    Multiport &client() { return *m_machine.environment().multiport(); }
    int deliveries() const { return m_deliveries; }

    bool isUp() { return client().isCanBusConnected() && m_server.isOpen(LinkServer::CanBus); }
    bool isDown() { return !client().isCanBusConnected(); }

    /// From the bus; true when all of it has been handled.
    bool deliver(const QByteArray &bytes)
    {
        const int arrived = m_arrived + bytes.size();
        m_server.send(LinkServer::CanBus, bytes);
        return waitUntil([&] { return m_arrived >= arrived; });
    }
    bool deliverHex(const char *pHex) { return deliver(hex(pHex)); }

    /// To the bus, since the last forget().
    bool isSent(const QByteArray &bytes)
    {
        return waitUntil([&] { return sent().size() >= bytes.size(); }) && sent() == bytes;
    }
    void forget() { m_forgotten = m_server.received(LinkServer::CanBus).size(); }

private:
    QByteArray sent() const { return m_server.received(LinkServer::CanBus).mid(m_forgotten); }

    LinkServer m_server;
    TestMachine m_machine;
    int m_deliveries = 0;
    int m_arrived = 0;
    int m_forgotten = 0;
};

} // namespace

// The machine's CAN channel over a real link: the server's bytes come as frames, and the frames
// that are written are the server's bytes.
class CanLinkTest : public ::testing::Test
{
protected:
    CanLinkTest()
    {
        QObject::connect(&m_interface, &AbstractCanInterface::frameReceived, &m_interface,
                         [this](const CanFrame &one) { m_received.append(one); });
        EXPECT_TRUE(m_interface.openInterface(QString()));
        EXPECT_TRUE(waitUntil([this] { return m_machine.isUp(); }));
    }

    std::string received() const { return textOf(m_received).toStdString(); }

    /// Everything in both directions works.
    void expectWorking()
    {
        m_received.clear();
        m_machine.forget();
        EXPECT_TRUE(m_machine.deliverHex("00 a5 44 19 01 77"));
        EXPECT_EQ(received(), "a54419:77");
        EXPECT_TRUE(m_interface.writeToCan(withId(0x00e54419, "88")));
        EXPECT_TRUE(m_machine.isSent(hex("00 e5 44 19 01 88")));
    }

    LinkedMachine m_machine;
    CanInterface_Multiport m_interface{nullptr};
    QList<CanFrame> m_received;
};

// -- records in their cuts ------------------------------------------------------------------------

TEST_F(CanLinkTest, ElevenBytesAreOneFrameAndNothingIsMissing)
{
    const LogSpy log;
    ASSERT_TRUE(m_machine.deliverHex("00 25 44 19 06 02 00 2a 00 00 28"));
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.constFirst().id(), 0x00254419U);
    EXPECT_EQ(m_received.constFirst().data(), bytes("02 00 2a 00 00 28"));
    EXPECT_EQ(log.count("Not enough data:"), 0);
}

TEST_F(CanLinkTest, RecordInTwoDeliveriesIsAFrameOnTheSecondOnly)
{
    const LogSpy log;
    ASSERT_TRUE(m_machine.deliverHex("00 25 44"));
    EXPECT_EQ(received(), "");
    EXPECT_EQ(log.count("Not enough data: 3", 0, Log::CanBus), 1);
    ASSERT_TRUE(m_machine.deliverHex("19 06 02 00 2a 00 00 28"));
    EXPECT_EQ(received(), "254419:02002a000028");
    EXPECT_EQ(log.count("Not enough data"), 1);
    EXPECT_EQ(m_machine.deliveries(), 2);
}

TEST_F(CanLinkTest, RecordThatIsNotWholeIsKept)
{
    const LogSpy log;
    ASSERT_TRUE(m_machine.deliverHex("00 25 44 19 06 02 00"));
    EXPECT_EQ(received(), "");
    EXPECT_EQ(log.count("Not enough data for current dlc", 0, Log::CanBus), 1);
    EXPECT_EQ(log.count("Not enough data: 7", 0, Log::CanBus), 1);
    ASSERT_TRUE(m_machine.deliverHex("2a 00 00 28"));
    EXPECT_EQ(received(), "254419:02002a000028");
}

TEST_F(CanLinkTest, TwoRecordsInOneDeliveryAreTwoFramesInTheirOrder)
{
    ASSERT_TRUE(m_machine.deliverHex("00 25 44 19 06 02 00 2a 00 00 28 00 65 44 19 01 99"));
    EXPECT_EQ(received(), "254419:02002a000028 654419:99");
    EXPECT_EQ(m_machine.deliveries(), 1);
}

TEST_F(CanLinkTest, RecordWithDlc0IsAFrameWithoutDataAndTakesFiveBytes)
{
    const LogSpy log;
    ASSERT_TRUE(m_machine.deliverHex("00 25 44 19 00"));
    EXPECT_EQ(received(), "254419:");
    EXPECT_EQ(log.count("Not enough data"), 0);
    ASSERT_TRUE(m_machine.deliverHex("00 65 44 19 00"));
    EXPECT_EQ(received(), "254419: 654419:");
}

namespace {

const char *const s_pThreeRecords =
    "00 25 44 19 06 02 00 2a 00 00 28  00 65 44 19 00  00 20 cc a8 08 01 02 03 04 05 06 07 08";
const char *const s_pThreeFrames = "254419:02002a000028 654419: 20cca8:0102030405060708";

} // namespace

TEST_F(CanLinkTest, ThreeRecordsAreThreeFramesWhereverTheStreamIsSplit)
{
    const QByteArray stream = hex(s_pThreeRecords);
    for (int split = 1; split < stream.size(); ++split) {
        m_received.clear();
        ASSERT_TRUE(m_machine.deliver(stream.left(split))) << split;
        ASSERT_TRUE(m_machine.deliver(stream.mid(split))) << split;
        ASSERT_EQ(received(), s_pThreeFrames) << split;
        ASSERT_EQ(m_machine.deliveries(), 2 * split);
    }
}

TEST_F(CanLinkTest, ThreeRecordsAreThreeFramesByteByByte)
{
    const QByteArray stream = hex(s_pThreeRecords);
    for (const char byte : stream)
        ASSERT_TRUE(m_machine.deliver(QByteArray(1, byte)));
    EXPECT_EQ(received(), s_pThreeFrames);
    EXPECT_EQ(m_machine.deliveries(), stream.size());
}

TEST_F(CanLinkTest, ThreeRecordsAreThreeFramesAtOnce)
{
    ASSERT_TRUE(m_machine.deliverHex(s_pThreeRecords));
    EXPECT_EQ(received(), s_pThreeFrames);
    EXPECT_EQ(m_machine.deliveries(), 1);
}

TEST_F(CanLinkTest, LengthThatIsNegativeLosesNoMoreThanItsDelivery)
{
    const LogSpy log;
    ASSERT_TRUE(m_machine.deliverHex("00 65 44 19 01 99 00 25 44 19 80 00 a5 44 19 01 98"));
    EXPECT_EQ(received(), "654419:99");
    EXPECT_EQ(log.count("Invalid length -128", 4, Log::CanBus), 1);
    expectWorking();
}

// -- writes ---------------------------------------------------------------------------------------

TEST_F(CanLinkTest, FrameIsWrittenAsItsRecord)
{
    EXPECT_TRUE(m_interface.writeToCan(withId(0x00254419, "02 00 2a 00 00 28")));
    EXPECT_TRUE(m_machine.isSent(hex("00 25 44 19 06 02 00 2a 00 00 28")));
    m_machine.forget();
    EXPECT_TRUE(m_interface.writeToCan(withId(0xf1234567, "")));
    EXPECT_TRUE(m_machine.isSent(hex("f1 23 45 67 00")));
    m_machine.forget();
    EXPECT_TRUE(m_interface.writeToCan(withId(0x1, "ff 00 80 7f 01 02 03 04")));
    EXPECT_TRUE(m_machine.isSent(hex("00 00 00 01 08 ff 00 80 7f 01 02 03 04")));
}

TEST_F(CanLinkTest, FramesOfALongMessageLeaveInTheirOrderAndInOneWrite)
{
    QList<CanFrame> frames;
    QByteArray stream;
    for (int i = 0; i < 64; ++i) {
        const QByteArray number(1, static_cast<char>(i));
        frames.append(withId(0x00254400U + static_cast<quint32>(i), number.toHex().constData()));
        stream += hex("00 25 44") + number + hex("01") + number;
    }
    const int segments = m_machine.server().segments(LinkServer::CanBus);
    EXPECT_TRUE(m_interface.writeToCan(frames));
    EXPECT_TRUE(m_machine.isSent(stream));
    EXPECT_EQ(m_machine.server().segments(LinkServer::CanBus), segments + 1);
}

TEST_F(CanLinkTest, FrameThatIsTooLongIsNotWrittenAndHarmsNoOther)
{
    EXPECT_FALSE(m_interface.writeToCan(withId(0x1, "01 02 03 04 05 06 07 08 09")));
    expectWorking();
}

// -- links that go and come -----------------------------------------------------------------------

struct OutageCase
{
    const char *pName;
    void (*pCut)(LinkServer &server);
};

class CanLinkOutages : public CanLinkTest, public ::testing::WithParamInterface<OutageCase>
{
protected:
    void outage()
    {
        GetParam().pCut(m_machine.server());
        ASSERT_TRUE(waitUntil([this] { return m_machine.isDown(); }));
        m_machine.server().start();
        ASSERT_TRUE(waitUntil([this] { return m_machine.isUp(); }));
    }
};

TEST_P(CanLinkOutages, LeaveNoHalfRecordToTheNextLink)
{
    ASSERT_TRUE(m_machine.deliverHex("00 25 44 19 06 02 00"));
    outage();
    ASSERT_TRUE(m_machine.deliverHex("00 65 44 19 01 99"));
    EXPECT_EQ(received(), "654419:99");
    expectWorking();
}

// What came last and what comes first stand in the same queue.
TEST_P(CanLinkOutages, LeaveNoHalfRecordThatNobodyHasHeardYet)
{
    m_machine.server().send(LinkServer::CanBus, hex("00 65 44 19 01 99 00 25 44 19 06 02 00"));
    m_machine.server().socket(LinkServer::CanBus)->flush();
    QThread::msleep(s_arrivalMs);
    outage();
    EXPECT_EQ(received(), "654419:99");
    expectWorking();
}

TEST_P(CanLinkOutages, LoseWhatIsWrittenMeanwhile)
{
    GetParam().pCut(m_machine.server());
    ASSERT_TRUE(waitUntil([this] { return m_machine.isDown(); }));
    m_machine.forget();
    EXPECT_FALSE(m_interface.writeToCan(withId(0x00254419, "01")));
    EXPECT_TRUE(m_interface.isOpen()); // as was asked for
    m_machine.server().start();
    ASSERT_TRUE(waitUntil([this] { return m_machine.isUp(); }));
    expectWorking();
}

const OutageCase s_outageCases[] = {
    {"Channel", [](LinkServer &server) { server.drop(LinkServer::CanBus); }},
    {"Server", [](LinkServer &server) { server.stop(); }},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanLinkOutages, ::testing::ValuesIn(s_outageCases), caseName);

// -- close and open -------------------------------------------------------------------------------

TEST_F(CanLinkTest, ClosedChannelIsGoneAndAnOpenedOneIsBack)
{
    EXPECT_TRUE(m_interface.closeInterface());
    EXPECT_FALSE(m_interface.isOpen());
    ASSERT_TRUE(waitUntil(
        [this] { return m_machine.isDown() && !m_machine.server().isOpen(LinkServer::CanBus); }));
    EXPECT_TRUE(m_machine.client().isServerConnected());
    EXPECT_FALSE(m_interface.writeToCan(withId(0x00254419, "01")));

    EXPECT_TRUE(m_interface.openInterface(QString()));
    ASSERT_TRUE(waitUntil([this] { return m_machine.isUp(); }));
    EXPECT_EQ(m_machine.server().connections(LinkServer::CanBus), 2);
    expectWorking();
}

TEST_F(CanLinkTest, HalfRecordOfAnOpeningIsNotJoinedToTheNext)
{
    ASSERT_TRUE(m_machine.deliverHex("00 25 44 19 06 02 00"));
    m_interface.closeInterface();
    m_interface.openInterface(QString());
    ASSERT_TRUE(waitUntil([this] {
        return m_machine.isUp() && m_machine.server().connections(LinkServer::CanBus) == 2;
    }));
    expectWorking();
}

TEST_F(CanLinkTest, HalfRecordThatIsOnItsWayAtTheOpeningIsNotJoinedToTheNext)
{
    m_machine.server().send(LinkServer::CanBus, hex("00 25 44 19 06 02 00"));
    m_machine.server().socket(LinkServer::CanBus)->flush();
    QThread::msleep(s_arrivalMs);
    m_interface.closeInterface();
    m_interface.openInterface(QString());
    ASSERT_TRUE(waitUntil([this] {
        return m_machine.isUp() && m_machine.server().connections(LinkServer::CanBus) == 2;
    }));
    expectWorking();
}

// -- handlers that wait ---------------------------------------------------------------------------

TEST_F(CanLinkTest, EventLoopInAFramesHandlingHearsTheFramesBehindIt)
{
    std::string inLoop;
    QObject::connect(&m_interface, &AbstractCanInterface::frameReceived, &m_interface, [&] {
        if (m_received.size() != 1)
            return;
        QEventLoop loop;
        QObject::connect(&m_interface, &AbstractCanInterface::frameReceived, &loop, [&] {
            if (m_received.size() == 3)
                loop.quit();
        });
        QTimer::singleShot(5000, &loop, &QEventLoop::quit);
        loop.exec();
        inLoop = received();
    });
    ASSERT_TRUE(m_machine.deliverHex(s_pThreeRecords));
    EXPECT_EQ(m_machine.deliveries(), 1);
    EXPECT_EQ(inLoop, s_pThreeFrames);
    EXPECT_EQ(received(), s_pThreeFrames); // each once
    expectWorking();
}

/// The application's bus over the link, with what the boards say on their own.
class CanBusLinkTest : public ::testing::Test
{
protected:
    static constexpr int s_cpu = 0x4A8;
    static constexpr int s_board = 0x419;
    static constexpr int s_channelId = 3;

    CanBusLinkTest()
    {
        m_rule.setCommandsRule(CanDispatchRule::RuleAll);
        m_rule.setSourceAddressesRule(CanDispatchRule::RuleAll);
        m_pBus->addDispatchRule(&m_rule);
        EXPECT_TRUE(m_pBus->setup(static_cast<CanBus::CanInterfaceType>(4), CanBus::CanProtocolVy));
        QObject::connect(&m_node, &CanBusNode::answerAcknowledged, &m_node,
                         [this] { m_told.append(QStringLiteral("acknowledged")); });
        QObject::connect(&m_node, &CanBusNode::answerError, &m_node,
                         [this] { m_told.append(QStringLiteral("error")); });
        EXPECT_TRUE(waitUntil([this] { return m_machine.isUp(); }));
    }
    ~CanBusLinkTest() override
    {
        const AbstractCanInterface *const pInterface = m_pBus->canInterface();
        CanBus::deleteInstance();
        delete pInterface;
    }

    /// True when the board's server has got exactly the message without data with command 0x2a.
    bool sendsCommand()
    {
        m_machine.forget();
        return m_pBus->send(new CanMessage(s_board, 0x2a), &m_node) &&
               m_machine.isSent(hex("00 25 44 19 06 02 00 2a 00 00 28"));
    }

    LinkedMachine m_machine;
    CanDispatchRule m_rule; ///< passes everything
    CanBus *m_pBus = CanBus::instance();
    CanBusNode m_node{s_channelId};
    QStringList m_told;
};

TEST_F(CanBusLinkTest, NodeHearsTheAcknowledgeOfItsMessage)
{
    ASSERT_TRUE(sendsCommand());
    EXPECT_EQ(m_told, QStringList());
    EXPECT_TRUE(m_pBus->isInterfaceBusy());
    ASSERT_TRUE(m_machine.deliverHex("00 20 cc a8 06 02 00 01 00 2a 29"));
    EXPECT_EQ(m_told, QStringList{QStringLiteral("acknowledged")});
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
}

TEST_F(CanBusLinkTest, NodeHearsOfAMessageThatIsRefusedThreeTimes)
{
    m_pBus->send(new CanMessage(s_board, 0x2a), &m_node);
    for (int attempt = 1; attempt <= 3; ++attempt) {
        EXPECT_EQ(m_told, QStringList());
        ASSERT_TRUE(m_machine.isSent(hex("00 25 44 19 06 02 00 2a 00 00 28"))) << attempt;
        m_machine.forget();
        ASSERT_TRUE(m_machine.deliverHex("00 20 cc a8 06 02 00 02 00 2a 2a"));
    }
    EXPECT_EQ(m_told, QStringList{QStringLiteral("error")});
    ASSERT_TRUE(sendsCommand());
}

TEST_F(CanBusLinkTest, EachMessageOfAListLeavesWhenTheOneBeforeIsAcknowledged)
{
    QList<CanMessage *> messages = {new CanMessage(s_board, 0x2a), new CanMessage(s_board, 0x2b)};
    ASSERT_TRUE(m_pBus->send(messages, &m_node));
    ASSERT_TRUE(m_machine.isSent(hex("00 25 44 19 06 02 00 2a 00 00 28")));
    m_machine.forget();
    ASSERT_TRUE(m_machine.deliverHex("00 20 cc a8 06 02 00 01 00 2a 29"));
    ASSERT_TRUE(m_machine.isSent(hex("00 25 44 19 06 02 00 2b 00 00 29")));
    ASSERT_TRUE(m_machine.deliverHex("00 20 cc a8 06 02 00 01 00 2b 28"));
    EXPECT_EQ(m_told,
              QStringList({QStringLiteral("acknowledged"), QStringLiteral("acknowledged")}));
}

TEST_F(CanBusLinkTest, MessageWhoseFramesStandBehindAnotherCanBeAwaitedInItsHandling)
{
    const CanBytes payload = bytes("01 02 03 04 05 06 07 08 09 0a 0b 0c");
    const QList<CanFrame> awaited = framesOf(s_board, s_cpu, 0x26, payload);
    ASSERT_GT(awaited.size(), 1);
    QList<int> heard;
    bool hasCome = false;
    QObject::connect(&m_rule, &CanDispatchRule::messageMatched, &m_rule, [&](const auto &pMessage) {
        heard.append(pMessage->command());
        if (heard.size() == 1)
            hasCome = m_pBus->waitForExpectedAnswer({-1, -1, bytes("00 0c") + payload}, 5000);
    });
    const QByteArray stream =
        streamOf(framesOf(s_board, s_cpu, 0x62) + awaited + framesOf(s_board, s_cpu, 0x63));
    ASSERT_TRUE(m_machine.deliver(stream));
    EXPECT_EQ(m_machine.deliveries(), 1);
    EXPECT_TRUE(hasCome);
    ASSERT_TRUE(waitUntil([&] { return heard.size() == 3; }));
    EXPECT_EQ(heard, QList<int>({0x62, 0x26, 0x63}));
}

TEST_F(CanBusLinkTest, AcknowledgeBehindAMessageIsHeardInItsHandling)
{
    ASSERT_TRUE(sendsCommand());
    bool hasCome = false;
    QObject::connect(&m_rule, &CanDispatchRule::messageMatched, &m_rule, [&] {
        QEventLoop loop;
        QObject::connect(&m_node, &CanBusNode::answerAcknowledged, &loop, &QEventLoop::quit);
        QTimer::singleShot(5000, &loop, &QEventLoop::quit);
        loop.exec();
        hasCome = !m_told.isEmpty();
    });
    ASSERT_TRUE(m_machine.deliver(streamOf(framesOf(s_board, s_cpu, 0x62)) +
                                  hex("00 20 cc a8 06 02 00 01 00 2a 29")));
    EXPECT_TRUE(hasCome);
    EXPECT_EQ(m_told, QStringList{QStringLiteral("acknowledged")});
}
