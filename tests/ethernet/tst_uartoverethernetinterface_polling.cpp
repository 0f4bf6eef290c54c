#include "ethernet/uartoverethernetinterface.h"

#include "ethernet/paymentmachine.h"
#include "support/assertspy.h"
#include "support/casename.h"
#include "support/virtualtime.h"

#include <QStringList>
#include <gtest/gtest.h>
#include <memory>

using std::chrono::milliseconds;

class UartPollingTest : public ::testing::Test
{
protected:
    UartPollingTest()
    {
        m_machine.makeReady();
        m_uart.setPollTimeoutMs(50);
    }

    static void pass(milliseconds time) { VirtualTime::instance()->advance(time); }

    PaymentMachine m_machine;
    PaymentUart m_uart;
};

TEST_F(UartPollingTest, PollEndsWithOneTimeoutAfterItsTime)
{
    m_uart.pollingLoop();
    pass(milliseconds(49));
    EXPECT_TRUE(m_uart.events().isEmpty());
    pass(milliseconds(1));
    EXPECT_EQ(m_uart.events(), QList<int>{1});
    pass(milliseconds(500));
    EXPECT_EQ(m_uart.events(), QList<int>{1});
}

TEST_F(UartPollingTest, NewPollBeginsAnew)
{
    m_uart.pollingLoop();
    pass(milliseconds(49));
    m_uart.setPollTimeoutMs(20);
    m_uart.pollingLoop();
    pass(milliseconds(19));
    EXPECT_TRUE(m_uart.events().isEmpty());
    pass(milliseconds(1));
    EXPECT_EQ(m_uart.events(), QList<int>{1});
}

TEST_F(UartPollingTest, EachByteGivesThePollItsWholeTimeAgain)
{
    m_uart.pollingLoop();
    for (int i = 0; i < 3; ++i) {
        pass(milliseconds(49));
        m_machine.deliver("30");
    }
    EXPECT_EQ(m_uart.events(), (QList<int>{0, 0, 0}));
    pass(milliseconds(49));
    EXPECT_EQ(m_uart.events().size(), 3);
    pass(milliseconds(1));
    EXPECT_EQ(m_uart.events(), (QList<int>{0, 0, 0, 1}));
}

TEST_F(UartPollingTest, WriteThatFailsBeginsNoPoll)
{
    EXPECT_FALSE(m_uart.writeByte(0x30)); // the client has no link
    pass(milliseconds(500));
    EXPECT_TRUE(m_uart.events().isEmpty());
}

struct EndCase
{
    const char *pName;
    UartOverEthernetInterface::PollResult result;
    int event;
};

class UartPollEnds : public UartPollingTest, public ::testing::WithParamInterface<EndCase>
{
};

TEST_P(UartPollEnds, AreToldAndThenWhatHasComeIsForgotten)
{
    m_machine.deliver("30 31");
    m_uart.forgetEvents();
    QByteArray heardWith;
    QObject::connect(&m_uart, &AbstractHardwareInterface::polled, &m_uart, [&] {
        unsigned char byte = 0;
        if (m_uart.readByte(byte))
            heardWith.append(static_cast<char>(byte));
    });
    m_uart.pollingLoopResult(GetParam().result);
    EXPECT_EQ(m_uart.events(), QList<int>{GetParam().event});
    EXPECT_EQ(heardWith, QByteArray("0"));
    EXPECT_EQ(m_uart.readAll(), QByteArray());
    pass(milliseconds(40));
    EXPECT_EQ(m_uart.events().size(), 1);
}

constexpr EndCase s_endCases[] = {
    {"Timeout", UartOverEthernetInterface::ResultTimeout, 1},
    {"Error", UartOverEthernetInterface::ResultError, 2},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartPollEnds, ::testing::ValuesIn(s_endCases), caseName);

TEST_P(UartPollEnds, MayDeleteTheUart)
{
    auto pUart = std::make_unique<PaymentUart>();
    pUart->setConnected(true, true);
    pUart->setSerialSetupDone(true);
    QObject context;
    QObject::connect(pUart.get(), &AbstractHardwareInterface::polled, &context,
                     [&] { pUart.reset(); });
    pUart->pollingLoopResult(GetParam().result);
    EXPECT_EQ(pUart, nullptr);
}

TEST_F(UartPollingTest, DataReadyKeepsWhatHasCome)
{
    m_machine.deliver("30");
    m_uart.pollingLoopResult(UartOverEthernetInterface::ResultDataReady);
    EXPECT_EQ(m_uart.readAll(), QByteArray("0"));
    EXPECT_EQ(m_uart.events(), (QList<int>{0, 0}));
    pass(milliseconds(50));
    EXPECT_EQ(m_uart.events(), (QList<int>{0, 0, 1}));
}

TEST_F(UartPollingTest, OtherPollResultsAreOurMistake)
{
    for (const int number : {-1, 3}) {
        const AssertSpy asserts;
        m_uart.pollingLoopResult(static_cast<UartOverEthernetInterface::PollResult>(number));
        EXPECT_EQ(asserts.records().size(), 1);
        EXPECT_EQ(
            asserts.count("false", "Wrong poll result", "src/ethernet/uartoverethernetinterface"),
            1);
        EXPECT_FALSE(asserts.records().constFirst().isRelease);
    }
    EXPECT_TRUE(m_uart.events().isEmpty());
}

TEST_F(UartPollingTest, PollResultWhileThePaymentLineIsDisconnectedIsDropped)
{
    Q_EMIT m_machine.client().paymentConnectedChanged(false);
    m_uart.setSerialSetupDone(true);
    m_uart.forgetEvents();
    const AssertSpy asserts;
    for (const int number : {0, 1, 2, 3})
        m_uart.pollingLoopResult(static_cast<UartOverEthernetInterface::PollResult>(number));
    m_uart.pollingLoop();
    pass(milliseconds(500));
    EXPECT_TRUE(m_uart.events().isEmpty());
    EXPECT_TRUE(asserts.records().isEmpty());
}

// -- a line that is lost --------------------------------------------------------------------------

using Lose = void (*)(Multiport &);

struct LossCase
{
    const char *pName;
    Lose pLose;
};

class UartLosses : public UartPollingTest, public ::testing::WithParamInterface<LossCase>
{
};

TEST_P(UartLosses, ForgetWhatHasComeAndEndThePollWithOneError)
{
    QStringList order;
    QObject::connect(&m_uart, &UartOverEthernetInterface::readyChanged, &m_uart,
                     [&](bool isReady) { order.append(QStringLiteral("ready %1").arg(isReady)); });
    QObject::connect(&m_uart, &AbstractHardwareInterface::polled, &m_uart, [&](int event) {
        order.append(QStringLiteral("event %1, read %2, ready %3")
                         .arg(event)
                         .arg(m_uart.readAll().size())
                         .arg(m_uart.isReady()));
    });
    m_uart.pollingLoop();
    m_uart.setSerialSetupDone(false);
    m_machine.deliver("30"); // not told
    m_uart.setSerialSetupDone(true);
    order.clear();

    GetParam().pLose(m_machine.client());
    pass(milliseconds(500)); // nor is the time-out of the poll
    EXPECT_EQ(order,
              (QStringList{QStringLiteral("ready 0"), QStringLiteral("event 2, read 0, ready 0")}));
}

TEST_P(UartLosses, NeedANewSetup)
{
    GetParam().pLose(m_machine.client());
    m_machine.connectLine();
    EXPECT_FALSE(m_uart.isReady());
    m_machine.terminate(20, 0);
    EXPECT_TRUE(m_uart.isReady());
}

TEST_P(UartLosses, EndNoPollOfALineThatWasNotReady)
{
    m_uart.setSerialSetupDone(false);
    GetParam().pLose(m_machine.client());
    EXPECT_TRUE(m_uart.events().isEmpty());
}

TEST_P(UartLosses, LeaveNoTimeoutToTheNextConnection)
{
    m_uart.pollingLoop();
    GetParam().pLose(m_machine.client());
    m_machine.makeReady();
    m_uart.forgetEvents();
    pass(milliseconds(500));
    EXPECT_TRUE(m_uart.events().isEmpty());
}

TEST_P(UartLosses, MayDeleteTheUart)
{
    auto pUart = std::make_unique<PaymentUart>();
    m_machine.makeReady();
    ASSERT_TRUE(pUart->isReady());
    QObject context;
    QObject::connect(pUart.get(), &UartOverEthernetInterface::readyChanged, &context,
                     [&] { pUart.reset(); });
    GetParam().pLose(m_machine.client());
    EXPECT_EQ(pUart, nullptr);
}

const LossCase s_lossCases[] = {
    {"Line", [](Multiport &client) { Q_EMIT client.paymentConnectedChanged(false); }},
    {"Server", [](Multiport &client) { Q_EMIT client.multiportServerConnectedChanged(false); }},
    {"LineThenServer",
     [](Multiport &client) {
         Q_EMIT client.paymentConnectedChanged(false);
         Q_EMIT client.multiportServerConnectedChanged(false);
     }},
};
INSTANTIATE_TEST_SUITE_P(Rows, UartLosses, ::testing::ValuesIn(s_lossCases), caseName);

TEST_F(UartPollingTest, ConnectionThatComesForgetsWhatCameBeforeIt)
{
    Q_EMIT m_machine.client().paymentConnectedChanged(false);
    m_machine.deliver("30 31");
    Q_EMIT m_machine.client().paymentConnectedChanged(true);
    EXPECT_EQ(m_uart.readAll(), QByteArray());
}
