#include "busbench.h"

#include "canbus/candispatchrule.h"

#include "support/logspy.h"

#include <memory>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CanBusRulesTest : public BusBench
{
protected:
    /// A rule that lets everything pass and writes down what it is asked.
    std::unique_ptr<CanDispatchRule> rule(const char *pName)
    {
        auto pRule = std::make_unique<CanDispatchRule>();
        pRule->setCommandsRule(CanDispatchRule::RuleAll);
        pRule->setSourceAddressesRule(CanDispatchRule::RuleAll);
        QObject::connect(pRule.get(), &CanDispatchRule::messageMatched, m_pBus,
                         [this, pName](const auto &pMessage) {
                             m_heard.push_back(pName + std::to_string(pMessage->command()));
                         });
        return pRule;
    }

    /// When the rule passes a message, once.
    template <typename Action>
    void whenItPasses(const CanDispatchRule *pRule, Action action)
    {
        QObject::connect(pRule, &CanDispatchRule::messageMatched, m_pBus,
                         [action, isDone = false]() mutable {
                             if (!std::exchange(isDone, true))
                                 action();
                         });
    }

    Entries dispatch(int command)
    {
        m_pBus->onMessageReceived(messageFrom(s_board, command));
        return std::exchange(m_heard, {});
    }

    Entries m_heard;
    std::unique_ptr<CanDispatchRule> m_pFirst = rule("first ");
    std::unique_ptr<CanDispatchRule> m_pSecond = rule("second ");
    std::unique_ptr<CanDispatchRule> m_pThird = rule("third ");
};

TEST_F(CanBusRulesTest, RulesAreAskedInTheOrderInWhichTheyWereAdded)
{
    EXPECT_TRUE(m_pBus->addDispatchRule(m_pSecond.get()));
    EXPECT_TRUE(m_pBus->addDispatchRule(m_pThird.get()));
    EXPECT_TRUE(m_pBus->addDispatchRule(m_pFirst.get()));
    EXPECT_THAT(dispatch(98), ElementsAre("second 98", "third 98", "first 98"));
}

TEST_F(CanBusRulesTest, RuleThatDoesNotMatchKeepsNothingFromTheOthers)
{
    CanDispatchRule closed;
    m_pBus->addDispatchRule(&closed);
    m_pBus->addDispatchRule(m_pFirst.get());
    EXPECT_THAT(dispatch(98), ElementsAre("first 98"));
}

TEST_F(CanBusRulesTest, SpontaneousMessageIsAcknowledgedAndThenOffered)
{
    m_pBus->addDispatchRule(m_pFirst.get());
    m_pInterface->setOnWrite([this](const CanFrame &frame) {
        m_heard.push_back(VYCanFrame::destinationAddress(frame) == s_board ? "acknowledge" : "?");
    });
    speak(s_board, 98);
    EXPECT_THAT(m_heard, ElementsAre("acknowledge", "first 98"));
}

TEST_F(CanBusRulesTest, AnswerIsNotOffered)
{
    m_pBus->addDispatchRule(m_pFirst.get());
    send(m_node, {s_reset});
    acknowledge(s_reset);
    acknowledge(s_test);
    EXPECT_THAT(m_heard, IsEmpty());
}

TEST_F(CanBusRulesTest, SameRuleTwiceIsRefused)
{
    EXPECT_TRUE(m_pBus->addDispatchRule(m_pFirst.get()));
    LogSpy log;
    EXPECT_FALSE(m_pBus->addDispatchRule(m_pFirst.get()));
    EXPECT_EQ(log.count(": Rule is already present", LogWarning, Log::CanBus), 1);
    EXPECT_TRUE(log.texts().constFirst().startsWith(
        QStringLiteral("bool CanBus::addDispatchRule(CanDispatchRule*) ")));
    EXPECT_THAT(dispatch(98), ElementsAre("first 98"));
}

TEST_F(CanBusRulesTest, NullRuleIsRefused)
{
    LogSpy log;
    EXPECT_FALSE(m_pBus->addDispatchRule(nullptr));
    EXPECT_EQ(log.count(": Rule is NULL", LogError, Log::CanBus), 1);
    EXPECT_TRUE(log.texts().constFirst().startsWith(
        QStringLiteral("bool CanBus::addDispatchRule(CanDispatchRule*) ")));
    log.clear();
    EXPECT_FALSE(m_pBus->removeDispatchRule(nullptr));
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.texts().constFirst(),
              QStringLiteral("bool CanBus::removeDispatchRule(CanDispatchRule*) Rule is NULL"));
}

TEST_F(CanBusRulesTest, RemovedRuleIsNotAskedAndCanBeRemovedOnce)
{
    m_pBus->addDispatchRule(m_pFirst.get());
    m_pBus->addDispatchRule(m_pSecond.get());
    EXPECT_TRUE(m_pBus->removeDispatchRule(m_pFirst.get()));
    EXPECT_THAT(dispatch(98), ElementsAre("second 98"));
    LogSpy log;
    EXPECT_FALSE(m_pBus->removeDispatchRule(m_pFirst.get()));
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.texts().constFirst(),
              QStringLiteral("bool CanBus::removeDispatchRule(CanDispatchRule*) Rule not found"));
}

TEST_F(CanBusRulesTest, RemovedRuleCanBeAddedAgainAtTheEnd)
{
    m_pBus->addDispatchRule(m_pFirst.get());
    m_pBus->addDispatchRule(m_pSecond.get());
    m_pBus->removeDispatchRule(m_pFirst.get());
    EXPECT_TRUE(m_pBus->addDispatchRule(m_pFirst.get()));
    EXPECT_THAT(dispatch(98), ElementsAre("second 98", "first 98"));
}

TEST_F(CanBusRulesTest, ClearedRulesLiveOnAndAreNotAsked)
{
    m_pBus->addDispatchRule(m_pFirst.get());
    m_pBus->addDispatchRule(m_pSecond.get());
    m_pBus->clearDispatchRules();
    EXPECT_THAT(dispatch(98), IsEmpty());
    EXPECT_TRUE(m_pBus->addDispatchRule(m_pFirst.get()));
    EXPECT_THAT(dispatch(98), ElementsAre("first 98"));
    m_pBus->clearDispatchRules();
    m_pBus->clearDispatchRules();
}

TEST_F(CanBusRulesTest, BusDoesNotTakeTheRule)
{
    m_pBus->addDispatchRule(m_pFirst.get());
    EXPECT_EQ(m_pFirst->parent(), nullptr);
}

TEST_F(CanBusRulesTest, DestroyedRuleIsForgotten)
{
    m_pBus->addDispatchRule(m_pFirst.get());
    m_pBus->addDispatchRule(m_pSecond.get());
    m_pFirst.reset();
    EXPECT_THAT(dispatch(98), ElementsAre("second 98"));
}

TEST_F(CanBusRulesTest, RuleThatOutlivesTheBusHarmsNothing)
{
    m_pBus->addDispatchRule(m_pFirst.get());
    CanBus::deleteInstance();
    m_pFirst.reset();
    EXPECT_FALSE(CanBus::instance()->removeDispatchRule(m_pSecond.get()));
}

// During a dispatch.

class CanBusDispatchTest : public CanBusRulesTest
{
protected:
    CanBusDispatchTest()
    {
        m_pBus->addDispatchRule(m_pFirst.get());
        m_pBus->addDispatchRule(m_pSecond.get());
        m_pBus->addDispatchRule(m_pThird.get());
    }
};

TEST_F(CanBusDispatchTest, RuleThatRemovesItselfKeepsNothingFromTheOthers)
{
    whenItPasses(m_pFirst.get(), [this] { m_pBus->removeDispatchRule(m_pFirst.get()); });
    EXPECT_THAT(dispatch(98), ElementsAre("first 98", "second 98", "third 98"));
    EXPECT_THAT(dispatch(99), ElementsAre("second 99", "third 99"));
}

TEST_F(CanBusDispatchTest, RuleRemovedBeforeItsTurnIsNotAsked)
{
    whenItPasses(m_pFirst.get(), [this] { m_pBus->removeDispatchRule(m_pSecond.get()); });
    EXPECT_THAT(dispatch(98), ElementsAre("first 98", "third 98"));
}

TEST_F(CanBusDispatchTest, RuleRemovedAfterItsTurnKeepsNothingFromTheOthers)
{
    whenItPasses(m_pSecond.get(), [this] { m_pBus->removeDispatchRule(m_pFirst.get()); });
    EXPECT_THAT(dispatch(98), ElementsAre("first 98", "second 98", "third 98"));
}

TEST_F(CanBusDispatchTest, RuleDestroyedBeforeItsTurnIsNotAsked)
{
    whenItPasses(m_pFirst.get(), [this] { m_pSecond.reset(); });
    EXPECT_THAT(dispatch(98), ElementsAre("first 98", "third 98"));
    EXPECT_THAT(dispatch(99), ElementsAre("first 99", "third 99"));
}

TEST_F(CanBusDispatchTest, RuleThatIsDestroyedInItsOwnSlotHarmsNothing)
{
    whenItPasses(m_pFirst.get(), [this] { m_pFirst.reset(); });
    EXPECT_THAT(dispatch(98), ElementsAre("first 98", "second 98", "third 98"));
    EXPECT_THAT(dispatch(99), ElementsAre("second 99", "third 99"));
}

TEST_F(CanBusDispatchTest, RulesClearedMeanwhileAreNotAsked)
{
    whenItPasses(m_pSecond.get(), [this] { m_pBus->clearDispatchRules(); });
    EXPECT_THAT(dispatch(98), ElementsAre("first 98", "second 98"));
    EXPECT_THAT(dispatch(99), IsEmpty());
}

TEST_F(CanBusDispatchTest, RuleAddedMeanwhileIsAskedFromTheNextMessageOn)
{
    const auto pFourth = rule("fourth ");
    whenItPasses(m_pFirst.get(), [this, &pFourth] { m_pBus->addDispatchRule(pFourth.get()); });
    const Entries heard = dispatch(98);
    EXPECT_THAT(Entries(heard.begin(), heard.begin() + 3),
                ElementsAre("first 98", "second 98", "third 98"));
    EXPECT_THAT(dispatch(99), ElementsAre("first 99", "second 99", "third 99", "fourth 99"));
}

TEST_F(CanBusDispatchTest, MessageReceivedMeanwhileIsDispatchedInBetween)
{
    whenItPasses(m_pSecond.get(), [this] { m_pBus->onMessageReceived(messageFrom(s_board, 99)); });
    EXPECT_THAT(dispatch(98), ElementsAre("first 98", "second 98", "first 99", "second 99",
                                          "third 99", "third 98"));
}

TEST_F(CanBusDispatchTest, MessageSentFromARuleIsSent)
{
    whenItPasses(m_pFirst.get(), [this] { send(m_node, {s_reset}); });
    speak(s_board, 98);
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    acknowledge(s_reset);
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
}
