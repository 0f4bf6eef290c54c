#include "busbench.h"

#include "support/casename.h"

using namespace std::chrono_literals;
using ::testing::IsEmpty;

// What is exchanged while it is being used. The write and the slots of a message come while no
// channel counts as busy yet.

TEST_F(BusBench, InterfaceExchangedInsideItsWriteLivesUntilTheWriteIsOver)
{
    auto *const pNew = new RecordingInterface;
    m_pInterface->setOnWrite([&](const CanFrame &) {
        EXPECT_TRUE(m_pBus->setInterface(pNew)); // the second time it is the current one already
    });
    EXPECT_TRUE(m_pBus->send(new CanMessage(s_board, s_reset, bytes("01 02 03 04")), &m_node));
    ASSERT_FALSE(m_pInterface.isNull());
    EXPECT_EQ(m_pInterface->written().size(), 2); // both frames
    EXPECT_TRUE(pNew->written().isEmpty());
    EXPECT_EQ(m_pBus->canInterface(), pNew);
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    EXPECT_EQ(channel()->lastMessageSent()->command(), s_reset);

    m_pInterface->onFrameReceived(frame(s_board, s_cpu, 0, bytes("02 00 01 00 24 27")));
    EXPECT_TRUE(channel()->isWaitingForAnswer()); // nobody listens to the old one
    advance(0ms);
    EXPECT_TRUE(m_pInterface.isNull());
    advance(1200ms);
    EXPECT_EQ(pNew->written().size(), 2); // sent again, on the new one
    m_pInterface = pNew;
    acknowledge(s_reset);
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
}

namespace {

struct ExchangeCase
{
    const char *pName;
    bool isInWrite;   ///< else in the slot that hears messageSent()
    bool isLoopBack;  ///< nothing is written then
    int protocols;    ///< how often it is exchanged
    bool isInterface; ///< this is exchanged too, behind it
};

class CanBusExchangeTable : public BusBench, public ::testing::WithParamInterface<ExchangeCase>
{
protected:
    void exchange()
    {
        if (m_isDone)
            return;
        m_isDone = true;
        for (int i = 0; i < GetParam().protocols; ++i)
            EXPECT_TRUE(
                m_pBus->setProtocolType(i == 0 ? CanBus::CanProtocolTest : CanBus::CanProtocolVy));
        if (GetParam().isInterface) {
            m_pNew = new RecordingInterface;
            EXPECT_TRUE(m_pBus->setInterface(m_pNew));
        }
        m_isOldAlive = m_pOld && m_pInterface;
    }

    const QPointer<AbstractCanProtocol> m_pOld = m_pBus->canProtocol();
    QPointer<RecordingInterface> m_pNew;
    bool m_isDone = false;
    bool m_isOldAlive = false; ///< after the exchange, while it is being used
};

} // namespace

TEST_P(CanBusExchangeTable, LetsTheMessageFailAndLeavesNoChannelWaiting)
{
    channel()->setLoopBack(GetParam().isLoopBack);
    if (GetParam().isInWrite)
        m_pInterface->setOnWrite([this](const CanFrame &frame) {
            m_journal.addFrame(frame);
            exchange();
        });
    else
        QObject::connect(m_pOld, &AbstractCanProtocol::messageSent, m_pBus, [this] { exchange(); });
    send(m_node, {s_reset});
    EXPECT_TRUE(m_isDone);
    EXPECT_TRUE(m_isOldAlive);
    Entries failure = {"log cmd = 36 ResetBoard", "wire 36", "log : Sending failed."};
    if (GetParam().isLoopBack)
        failure.erase(failure.begin() + 1);
    EXPECT_EQ(said(), failure);
    EXPECT_FALSE(m_pOld.isNull());
    EXPECT_NE(m_pBus->canProtocol(), m_pOld);
    EXPECT_FALSE(channel()->isWaitingForAnswer());
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
    if (GetParam().isInWrite) {
        EXPECT_EQ(channel()->lastMessageSent()->command(), -1); // no answer can match it
    }

    advance(1h);
    EXPECT_THAT(said(), IsEmpty());
    EXPECT_TRUE(m_pOld.isNull());
    EXPECT_EQ(m_pInterface.isNull(), GetParam().isInterface);

    // The new ones do what the old ones did.
    channel()->setLoopBack(false);
    if (m_pNew)
        m_pInterface = m_pNew;
    m_pInterface->clear();
    EXPECT_TRUE(send(m_node, {s_test}));
    EXPECT_EQ(m_pInterface->written().size(), 1);
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    said();
    acknowledge(s_test);
    EXPECT_EQ(said().at(1), "A answerAcknowledged 1 1");
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
}

const ExchangeCase s_exchangeCases[] = {
    {"ProtocolInAWrite", true, false, 1, false},
    {"ProtocolInTheSlotOfMessageSent", false, false, 1, false},
    {"ProtocolInTheSlotOfALoopBack", false, true, 1, false},
    {"BothInAWrite", true, false, 1, true},
    {"BothInTheSlotOfMessageSent", false, false, 1, true},
    {"ProtocolTwiceInAWrite", true, false, 2, false},
    {"ProtocolTwiceAndInterfaceInAWrite", true, false, 2, true},
    {"ProtocolOftenAndInterfaceInTheSlotOfMessageSent", false, false, 5, true},
};
INSTANTIATE_TEST_SUITE_P(Exchanges, CanBusExchangeTable, ::testing::ValuesIn(s_exchangeCases),
                         caseName);

TEST_F(BusBench, NothingIsExchangedInsideTheWriteWhileTheQueueHoldsMore)
{
    const AbstractCanProtocol *const pProtocol = m_pBus->canProtocol();
    int writes = 0;
    m_pInterface->setOnWrite([&](const CanFrame &) {
        ++writes;
        EXPECT_FALSE(m_pBus->setProtocolType(CanBus::CanProtocolTest));
        EXPECT_FALSE(m_pBus->setInterface(nullptr));
    });
    send(m_node, {s_reset, s_test});
    EXPECT_EQ(writes, 1);
    EXPECT_EQ(m_pBus->canProtocol(), pProtocol);
    EXPECT_EQ(m_pBus->canInterface(), m_pInterface);
    EXPECT_TRUE(channel()->isWaitingForAnswer());
}
