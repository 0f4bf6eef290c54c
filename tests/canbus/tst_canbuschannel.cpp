#include "busbench.h"
#include "interfaceprobe.h"

#include "support/logspy.h"

#include <QSignalSpy>

#include <limits>

using namespace std::chrono_literals;
using ::testing::ElementsAre;

class CanBusChannelTest : public ::testing::Test
{
protected:
    ~CanBusChannelTest() override
    {
        CanBusChannel::deleteChannels();
        CanBusChannel::setGlobalTimeoutValue(1200);
    }

    static void advance(std::chrono::milliseconds duration)
    {
        VirtualTime::instance()->advance(duration);
    }
};

TEST_F(CanBusChannelTest, NewChannelIsIdleAndEmpty)
{
    const CanBusChannel channel(42);
    EXPECT_EQ(channel.id(), 42);
    EXPECT_FALSE(channel.isWaitingForAnswer());
    EXPECT_FALSE(channel.isLoopBack());
    EXPECT_EQ(channel.resendCounter(), 0);
    EXPECT_TRUE(channel.lastSendTime().isNull());
    EXPECT_EQ(channel.timeoutValue(), 1200);
    ASSERT_FALSE(channel.lastMessageSent().isNull());
    EXPECT_EQ(channel.lastMessageSent()->command(), -1);
    EXPECT_EQ(channel.lastMessageSent()->destination(), -1);
    EXPECT_FALSE(channel.hasPendingMessages());
    EXPECT_EQ(channel.node(), nullptr);
}

TEST_F(CanBusChannelTest, ChannelIsMadeOnceAndKeptByItsNumber)
{
    CanBusChannel *const pChannel = CanBusChannel::channel(7);
    ASSERT_NE(pChannel, nullptr);
    EXPECT_EQ(pChannel->id(), 7);
    EXPECT_EQ(CanBusChannel::channel(7), pChannel);
    EXPECT_NE(CanBusChannel::channel(8), pChannel);
    EXPECT_EQ(CanBusChannel::channels().value(7), pChannel);
    EXPECT_TRUE(CanBusChannel::exists(pChannel));
}

TEST_F(CanBusChannelTest, ChannelsStandInAscendingOrder)
{
    for (const int id : {5, -3, 1000, 0, 2})
        CanBusChannel::channel(id);
    EXPECT_EQ(CanBusChannel::channels().keys(), (QList<int>{-3, 0, 2, 5, 1000}));
}

TEST_F(CanBusChannelTest, DeleteChannelsDeletesAllAndEmptiesTheMap)
{
    const QPointer<CanBusChannel> pFirst = CanBusChannel::channel(1);
    const QPointer<CanBusChannel> pSecond = CanBusChannel::channel(2);
    const CanBusChannel *const pGone = pFirst;
    CanBusChannel::deleteChannels();
    EXPECT_TRUE(pFirst.isNull());
    EXPECT_TRUE(pSecond.isNull());
    EXPECT_TRUE(CanBusChannel::channels().isEmpty());
    EXPECT_FALSE(CanBusChannel::exists(pGone));
    EXPECT_FALSE(CanBusChannel::exists(nullptr));
    CanBusChannel::deleteChannels();
}

TEST_F(CanBusChannelTest, WaitingRunsTheTimerAndTellsItEachTimeUntilItEnds)
{
    CanBusChannel *const pChannel = CanBusChannel::channel(1);
    const QSignalSpy timeouts(pChannel, &CanBusChannel::timeout);
    advance(5000ms);
    EXPECT_EQ(timeouts.count(), 0);
    pChannel->setIsWaitingForAnswer(true);
    EXPECT_TRUE(pChannel->isWaitingForAnswer());
    advance(1199ms);
    EXPECT_EQ(timeouts.count(), 0);
    advance(1ms);
    ASSERT_EQ(timeouts.count(), 1);
    EXPECT_EQ(timeouts.constFirst().constFirst().value<CanBusChannel *>(), pChannel);
    advance(1200ms);
    EXPECT_EQ(timeouts.count(), 2);
    pChannel->setIsWaitingForAnswer(false);
    EXPECT_FALSE(pChannel->isWaitingForAnswer());
    advance(1h);
    EXPECT_EQ(timeouts.count(), 2);
}

TEST_F(CanBusChannelTest, WaitingAgainStartsTheTimerAnew)
{
    CanBusChannel *const pChannel = CanBusChannel::channel(1);
    const QSignalSpy timeouts(pChannel, &CanBusChannel::timeout);
    pChannel->setIsWaitingForAnswer(true);
    advance(1000ms);
    pChannel->setIsWaitingForAnswer(true);
    advance(1199ms);
    EXPECT_EQ(timeouts.count(), 0);
    advance(1ms);
    EXPECT_EQ(timeouts.count(), 1);
}

TEST_F(CanBusChannelTest, GlobalTimeoutOf500IsForAllChannelsAndThoseMadeLater)
{
    const CanBusChannel *const pFirst = CanBusChannel::channel(1);
    CanBusChannel *const pSecond = CanBusChannel::channel(2);
    pSecond->setTimeoutValue(300);
    CanBusChannel::setGlobalTimeoutValue(500);
    EXPECT_EQ(CanBusChannel::globalTimeoutValue(), 500);
    EXPECT_EQ(pFirst->timeoutValue(), 500);
    EXPECT_EQ(pSecond->timeoutValue(), 500);
    EXPECT_EQ(CanBusChannel::channel(3)->timeoutValue(), 500);
    EXPECT_EQ(CanBusChannel(4).timeoutValue(), 500);
}

TEST_F(CanBusChannelTest, TimeoutOfOneChannelIsItsOwn)
{
    CanBusChannel *const pFirst = CanBusChannel::channel(1);
    const CanBusChannel *const pSecond = CanBusChannel::channel(2);
    pFirst->setTimeoutValue(300);
    EXPECT_EQ(pFirst->timeoutValue(), 300);
    EXPECT_EQ(pSecond->timeoutValue(), 1200);
    EXPECT_EQ(CanBusChannel::globalTimeoutValue(), 1200);
    const QSignalSpy timeouts(pFirst, &CanBusChannel::timeout);
    pFirst->setIsWaitingForAnswer(true);
    advance(300ms);
    EXPECT_EQ(timeouts.count(), 1);
}

TEST_F(CanBusChannelTest, SameGlobalTimeoutLeavesARunningTimerAlone)
{
    CanBusChannel *const pChannel = CanBusChannel::channel(1);
    const QSignalSpy timeouts(pChannel, &CanBusChannel::timeout);
    pChannel->setIsWaitingForAnswer(true);
    advance(700ms);
    CanBusChannel::setGlobalTimeoutValue(1200);
    advance(500ms);
    EXPECT_EQ(timeouts.count(), 1);
}

TEST_F(CanBusChannelTest, LastMessageSentComesWithItsTime)
{
    CanBusChannel channel(1);
    const auto pMessage = CanBusChannel::Message::create(0x419, 36);
    const QTime before = QTime::currentTime();
    channel.setLastMessageSent(pMessage);
    EXPECT_EQ(channel.lastMessageSent(), pMessage);
    ASSERT_TRUE(channel.lastSendTime().isValid());
    constexpr int dayMs = 24 * 60 * 60 * 1000;
    const int passedMs = before.msecsTo(channel.lastSendTime());
    EXPECT_LT((passedMs + dayMs) % dayMs, 10000); // midnight may lie between them
}

TEST_F(CanBusChannelTest, ResetPutsTheSamePlaceholderEachTime)
{
    CanBusChannel channel(1);
    channel.setLastMessageSent(CanBusChannel::Message::create(0x419, 36));
    channel.resetLastCommandMessageSent();
    const CanBusChannel::Message pPlaceholder = channel.lastMessageSent();
    EXPECT_EQ(pPlaceholder->command(), -1);
    EXPECT_EQ(pPlaceholder->destination(), 0xFFFF);
    channel.setLastMessageSent(CanBusChannel::Message::create(0x419, 36));
    channel.resetLastCommandMessageSent();
    EXPECT_EQ(channel.lastMessageSent(), pPlaceholder);
}

TEST_F(CanBusChannelTest, PendingMessagesAreFirstInFirstOut)
{
    CanBusChannel channel(1);
    for (const int command : {3, 4, 5})
        channel.appendPendingMessage(CanBusChannel::Message::create(0x419, command));
    EXPECT_TRUE(channel.hasPendingMessages());
    EXPECT_EQ(channel.takeFirstPendingMessage()->command(), 3);
    EXPECT_EQ(channel.takeFirstPendingMessage()->command(), 4);
    channel.clearPendingMessages();
    EXPECT_FALSE(channel.hasPendingMessages());
}

TEST_F(CanBusChannelTest, NodeThatDiesIsForgotten)
{
    CanBusChannel channel(1);
    auto *const pNode = new CanBusNode(1);
    channel.setNode(pNode);
    EXPECT_EQ(channel.node(), pNode);
    delete pNode;
    EXPECT_EQ(channel.node(), nullptr);
}

TEST_F(CanBusChannelTest, DeletingAChannelThatWaitsEndsItsTimer)
{
    CanBusChannel *const pChannel = CanBusChannel::channel(1);
    QObject context;
    int timeouts = 0;
    QObject::connect(pChannel, &CanBusChannel::timeout, &context, [&] { ++timeouts; });
    pChannel->setIsWaitingForAnswer(true);
    advance(1200ms);
    EXPECT_EQ(timeouts, 1);
    CanBusChannel::deleteChannels();
    advance(1h);
    EXPECT_EQ(timeouts, 1);
}

TEST_F(CanBusChannelTest, ChannelDeletedByItselfLeavesTheListAndCanBeMadeAgain)
{
    CanBusChannel *const pFirst = CanBusChannel::channel(1);
    CanBusChannel *const pSecond = CanBusChannel::channel(2);
    delete pFirst;
    EXPECT_EQ(CanBusChannel::channels().keys(), QList<int>{2});
    EXPECT_TRUE(CanBusChannel::exists(pSecond));
    const CanBusChannel *const pAgain = CanBusChannel::channel(1);
    EXPECT_TRUE(CanBusChannel::exists(pAgain));
    EXPECT_FALSE(pAgain->isWaitingForAnswer());
}

TEST_F(CanBusChannelTest, ChannelInNoListLeavesTheOneOfItsNumberThere)
{
    const CanBusChannel *const pListed = CanBusChannel::channel(1);
    {
        const CanBusChannel other(1);
    }
    EXPECT_EQ(CanBusChannel::channels().value(1), pListed);
}

TEST_F(CanBusChannelTest, NegativeTimeoutsAreRefused)
{
    CanBusChannel *const pChannel = CanBusChannel::channel(1);
    pChannel->setTimeoutValue(300);
    for (const int timeoutMs : {-1, std::numeric_limits<int>::min()}) {
        const LogSpy log;
        pChannel->setTimeoutValue(timeoutMs);
        CanBusChannel::setGlobalTimeoutValue(timeoutMs);
        const QString said = QStringLiteral("Invalid time-out %1 ").arg(timeoutMs);
        EXPECT_EQ(
            log.count(QStringLiteral("::setTimeoutValue(int) ") + said, LogError, Log::CanBus), 1);
        EXPECT_EQ(log.count(QStringLiteral("::setGlobalTimeoutValue(int) ") + said, LogError,
                            Log::CanBus),
                  1);
        EXPECT_EQ(log.records().size(), 2);
        EXPECT_EQ(pChannel->timeoutValue(), 300);
        EXPECT_EQ(CanBusChannel::globalTimeoutValue(), 1200);
    }
    const LogSpy log;
    pChannel->setTimeoutValue(0);
    CanBusChannel::setGlobalTimeoutValue(0);
    EXPECT_EQ(pChannel->timeoutValue(), 0);
    EXPECT_EQ(CanBusChannel::globalTimeoutValue(), 0);
    EXPECT_TRUE(log.records().isEmpty());
}

TEST_F(CanBusChannelTest, ChannelDeletedInTheSlotThatHearsItsTimeoutHarmsNothing)
{
    CanBusChannel *const pChannel = CanBusChannel::channel(1);
    QObject::connect(pChannel, &CanBusChannel::timeout, [] { CanBusChannel::deleteChannels(); });
    pChannel->setIsWaitingForAnswer(true);
    advance(1h);
    EXPECT_TRUE(CanBusChannel::channels().isEmpty());
}

TEST(CanBusChannelInterface, SignalAndSlot)
{
    EXPECT_THAT(methodsOf(CanBusChannel::staticMetaObject, QMetaMethod::Signal),
                ElementsAre("timeout(CanBusChannel*)"));
    EXPECT_THAT(methodsOf(CanBusChannel::staticMetaObject, QMetaMethod::Slot),
                ElementsAre("onTimeout()"));
    EXPECT_STREQ(CanBusChannel::staticMetaObject.superClass()->className(), "QObject");
}

class AfterCanBusChannel : public CanBusChannel
{
public:
    using CanBusChannel::CanBusChannel;
    virtual void next() {}
};

TEST(CanBusChannelInterface, AddsNoVirtualOperationToQObject)
{
    EXPECT_EQ(placeOf(&AfterCanBusChannel::next), placeAfterQObject(0));
}
