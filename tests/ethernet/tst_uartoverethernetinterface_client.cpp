#include "ethernet/uartoverethernetinterface.h"

#include "ethernet/paymentmachine.h"
#include "support/logspy.h"

#include <QCoreApplication>
#include <gtest/gtest.h>
#include <optional>

// The environment's client goes, or another one comes.

namespace {

/// Nothing of it can work, and each attempt is told.
void expectNoClient(PaymentUart &uart)
{
    const LogSpy log;
    auto wasMissed = [&log, missed = 0]() mutable {
        return log.count("multiport pointer incorrect", 4, Log::Hardware) == ++missed;
    };
    EXPECT_FALSE(uart.isMultiportAvailable());
    EXPECT_TRUE(wasMissed());
    EXPECT_FALSE(uart.open(QString()));
    EXPECT_TRUE(wasMissed());
    EXPECT_TRUE(uart.setBaudrate(9600));
    EXPECT_TRUE(wasMissed());
    EXPECT_TRUE(uart.setDatabits(9));
    EXPECT_TRUE(wasMissed());
    EXPECT_FALSE(uart.writeByte(0x30));
    EXPECT_TRUE(wasMissed());
    EXPECT_FALSE(uart.writeBytes(QByteArray("ab")));
    EXPECT_TRUE(wasMissed());
    EXPECT_FALSE(uart.writeByte(0x30, true));
    EXPECT_TRUE(wasMissed());
    EXPECT_FALSE(uart.writeBytes(QVector<QPair<bool, unsigned char>>{{true, 0x30}}));
    EXPECT_TRUE(wasMissed());
    EXPECT_EQ(log.count("multiport pointer incorrect"), log.records().size());
    EXPECT_FALSE(uart.close());
    QByteArray bytes("ab");
    EXPECT_FALSE(uart.writeAndFlushData(bytes));
}

} // namespace

TEST(UartClientTest, ClientIsThereWithoutALogLine)
{
    PaymentMachine machine;
    const PaymentUart uart;
    const LogSpy log;
    EXPECT_TRUE(uart.isMultiportAvailable());
    EXPECT_TRUE(log.records().isEmpty());
}

TEST(UartClientTest, ClientThatIsDeletedIsALostLineAndNothingWorksWithoutIt)
{
    PaymentMachine machine;
    PaymentUart uart;
    uart.open(QString());
    machine.makeReady();
    machine.deliver("30");
    uart.forgetEvents();
    delete machine.environment().multiport();
    EXPECT_EQ(uart.events(), QList<int>{2});
    EXPECT_EQ(uart.readAll(), QByteArray());
    EXPECT_FALSE(uart.isReady());
    expectNoClient(uart);
    EXPECT_EQ(uart.events(), QList<int>{2});
}

TEST(UartClientTest, EnvironmentThatIsDestroyedIsALostLineAndNothingWorksWithoutIt)
{
    std::optional<PaymentMachine> machine(std::in_place);
    PaymentUart uart;
    machine->makeReady();
    machine.reset();
    ASSERT_EQ(gHardwareEnv, nullptr);
    EXPECT_EQ(uart.events(), QList<int>{2});
    expectNoClient(uart);
}

TEST(UartClientTest, CloseWithoutAClientIsFalseWhateverTheFlagsSay)
{
    PaymentMachine machine;
    PaymentUart uart;
    delete machine.environment().multiport();
    uart.setConnected(true, true);
    const LogSpy log;
    EXPECT_FALSE(uart.close());
    EXPECT_EQ(log.count("multiport pointer incorrect", 4, Log::Hardware), 1);
}

TEST(UartClientTest, NewClientIsALostLineUntilItIsReadyItself)
{
    PaymentMachine machine;
    PaymentUart uart;
    uart.open(QString());
    machine.makeReady();
    machine.environment().setMultiport(machine.newClient());
    EXPECT_EQ(uart.events(), QList<int>{2});
    EXPECT_FALSE(machine.isPaymentOpen());
    EXPECT_TRUE(uart.open(QString()));
    EXPECT_TRUE(machine.isPaymentOpen());
    machine.makeReady();
    EXPECT_TRUE(uart.isReady());
    machine.deliver("30");
    EXPECT_EQ(uart.readAll(), QByteArray("0"));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(uart.isReady()); // the old one's end does not matter any more
}

TEST(UartClientTest, OldClientIsNotHeardAnyMore)
{
    PaymentMachine machine;
    Multiport old(QString(), Multiport::ModeLocal, nullptr); // not the environment's to delete
    machine.environment().setMultiport(&old);
    PaymentUart uart;
    machine.environment().setMultiport(machine.newClient());
    PaymentMachine::connectLine(old);
    Q_EMIT old.lastCommandTerminationStatus(20, 0);
    PaymentMachine::deliver(old, QByteArray("0"));
    EXPECT_FALSE(uart.isReady());
    EXPECT_EQ(uart.readAll(), QByteArray());
    machine.makeReady();
    EXPECT_TRUE(uart.isReady());
    Q_EMIT old.paymentConnectedChanged(false);
    EXPECT_TRUE(uart.isReady());
}

TEST(UartClientTest, ClientThatComesAfterOneThatWasDeletedIsHeard)
{
    PaymentMachine machine;
    PaymentUart uart;
    delete machine.environment().multiport();
    machine.environment().setMultiport(machine.newClient());
    machine.makeReady();
    EXPECT_TRUE(uart.isReady());
}

TEST(UartClientTest, ClientOfAnotherEnvironmentIsHeardOnceTheLineIsOpened)
{
    std::optional<PaymentMachine> machine(std::in_place);
    PaymentUart uart;
    machine.reset();
    machine.emplace();
    EXPECT_TRUE(uart.open(QString()));
    EXPECT_TRUE(machine->isPaymentOpen());
    machine->makeReady();
    EXPECT_TRUE(uart.isReady());
    machine->environment().setMultiport(machine->newClient());
    EXPECT_FALSE(uart.isReady());
}

TEST(UartClientTest, EveryByteComesOnceHoweverOftenTheLineIsOpened)
{
    PaymentMachine machine;
    PaymentUart uart;
    for (int i = 0; i < 3; ++i)
        uart.open(QString());
    machine.makeReady();
    machine.deliver("30");
    EXPECT_EQ(uart.readAll(), QByteArray("0"));
    EXPECT_EQ(uart.events(), QList<int>{0});
}
