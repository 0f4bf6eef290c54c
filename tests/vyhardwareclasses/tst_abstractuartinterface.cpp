#include "abstractuartinterface.h"

#include "support/casename.h"
#include "support/logfolder.h"
#include "support/logspy.h"

#include <QStringList>
#include <gtest/gtest.h>
#include <limits>

namespace {

/// A line that writes down what it is asked for and takes what the test lets it take.
class RecordingUart : public AbstractUartInterface
{
public:
    RecordingUart()
        : AbstractUartInterface(QStringLiteral("coins"), QStringLiteral("line.txt"), Log::Payment,
                                {1.0, 1, false}, nullptr)
    {
    }

    bool open(const QString &) override { return true; }
    bool close() override { return true; }
    bool writeByte(const quint8 &) override { return true; }
    bool writeBytes(const QByteArray &) override { return true; }
    bool writeByte(const quint8 &, const bool &) override { return true; }
    bool writeBytes(const QVector<QPair<bool, unsigned char>> &) override { return true; }
    bool readByte(unsigned char &) override { return false; }
    bool readByte(unsigned char &, bool &) override { return false; }
    void clearIncomingData() override {}
    void pollingLoop() override {}

    using AbstractUartInterface::logReceived;
    using AbstractUartInterface::logSent;

    bool m_takes = true;
    QStringList m_calls;

protected:
    bool onSetBaudrate(int baudrate) override
    {
        m_calls.append(QStringLiteral("baud rate %1, kept %2").arg(baudrate).arg(this->baudrate()));
        return m_takes;
    }
    bool onSetDatabits(int databits) override
    {
        m_calls.append(QStringLiteral("data bits %1, kept %2").arg(databits).arg(this->databits()));
        return m_takes;
    }
};

} // namespace

TEST(AbstractUartInterfaceTest, BeginsWith9600BaudEightBitsAndAFifthOfASecond)
{
    const RecordingUart uart;
    EXPECT_EQ(uart.baudrate(), 9600);
    EXPECT_EQ(uart.databits(), 8);
    EXPECT_EQ(uart.pollTimeoutMs(), 200);
    EXPECT_EQ(uart.name(), QStringLiteral("coins"));
    EXPECT_TRUE(uart.m_calls.isEmpty());
}

TEST(AbstractUartInterfaceTest, SettersKeepTheValueAndThenAskTheLine)
{
    RecordingUart uart;
    EXPECT_TRUE(uart.setBaudrate(19200));
    EXPECT_TRUE(uart.setDatabits(9));
    EXPECT_EQ(uart.m_calls, (QStringList{QStringLiteral("baud rate 19200, kept 19200"),
                                         QStringLiteral("data bits 9, kept 9")}));
}

TEST(AbstractUartInterfaceTest, WhatTheLineCannotTakeIsFalseAndKeptAllTheSame)
{
    RecordingUart uart;
    uart.m_takes = false;
    EXPECT_FALSE(uart.setBaudrate(19200));
    EXPECT_FALSE(uart.setDatabits(9));
    EXPECT_EQ(uart.baudrate(), 19200);
    EXPECT_EQ(uart.databits(), 9);
}

TEST(AbstractUartInterfaceTest, LineIsAskedAgainForWhatItHasAlready)
{
    RecordingUart uart;
    uart.setDatabits(8);
    uart.setDatabits(8);
    EXPECT_EQ(uart.m_calls.size(), 2);
}

struct TimeoutCase
{
    const char *pName;
    int timeoutMs;
    int keptMs;
};

using UartPollTimeouts = ::testing::TestWithParam<TimeoutCase>;

TEST_P(UartPollTimeouts, AreNeverNegative)
{
    RecordingUart uart;
    uart.setPollTimeoutMs(GetParam().timeoutMs);
    EXPECT_EQ(uart.pollTimeoutMs(), GetParam().keptMs);
}

constexpr TimeoutCase s_timeoutCases[] = {
    {"Smallest", std::numeric_limits<int>::min(), 0},
    {"OneBelowNothing", -1, 0},
    {"Nothing", 0, 0},
    {"One", 1, 1},
    {"Largest", std::numeric_limits<int>::max(), std::numeric_limits<int>::max()},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartPollTimeouts, ::testing::ValuesIn(s_timeoutCases), caseName);

TEST(AbstractUartInterfaceTest, BytesInBothDirectionsGoToTheRotatingLogWhileItIsOn)
{
    const LogFolder folder;
    RecordingUart uart;
    uart.logSent(QByteArray::fromHex("0130"));
    EXPECT_TRUE(folder.names().isEmpty());
    uart.setLogInFile(true);
    uart.logSent(QByteArray::fromHex("0130"));
    uart.logReceived(QByteArray::fromHex("00"));
    uart.setLogInFile(false);
    uart.logReceived(QByteArray::fromHex("ff"));
    EXPECT_EQ(folder.names(), QStringList{QStringLiteral("line.txt")});
    const QStringList lines = folder.lines(QStringLiteral("line.txt"));
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines.at(0).endsWith(QStringLiteral("Z coins sent: 01 30")));
    EXPECT_TRUE(lines.at(1).endsWith(QStringLiteral("Z coins received: 00")));
}

TEST(AbstractUartInterfaceTest, BytesGoToTheLogOfTheModuleWhileThatIsOn)
{
    const LogFolder folder;
    RecordingUart uart;
    const LogSpy log;
    uart.logReceived(QByteArray::fromHex("01"));
    uart.setLogInDebug(true);
    uart.logReceived(QByteArray::fromHex("00ff"));
    EXPECT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.count("coins received: 00 ff", 0, Log::Payment), 1);
    EXPECT_TRUE(folder.names().isEmpty());
}
