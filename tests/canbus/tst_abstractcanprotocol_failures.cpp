#include "canbus/canprotocol_vy.h"
#include "canbus/protocoltest.h"

#include "support/messagespy.h"

#include <gtest/gtest.h>

namespace {

// What the engine cannot send, or not send any more.
class CanSendingFailures : public ProtocolFixture<CanProtocol_Vy>
{
protected:
    /// How often Qt has said that the slot which is named for a failure does not exist. It is meant
    /// not to.
    static int missingSlots(const MessageSpy &qt)
    {
        int count = 0;
        const auto all = qt.messages();
        for (const MessageSpy::Message &message : all)
            count += message.type == QtWarningMsg &&
                     message.text.contains(QLatin1String("No such method")) &&
                     message.text.contains(QLatin1String("::onSendingError("));
        return count;
    }

    /// A send that fails tells nobody, now or later, and leaves the channel as it was.
    void expectFalseResultAlone()
    {
        const MessageSpy qt;
        const auto pBefore = channel()->lastMessageSent();
        EXPECT_FALSE(send());
        advance(10000);
        EXPECT_EQ(timeline(), Timeline{});
        EXPECT_FALSE(channel()->isWaitingForAnswer());
        EXPECT_EQ(channel()->lastMessageSent(), pBefore);
        EXPECT_EQ(missingSlots(qt), 1);
    }
};

} // namespace

TEST_F(CanSendingFailures, WithoutInterfaceTheFalseResultIsTheOnlyReport)
{
    m_pProtocol->setCanInterface(nullptr);
    expectFalseResultAlone();
}

TEST_F(CanSendingFailures, RefusingInterfaceGivesAFalseResultAlone)
{
    m_pInterface->setRefusing(true);
    expectFalseResultAlone();
}

TEST_F(CanSendingFailures, EachFailureNamesTheSlotOnce)
{
    const MessageSpy qt;
    m_pInterface->setRefusing(true);
    for (int i = 1; i <= 3; ++i) {
        send();
        turn();
        EXPECT_EQ(missingSlots(qt), i);
    }
    m_pInterface->setRefusing(false);
    send();
    turn();
    EXPECT_EQ(missingSlots(qt), 3);
}

TEST_F(CanSendingFailures, FailureHasBegunANewCountOfResends)
{
    const MessageSpy quiet;
    channel()->setResendCounter(2);
    m_pInterface->setRefusing(true);
    EXPECT_FALSE(send());
    EXPECT_EQ(channel()->resendCounter(), 0);
}

TEST_F(CanSendingFailures, ProtocolThatComesBackToAChannelHearsItsTimeOutOnce)
{
    TracingInterface otherInterface;
    CanProtocol_Vy other(nullptr);
    other.setCanInterface(&otherInterface);
    send(42);
    other.send(outgoing(43), channel());
    send(44);
    timeline();
    otherInterface.clear();
    advance(1200);
    // Each of the two sends it again, which leaves the count where a third would give up.
    EXPECT_EQ(timeline(), (Timeline{"1200 writes 44", "1200 sent 44"}));
    EXPECT_EQ(otherInterface.written().size(), 1);
    EXPECT_EQ(channel()->resendCounter(), 2);
}

TEST_F(CanSendingFailures, MessageThatIsRefusedHalfWayIsNotSent)
{
    const MessageSpy quiet;
    m_pInterface->setOnWrite([this](const CanFrame &) { m_pInterface->setRefusing(true); });
    EXPECT_FALSE(m_pProtocol->send(outgoing(42, bytes("10 20 30")), channel()));
    EXPECT_EQ(m_pInterface->written().size(), 1);
    EXPECT_TRUE(m_sent.isEmpty());
    EXPECT_FALSE(channel()->isWaitingForAnswer());
}

TEST_F(CanSendingFailures, RefusedSendKeepsTheWaitOfTheMessageBefore)
{
    const MessageSpy quiet;
    send(42);
    m_pInterface->setRefusing(true);
    EXPECT_FALSE(send(43));
    m_pInterface->setRefusing(false);
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    answer(1, 42);
    ASSERT_EQ(m_answers.size(), 1);
    EXPECT_EQ(m_answers.first().type, CanAnswer::AnswerAck);
}

TEST_F(CanSendingFailures, SendingErrorEndsTheWaitAndIsReported)
{
    send();
    const auto pMessage = outgoing(43);
    EXPECT_TRUE(QMetaObject::invokeMethod(m_pProtocol.get(), "onSendingError",
                                          // The meta-object spells it so:
                                          // clang-format off
                                          Q_ARG(CanBusChannel*, channel()),
                                          // clang-format on
                                          Q_ARG(QSharedPointer<const CanMessage>, pMessage)));
    ASSERT_EQ(m_answers.size(), 1);
    EXPECT_EQ(m_answers.first().type, CanAnswer::AnswerSendingError);
    EXPECT_EQ(m_answers.first().pMessage, pMessage);
    EXPECT_EQ(m_answers.first().pChannel, channel());
    EXPECT_FALSE(channel()->isWaitingForAnswer());
    timeline();
    advance(5000);
    EXPECT_EQ(timeline(), Timeline{});
}
