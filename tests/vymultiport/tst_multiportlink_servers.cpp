#include "multiport.h"

#include "support/casename.h"
#include "support/messagespy.h"
#include "vymultiport/linkbench.h"

#include <QElapsedTimer>
#include <algorithm>
#include <gtest/gtest.h>
#include <ostream>

using namespace multiportlink;

namespace {

QByteArray hex(const char *pHex)
{
    return QByteArray::fromHex(pHex);
}

} // namespace

using MultiportServerTest = LinkBench;

// -- servers that are not there, or not ours ------------------------------------------------------

TEST_F(MultiportServerTest, GoodbyeIsLoggedOnceForEachEpisode)
{
    const LogSpy log;
    const MessageSpy messages;
    m_server.refuse(3, "there is a controller already");
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return m_server.controlConnections() >= 4; }));
    EXPECT_EQ(log.count("there is a controller already"), 1);
    EXPECT_EQ(log.count("there is a controller already", 3, Log::Hardware), 1);
    EXPECT_TRUE(m_journal.isEmpty());

    m_server.welcome();
    ASSERT_TRUE(waitUntil([this] { return isUp() && m_server.heartbeats() > 0; }));
    m_server.refuse(10, "the server stops");
    m_server.dropControl();
    const int connections = m_server.controlConnections();
    ASSERT_TRUE(waitUntil([=] { return m_server.controlConnections() >= connections + 3; }));
    // The loss is what the second episode began with.
    EXPECT_EQ(log.count("No link to the multiport server", 3, Log::Hardware), 2);
    pass(1100); // a heartbeat would have been due
    const auto all = messages.messages();
    for (const MessageSpy::Message &message : all)
        EXPECT_NE(message.category, QStringLiteral("default")) << message.text.toStdString();
}

TEST_F(MultiportServerTest, LinkThatWasUpIsTriedAgainAtOnceHoweverLongItTookToCome)
{
    m_server.refuse(4, "too many clients");
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return m_server.controlConnections() == 4; }));
    m_server.welcome();
    ASSERT_TRUE(waitUntil([this] { return isUp() && m_server.heartbeats() > 0; }));
    m_server.dropControl();
    ASSERT_TRUE(waitUntil([this] { return isDown(); }));
    QElapsedTimer elapsed;
    elapsed.start();
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_LT(elapsed.elapsed(), 500); // the next pause would have been 0.6 s at least
}

// A server that welcomes and falls at once is not asked ten times a second.
TEST_F(MultiportServerTest, LinkThatLivedForLessThanAHeartbeatDoesNotShortenThePauses)
{
    m_server.refuse(4, "too many clients");
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return m_server.controlConnections() == 4; }));
    m_server.welcome();
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    QElapsedTimer elapsed;
    elapsed.start();
    m_server.dropControl();
    ASSERT_TRUE(waitUntil([this] { return isDown(); }));
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    EXPECT_EQ(m_server.heartbeats(), 0);
    EXPECT_GE(elapsed.elapsed(), 600); // the fourth pause: 0.8 s, less a quarter at most
}

TEST_F(MultiportServerTest, GoodbyeOnALinkThatIsUpEndsItAndIsLogged)
{
    connectAll();
    const LogSpy log;
    m_server.sendControl(encode(Goodbye{9, QStringLiteral("too much waits")}));
    ASSERT_TRUE(waitUntil([this] { return m_journal.contains(QStringLiteral("server 0")); }));
    EXPECT_EQ(log.count("too much waits", 3, Log::Hardware), 1);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
}

TEST_F(MultiportServerTest, PausesBetweenAttemptsGrowToOneAndAHalfSeconds)
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

TEST_F(MultiportServerTest, WhatComesBeforeTheWelcomeIsNotTold)
{
    int events = 0;
    QObject::connect(&client(), &Multiport::daddUpperMicroswitchStatus, &client(),
                     [&](unsigned char) { ++events; });
    m_server.setGreeting(
        encode(Status{1, 30, 0}) + encode(Event{7, "1"}) +
        encode(Welcome{1, Role::Controller, m_server.port(LinkServer::CanBus), 1}));
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    pass(50);
    EXPECT_EQ(m_journal, QStringList{QStringLiteral("server 1")});
    EXPECT_EQ(events, 0);
}

// -- silence --------------------------------------------------------------------------------------

TEST_F(MultiportServerTest, SilentServerIsFoundWithinThreeHeartbeats)
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

TEST_F(MultiportServerTest, ServerThatNeverAnswersTheHelloIsLeft)
{
    m_server.setGreeting(QByteArray());
    client().init(true);
    ASSERT_TRUE(waitUntil([this] { return m_server.controlConnections() == 2; }));
    EXPECT_TRUE(m_journal.isEmpty());
    m_server.welcome();
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
}

TEST_F(MultiportServerTest, IdleLinkIsKeptByAHeartbeatEachSecond)
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
