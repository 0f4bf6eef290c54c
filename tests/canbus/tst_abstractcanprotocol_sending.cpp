#include "canbus/canprotocol_vy.h"
#include "canbus/protocoltest.h"
#include "canbus/vycan_cmds_and_addr.h"

#include "support/logspy.h"
#include "support/messagespy.h"

#include <QMetaObject>

#include <gtest/gtest.h>

using namespace ProtocolAddress;

namespace {

class CanSending : public ProtocolFixture<CanProtocol_Vy>
{
protected:
    bool resend() { return m_pProtocol->resend(channel()); }
};

} // namespace

// -- send -----------------------------------------------------------------------------------------

TEST_F(CanSending, MessageIsWrittenKeptAndAwaited)
{
    channel()->setResendCounter(2);
    const auto pMessage = outgoing(42, bytes("10 20 30"));
    EXPECT_TRUE(m_pProtocol->send(pMessage, channel()));
    EXPECT_EQ(timeline(), (Timeline{"0 writes 42", "0 writes #1", "0 sent 42"}));
    EXPECT_EQ(m_sent, QList<Message>{pMessage});
    EXPECT_EQ(channel()->lastMessageSent(), pMessage);
    EXPECT_EQ(channel()->resendCounter(), 0);
    EXPECT_TRUE(channel()->isWaitingForAnswer());
}

TEST_F(CanSending, ChannelIsMarkedAsWaitingAfterTheMessageIsTold)
{
    bool wasWaiting = true;
    QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::messageSent, m_pProtocol.get(),
                     [&](CanBusChannel *pChannel) { wasWaiting = pChannel->isWaitingForAnswer(); });
    send();
    EXPECT_FALSE(wasWaiting);
}

TEST_F(CanSending, MessageIsLogged)
{
    LogSpy log;
    m_pProtocol->send(outgoing(36, bytes("10 ff")), channel());
    const QStringList lines = log.texts().filter(QStringLiteral("cmd ="));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.first().contains(QLatin1String("AbstractCanProtocol::sendMessage(")));
    EXPECT_TRUE(lines.first().contains(QLatin1String("cmd = 36")));
    EXPECT_TRUE(lines.first().contains(CanVy::commandCanToString(36)));
    EXPECT_TRUE(lines.first().endsWith(QLatin1String(" 0x10 0xff")));
    EXPECT_EQ(log.count("cmd =", 1, Log::CanBus), 1);
}

TEST_F(CanSending, LoopBackMessageIsLoggedToo)
{
    LogSpy log;
    channel()->setLoopBack(true);
    send();
    EXPECT_EQ(log.count("cmd ="), 1);
}

TEST_F(CanSending, SendingTwiceOnOneChannelDoublesNoTimeOut)
{
    send(42);
    send(43);
    advance(1200);
    EXPECT_EQ(timeline(), (Timeline{"0 writes 42", "0 sent 42", "0 writes 43", "0 sent 43",
                                    "1200 writes 43", "1200 sent 43"}));
}

TEST_F(CanSending, SendMessageAloneAwaitsNothing)
{
    channel()->setResendCounter(1);
    EXPECT_TRUE(m_pProtocol->sendMessage(outgoing(42), channel()));
    EXPECT_FALSE(channel()->isWaitingForAnswer());
    EXPECT_EQ(channel()->resendCounter(), 1);
}

// -- time-outs ------------------------------------------------------------------------------------

TEST_F(CanSending, MessageGoesOutThreeTimesBeforeTheTimeOutIsReported)
{
    const auto pMessage = outgoing(42);
    m_pProtocol->send(pMessage, channel());
    EXPECT_EQ(timeline(), (Timeline{"0 writes 42", "0 sent 42"}));
    advance(1199);
    EXPECT_EQ(timeline(), Timeline{});
    EXPECT_EQ(channel()->resendCounter(), 0);
    advance(1);
    EXPECT_EQ(timeline(), (Timeline{"1200 writes 42", "1200 sent 42"}));
    EXPECT_EQ(channel()->resendCounter(), 1);
    advance(1199);
    EXPECT_EQ(timeline(), Timeline{});
    advance(1);
    EXPECT_EQ(timeline(), (Timeline{"2400 writes 42", "2400 sent 42"}));
    EXPECT_EQ(channel()->resendCounter(), 2);
    advance(1199);
    EXPECT_EQ(timeline(), Timeline{});
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    advance(1);
    EXPECT_EQ(timeline(), Timeline{"3600 answer 4"});
    EXPECT_EQ(m_answers.first().pMessage, pMessage);
    EXPECT_EQ(m_answers.first().pChannel, channel());
    EXPECT_FALSE(channel()->isWaitingForAnswer());
    advance(100000);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanSending, TimeOutOfTheChannelIsKept)
{
    channel()->setTimeoutValue(500);
    send();
    timeline();
    advance(10000);
    EXPECT_EQ(timeline(), (Timeline{"500 writes 42", "500 sent 42", "1000 writes 42",
                                    "1000 sent 42", "1500 answer 4"}));
}

TEST_F(CanSending, SimulatedBusIsAwaitedShorter)
{
    TracingInterface simulated(true);
    m_pProtocol->setCanInterface(&simulated);
    send();
    advance(10000);
    EXPECT_EQ(timeline(), (Timeline{"0 sent 42", "200 sent 42", "400 sent 42", "600 answer 4"}));
}

TEST_F(CanSending, EverySendCountsItsResendsAnew)
{
    send(42);
    advance(3600);
    timeline();
    send(43);
    advance(3600);
    EXPECT_EQ(timeline(),
              (Timeline{"3600 writes 43", "3600 sent 43", "4800 writes 43", "4800 sent 43",
                        "6000 writes 43", "6000 sent 43", "7200 answer 4"}));
}

TEST_F(CanSending, ChannelsAreSupervisedEachOnItsOwn)
{
    send(42, channel(5));
    advance(700);
    send(43, channel(6));
    timeline();
    advance(1200);
    EXPECT_EQ(timeline(),
              (Timeline{"1200 writes 42", "1200 sent 42", "1900 writes 43", "1900 sent 43"}));
}

TEST_F(CanSending, TimeOutOfAChannelThatDoesNotWaitIsIgnored)
{
    m_pProtocol->sendMessage(outgoing(42), channel());
    timeline();
    m_pProtocol->onAnswerTimeout(channel());
    EXPECT_EQ(timeline(), Timeline{});
    EXPECT_EQ(channel()->resendCounter(), 0);
}

TEST_F(CanSending, TimeOutWithoutLastMessageIsReportedAtOnce)
{
    send();
    channel()->setLastMessageSent({});
    timeline();
    advance(1200);
    EXPECT_EQ(timeline(), Timeline{"1200 answer 4"});
    EXPECT_EQ(m_answers.first().pMessage, nullptr);
    EXPECT_EQ(channel()->resendCounter(), 0);
}

TEST_F(CanSending, CounterAboveTwoIsReportedAtOnce)
{
    send();
    channel()->setResendCounter(7);
    timeline();
    advance(1200);
    EXPECT_EQ(timeline(), Timeline{"1200 answer 4"});
}

TEST_F(CanSending, ResendThatCannotBeWrittenCountsLikeAnyOther)
{
    const MessageSpy quiet;
    send();
    m_pInterface->setRefusing(true);
    timeline();
    advance(2400);
    EXPECT_EQ(timeline(), Timeline{});
    EXPECT_EQ(channel()->resendCounter(), 2);
    advance(1199);
    EXPECT_EQ(timeline(), Timeline{});
    advance(1);
    EXPECT_EQ(timeline(), Timeline{"3600 answer 4"});
}

TEST_F(CanSending, InterfaceThatComesBackGetsTheSecondResend)
{
    const MessageSpy quiet;
    send();
    m_pInterface->setRefusing(true);
    advance(1200);
    m_pInterface->setRefusing(false);
    timeline();
    advance(2400);
    EXPECT_EQ(timeline(), (Timeline{"2400 writes 42", "2400 sent 42", "3600 answer 4"}));
}

TEST_F(CanSending, AnswerInTheLastMillisecondIsInTime)
{
    send();
    advance(1199);
    timeline();
    answer(1);
    advance(5000);
    EXPECT_EQ(timeline(), Timeline{"1199 answer 1"});
}

// -- resend ---------------------------------------------------------------------------------------

TEST_F(CanSending, ResendStartsTheAnswerTimerAnew)
{
    send();
    advance(700);
    timeline();
    EXPECT_TRUE(resend());
    EXPECT_EQ(channel()->resendCounter(), 0) << "who asks for it counts";
    advance(1199);
    EXPECT_EQ(timeline(), (Timeline{"700 writes 42", "700 sent 42"}));
    advance(1);
    EXPECT_EQ(timeline(), (Timeline{"1900 writes 42", "1900 sent 42"}));
}

TEST_F(CanSending, ResendWithoutLastMessageIsLogged)
{
    LogSpy log;
    channel()->setLastMessageSent({});
    EXPECT_FALSE(resend());
    EXPECT_EQ(log.count("Last message is null, can't resend it!", 3, Log::CanBus), 1);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanSending, ResendThatCannotBeWrittenLeavesTheTimer)
{
    const MessageSpy quiet;
    send();
    advance(700);
    m_pInterface->setRefusing(true);
    EXPECT_FALSE(resend());
    m_pInterface->setRefusing(false);
    timeline();
    advance(500);
    EXPECT_EQ(timeline(), (Timeline{"1200 writes 42", "1200 sent 42"}));
}

// -- loop-back ------------------------------------------------------------------------------------

TEST_F(CanSending, LoopBackMessageGoesNowhereAndIsAcknowledgedOnALaterTurn)
{
    channel()->setLoopBack(true);
    auto pMessage = QSharedPointer<CanMessage>::create(Board, 42, bytes("10 20"));
    pMessage->setSource(0x123);
    const auto pBefore = channel()->lastMessageSent();
    EXPECT_TRUE(m_pProtocol->send(pMessage, channel()));
    EXPECT_EQ(timeline(), Timeline{"0 sent 42"});
    EXPECT_TRUE(channel()->isWaitingForAnswer());

    turn();
    EXPECT_EQ(timeline(), Timeline{"0 answer 1"});
    EXPECT_FALSE(channel()->isWaitingForAnswer());
    EXPECT_EQ(channel()->lastMessageSent(), pBefore);
    EXPECT_TRUE(m_pInterface->written().isEmpty());

    const Message &pReturned = m_answers.first().pMessage;
    EXPECT_EQ(pReturned, m_sent.first());
    EXPECT_NE(pReturned, pMessage);
    EXPECT_EQ(pReturned->source(), Board);
    EXPECT_EQ(pReturned->destination(), 0x123);
    EXPECT_EQ(pReturned->command(), 42);
    EXPECT_EQ(pReturned->data(), bytes("10 20"));
    advance(5000);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanSending, LoopBackNeedsNoInterface)
{
    m_pProtocol->setCanInterface(nullptr);
    channel()->setLoopBack(true);
    EXPECT_TRUE(send());
    turn();
    EXPECT_EQ(timeline(), (Timeline{"0 sent 42", "0 answer 1"}));
    EXPECT_EQ(m_sent.first()->destination(), -1) << "the message named no source";
}

TEST_F(CanSending, MessageSentOnTheBusIsNotAcknowledgedByThat)
{
    send();
    m_pProtocol->onMessageSent(channel(), outgoing(42));
    turn();
    EXPECT_TRUE(m_answers.isEmpty());
    EXPECT_TRUE(channel()->isWaitingForAnswer());
}

// -- what goes away meanwhile ---------------------------------------------------------------------

TEST_F(CanSending, DeletedInterfaceLetsTheMessageRunIntoItsTimeOut)
{
    const MessageSpy quiet;
    send();
    timeline();
    m_pInterface.reset();
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{"3600 answer 4"});
}

TEST_F(CanSending, InterfaceCanGoInsideMessageSent)
{
    const MessageSpy quiet;
    QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::messageSent, m_pProtocol.get(),
                     [this] { m_pInterface.reset(); });
    EXPECT_TRUE(send());
    timeline();
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{"3600 answer 4"});
}

TEST_F(CanSending, DeletedChannelIsNotHeardOfAgain)
{
    send();
    timeline();
    CanBusChannel::deleteChannels();
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanSending, QueuedCompletionTouchesNoDeletedChannel)
{
    channel()->setLoopBack(true);
    send();
    timeline();
    CanBusChannel::deleteChannels();
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{});
}

TEST_F(CanSending, ChannelCanGoInsideItsAnswer)
{
    QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::answerReceived, m_pProtocol.get(),
                     &CanBusChannel::deleteChannels);
    m_pProtocol->send(outgoing(42, {}, Shared), channel());
    answer(1);
    EXPECT_EQ(m_answers.size(), 1);
    EXPECT_TRUE(CanBusChannel::channels().isEmpty());
}

TEST_F(CanSending, ChannelCanGoInsideItsTimeOut)
{
    QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::answerReceived, m_pProtocol.get(),
                     &CanBusChannel::deleteChannels, Qt::QueuedConnection);
    send();
    advance(10000);
    EXPECT_EQ(m_answers.size(), 1);
    EXPECT_TRUE(CanBusChannel::channels().isEmpty());
}

TEST_F(CanSending, ChannelOutlivesItsProtocol)
{
    send();
    m_pProtocol.reset();
    advance(10000);
    EXPECT_EQ(m_pInterface->written().size(), 1);
    EXPECT_TRUE(m_answers.isEmpty());
}

TEST_F(CanSending, NewProtocolTakesTheChannelOver)
{
    send();
    m_pProtocol = std::make_unique<Exposed<CanProtocol_Vy>>(nullptr);
    m_pProtocol->setOwnAddress(Own);
    m_pProtocol->setCanInterface(m_pInterface.get());
    advance(600);
    timeline();
    send(43);
    advance(1200);
    EXPECT_EQ(timeline(), (Timeline{"600 writes 43", "1800 writes 43"}));
}

TEST_F(CanSending, ChannelCanGoInsideMessageSent)
{
    QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::messageSent, m_pProtocol.get(),
                     &CanBusChannel::deleteChannels);
    EXPECT_TRUE(send());
    advance(10000);
    EXPECT_EQ(timeline(), (Timeline{"0 writes 42", "0 sent 42"}));
}

TEST_F(CanSending, ChannelCanGoInsideTheMessageSentOfAResend)
{
    send();
    QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::messageSent, m_pProtocol.get(),
                     &CanBusChannel::deleteChannels);
    timeline();
    advance(10000);
    EXPECT_EQ(timeline(), (Timeline{"1200 writes 42", "1200 sent 42"}));
}

TEST_F(CanSending, ChannelCanGoInsideTheWrite)
{
    m_pInterface->setOnWrite([](const CanFrame &) { CanBusChannel::deleteChannels(); });
    send();
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{}) << "nobody is told of a channel that is gone";
    EXPECT_EQ(m_pInterface->written().size(), 1);
}

// -- a channel that is in no list -----------------------------------------------------------------

TEST_F(CanSending, ChannelOfItsOwnIsSupervisedToo)
{
    CanBusChannel own(7);
    EXPECT_TRUE(send(42, &own));
    EXPECT_TRUE(own.isWaitingForAnswer());
    advance(10000);
    EXPECT_EQ(timeline(), (Timeline{"0 writes 42", "0 sent 42", "1200 writes 42", "1200 sent 42",
                                    "2400 writes 42", "2400 sent 42", "3600 answer 4"}));
}

TEST_F(CanSending, LoopBackOnAChannelOfItsOwnIsAcknowledged)
{
    CanBusChannel own(7);
    own.setLoopBack(true);
    EXPECT_TRUE(send(42, &own));
    turn();
    EXPECT_EQ(timeline(), (Timeline{"0 sent 42", "0 answer 1"}));
    EXPECT_FALSE(own.isWaitingForAnswer());
}
