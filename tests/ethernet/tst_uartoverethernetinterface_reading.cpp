#include "ethernet/uartoverethernetinterface.h"

#include "ethernet/paymentmachine.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QEventLoop>
#include <QTimer>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <utility>

class UartReadingTest : public ::testing::Test
{
protected:
    UartReadingTest() { m_machine.makeReady(); }

    struct Character
    {
        bool isRead;
        bool mode;
        unsigned char byte;
    };

    Character readCharacter()
    {
        Character character = {false, false, 0};
        character.isRead = m_uart.readByte(character.byte, character.mode);
        return character;
    }

    PaymentMachine m_machine;
    PaymentUart m_uart;
};

// -- 8 data bits ----------------------------------------------------------------------------------

TEST_F(UartReadingTest, NothingWaitsAtFirst)
{
    unsigned char byte = 0x5a;
    bool mode = true;
    const LogSpy log;
    EXPECT_FALSE(m_uart.readByte(byte));
    EXPECT_FALSE(m_uart.readByte(byte, mode));
    EXPECT_EQ(byte, 0x5a);
    EXPECT_TRUE(mode);
    EXPECT_TRUE(log.records().isEmpty());
}

TEST_F(UartReadingTest, OldestByteIsReadFirst)
{
    m_machine.deliver("00 ff");
    m_machine.deliver("80 7f");
    EXPECT_EQ(m_uart.readAll(), QByteArray::fromHex("00ff807f"));
}

TEST_F(UartReadingTest, With8DataBitsEachByteIsReportedAndCanThenBeRead)
{
    QList<QByteArray> read;
    QObject::connect(&m_uart, &AbstractHardwareInterface::polled, &m_uart,
                     [this, &read] { read.append(m_uart.readAll()); });
    m_machine.deliver("01 02 03");
    EXPECT_EQ(m_uart.events(), (QList<int>{0, 0, 0}));
    EXPECT_EQ(read, (QList<QByteArray>{QByteArray::fromHex("01"), QByteArray::fromHex("02"),
                                       QByteArray::fromHex("03")}));
}

TEST_F(UartReadingTest, With9DataBitsAChunkIsReportedOnceWhenItIsThereAsAWhole)
{
    m_uart.setDatabits(9);
    QList<QByteArray> read;
    QObject::connect(&m_uart, &AbstractHardwareInterface::polled, &m_uart,
                     [this, &read] { read.append(m_uart.readAll()); });
    m_machine.deliver("01 30 00 31");
    m_machine.deliver("00 32");
    EXPECT_EQ(m_uart.events(), (QList<int>{0, 0}));
    EXPECT_EQ(read,
              (QList<QByteArray>{QByteArray::fromHex("01300031"), QByteArray::fromHex("0032")}));
}

TEST_F(UartReadingTest, BytesThatComeInsideTheHandlingOfOthersKeepTheirPlace)
{
    QByteArray read;
    bool isNested = false;
    QObject::connect(&m_uart, &AbstractHardwareInterface::polled, &m_uart, [&] {
        if (!std::exchange(isNested, true))
            m_machine.deliver("03 04"); // the handler has run an event loop
        read.append(m_uart.readAll());
    });
    m_machine.deliver("01 02");
    EXPECT_EQ(read, QByteArray::fromHex("01020304"));
    EXPECT_EQ(m_uart.events(), (QList<int>{0, 0, 0, 0}));
}

TEST_F(UartReadingTest, BytesThatComeInAnEventLoopOfTheHandlingKeepTheirPlace)
{
    QByteArray read;
    QByteArray atEnd;
    bool isNested = false;
    QObject::connect(&m_uart, &AbstractHardwareInterface::polled, &m_uart, [&] {
        read.append(m_uart.readAll());
        if (std::exchange(isNested, true))
            return;
        QEventLoop loop;
        QTimer::singleShot(10, &loop, [this] { m_machine.deliver("04 05"); });
        QTimer::singleShot(20, &loop, [this] { m_machine.deliver("06"); });
        QTimer::singleShot(30, &loop, &QEventLoop::quit);
        loop.exec();
        atEnd = read;
    });
    m_machine.deliver("01 02 03");
    EXPECT_EQ(atEnd, QByteArray::fromHex("010203040506"));
    EXPECT_EQ(read, atEnd);
    EXPECT_EQ(m_uart.events(), (QList<int>{0, 0, 0, 0, 0, 0}));
    m_machine.deliver("07");
    EXPECT_EQ(read, QByteArray::fromHex("01020304050607"));
}

struct ReportCase
{
    const char *pName;
    int databits;
    int reports; ///< of a chunk of four bytes
};

class UartReports : public UartReadingTest, public ::testing::WithParamInterface<ReportCase>
{
};

TEST_P(UartReports, ComeForEachByteOrForAWholeChunk)
{
    m_uart.setDatabits(GetParam().databits);
    QList<int> sizes;
    QObject::connect(&m_uart, &AbstractHardwareInterface::polled, &m_uart,
                     [this, &sizes] { sizes.append(m_uart.readAll().size()); });
    m_machine.deliver("01 30 00 31");
    EXPECT_EQ(sizes, GetParam().reports == 1 ? QList<int>{4} : (QList<int>{1, 1, 1, 1}));
}

constexpr ReportCase s_reportCases[] = {
    {"Eight", 8, 4},    {"OneBelow", 7, 4},
    {"None", 0, 4},     {"Negative", -9, 4},
    {"Nine", 9, 1},     {"Ten", 10, 1},
    {"Sixteen", 16, 1}, {"Largest", std::numeric_limits<int>::max(), 1},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartReports, ::testing::ValuesIn(s_reportCases), caseName);

TEST_F(UartReadingTest, UartMayBeDeletedByWhoHearsOfAByte)
{
    auto pUart = std::make_unique<PaymentUart>();
    pUart->setConnected(true, true);
    pUart->setSerialSetupDone(true);
    int reports = 0;
    QObject context;
    QObject::connect(pUart.get(), &AbstractHardwareInterface::polled, &context, [&] {
        ++reports;
        pUart.reset();
    });
    m_machine.deliver("01 02 03");
    EXPECT_EQ(reports, 1);
    EXPECT_EQ(m_uart.events().size(), 3); // the other one
}

TEST_F(UartReadingTest, BytesOfALineThatIsNotReadyAreNotReported)
{
    m_uart.setSerialSetupDone(false);
    m_machine.deliver("01");
    EXPECT_TRUE(m_uart.events().isEmpty());
    m_uart.setSerialSetupDone(true);
    m_machine.deliver("02");
    EXPECT_EQ(m_uart.events(), QList<int>{0});
    EXPECT_EQ(m_uart.readAll(), QByteArray::fromHex("0102"));
}

// -- 9 data bits ----------------------------------------------------------------------------------

TEST_F(UartReadingTest, ModeByte0IsDataAnd1IsAnAddress)
{
    m_uart.setDatabits(9);
    m_machine.deliver("01 30 00 ff");
    Character character = readCharacter();
    EXPECT_TRUE(character.isRead);
    EXPECT_TRUE(character.mode);
    EXPECT_EQ(character.byte, 0x30);
    character = readCharacter();
    EXPECT_TRUE(character.isRead);
    EXPECT_FALSE(character.mode);
    EXPECT_EQ(character.byte, 0xff);
    EXPECT_FALSE(readCharacter().isRead);
}

TEST_F(UartReadingTest, Incoming0230LogsTheFlushingMessageAndLeavesTheListEmpty)
{
    m_uart.setDatabits(9);
    m_machine.deliver("02 30");
    const LogSpy log;
    EXPECT_FALSE(readCharacter().isRead);
    EXPECT_EQ(log.count("Mode byte is not address or data byte, flushing !", 3, Log::Hardware), 1);
    EXPECT_EQ(m_uart.readAll(), QByteArray());
}

struct ModeCase
{
    const char *pName;
    const char *pHex;
};

class UartBadModes : public UartReadingTest, public ::testing::WithParamInterface<ModeCase>
{
};

TEST_P(UartBadModes, FlushAllThatWaits)
{
    m_uart.setDatabits(9);
    m_machine.deliver(GetParam().pHex);
    const LogSpy log;
    EXPECT_FALSE(readCharacter().isRead);
    EXPECT_EQ(log.count("flushing !"), 1);
    EXPECT_EQ(m_uart.readAll(), QByteArray());
    m_machine.deliver("01 30");
    EXPECT_TRUE(readCharacter().isRead);
}

constexpr ModeCase s_modeCases[] = {
    {"OneAbove", "02 30"},
    {"Largest", "ff 30"},
    {"Lone", "02"},
    {"BeforeGoodOnes", "02 30 01 31 00 32"},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartBadModes, ::testing::ValuesIn(s_modeCases), caseName);

TEST_F(UartReadingTest, Incoming00AloneGivesFailedReadingSecondByte)
{
    m_uart.setDatabits(9);
    m_machine.deliver("00");
    const LogSpy log;
    EXPECT_FALSE(readCharacter().isRead);
    EXPECT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.count("Failed reading second byte !", 3), 1);
    EXPECT_EQ(m_uart.readAll(), QByteArray());
}

TEST_F(UartReadingTest, ModeWithoutItsByteIsTakenAndTheNextCharacterIsReadWhole)
{
    m_uart.setDatabits(9);
    m_machine.deliver("00");
    EXPECT_FALSE(readCharacter().isRead);
    m_machine.deliver("01 31");
    const Character character = readCharacter();
    EXPECT_TRUE(character.isRead);
    EXPECT_TRUE(character.mode);
    EXPECT_EQ(character.byte, 0x31);
}

// -- what is forgotten ----------------------------------------------------------------------------

TEST_F(UartReadingTest, ClearingTellsTheBytesThatWaited)
{
    m_machine.deliver("01 30 ff");
    unsigned char byte = 0;
    m_uart.readByte(byte);
    const LogSpy log;
    m_uart.clearIncomingData();
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.records().constFirst().level, 1);
    EXPECT_EQ(log.records().constFirst().text.toStdString(),
              "virtual void UartOverEthernetInterface::clearIncomingData() deleting 30ff");
    EXPECT_FALSE(m_uart.readByte(byte));
}

TEST_F(UartReadingTest, ClearingInsideTheReportOfAByteForgetsNoByteBehindIt)
{
    const LogSpy log;
    QObject::connect(&m_uart, &AbstractHardwareInterface::polled, &m_uart, [this] {
        if (m_uart.events().size() == 2)
            m_uart.clearIncomingData();
    });
    m_machine.deliver("01 02 03 04");
    EXPECT_EQ(log.count("deleting 0102", 1), 1);
    EXPECT_EQ(m_uart.events(), (QList<int>{0, 0, 0, 0}));
    EXPECT_EQ(m_uart.readAll(), QByteArray::fromHex("0304"));
}

TEST_F(UartReadingTest, LineThatIsLostInsideTheReportOfAByteForgetsThoseBehindItToo)
{
    QObject::connect(&m_uart, &AbstractHardwareInterface::polled, &m_uart, [this](int event) {
        if (event == 0)
            Q_EMIT m_machine.client().paymentConnectedChanged(false);
    });
    m_machine.deliver("01 02 03");
    EXPECT_EQ(m_uart.events(), (QList<int>{0, 2}));
    EXPECT_EQ(m_uart.readAll(), QByteArray());
}

TEST_F(UartReadingTest, ClearingNothingTellsNothing)
{
    const LogSpy log;
    m_uart.clearIncomingData();
    EXPECT_TRUE(log.records().isEmpty());
}

TEST_F(UartReadingTest, BytesThatNobodyReadsAreDroppedWhenTheyAreTooMany)
{
    PaymentMachine::deliver(m_machine.client(), QByteArray(64 * 1024 - 1, 'a'));
    const LogSpy log;
    m_machine.deliver("62");
    EXPECT_TRUE(log.records().isEmpty());
    m_machine.deliver("63");
    EXPECT_EQ(log.count("Nobody reads 65536 bytes", 3, Log::Payment), 1);
    EXPECT_EQ(m_uart.readAll(), QByteArray("c"));
}

TEST_F(UartReadingTest, CharactersThatNobodyReadsAreDroppedWholeAndTheLastChunkIsKept)
{
    m_uart.setDatabits(9);
    PaymentMachine::deliver(m_machine.client(), QByteArray(64 * 1024 - 2, '\0'));
    const LogSpy log;
    m_machine.deliver("01 30");
    EXPECT_TRUE(log.records().isEmpty());
    m_machine.deliver("01 31 00 32");
    EXPECT_EQ(log.count("Nobody reads 65536 bytes", 3, Log::Payment), 1);
    EXPECT_EQ(m_uart.readAll(), QByteArray::fromHex("01310032"));
}

TEST_F(UartReadingTest, ChunkOfTheLargestSizeIsRead)
{
    m_uart.setDatabits(9);
    const QByteArray chunk(64 * 1024, '\1');
    for (int i = 0; i < 3; ++i) {
        const LogSpy log;
        PaymentMachine::deliver(m_machine.client(), chunk);
        EXPECT_TRUE(log.records().isEmpty());
        EXPECT_EQ(m_uart.readAll(), chunk);
    }
}
