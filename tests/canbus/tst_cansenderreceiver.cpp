#include "busbench.h"
#include "interfaceprobe.h"

#include "canbus/candispatchrule.h"
#include "canbus/cansenderreceiver.h"

#include "support/logspy.h"

#include <memory>
#include <type_traits>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A board's driver that writes down what it hears.
class GateDriver : public CanSenderReceiver
{
    Q_OBJECT

public:
    using CanSenderReceiver::CanSenderReceiver;

    void onMessageReceived(QSharedPointer<const CanMessage> pMessage) override
    {
        m_heard.push_back("message " + std::to_string(pMessage->command()));
    }
    void onAnswerReceived(CanAnswer answer, QSharedPointer<const CanMessage> pMessage) override
    {
        m_heard.push_back("answer " + std::to_string(answer.type()) +
                          (pMessage ? "" : " without message"));
    }
    int deviceAddress() const override { return 0x419; }

    std::vector<std::string> m_heard;
};

/// One that is content with what its base does.
class PlainDriver : public CanSenderReceiver
{
    Q_OBJECT

public:
    using CanSenderReceiver::CanSenderReceiver;
    void onMessageReceived(QSharedPointer<const CanMessage> /*pMessage*/) override {}
    int deviceAddress() const override { return 0; }
    virtual void next() {}
};

class CanSenderReceiverTest : public BusBench
{
protected:
    CanSenderReceiverTest()
    {
        m_pDriver->rule()->setCommandsRule(CanDispatchRule::RuleAll);
        m_pDriver->rule()->setSourceAddressList(s_board);
    }

    std::vector<std::string> heard() { return std::exchange(m_pDriver->m_heard, {}); }

    std::unique_ptr<GateDriver> m_pDriver = std::make_unique<GateDriver>(s_channelId);
};

TEST_F(CanSenderReceiverTest, HasARuleOfItsOwnAndANodeOnItsChannel)
{
    EXPECT_EQ(m_pDriver->rule()->parent(), m_pDriver.get());
    EXPECT_EQ(m_pDriver->node()->channelId(), s_channelId);
    EXPECT_EQ(m_pDriver->node()->parent(), nullptr);
    QObject parent;
    const PlainDriver other(1, &parent);
    EXPECT_EQ(other.parent(), &parent);
}

TEST_F(CanSenderReceiverTest, RuleOfANewDriverPassesNothing)
{
    GateDriver driver(s_channelId);
    driver.connectToCanBus();
    speak(s_board, 98);
    EXPECT_THAT(driver.m_heard, IsEmpty());
}

TEST_F(CanSenderReceiverTest, MessagesArriveOnlyWhileConnected)
{
    speak(s_board, 98);
    EXPECT_THAT(heard(), IsEmpty());
    EXPECT_TRUE(m_pDriver->connectToCanBus());
    speak(s_board, 98);
    speak(s_otherBoard, 98);
    speak(s_board, 99);
    EXPECT_THAT(heard(), ElementsAre("message 98", "message 99"));
    EXPECT_TRUE(m_pDriver->disconnectFromCanBus());
    speak(s_board, 98);
    EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(CanSenderReceiverTest, RuleBearsTheNameOfTheDriversClassInTheLog)
{
    PlainDriver plain(1);
    m_pDriver->connectToCanBus();
    plain.connectToCanBus();
    EXPECT_EQ(m_pDriver->rule()->objectName(), QStringLiteral("GateDriver dispatcher"));
    EXPECT_EQ(plain.rule()->objectName(), QStringLiteral("PlainDriver dispatcher"));
    LogSpy log;
    speak(s_otherBoard, 98);
    EXPECT_EQ(log.count("GateDriver dispatcher", LogDebug, Log::CanBus), 1);
    EXPECT_EQ(log.count("PlainDriver dispatcher", LogDebug, Log::CanBus), 1);
}

TEST_F(CanSenderReceiverTest, ConnectingTwiceIsRefused)
{
    EXPECT_TRUE(m_pDriver->connectToCanBus());
    LogSpy log;
    EXPECT_FALSE(m_pDriver->connectToCanBus());
    EXPECT_EQ(log.count(": Rule is already present", LogWarning, Log::CanBus), 1);
    speak(s_board, 98);
    EXPECT_THAT(heard(), ElementsAre("message 98"));
}

TEST_F(CanSenderReceiverTest, DisconnectingWithoutConnectionIsRefused)
{
    LogSpy log;
    EXPECT_FALSE(m_pDriver->disconnectFromCanBus());
    EXPECT_EQ(log.count("Rule not found"), 1);
}

TEST_F(CanSenderReceiverTest, BothAnswersReachOneOperation)
{
    EXPECT_TRUE(m_pDriver->send(message(s_reset)));
    EXPECT_EQ(channel()->node(), m_pDriver->node());
    acknowledge(s_reset);
    EXPECT_THAT(heard(), ElementsAre("answer 1"));
    EXPECT_TRUE(m_pDriver->send(messages({s_reset, s_test})));
    m_pBus->generateSendingErrorAnswer(s_channelId);
    EXPECT_THAT(heard(), ElementsAre("answer 2 without message"));
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
}

TEST_F(CanSenderReceiverTest, BaseDoesNothingWithAnAnswer)
{
    PlainDriver plain(s_channelId);
    EXPECT_TRUE(plain.send(message(s_reset)));
    acknowledge(s_reset);
    plain.onAnswerReceived(CanAnswer::AnswerTimeout, {});
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
}

TEST_F(CanSenderReceiverTest, RefusedMessagesAreDeleted)
{
    m_pInterface->setOpen(false);
    const CanBytes data = bytes("05");
    EXPECT_FALSE(m_pDriver->send(new CanMessage(s_board, s_reset, data)));
    EXPECT_FALSE(m_pDriver->send(QList<CanMessage *>{new CanMessage(s_board, s_reset, data),
                                                     new CanMessage(s_board, s_test, data)}));
    CanMessage *const pNone = nullptr;
    EXPECT_FALSE(m_pDriver->send(pNone));
    EXPECT_TRUE(data.isDetached());
}

TEST_F(CanSenderReceiverTest, DestroyedDriverTakesItsRuleFromTheBus)
{
    m_pDriver->connectToCanBus();
    m_pDriver->send(messages({s_reset, s_test}));
    said();
    LogSpy log;
    m_pDriver.reset();
    EXPECT_EQ(log.count("Rule not found"), 0);
    log.clear();
    speak(s_board, 98);
    EXPECT_EQ(log.count(": Message doesn't matches rule"), 0);
    acknowledge(s_reset); // its batch goes on without it
    EXPECT_EQ(channel()->lastMessageSent()->command(), s_test);
}

TEST_F(CanSenderReceiverTest, DestroyedDriverTakesItsRuleAwayWhetherItIsThereOrNot)
{
    const LogSpy log;
    m_pDriver.reset();
    EXPECT_EQ(log.count("CanBus::removeDispatchRule(CanDispatchRule*) Rule not found"), 1);
}

TEST_F(CanSenderReceiverTest, DriverDestroyedInItsOwnOperationHarmsNothing)
{
    m_pDriver->connectToCanBus();
    QObject::connect(m_pDriver->rule(), &CanDispatchRule::messageMatched, m_pBus,
                     [this] { m_pDriver.reset(); });
    speak(s_board, 98);
    EXPECT_EQ(m_pDriver, nullptr);
    speak(s_board, 98);
}

TEST_F(CanSenderReceiverTest, DriverThatOutlivesTheBusDoesNothingAnyMore)
{
    m_pDriver->connectToCanBus();
    CanBus::deleteInstance();
    EXPECT_FALSE(m_pDriver->connectToCanBus());
    EXPECT_FALSE(m_pDriver->disconnectFromCanBus());
    const CanBytes data = bytes("05");
    EXPECT_FALSE(m_pDriver->send(new CanMessage(s_board, s_reset, data)));
    EXPECT_FALSE(m_pDriver->send(QList<CanMessage *>{new CanMessage(s_board, s_reset, data)}));
    EXPECT_TRUE(data.isDetached());
    m_pDriver.reset();
}

TEST(CanSenderReceiverInterface, VirtualOperationsInTheirOrder)
{
    EXPECT_EQ(placeOf(&CanSenderReceiver::onMessageReceived), placeAfterQObject(0));
    EXPECT_EQ(placeOf(&CanSenderReceiver::onAnswerReceived), placeAfterQObject(1));
    EXPECT_EQ(placeOf(&CanSenderReceiver::deviceAddress), placeAfterQObject(2));
    EXPECT_EQ(placeOf(&PlainDriver::next), placeAfterQObject(3));
}

namespace {

class WithoutMessages : public CanSenderReceiver
{
public:
    int deviceAddress() const override { return 0; }
};

class WithoutAddress : public CanSenderReceiver
{
public:
    void onMessageReceived(QSharedPointer<const CanMessage> /*pMessage*/) override {}
};

} // namespace

TEST(CanSenderReceiverInterface, DriverMustSupplyTwoOperations)
{
    EXPECT_TRUE(std::is_abstract_v<WithoutMessages>);
    EXPECT_TRUE(std::is_abstract_v<WithoutAddress>);
    EXPECT_FALSE(std::is_abstract_v<PlainDriver>);
}

TEST(CanSenderReceiverInterface, HasNoSignals)
{
    EXPECT_THAT(methodsOf(CanSenderReceiver::staticMetaObject, QMetaMethod::Signal), IsEmpty());
    EXPECT_STREQ(CanSenderReceiver::staticMetaObject.superClass()->className(), "QObject");
}

#include "tst_cansenderreceiver.moc"
