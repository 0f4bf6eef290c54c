#include "ethernet/uartoverethernetinterface.h"

#include "ethernet/paymentmachine.h"
#include "support/casename.h"
#include "support/exittest.h"
#include "support/logfolder.h"
#include "support/logspy.h"

#include <QMetaEnum>
#include <QPointer>
#include <QSignalSpy>
#include <gtest/gtest.h>

// Construction, opening and closing, the three flags, and writes that do not reach a line. What a
// server gets is the business of tst_uartlink.cpp.
class UartOverEthernetTest : public ::testing::Test
{
protected:
    const LogFolder m_folder;
    PaymentMachine m_machine;
    PaymentUart m_uart;
};

TEST_F(UartOverEthernetTest, IsAUartWithItsNameItsParentAndTheUsualSettings)
{
    QPointer<AbstractUartInterface> pUart;
    {
        QObject parent;
        pUart = new UartOverEthernetInterface(QStringLiteral("coins"), {1.0, 1, false}, &parent);
        EXPECT_EQ(pUart->name(), QStringLiteral("coins"));
        EXPECT_EQ(pUart->parent(), &parent);
        EXPECT_EQ(pUart->databits(), 8);
    }
    EXPECT_TRUE(pUart.isNull());
}

TEST_F(UartOverEthernetTest, PollResultsHaveTheirNumbers)
{
    const QMetaEnum results = QMetaEnum::fromType<UartOverEthernetInterface::PollResult>();
    ASSERT_EQ(results.keyCount(), 3);
    EXPECT_EQ(results.keyToValue("ResultDataReady"), 0);
    EXPECT_EQ(results.keyToValue("ResultTimeout"), 1);
    EXPECT_EQ(results.keyToValue("ResultError"), 2);
}

TEST_F(UartOverEthernetTest, LogOfTheBytesIsPaymentSocketOnTheModulePayment)
{
    m_uart.setLogInFile(true);
    m_uart.setLogInDebug(true);
    const LogSpy log;
    m_machine.deliver("01 30");
    EXPECT_EQ(m_folder.names(), QStringList{QStringLiteral("paymentSocket.txt")});
    const QStringList lines = m_folder.lines(QStringLiteral("paymentSocket.txt"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.first().endsWith(QStringLiteral("payment received: 01 30")));
    EXPECT_EQ(log.count("payment received: 01 30", 0, Log::Payment), 1);
}

// -- open and close -------------------------------------------------------------------------------

TEST_F(UartOverEthernetTest, OpenAsksTheClientForThePaymentLineAndNoOther)
{
    EXPECT_FALSE(m_machine.isPaymentOpen());
    const LogSpy log;
    EXPECT_TRUE(m_uart.open(QStringLiteral("any name")));
    EXPECT_TRUE(m_machine.client().isOpen(static_cast<Multiport::Interface>(3)));
    EXPECT_FALSE(m_machine.client().isOpen(Multiport::CanBusInterface));
    EXPECT_TRUE(m_uart.open(QString())); // it is open, as was asked for
    EXPECT_TRUE(log.records().isEmpty());
}

struct CloseCase
{
    const char *pName;
    bool isServerConnected;
    bool isPaymentConnected;
    bool isClosed;
};

class UartCloses : public UartOverEthernetTest, public ::testing::WithParamInterface<CloseCase>
{
};

TEST_P(UartCloses, OnlyWhileServerAndLineAreConnected)
{
    m_uart.open(QString());
    m_machine.client().setEnabled(Multiport::CanBusInterface);
    m_uart.setConnected(GetParam().isServerConnected, GetParam().isPaymentConnected);
    EXPECT_EQ(m_uart.close(), GetParam().isClosed);
    EXPECT_EQ(m_machine.isPaymentOpen(), !GetParam().isClosed);
    EXPECT_TRUE(m_machine.client().isOpen(Multiport::CanBusInterface));
}

constexpr CloseCase s_closeCases[] = {
    {"NoServer", false, false, false},
    {"NoLine", true, false, false},
    {"LineWithoutServer", false, true, false},
    {"Both", true, true, true},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartCloses, ::testing::ValuesIn(s_closeCases), caseName);

// -- the three flags ------------------------------------------------------------------------------

struct FlagsCase
{
    const char *pName;
    bool isServerConnected;
    bool isPaymentConnected;
    bool isSerialSetupDone;
    bool isReady;
};

class UartFlags : public UartOverEthernetTest, public ::testing::WithParamInterface<FlagsCase>
{
protected:
    void SetUp() override
    {
        m_uart.setConnected(GetParam().isServerConnected, GetParam().isPaymentConnected);
        m_uart.setSerialSetupDone(GetParam().isSerialSetupDone);
    }
};

TEST_P(UartFlags, TogetherMakeTheLineReady)
{
    EXPECT_EQ(m_uart.isReady(), GetParam().isReady);
}

TEST_P(UartFlags, LetPollResultsPass)
{
    m_uart.pollingLoopResult(UartOverEthernetInterface::ResultDataReady);
    m_uart.pollingLoopResult(UartOverEthernetInterface::ResultTimeout);
    m_uart.pollingLoopResult(UartOverEthernetInterface::ResultError);
    EXPECT_EQ(m_uart.events(), GetParam().isReady ? (QList<int>{0, 1, 2}) : QList<int>());
}

TEST_P(UartFlags, LetNoOtherWriteReachTheClient)
{
    const LogSpy log;
    const QByteArray two = QByteArray::fromHex("0130");
    EXPECT_FALSE(m_uart.writeByte(0x30));
    EXPECT_FALSE(m_uart.writeBytes(two));
    m_uart.setDatabits(9);
    EXPECT_FALSE(m_uart.writeByte(0x30, true));
    EXPECT_FALSE(m_uart.writeBytes(QVector<QPair<bool, unsigned char>>{{true, 0x30}, {false, 1}}));
    // The client has no link, so that it refuses what reaches it.
    EXPECT_EQ(log.count("bytes written", 3, Log::Payment), GetParam().isReady ? 4 : 0);
    EXPECT_EQ(log.count("Only -1 of 1 bytes written"), GetParam().isReady ? 1 : 0);
    EXPECT_EQ(log.count("Only -1 of 2 bytes written"), GetParam().isReady ? 2 : 0);
    EXPECT_EQ(log.count("Only -1 of 4 bytes written"), GetParam().isReady ? 1 : 0);
}

constexpr FlagsCase s_flagsCases[] = {
    {"None", false, false, false, false},        {"SetupOnly", false, false, true, false},
    {"LineOnly", false, true, false, false},     {"LineAndSetup", false, true, true, false},
    {"ServerOnly", true, false, false, false},   {"ServerAndSetup", true, false, true, false},
    {"ServerAndLine", true, true, false, false}, {"All", true, true, true, true},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartFlags, ::testing::ValuesIn(s_flagsCases), caseName);

TEST_F(UartOverEthernetTest, ClientsSignalsChangeOneFlagEach)
{
    const QSignalSpy ready(&m_uart, &UartOverEthernetInterface::readyChanged);
    m_uart.setSerialSetupDone(true);
    Q_EMIT m_machine.client().paymentConnectedChanged(true);
    EXPECT_FALSE(m_uart.isReady());
    Q_EMIT m_machine.client().multiportServerConnectedChanged(true);
    EXPECT_TRUE(m_uart.isReady());
    ASSERT_EQ(ready.count(), 1);
    EXPECT_TRUE(ready.first().first().toBool());
}

// -- the setup's termination status ---------------------------------------------------------------

struct StatusCase
{
    const char *pName;
    unsigned char command;
    unsigned char status;
    bool isReadyAfter; ///< when the line was not set up before
    bool isReadyStill; ///< when it was
};

class UartStatuses : public UartOverEthernetTest, public ::testing::WithParamInterface<StatusCase>
{
};

TEST_P(UartStatuses, OfTheSetupAloneDecideWhetherItIsDone)
{
    m_machine.connectLine();
    m_machine.terminate(GetParam().command, GetParam().status);
    EXPECT_EQ(m_uart.isReady(), GetParam().isReadyAfter);
    m_uart.setSerialSetupDone(true);
    const QSignalSpy ready(&m_uart, &UartOverEthernetInterface::readyChanged);
    m_machine.terminate(GetParam().command, GetParam().status);
    EXPECT_EQ(m_uart.isReady(), GetParam().isReadyStill);
    EXPECT_EQ(ready.count(), GetParam().isReadyStill ? 0 : 1);
}

constexpr StatusCase s_statusCases[] = {
    {"Done", 20, 0, true, true},           {"Rejected", 20, 1, false, false},
    {"NoDevice", 20, 5, false, false},     {"Failed", 20, 6, false, false},
    {"Unknown", 20, 255, false, false},    {"ClaimDone", 10, 0, false, true},
    {"ClaimRefused", 10, 6, false, true},  {"OneBelow", 19, 0, false, true},
    {"OneAbove", 21, 1, false, true},      {"OutputDone", 30, 0, false, true},
    {"OutputRefused", 30, 5, false, true},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartStatuses, ::testing::ValuesIn(s_statusCases), caseName);

TEST_F(UartOverEthernetTest, FailedSetupIsTold)
{
    m_machine.connectLine();
    const LogSpy log;
    m_machine.terminate(20, 6);
    EXPECT_EQ(log.count("Serial line not set up, status 6", 3, Log::Payment), 1);
    m_machine.terminate(20, 0);
    EXPECT_EQ(log.records().size(), 1);
}

TEST_F(UartOverEthernetTest, SetupThatEndsWhileTheLineIsGoneDoesNotCountForTheNextConnection)
{
    m_machine.makeReady();
    Q_EMIT m_machine.client().paymentConnectedChanged(false);
    m_machine.terminate(20, 0); // of what was asked for before
    Q_EMIT m_machine.client().paymentConnectedChanged(true);
    EXPECT_FALSE(m_uart.isReady());
    m_machine.terminate(20, 0);
    EXPECT_TRUE(m_uart.isReady());
}

// -- writes that fail -----------------------------------------------------------------------------

TEST_F(UartOverEthernetTest, WriteByte30TrueWith8DataBitsLogsCantWriteModeBit)
{
    m_machine.makeReady();
    const LogSpy log;
    EXPECT_FALSE(m_uart.writeByte(0x30, true));
    EXPECT_EQ(log.texts(),
              QStringList{QStringLiteral(
                  "virtual bool UartOverEthernetInterface::writeByte(const quint8&, const bool&) "
                  "Can't write mode bit with 8 data bits !")});
}

TEST_F(UartOverEthernetTest, SequenceOfCharactersWithoutNineDataBitsIsRefusedToo)
{
    m_machine.makeReady();
    m_uart.setDatabits(7);
    const LogSpy log;
    EXPECT_FALSE(m_uart.writeBytes(QVector<QPair<bool, unsigned char>>{{true, 0x30}}));
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.count("UartOverEthernetInterface::writeBytes("), 1);
    EXPECT_EQ(log.count("Can't write mode bit with 7 data bits !", 3, Log::Hardware), 1);
}

TEST_F(UartOverEthernetTest, WriteThatFailsLeavesTheCallersBytesAlone)
{
    m_machine.makeReady();
    QByteArray bytes = QByteArray::fromHex("0130");
    const LogSpy log;
    EXPECT_FALSE(m_uart.writeAndFlushData(bytes));
    EXPECT_EQ(bytes, QByteArray::fromHex("0130"));
    EXPECT_EQ(log.count("Only -1 of 2 bytes written", 3, Log::Payment), 1);
}

// -- what ends the process ------------------------------------------------------------------------

namespace {

/// A client without operations that could be invoked.
class DeafMultiport : public Multiport
{
public:
    explicit DeafMultiport(QObject *pParent)
        : Multiport(QStringLiteral("localhost"), ModeLocal, pParent)
    {
    }

    const QMetaObject *metaObject() const override { return &QObject::staticMetaObject; }
};

struct DeafMachine
{
    DeafMachine()
    {
        machine.environment().setMultiport(new DeafMultiport(&machine.environment()));
        machine.client().setEnabled(Multiport::PaymentInterface);
    }

    PaymentMachine machine;
    PaymentUart uart;
};

void makeWithoutEnvironment()
{
    const PaymentUart uart;
}

void makeWithoutClient()
{
    const TestMachine machine;
    const PaymentUart uart;
}

void openDeaf()
{
    DeafMachine deaf;
    deaf.uart.open(QString());
}

void setDeafDatabits()
{
    DeafMachine deaf;
    deaf.uart.setDatabits(9);
}

void setDeafBaudrate()
{
    DeafMachine deaf;
    deaf.uart.setBaudrate(9600);
}

void connectDeaf()
{
    DeafMachine deaf;
    deaf.uart.setConnected(true, true);
}

void closeDeaf()
{
    DeafMachine deaf;
    deaf.machine.client().setEnabled(Multiport::PaymentInterface, false); // nothing to set up
    deaf.uart.setConnected(true, true);
    deaf.uart.close();
}

struct FatalCase
{
    const char *pName;
    void (*pStep)();
};

} // namespace

TEST(UartOverEthernetFatal, ConstructionWithoutAnEnvironmentEndsTheProcess)
{
    EXPECT_FATAL_ASSERTION(
        makeWithoutEnvironment(), "gHardwareEnv->multiport()->paymentInterface()",
        "Payment interface not created!", "src/ethernet/uartoverethernetinterface");
}

TEST(UartOverEthernetFatal, ConstructionWithoutAClientEndsTheProcess)
{
    EXPECT_FATAL_ASSERTION(makeWithoutClient(), "gHardwareEnv->multiport()->paymentInterface()",
                           "Payment interface not created!",
                           "src/ethernet/uartoverethernetinterface");
}

using UartInvocations = ::testing::TestWithParam<FatalCase>;

TEST_P(UartInvocations, ThatFailEndTheProcess)
{
    EXPECT_FATAL_ASSERTION(GetParam().pStep(), "invokeResult", "invoke method failed",
                           "src/ethernet/uartoverethernetinterface");
}

constexpr FatalCase s_fatalCases[] = {
    {"Open", &openDeaf},
    {"Close", &closeDeaf},
    {"SetDatabits", &setDeafDatabits},
    {"SetBaudrate", &setDeafBaudrate},
    {"SetupOfAConnectedLine", &connectDeaf},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartInvocations, ::testing::ValuesIn(s_fatalCases), caseName);
