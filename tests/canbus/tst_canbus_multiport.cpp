#include "canbus/canbus.h"

#include "canbus/abstractcaninterface.h"
#include "canbus/abstractcanprotocol.h"
#include "canbus/candispatchrule.h"
#include "canbus/multiportmachine.h"

#include <QTimer>
#include <chrono>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

/// The bus of a machine whose environment has a multiport client.
class CanBusMultiportTest : public ::testing::Test
{
protected:
    CanBusMultiportTest()
    {
        m_rule.setCommandsRule(CanDispatchRule::RuleAll);
        m_rule.setSourceAddressesRule(CanDispatchRule::RuleAll);
        m_pBus->addDispatchRule(&m_rule);
    }
    ~CanBusMultiportTest() override
    {
        const AbstractCanInterface *const pInterface = m_pBus->canInterface();
        CanBus::deleteInstance();
        delete pInterface;
    }

    MultiportMachine m_machine;
    CanDispatchRule m_rule; ///< passes everything
    CanBus *m_pBus = CanBus::instance();
};

TEST_F(CanBusMultiportTest, InterfaceOfTheBusIsOpenOnceItIsSet)
{
    EXPECT_FALSE(m_machine.isCanOpen());
    EXPECT_TRUE(m_pBus->setInterfaceType(CanBus::CanInterfaceMultiport));
    EXPECT_TRUE(m_machine.isCanOpen());
    EXPECT_TRUE(m_pBus->canInterface()->isOpen());
    EXPECT_FALSE(m_pBus->isAvailable(1)); // there is no protocol
    EXPECT_TRUE(m_pBus->setProtocolType(CanBus::CanProtocolVy));
    EXPECT_TRUE(m_pBus->isAvailable(1));
}

// The test protocol takes frames for any address, so the filter is the interface's own.
TEST_F(CanBusMultiportTest, FramesAreHeardOnceEachAndFilteredOnesNotAtAll)
{
    m_pBus->setup(CanBus::CanInterfaceMultiport, CanBus::CanProtocolTest);
    QList<int> heard;
    QObject::connect(&m_rule, &CanDispatchRule::messageMatched, &m_rule,
                     [&](const auto &pMessage) { heard.append(pMessage->destination()); });
    m_machine.deliverHex("00 20 cf 05 06 02 00 62 00 00 60"); // for 0x705
    EXPECT_EQ(heard, QList<int>());
    m_machine.deliverHex("00 20 cc a8 06 02 00 62 00 00 60 00 20 cf 05 06 02 00 62 00 00 60"
                         "00 20 cf 21 06 02 00 62 00 00 60");
    EXPECT_EQ(heard, (QList<int>{0x4A8, 0x721}));
}

TEST_F(CanBusMultiportTest, MessageCanBeAwaitedInsideTheHandlingOfAnother)
{
    m_pBus->setup(CanBus::CanInterfaceMultiport, CanBus::CanProtocolVy);
    int heard = 0;
    bool hasCome = false;
    QObject::connect(&m_rule, &CanDispatchRule::messageMatched, &m_rule, [&] {
        if (++heard > 1)
            return;
        QTimer::singleShot(100ms, &m_rule, [this] {
            Q_EMIT m_machine.client().newDataOnCanBus(
                QByteArray::fromHex("00 20 cc a8 07 02 00 26 00 01 2a 0f"));
        });
        const auto before = VirtualTime::instance()->now();
        hasCome = m_pBus->waitForExpectedAnswer({-1, -1, bytes("00 01 2a")}, 500);
        EXPECT_EQ(VirtualTime::instance()->now() - before, 100ms);
    });
    m_machine.deliverHex("00 20 cc a8 06 02 00 62 00 00 60");
    EXPECT_TRUE(hasCome);
    EXPECT_EQ(heard, 2);
}
