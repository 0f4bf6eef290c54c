#include "simulator/dummycanlink.h"

#include "canbus/canbus.h"
#include "canbus/canbusnode.h"
#include "canbus/candispatchrule.h"
#include "canbus/caninterface_dummy.h"
#include "canbus/canprotocol_vy.h"
#include "canbus/testmachine.h"
#include "cupsensor/lirenabcupsensor.h"
#include "simulator/actuatorboard.h"
#include "simulator/simulatedbus.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

/// The library's whole CAN stack over its dummy interface, with an actuator board behind it.
class DummyCanLinkTest : public ::testing::Test
{
protected:
    static constexpr int s_reset = 0x24;
    static constexpr int s_timeoutMs = 200; ///< of an answer, on the dummy interface

    DummyCanLinkTest()
    {
        m_boards.attach(&m_board);
        CanBus::instance()->setInterface(m_pInterface);
        CanBus::instance()->setProtocol(new CanProtocol_Vy(nullptr));
        QObject::connect(
            &m_node, &CanBusNode::answerAcknowledged, &m_node,
            [this](CanAnswer, const QSharedPointer<const CanMessage> &) { ++m_acknowledged; });
        QObject::connect(&m_node, &CanBusNode::answerError, &m_node,
                         [this](CanAnswer answer, const QSharedPointer<const CanMessage> &) {
                             m_errors.append(answer.type());
                         });
    }
    ~DummyCanLinkTest() override
    {
        CanBus::deleteInstance();
        delete m_pInterface;
    }

    void send(int command = s_reset, const CanBytes &data = {})
    {
        CanBus::instance()->send(new CanMessage(m_board.address(), command, data), &m_node);
    }
    static void advance(int ms) { VirtualTime::instance()->advance(std::chrono::milliseconds(ms)); }

    TestMachine m_machine;
    SimulatedCanBus m_boards;
    CanInterface_Dummy *m_pInterface = new CanInterface_Dummy(nullptr, false);
    DummyCanLink m_link{m_pInterface, &m_boards};
    ActuatorBoard m_board{CanVy::Address::actuatorBoard(), CanVy::Address::cpuBoard()};
    CanBusNode m_node{3};
    int m_acknowledged = 0;
    QList<int> m_errors; ///< the answers' types
};

TEST_F(DummyCanLinkTest, AMessageIsAcknowledged)
{
    send();
    EXPECT_EQ(m_acknowledged, 0);
    advance(0);
    EXPECT_EQ(m_acknowledged, 1);
    EXPECT_EQ(m_board.taken(s_reset), 1);
    advance(10000);
    EXPECT_EQ(m_acknowledged, 1);
    EXPECT_EQ(m_errors, QList<int>());
}

TEST_F(DummyCanLinkTest, TheLongestMessageIsAcknowledged)
{
    CanBytes data;
    for (int i = 0; i < 506; ++i)
        data.append(static_cast<unsigned char>(i));
    send(s_reset, data);
    advance(0);
    EXPECT_EQ(m_acknowledged, 1);
}

TEST_F(DummyCanLinkTest, LostAnswersEndInTheTimeOut)
{
    m_board.setAnswers(SimulatedBoard::Answers::Lost);
    send();
    advance(3 * s_timeoutMs - 1);
    EXPECT_EQ(m_errors, QList<int>());
    advance(1);
    EXPECT_EQ(m_errors, QList<int>{CanAnswer::AnswerTimeout});
    EXPECT_EQ(m_board.taken(s_reset), 3);
    EXPECT_EQ(m_acknowledged, 0);
}

TEST_F(DummyCanLinkTest, AnAnswerThatComesBackInTimeIsTaken)
{
    m_board.setAnswers(SimulatedBoard::Answers::Lost);
    send();
    advance(s_timeoutMs - 1);
    m_board.setAnswers(SimulatedBoard::Answers::Given);
    advance(1);
    EXPECT_EQ(m_acknowledged, 1);
    EXPECT_EQ(m_board.taken(s_reset), 2);
}

TEST_F(DummyCanLinkTest, ALateAnswerWithinTheTimeOutIsTaken)
{
    m_board.setAnswerDelay(std::chrono::milliseconds(s_timeoutMs - 1));
    send();
    advance(s_timeoutMs - 2);
    EXPECT_EQ(m_acknowledged, 0);
    advance(1);
    EXPECT_EQ(m_acknowledged, 1);
    advance(10000);
    EXPECT_EQ(m_board.taken(s_reset), 1);
}

TEST_F(DummyCanLinkTest, AnAnswerAfterTheTimeOutEndsTheResend)
{
    m_board.setAnswerDelay(std::chrono::milliseconds(s_timeoutMs + 50));
    send();
    advance(s_timeoutMs + 49);
    EXPECT_EQ(m_acknowledged, 0);
    advance(1);
    EXPECT_EQ(m_acknowledged, 1);
    advance(10000);
    EXPECT_EQ(m_board.taken(s_reset), 2);
    EXPECT_EQ(m_acknowledged, 1);
    EXPECT_EQ(m_errors, QList<int>());
}

TEST_F(DummyCanLinkTest, ThreeRefusalsEndInAnError)
{
    m_board.setAnswers(SimulatedBoard::Answers::Refused);
    send();
    advance(3 * s_timeoutMs);
    EXPECT_EQ(m_errors, QList<int>{CanAnswer::AnswerAckNot});
    EXPECT_EQ(m_acknowledged, 0);
    EXPECT_EQ(m_board.taken(), 0);
}

TEST_F(DummyCanLinkTest, ABoardThatRestartsIsReachedByTheResend)
{
    m_board.restart(std::chrono::milliseconds(s_timeoutMs / 2));
    send();
    advance(s_timeoutMs - 1);
    EXPECT_EQ(m_acknowledged, 0);
    advance(1);
    EXPECT_EQ(m_acknowledged, 1);
    EXPECT_EQ(m_board.taken(s_reset), 1);
}

TEST_F(DummyCanLinkTest, TheInterfacesOwnAnswersAreOff)
{
    EXPECT_FALSE(m_pInterface->isAnswerSimulation());
    CanBus::instance()->send(new CanMessage(0x721, s_reset), &m_node); // nobody is there
    advance(3 * s_timeoutMs);
    EXPECT_EQ(m_errors, QList<int>{CanAnswer::AnswerTimeout});
}

TEST_F(DummyCanLinkTest, ACupReachesTheSensorByARule)
{
    LirenABCupSensor sensor;
    CanDispatchRule rule;
    rule.setCommandsRule(CanDispatchRule::RuleOnlyListed);
    rule.setCommandsList(QList<int>{ActuatorBoard::CommandCupReading});
    rule.setSourceAddressesRule(CanDispatchRule::RuleOnlyListed);
    rule.setSourceAddressList(QList<int>{CanVy::Address::actuatorBoard()});
    QObject::connect(&rule, &CanDispatchRule::messageMatched, &sensor,
                     [&sensor](const QSharedPointer<const CanMessage> &pMessage) {
                         sensor.onRawValueChangedFromProtocol(pMessage->dataUnsignedShortAt(2));
                     });
    CanBus::instance()->addDispatchRule(&rule);

    m_board.setCupReading(0x1234);
    EXPECT_FALSE(sensor.isCupPresent());
    advance(0);
    EXPECT_EQ(sensor.rawValue(), 0x1234);
    EXPECT_TRUE(sensor.isCupPresent());
    m_board.setCupReading(0);
    advance(0);
    EXPECT_FALSE(sensor.isCupPresent());
}
