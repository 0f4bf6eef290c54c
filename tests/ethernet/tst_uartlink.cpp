#include "ethernet/uartoverethernetinterface.h"

#include "ethernet/paymentmachine.h"
#include "support/casename.h"
#include "support/logfolder.h"
#include "support/logspy.h"
#include "vymultiport/linkserver.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QThread>
#include <gtest/gtest.h>
#include <limits>
#include <optional>

using multiportlink::SerialLine;

// The payment UART over real sockets: what a server gets and when.
class UartLinkTest : public ::testing::Test
{
protected:
    UartLinkTest() { m_server.start(); }

    /// Until the server has set the line up.
    bool bringUp()
    {
        m_machine.client().init(true);
        m_uart.open(QString());
        return waitUntil([this] { return m_uart.isReady(); });
    }

    /// The setups that were asked for, in their order.
    QList<SerialLine> setups() const
    {
        QList<SerialLine> setups;
        const auto all = m_server.requests(MultiportProtocol::CommandSetSerialLine);
        for (const multiportlink::Request &request : all)
            setups.append(multiportlink::decodeSerialLine(request.payload).value_or(SerialLine{}));
        return setups;
    }

    bool isSent(const char *pHex)
    {
        const QByteArray bytes = QByteArray::fromHex(pHex);
        return waitUntil(
                   [&] { return m_server.received(LinkServer::Payment).size() >= bytes.size(); }) &&
               m_server.received(LinkServer::Payment) == bytes;
    }

    /// What was asked for before has arrived when this has.
    bool finishWith(const char *pHex) { return m_uart.writeByte(0x5a) && isSent(pHex); }

    LinkServer m_server;
    PaymentMachine m_machine{m_server.address()};
    PaymentUart m_uart;
};

// -- the setup ------------------------------------------------------------------------------------

struct DatabitsCase
{
    const char *pName;
    int databits;
    int askedDatabits;
    int askedParity;
};

class UartDatabits : public UartLinkTest, public ::testing::WithParamInterface<DatabitsCase>
{
protected:
    void expectAsked()
    {
        const SerialLine asked = setups().constLast();
        EXPECT_EQ(asked.port, 4000);
        EXPECT_EQ(asked.baudRate, 9600U);
        EXPECT_EQ(asked.dataBits, GetParam().askedDatabits);
        EXPECT_EQ(asked.parity, GetParam().askedParity);
        EXPECT_EQ(asked.mdbMode, 0);
    }
};

TEST_P(UartDatabits, AskForTheirSetup)
{
    ASSERT_TRUE(bringUp());
    const int before = setups().size();
    EXPECT_TRUE(m_uart.onSetDatabits(GetParam().databits));
    ASSERT_TRUE(waitUntil([&] { return setups().size() > before; }));
    expectAsked();
}

TEST_P(UartDatabits, ThatAreKeptAreAskedForWithEachBaudRateAndConnection)
{
    m_uart.setDatabits(GetParam().databits);
    ASSERT_TRUE(bringUp());
    expectAsked();
    const int before = setups().size();
    EXPECT_TRUE(m_uart.setBaudrate(19200));
    ASSERT_TRUE(waitUntil([&] { return setups().size() > before; }));
    expectAsked();
}

constexpr DatabitsCase s_databitsCases[] = {
    {"OnSetDatabits9AsksFor9600Baud9BitsParity0MdbMode0", 9, 9, 0},
    {"OnSetDatabits8AsksFor9600Baud8BitsParity1", 8, 8, 1},
    {"Seven", 7, 8, 1},
    {"Ten", 10, 8, 1},
    {"None", 0, 8, 1},
    {"Negative", -9, 8, 1},
    {"Largest", std::numeric_limits<int>::max(), 8, 1},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartDatabits, ::testing::ValuesIn(s_databitsCases), caseName);

TEST_F(UartLinkTest, LineThatIsNotOpenIsNotSetUp)
{
    m_machine.client().init(true);
    ASSERT_TRUE(waitUntil([this] { return m_machine.client().isServerConnected(); }));
    EXPECT_TRUE(m_uart.setDatabits(9));
    EXPECT_TRUE(m_uart.setBaudrate(9600));
    m_machine.client().setOutputEnabled(9, true);
    ASSERT_TRUE(waitUntil([this] { return !m_server.requests().isEmpty(); }));
    EXPECT_TRUE(setups().isEmpty());
}

TEST_F(UartLinkTest, LineIsReadyOnceItsSetupIsDoneAndNotBefore)
{
    std::optional<multiportlink::Request> asked;
    m_server.setAnswer([&](const multiportlink::Request &request) -> std::optional<quint8> {
        if (request.command != MultiportProtocol::CommandSetSerialLine)
            return MultiportProtocol::StatusDone;
        asked = request;
        return std::nullopt;
    });
    const QSignalSpy ready(&m_uart, &UartOverEthernetInterface::readyChanged);
    m_machine.client().init(true);
    m_uart.open(QString());
    ASSERT_TRUE(waitUntil([&] { return asked && m_machine.client().isPaymentConnected(); }));
    EXPECT_FALSE(m_uart.isReady());
    EXPECT_FALSE(m_uart.writeByte(0x30));
    m_server.answer(*asked, MultiportProtocol::StatusDone);
    ASSERT_TRUE(waitUntil([&] { return m_uart.isReady(); }));
    EXPECT_EQ(ready.count(), 1);
    EXPECT_TRUE(finishWith("5a"));
}

TEST_F(UartLinkTest, LineWhoseSetupFailsIsReadyOnceAnotherIsDone)
{
    quint8 status = MultiportProtocol::StatusFailed;
    m_server.setAnswer([&](const multiportlink::Request &request) -> std::optional<quint8> {
        return request.command == MultiportProtocol::CommandSetSerialLine
                   ? status
                   : quint8{MultiportProtocol::StatusDone};
    });
    m_machine.client().init(true);
    m_uart.open(QString());
    const QSignalSpy statuses(&m_machine.client(), &Multiport::lastCommandTerminationStatus);
    ASSERT_TRUE(waitUntil([&] { return statuses.count() > 0; }));
    EXPECT_FALSE(m_uart.isReady());
    status = MultiportProtocol::StatusDone;
    m_uart.setDatabits(9);
    EXPECT_TRUE(waitUntil([&] { return m_uart.isReady(); }));
}

// -- writes ---------------------------------------------------------------------------------------

TEST_F(UartLinkTest, With9DataBitsAndAllFlagsSetWriteByte30TrueSends0130)
{
    m_uart.setDatabits(9);
    ASSERT_TRUE(bringUp());
    EXPECT_TRUE(m_uart.writeByte(0x30, true));
    EXPECT_TRUE(isSent("01 30"));
}

TEST_F(UartLinkTest, WriteByte30TrueWith8DataBitsSendsNothing)
{
    ASSERT_TRUE(bringUp());
    const LogSpy log;
    EXPECT_FALSE(m_uart.writeByte(0x30, true));
    EXPECT_FALSE(m_uart.writeBytes(QVector<QPair<bool, unsigned char>>{{true, 0x30}}));
    EXPECT_EQ(log.count("Can't write mode bit with 8 data bits !"), 2);
    EXPECT_TRUE(finishWith("5a"));
}

TEST_F(UartLinkTest, CharactersAreModeAndByteAndLeaveInOneWrite)
{
    m_uart.setDatabits(9);
    ASSERT_TRUE(bringUp());
    const int segments = m_server.segments(LinkServer::Payment);
    EXPECT_TRUE(m_uart.writeBytes(
        QVector<QPair<bool, unsigned char>>{{true, 0x12}, {false, 0x12}, {false, 0xff}}));
    EXPECT_TRUE(isSent("01 12 00 12 00 ff"));
    EXPECT_EQ(m_server.segments(LinkServer::Payment), segments + 1);
    EXPECT_TRUE(m_uart.writeByte(0x00, false));
    EXPECT_TRUE(isSent("01 12 00 12 00 ff 00 00"));
}

TEST_F(UartLinkTest, BytesAreWrittenAsTheyAre)
{
    ASSERT_TRUE(bringUp());
    EXPECT_TRUE(m_uart.writeByte(0x30));
    EXPECT_TRUE(m_uart.writeBytes(QByteArray::fromHex("00ff01")));
    EXPECT_TRUE(isSent("30 00 ff 01"));
}

TEST_F(UartLinkTest, NoCharactersAreWrittenAtOnce)
{
    m_uart.setDatabits(9);
    ASSERT_TRUE(bringUp());
    EXPECT_TRUE(m_uart.writeBytes(QVector<QPair<bool, unsigned char>>()));
    EXPECT_TRUE(finishWith("5a"));
}

TEST_F(UartLinkTest, SuccessfulWriteEmptiesTheCallersBytesAndBeginsAPoll)
{
    ASSERT_TRUE(bringUp());
    m_uart.setPollTimeoutMs(10);
    QByteArray bytes("ab");
    EXPECT_TRUE(m_uart.writeAndFlushData(bytes));
    EXPECT_TRUE(bytes.isEmpty());
    EXPECT_TRUE(waitUntil([this] { return !m_uart.events().isEmpty(); }));
    EXPECT_EQ(m_uart.events(), QList<int>{1});
}

TEST_F(UartLinkTest, WriteInTheClientsOwnThreadDoesNotWaitForItself)
{
    ASSERT_TRUE(bringUp());
    bool isWritten = false;
    QMetaObject::invokeMethod(
        m_machine.client().interface(Multiport::PaymentInterface),
        [&] { isWritten = m_uart.writeByte(0x30); }, Qt::BlockingQueuedConnection);
    EXPECT_TRUE(isWritten);
    EXPECT_TRUE(isSent("30"));
}

TEST_F(UartLinkTest, WhatCouldNotBeWrittenIsNotSentWithTheNextWrite)
{
    m_uart.setDatabits(9);
    // The flags say so, the client has no link yet.
    m_uart.setConnected(true, true);
    m_uart.setSerialSetupDone(true);
    EXPECT_FALSE(m_uart.writeByte(0x11, true));
    EXPECT_FALSE(m_uart.writeBytes(QVector<QPair<bool, unsigned char>>{{true, 0x22}}));
    m_uart.setConnected(false, false);
    ASSERT_TRUE(bringUp());
    EXPECT_TRUE(m_uart.writeByte(0x30, true));
    EXPECT_TRUE(isSent("01 30"));
    PaymentUart other; // the buffer is everybody's
    other.setDatabits(9);
    ASSERT_TRUE(waitUntil([&] { return other.isReady(); }));
    EXPECT_TRUE(other.writeByte(0x31, false));
    EXPECT_TRUE(isSent("01 30 00 31"));
}

TEST_F(UartLinkTest, BufferOf9BitWritesIsOneForAllAndEmptyAfterEachSuccess)
{
    m_uart.setDatabits(9);
    ASSERT_TRUE(bringUp());
    PaymentUart other;
    other.setDatabits(9);
    ASSERT_TRUE(waitUntil([&] { return other.isReady(); }));
    PaymentUart::s_outgoing = QByteArray::fromHex("0111"); // as by a third one
    EXPECT_TRUE(m_uart.writeByte(0x22, false));
    EXPECT_TRUE(isSent("01 11 00 22"));
    EXPECT_TRUE(PaymentUart::s_outgoing.isEmpty());
    PaymentUart::s_outgoing = QByteArray::fromHex("0133");
    EXPECT_TRUE(other.writeBytes(QVector<QPair<bool, unsigned char>>{{false, 0x44}}));
    EXPECT_TRUE(isSent("01 11 00 22 01 33 00 44"));
    EXPECT_TRUE(PaymentUart::s_outgoing.isEmpty());
}

struct FlagsCase
{
    const char *pName;
    bool isServerConnected;
    bool isPaymentConnected;
    bool isSerialSetupDone;
    bool isWritten;
};

class UartLinkFlags : public UartLinkTest, public ::testing::WithParamInterface<FlagsCase>
{
};

TEST_P(UartLinkFlags, LetNoOtherWriteReachTheServer)
{
    m_uart.setDatabits(9);
    ASSERT_TRUE(bringUp());
    m_uart.setConnected(GetParam().isServerConnected, GetParam().isPaymentConnected);
    m_uart.setSerialSetupDone(GetParam().isSerialSetupDone);
    EXPECT_EQ(m_uart.writeByte(0x41), GetParam().isWritten);
    EXPECT_EQ(m_uart.writeBytes(QByteArray("BC")), GetParam().isWritten);
    EXPECT_EQ(m_uart.writeByte(0x44, true), GetParam().isWritten);
    EXPECT_EQ(m_uart.writeBytes(QVector<QPair<bool, unsigned char>>{{false, 0x45}}),
              GetParam().isWritten);
    m_uart.setConnected(true, true);
    m_uart.setSerialSetupDone(true);
    EXPECT_TRUE(finishWith(GetParam().isWritten ? "41 42 43 01 44 00 45 5a" : "5a"));
}

constexpr FlagsCase s_flagsCases[] = {
    {"None", false, false, false, false},        {"SetupOnly", false, false, true, false},
    {"LineOnly", false, true, false, false},     {"LineAndSetup", false, true, true, false},
    {"ServerOnly", true, false, false, false},   {"ServerAndSetup", true, false, true, false},
    {"ServerAndLine", true, true, false, false}, {"All", true, true, true, true},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartLinkFlags, ::testing::ValuesIn(s_flagsCases), caseName);

// -- reception ------------------------------------------------------------------------------------

TEST_F(UartLinkTest, BytesOfTheLineAreRead)
{
    m_uart.setDatabits(9);
    ASSERT_TRUE(bringUp());
    m_server.send(LinkServer::Payment, QByteArray::fromHex("01300031"));
    ASSERT_TRUE(waitUntil([this] { return !m_uart.events().isEmpty(); }));
    unsigned char byte = 0;
    bool mode = false;
    EXPECT_TRUE(m_uart.readByte(byte, mode));
    EXPECT_EQ(byte, 0x30);
    EXPECT_TRUE(mode);
    EXPECT_TRUE(m_uart.readByte(byte, mode));
    EXPECT_EQ(byte, 0x31);
    EXPECT_FALSE(mode);
    EXPECT_EQ(m_uart.events().first(), 0);
}

// -- connections that go and come -----------------------------------------------------------------

TEST_F(UartLinkTest, ServerThatGoesAndComesBackFindsTheLineSetUpAgainAndNothingOld)
{
    m_uart.setDatabits(9);
    ASSERT_TRUE(bringUp());
    m_server.stop();
    ASSERT_TRUE(waitUntil([this] { return !m_machine.client().isServerConnected(); }));
    EXPECT_EQ(m_uart.events(), QList<int>{2});
    EXPECT_FALSE(m_uart.isReady());
    EXPECT_FALSE(m_uart.writeByte(0x11, true));
    const int before = setups().size();
    ASSERT_TRUE(m_server.start());
    ASSERT_TRUE(waitUntil([this] { return m_uart.isReady(); }));
    EXPECT_GT(setups().size(), before);
    EXPECT_EQ(setups().constLast().dataBits, 9);
    EXPECT_TRUE(m_uart.writeByte(0x30, true));
    EXPECT_TRUE(isSent("01 30"));
    EXPECT_EQ(m_uart.events(), QList<int>{2});
}

TEST_F(UartLinkTest, LineThatIsLostAloneComesBackToo)
{
    ASSERT_TRUE(bringUp());
    m_server.drop(LinkServer::Payment);
    ASSERT_TRUE(waitUntil([this] { return !m_uart.isReady(); }));
    EXPECT_EQ(m_uart.events(), QList<int>{2});
    ASSERT_TRUE(waitUntil([this] { return m_uart.isReady(); }));
    EXPECT_EQ(m_server.controlConnections(), 1);
    EXPECT_TRUE(finishWith("5a"));
}

TEST_F(UartLinkTest, WriteToALineThatTheUartDoesNotKnowIsLostFailsAtOnce)
{
    ASSERT_TRUE(bringUp());
    m_server.stop();
    QElapsedTimer timer; // without an event loop, so that nothing is heard meanwhile
    timer.start();
    while (m_uart.writeByte(0x30) && timer.elapsed() < 5000)
        QThread::msleep(1);
    EXPECT_LT(timer.elapsed(), 5000);
    EXPECT_TRUE(m_uart.isReady());
}

TEST_F(UartLinkTest, CloseEndsTheLineAndOpenBringsItBack)
{
    ASSERT_TRUE(bringUp());
    EXPECT_TRUE(m_uart.close());
    ASSERT_TRUE(
        waitUntil([this] { return !m_server.isOpen(LinkServer::Payment) && !m_uart.isReady(); }));
    EXPECT_FALSE(m_uart.close());
    EXPECT_TRUE(m_uart.open(QString()));
    EXPECT_TRUE(waitUntil([this] { return m_uart.isReady(); }));
}

TEST_F(UartLinkTest, UartOfALineThatIsOpenAlreadySetsItUpAsItsOwn)
{
    m_uart.setDatabits(9);
    ASSERT_TRUE(bringUp());
    const int before = setups().size();
    PaymentUart second;
    EXPECT_FALSE(second.isReady());
    ASSERT_TRUE(waitUntil([&] { return second.isReady(); }));
    ASSERT_EQ(setups().size(), before + 1);
    EXPECT_EQ(setups().constLast().dataBits, 8);
    EXPECT_TRUE(second.writeByte(0x30));
    EXPECT_TRUE(isSent("30"));
}

TEST_F(UartLinkTest, UartOfAConnectedServerWaitsForTheLineOnly)
{
    m_machine.client().init(true);
    ASSERT_TRUE(waitUntil([this] { return m_machine.client().isServerConnected(); }));
    PaymentUart second;
    second.open(QString());
    EXPECT_TRUE(waitUntil([&] { return second.isReady(); }));
}

TEST_F(UartLinkTest, ClientThatIsReplacedLeavesTheLineToTheNewOne)
{
    ASSERT_TRUE(bringUp());
    m_machine.environment().setMultiport(m_machine.newClient(m_server.address()));
    EXPECT_EQ(m_uart.events(), QList<int>{2});
    EXPECT_FALSE(m_uart.writeByte(0x11));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // the old one
    ASSERT_TRUE(bringUp());
    EXPECT_TRUE(finishWith("5a"));
}

// -- the log --------------------------------------------------------------------------------------

// The first of a file's writers says how large it is, so there is no other UART here.
class UartLogTest : public ::testing::Test
{
protected:
    UartLogTest() { EXPECT_TRUE(m_server.start()); }

    const LogFolder m_folder;
    LinkServer m_server;
    PaymentMachine m_machine{m_server.address()};
};

TEST_F(UartLogTest, BytesOfBothDirectionsAreInTheRotatingFileOfTheGivenSize)
{
    constexpr int size = 2048;
    PaymentUart uart({size / (1024.0 * 1024.0), 2, false});
    uart.setLogInFile(true);
    m_machine.client().init(true);
    uart.open(QString());
    ASSERT_TRUE(waitUntil([&] { return uart.isReady(); }));
    EXPECT_TRUE(m_folder.names().isEmpty());

    EXPECT_TRUE(uart.writeBytes(QByteArray::fromHex("10fe")));
    m_server.send(LinkServer::Payment, QByteArray::fromHex("01ab"));
    ASSERT_TRUE(waitUntil([&] { return uart.events().contains(0); }));
    const QString file = QStringLiteral("paymentSocket.txt");
    EXPECT_EQ(m_folder.names(), QStringList{file});
    const QStringList lines = m_folder.lines(file);
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines.at(0).endsWith(QStringLiteral("payment sent: 10 fe")));
    EXPECT_TRUE(lines.at(1).endsWith(QStringLiteral("payment received: 01 ab")));

    for (int i = 0; i < 200; ++i)
        ASSERT_TRUE(uart.writeByte(0x5a));
    const QStringList names = {QStringLiteral("paymentSocket.1.txt"),
                               QStringLiteral("paymentSocket.2.txt"), file};
    EXPECT_EQ(m_folder.names(), names);
    for (const QString &name : names) {
        EXPECT_LE(m_folder.bytes(name).size(), size);
        EXPECT_GE(m_folder.bytes(name).size(), name == file ? 1 : size - 100);
    }
}

struct OpeningCase
{
    const char *pName;
    bool isRotatedWhenOpen;
    QStringList names;
};

class UartLogOpenings : public UartLogTest, public ::testing::WithParamInterface<OpeningCase>
{
};

TEST_P(UartLogOpenings, BeginAFileOrGoOnWithOne)
{
    for (int i = 0; i < 2; ++i) {
        PaymentUart uart({1.0, 3, GetParam().isRotatedWhenOpen});
        uart.setLogInFile(true);
        PaymentMachine::deliver(m_machine.client(), "ab");
    }
    EXPECT_EQ(m_folder.names(), GetParam().names);
}

const OpeningCase s_openingCases[] = {
    {"GoingOn", false, {QStringLiteral("paymentSocket.txt")}},
    {"Beginning",
     true,
     {QStringLiteral("paymentSocket.1.txt"), QStringLiteral("paymentSocket.txt")}},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartLogOpenings, ::testing::ValuesIn(s_openingCases), caseName);
