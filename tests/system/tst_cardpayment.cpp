#include "simulator/paymentmaster.h"

#include "canbus/testmachine.h"
#include "ethernet/uartoverethernetinterface.h"
#include "multiport.h"
#include "multiportd/daemon.h"
#include "support/casename.h"
#include "system/console.h"

#include <QStringList>
#include <QTemporaryDir>
#include <gtest/gtest.h>

/// An application's payment over the library's UART: the master on this side; the server's process
/// with a card reader, which is set through its console, on the other. What the master tells is
/// kept in its order.
class CardPaymentTest : public ::testing::Test
{
protected:
    CardPaymentTest()
    {
        m_machine.environment().setMultiport(
            new Multiport(QStringLiteral("127.0.0.1:%1").arg(m_daemon.port("control")),
                          Multiport::ModeLocal, &m_machine.environment()));
        m_pUart = new UartOverEthernetInterface(QStringLiteral("payment"), {1.0, 1, false},
                                                &m_machine.environment());
        m_pMaster = new PaymentMaster(
            [this](const Multidrop::Characters &characters) {
                return m_pUart->writeBytes(characters);
            },
            m_pUart);
        QObject::connect(m_pUart, &AbstractHardwareInterface::polled, m_pMaster,
                         [this](int event) { onPolled(event); });
        hear();
    }

    /// The UART has the server's line with 9 data bits.
    bool bringUp()
    {
        m_machine.environment().multiport()->init(true);
        m_pUart->setDatabits(9);
        m_pUart->open(QString());
        return comes([this] { return m_pUart->isReady(); });
    }

    /// The master has begun and the reader is enabled.
    void start()
    {
        ASSERT_TRUE(bringUp());
        m_pMaster->start();
        ASSERT_TRUE(tells({QStringLiteral("ready")}));
        ASSERT_EQ(payment("state").toString(), QStringLiteral("enabled"));
    }

    /// True when the master tells this, and nothing else before it.
    bool tells(const QStringList &told)
    {
        const bool isTold = comes([&] { return m_told.size() >= told.size(); });
        EXPECT_EQ(m_told.join(QLatin1Char('|')).toStdString(),
                  told.join(QLatin1Char('|')).toStdString());
        m_told.clear();
        return isTold;
    }

    /// 1.20 for item 7, of a card with so many cents.
    void pay(int cents)
    {
        const int before = payment("vends").toInt();
        ASSERT_TRUE(m_console.set("card", cents));
        ASSERT_TRUE(tells({QStringLiteral("began %1").arg(cents)}));
        EXPECT_EQ(payment("state").toString(), QStringLiteral("session"));
        ASSERT_TRUE(m_pMaster->requestVend(120, 7));
        ASSERT_TRUE(tells({QStringLiteral("approved 120")}));
        EXPECT_EQ(payment("state").toString(), QStringLiteral("vend"));
        ASSERT_TRUE(m_pMaster->finishVend(true));
        ASSERT_TRUE(tells({QStringLiteral("succeeded"), QStringLiteral("ended")}));
        EXPECT_EQ(payment("vends").toInt(), before + 1);
        EXPECT_EQ(payment("state").toString(), QStringLiteral("enabled"));
    }

    QJsonValue payment(const char *pKey) { return m_console.payment().value(QLatin1String(pKey)); }

    const QTemporaryDir m_folder;
    const QString m_path = m_folder.filePath(QStringLiteral("console"));
    Daemon m_daemon{{QStringLiteral("--simulate"), QStringLiteral("--console"), m_path}};
    Console m_console{m_path};
    TestMachine m_machine;
    UartOverEthernetInterface *m_pUart = nullptr; ///< the machine's
    PaymentMaster *m_pMaster = nullptr;           ///< the UART's
    QStringList m_told;

private:
    void onPolled(int event)
    {
        unsigned char byte = 0;
        bool isMode = false;
        while (event == AbstractHardwareInterface::pollDataReady && m_pUart->readByte(byte, isMode))
            m_pMaster->onCharacter(isMode, byte);
    }

    void hear()
    {
        const auto tell = [this](void (PaymentMaster::*pSignal)(), const char *pName) {
            QObject::connect(m_pMaster, pSignal, m_pMaster,
                             [this, pName] { m_told.append(QString::fromLatin1(pName)); });
        };
        tell(&PaymentMaster::ready, "ready");
        tell(&PaymentMaster::vendDenied, "denied");
        tell(&PaymentMaster::vendSucceeded, "succeeded");
        tell(&PaymentMaster::sessionEnded, "ended");
        QObject::connect(m_pMaster, &PaymentMaster::sessionBegan, m_pMaster, [this](int funds) {
            m_told.append(QStringLiteral("began %1").arg(funds));
        });
        QObject::connect(m_pMaster, &PaymentMaster::vendApproved, m_pMaster, [this](int amount) {
            m_told.append(QStringLiteral("approved %1").arg(amount));
        });
        QObject::connect(
            m_pMaster, &PaymentMaster::lineFailed, m_pMaster,
            [this](const QString &reason) { m_told.append(QStringLiteral("failed: ") + reason); });
    }
};

TEST_F(CardPaymentTest, LineOfTheReaderIsSetUpWith9DataBits)
{
    EXPECT_EQ(payment("dataBits").toInt(), 8);
    ASSERT_TRUE(bringUp());
    EXPECT_EQ(payment("dataBits").toInt(), 9);
    EXPECT_EQ(payment("state").toString(), QStringLiteral("inactive"));
}

TEST_F(CardPaymentTest, PaymentGoesFromTheResetToItsEndAndTheNextOneFollows)
{
    start();
    pay(150);
    pay(120);
}

TEST_F(CardPaymentTest, PriceAboveTheCardIsDeniedAndTheCardTakenAwayEndsTheSession)
{
    start();
    ASSERT_TRUE(m_console.set("card", 119));
    ASSERT_TRUE(tells({QStringLiteral("began 119")}));
    ASSERT_TRUE(m_pMaster->requestVend(120, 7));
    ASSERT_TRUE(tells({QStringLiteral("denied")}));
    ASSERT_TRUE(m_console.set("card", 0));
    ASSERT_TRUE(tells({QStringLiteral("ended")}));
    EXPECT_EQ(payment("vends").toInt(), 0);
}

TEST_F(CardPaymentTest, WithoutASetupTheReaderIsSilent)
{
    m_machine.environment().multiport()->init(true);
    m_pUart->open(QString());
    ASSERT_TRUE(comes([this] { return m_pUart->isReady(); }));
    m_pMaster->start(); // with 8 data bits nothing can be written
    ASSERT_TRUE(tells({QStringLiteral("failed: the line cannot be written")}));
    m_pUart->setDatabits(9);
    ASSERT_TRUE(tells({QStringLiteral("ready")}));
}

struct ReaderFaultCase
{
    const char *pName;
    const char *pFault;
    QString failure; ///< that the master tells once a card is there
};

class CardPaymentFaults : public CardPaymentTest,
                          public ::testing::WithParamInterface<ReaderFaultCase>
{
};

TEST_P(CardPaymentFaults, AreToldOnceAndPaymentsGoOnWhenTheyAreOver)
{
    start();
    ASSERT_TRUE(m_console.fault(GetParam().pFault, true));
    m_console.set("card", 150); // a reader that is well otherwise has something to tell
    ASSERT_TRUE(tells({GetParam().failure}));
    EXPECT_FALSE(m_pMaster->isReady());
    // Attempts go on, and fail, until it is over.
    const QDeadlineTimer during(3 * PaymentMaster::RestartPause);
    comes([&during] { return during.hasExpired(); });
    EXPECT_EQ(m_told, QStringList());

    ASSERT_TRUE(m_console.fault(GetParam().pFault, false));
    ASSERT_TRUE(tells({QStringLiteral("ready")}));
    pay(150);
}

const ReaderFaultCase s_readerFaultCases[] = {
    {"Silence", "payment.silence", QStringLiteral("failed: no answer to request 0x1200")},
    {"Checksum", "payment.checksum",
     QStringLiteral("failed: wrong checksum in the answer to request 0x1200")},
    {"Mode", "payment.mode", QStringLiteral("failed: no answer to request 0x1200")},
};
INSTANTIATE_TEST_SUITE_P(Rows, CardPaymentFaults, ::testing::ValuesIn(s_readerFaultCases),
                         caseName);

TEST_F(CardPaymentTest, PaymentGoesThroughWhileTheReaderSaysEverythingTwiceAndAfterwards)
{
    start();
    ASSERT_TRUE(m_console.fault("payment.repeat", true));
    pay(150);
    ASSERT_TRUE(m_console.fault("payment.repeat", false));
    pay(130);
}

TEST_F(CardPaymentTest, SilenceInASessionEndsItAndCostsNothing)
{
    start();
    ASSERT_TRUE(m_console.set("card", 150));
    ASSERT_TRUE(tells({QStringLiteral("began 150")}));
    ASSERT_TRUE(m_pMaster->requestVend(120, 7));
    ASSERT_TRUE(tells({QStringLiteral("approved 120")}));
    ASSERT_TRUE(m_console.fault("payment.silence", true));
    ASSERT_TRUE(
        tells({QStringLiteral("ended"), QStringLiteral("failed: no answer to request 0x1200")}));
    EXPECT_FALSE(m_pMaster->finishVend(true));
    ASSERT_TRUE(m_console.fault("payment.silence", false));
    ASSERT_TRUE(tells({QStringLiteral("ready")}));
    EXPECT_EQ(payment("vends").toInt(), 0);
    pay(150);
}

TEST_F(CardPaymentTest, NetworkThatIsCutEndsTheSessionAndPaymentsGoOnWhenItIsUp)
{
    start();
    ASSERT_TRUE(m_console.set("card", 150));
    ASSERT_TRUE(tells({QStringLiteral("began 150")}));
    m_console.ask(R"({"do":"fault","what":"link","value":"cut"})");
    ASSERT_TRUE(
        tells({QStringLiteral("ended"), QStringLiteral("failed: the line cannot be written")}));
    EXPECT_FALSE(m_pUart->isReady());
    m_console.ask(R"({"do":"fault","what":"link","value":"up"})");
    ASSERT_TRUE(tells({QStringLiteral("ready")}));
    pay(150);
}
