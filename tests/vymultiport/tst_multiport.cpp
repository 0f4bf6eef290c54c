#include "multiport.h"

#include "support/casename.h"
#include "support/logspy.h"
#include "vymultiport/linkserver.h"

#include <QMetaEnum>
#include <QPointer>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>

// -- what it is made with -------------------------------------------------------------------------

struct ServerCase
{
    const char *pName;
    const char *pServer;
    int mode;
};

using MultiportServers = ::testing::TestWithParam<ServerCase>;

TEST_P(MultiportServers, AreKeptAsTheyAreTold)
{
    const LogSpy log;
    const Multiport client(QString::fromUtf8(GetParam().pServer), GetParam().mode, nullptr);
    EXPECT_EQ(client.server().toStdString(), GetParam().pServer);
    EXPECT_EQ(client.mode(), GetParam().mode);
    EXPECT_EQ(client.parent(), nullptr);
    EXPECT_FALSE(client.isStarted());
    EXPECT_TRUE(log.records().isEmpty());
}

constexpr ServerCase s_serverCases[] = {
    {"Local", "127.0.0.1", Multiport::ModeLocal},
    {"Internal", "192.168.7.2", Multiport::ModeInternal},
    {"NameAndPort", "bench:4000", Multiport::ModeLocal},
    {"Empty", "", Multiport::ModeInternal},
    {"ModeOneBelow", "bench", 0},
    {"ModeOneAbove", "bench", 3},
};
INSTANTIATE_TEST_SUITE_P(Rows, MultiportServers, ::testing::ValuesIn(s_serverCases), caseName);

TEST(MultiportTest, BelongsToItsParent)
{
    auto pParent = std::make_unique<QObject>();
    const QPointer<Multiport> pClient(
        new Multiport(QStringLiteral("bench"), Multiport::ModeLocal, pParent.get()));
    EXPECT_EQ(pClient->parent(), pParent.get());
    pParent.reset();
    EXPECT_TRUE(pClient.isNull());
}

TEST(MultiportTest, ModesAreRegisteredWithTheirNumbers)
{
    const QMetaEnum modes = QMetaEnum::fromType<Multiport::Mode>();
    ASSERT_EQ(modes.keyCount(), 2);
    EXPECT_EQ(modes.keyToValue("ModeLocal"), 1);
    EXPECT_EQ(modes.keyToValue("ModeInternal"), 2);
}

// -- start and stop -------------------------------------------------------------------------------

/// Nobody listens there, and no name is looked up: "tcpmux".
const QString s_nowhere = QStringLiteral("127.0.0.1:1");

TEST(MultiportTest, InitStartsAndWithFalseStops)
{
    Multiport client(s_nowhere, Multiport::ModeLocal, nullptr);
    for (const bool isOn : {true, true, false, false, true}) {
        client.init(isOn);
        EXPECT_EQ(client.isStarted(), isOn);
    }
    EXPECT_EQ(client.server(), s_nowhere);
    EXPECT_EQ(client.mode(), 1);
}

// -- requests without a link ----------------------------------------------------------------------

struct OutputCase
{
    const char *pName;
    void (Multiport::*pOperation)(int, bool);
    int output;
    bool isOn;
    int level;
    const char *pText;
};

using MultiportOutputs = ::testing::TestWithParam<OutputCase>;

TEST_P(MultiportOutputs, AreLostWithALineWhileThereIsNoLink)
{
    for (const bool isStarted : {false, true}) {
        Multiport client(s_nowhere, Multiport::ModeInternal, nullptr);
        client.init(isStarted);
        const LogSpy log;
        (client.*GetParam().pOperation)(GetParam().output, GetParam().isOn);
        EXPECT_EQ(log.count(GetParam().pText, GetParam().level, Log::Hardware), 1);
        EXPECT_EQ(client.isStarted(), isStarted);
    }
}

constexpr OutputCase s_outputCases[] = {
    {"On", &Multiport::setOutputEnabled, 9, true, 3,
     " No link to the multiport server, command 30 09 01 not sent"},
    {"Off", &Multiport::setOutputEnabled, 255, false, 3,
     " No link to the multiport server, command 30 ff 00 not sent"},
    {"BlinkOn", &Multiport::setBlinkOutput, 9, true, 3,
     " No link to the multiport server, command 31 09 01 not sent"},
    {"BlinkOff", &Multiport::setBlinkOutput, 0, false, 3,
     " No link to the multiport server, command 31 00 00 not sent"},
    {"OneBelow", &Multiport::setOutputEnabled, -1, true, 4, " No output -1 but expected 0 to 255"},
    {"OneAbove", &Multiport::setOutputEnabled, 256, true, 4,
     " No output 256 but expected 0 to 255"},
    {"BlinkOneBelow", &Multiport::setBlinkOutput, -1, false, 4,
     " No output -1 but expected 0 to 255"},
    {"BlinkLargest", &Multiport::setBlinkOutput, std::numeric_limits<int>::max(), true, 4,
     " No output 2147483647 but expected 0 to 255"},
};
INSTANTIATE_TEST_SUITE_P(Rows, MultiportOutputs, ::testing::ValuesIn(s_outputCases), caseName);

// -- addresses ------------------------------------------------------------------------------------

class MultiportBadAddresses : public ::testing::TestWithParam<const char *>
{
};

TEST_P(MultiportBadAddresses, AreLoggedAndNothingIsConnected)
{
    Multiport client(QString::fromUtf8(GetParam()), Multiport::ModeLocal, nullptr);
    int signalled = 0;
    QObject::connect(&client, &Multiport::multiportServerConnectedChanged, &client,
                     [&](bool) { ++signalled; });
    const LogSpy log;
    client.setEnabled(Multiport::CanBusInterface);
    client.init(true);
    EXPECT_EQ(log.count("but expected a host", 4, Log::Hardware), 1);
    waitUntil([] { return false; }, 50);
    EXPECT_EQ(log.count("", 4) + log.count("", 3), 1); // and nothing is tried
    EXPECT_EQ(signalled, 0);
    EXPECT_FALSE(client.writeToCanBus("x"));
    client.init(false);
}

INSTANTIATE_TEST_SUITE_P(Rows, MultiportBadAddresses,
                         ::testing::Values("", ":", ":4002", "host:", "a:b:c", "host:0",
                                           "host:65536", "host:100000", "host:-1", "host:4002x",
                                           "host: 1", "two words", "[::1]:70000", "[::1]:0", "[::1",
                                           "[]:1", "::1]:4002", "[::1]4002"));

TEST(MultiportAddressTest, Ipv6AddressWithAPortIsConnected)
{
    LinkServer server(QHostAddress::LocalHostIPv6);
    ASSERT_TRUE(server.start());
    Multiport client(server.address(), Multiport::ModeLocal, nullptr);
    client.setEnabled(Multiport::CanBusInterface);
    client.init(true);
    ASSERT_TRUE(waitUntil([&] { return client.isCanBusConnected(); }));
}

TEST(MultiportAddressTest, NameWithAPortIsConnected)
{
    LinkServer server;
    ASSERT_TRUE(server.start());
    Multiport client(QStringLiteral("localhost:%1").arg(server.controlPort()), Multiport::ModeLocal,
                     nullptr);
    client.setEnabled(Multiport::CanBusInterface);
    client.init(true);
    ASSERT_TRUE(waitUntil([&] { return client.isCanBusConnected(); }));
}

TEST(MultiportAddressTest, NameThatNobodyHasIsTriedAgainAndLoggedOnce)
{
    const LogSpy log;
    Multiport client(QStringLiteral("nobody.invalid:4002"), Multiport::ModeLocal, nullptr);
    client.init(true);
    ASSERT_TRUE(waitUntil([&] { return log.count("No link to the multiport server", 3) == 1; }));
    waitUntil([] { return false; }, 500);
    EXPECT_EQ(log.count("No link to the multiport server", 3), 1);
    EXPECT_FALSE(client.isServerConnected());
}
