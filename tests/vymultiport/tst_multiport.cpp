#include "multiport.h"

#include "support/casename.h"
#include "support/logspy.h"

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

TEST(MultiportTest, InitStartsAndWithFalseStops)
{
    Multiport client(QStringLiteral("bench"), Multiport::ModeLocal, nullptr);
    const LogSpy log;
    for (const bool isOn : {true, true, false, false, true}) {
        client.init(isOn);
        EXPECT_EQ(client.isStarted(), isOn);
    }
    EXPECT_EQ(client.server(), QStringLiteral("bench"));
    EXPECT_EQ(client.mode(), 1);
    EXPECT_TRUE(log.records().isEmpty());
}

// -- outputs without a link -----------------------------------------------------------------------

struct OutputCase
{
    const char *pName;
    void (Multiport::*pOperation)(int, bool);
    int output;
    bool isOn;
    const char *pText;
};

using MultiportOutputs = ::testing::TestWithParam<OutputCase>;

TEST_P(MultiportOutputs, AreLostWithAWarningWhileThereIsNoLink)
{
    for (const bool isStarted : {false, true}) {
        Multiport client(QStringLiteral("bench"), Multiport::ModeInternal, nullptr);
        client.init(isStarted);
        const LogSpy log;
        (client.*GetParam().pOperation)(GetParam().output, GetParam().isOn);
        ASSERT_EQ(log.records().size(), 1);
        const LogRecord record = log.records().constFirst();
        EXPECT_EQ(record.level, 3);
        EXPECT_EQ(record.module, Log::Hardware);
        EXPECT_EQ(record.text.toStdString(), GetParam().pText);
        EXPECT_EQ(client.isStarted(), isStarted);
    }
}

constexpr OutputCase s_outputCases[] = {
    {"On", &Multiport::setOutputEnabled, 9, true,
     "void Multiport::setOutputEnabled(int, bool) No link to the multiport server, output 9 not "
     "set to true"},
    {"Off", &Multiport::setOutputEnabled, 13, false,
     "void Multiport::setOutputEnabled(int, bool) No link to the multiport server, output 13 not "
     "set to false"},
    {"OutputMinusOne", &Multiport::setOutputEnabled, -1, true,
     "void Multiport::setOutputEnabled(int, bool) No link to the multiport server, output -1 not "
     "set to true"},
    {"BlinkOn", &Multiport::setBlinkOutput, 9, true,
     "void Multiport::setBlinkOutput(int, bool) No link to the multiport server, blinking of "
     "output 9 not set to true"},
    {"BlinkOff", &Multiport::setBlinkOutput, 0, false,
     "void Multiport::setBlinkOutput(int, bool) No link to the multiport server, blinking of "
     "output 0 not set to false"},
    {"BlinkLargest", &Multiport::setBlinkOutput, std::numeric_limits<int>::max(), true,
     "void Multiport::setBlinkOutput(int, bool) No link to the multiport server, blinking of "
     "output 2147483647 not set to true"},
};
INSTANTIATE_TEST_SUITE_P(Rows, MultiportOutputs, ::testing::ValuesIn(s_outputCases), caseName);
