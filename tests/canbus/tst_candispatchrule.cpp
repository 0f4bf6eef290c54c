#include "busbench.h"
#include "interfaceprobe.h"

#include "canbus/candispatchrule.h"

#include "support/casename.h"
#include "support/logspy.h"

#include <QMetaEnum>
#include <QRegularExpression>
#include <QSignalSpy>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

struct RuleCase
{
    const char *pName;
    int commandsRule;
    QList<int> commands;
    int sourcesRule;
    QList<int> sources;
    bool isMatching; ///< command 98 from address 0x721
};

using CanDispatchRuleTable = ::testing::TestWithParam<RuleCase>;

CanDispatchRule::Rule rule(int number)
{
    return static_cast<CanDispatchRule::Rule>(number);
}

/// Lets everything pass.
void open(CanDispatchRule &rule)
{
    rule.setCommandsRule(CanDispatchRule::RuleAll);
    rule.setSourceAddressesRule(CanDispatchRule::RuleAll);
}

} // namespace

TEST_P(CanDispatchRuleTable, PassesByCommandAndSourceAddress)
{
    const RuleCase &row = GetParam();
    CanDispatchRule tested;
    tested.setCommandsRule(rule(row.commandsRule));
    tested.setCommandsList(row.commands);
    tested.setSourceAddressesRule(rule(row.sourcesRule));
    tested.setSourceAddressList(row.sources);
    const QSignalSpy matched(&tested, &CanDispatchRule::messageMatched);
    LogSpy log;
    const auto pMessage = messageFrom(0x721, 98);

    EXPECT_EQ(tested.isRuleMatching(*pMessage), row.isMatching);
    EXPECT_EQ(matched.count(), 0);
    EXPECT_EQ(tested.process(pMessage), row.isMatching);
    EXPECT_EQ(matched.count(), row.isMatching ? 1 : 0);
    EXPECT_EQ(log.count(": Message doesn't matches rule"), row.isMatching ? 0 : 1);
}

const RuleCase s_ruleCases[] = {
    {"New", 1, {}, 1, {}, false},
    {"NoneAndNone", 0, {98}, 0, {0x721}, false},
    {"NoneAndOnlyListed", 0, {98}, 1, {0x721}, false},
    {"NoneAndAllExcept", 0, {98}, 2, {}, false},
    {"NoneAndAll", 0, {98}, 3, {}, false},
    {"OnlyListedAndNone", 1, {98}, 0, {0x721}, false},
    {"AllExceptAndNone", 2, {}, 0, {0x721}, false},
    {"AllAndNone", 3, {}, 0, {0x721}, false},
    {"BothListed", 1, {98}, 1, {0x721}, true},
    {"BothListedAmongOthers", 1, {1, 98, 7}, 1, {0x419, 0x721}, true},
    {"CommandNotListed", 1, {97, 99}, 1, {0x721}, false},
    {"SourceNotListed", 1, {98}, 1, {0x720, 0x722}, false},
    {"CommandExcepted", 2, {98}, 3, {}, false},
    {"AnotherCommandExcepted", 2, {97}, 3, {}, true},
    {"NoCommandExcepted", 2, {}, 3, {}, true},
    {"SourceExcepted", 3, {}, 2, {0x721}, false},
    {"AnotherSourceExcepted", 3, {}, 2, {0x722}, true},
    {"NothingExcepted", 2, {}, 2, {}, true},
    {"All", 3, {}, 3, {}, true},
    {"AllIgnoresTheLists", 3, {97}, 3, {0x722}, true},
    {"AllCommandsOfTheAddress", 3, {}, 1, {0x721}, true},
    {"AllCommandsOfAnotherAddress", 3, {}, 1, {0x722}, false},
    {"NumberThatIsNoRule", 4, {98}, 3, {}, false},
    {"NegativeNumber", 3, {}, -1, {0x721}, false},
};
INSTANTIATE_TEST_SUITE_P(Rules, CanDispatchRuleTable, ::testing::ValuesIn(s_ruleCases), caseName);

TEST(CanDispatchRuleTest, EveryCommandFromAnAddressPasses)
{
    CanDispatchRule tested;
    tested.setCommandsRule(CanDispatchRule::RuleAll);
    tested.setSourceAddressList(QList<int>{0x721});
    for (const int command : {-1, 0, 1, 98, 0x7FF}) {
        EXPECT_TRUE(tested.process(messageFrom(0x721, command))) << command;
        EXPECT_FALSE(tested.process(messageFrom(0x419, command))) << command;
        EXPECT_FALSE(tested.process(messageFrom(-1, command))) << command;
    }
}

TEST(CanDispatchRuleTest, EveryCommandPassesWhenNothingIsExcluded)
{
    CanDispatchRule tested;
    tested.setCommandsRule(CanDispatchRule::RuleAllExceptListed);
    tested.setSourceAddressesRule(CanDispatchRule::RuleAll);
    for (const int command : {-1, 0, 1, 98, 0x7FF})
        EXPECT_TRUE(tested.process(messageFrom(0x721, command))) << command;
}

TEST(CanDispatchRuleTest, NewRuleNeverMatchesAndLogsEachMessageOnce)
{
    const CanDispatchRule tested;
    LogSpy log;
    for (int command = 0; command < 10; ++command)
        EXPECT_FALSE(tested.process(messageFrom(0x721, command)));
    EXPECT_EQ(log.count(": Message doesn't matches rule", LogDebug, Log::CanBus), 10);
    EXPECT_EQ(log.records().size(), 10);
}

TEST(CanDispatchRuleTest, LogLineTellsCommandAndData)
{
    const CanDispatchRule tested;
    LogSpy log;
    tested.process(messageFrom(0x721, 98, bytes("ff 0a")));
    ASSERT_EQ(log.records().size(), 1);
    const QString text = log.texts().constFirst();
    const QString signature =
        QStringLiteral("bool CanDispatchRule::process(QSharedPointer<const CanMessage>) const");
    ASSERT_TRUE(text.startsWith(signature));
    EXPECT_TRUE(text.mid(signature.size())
                    .contains(QRegularExpression(QStringLiteral(
                        "^ : Message doesn't matches rule +- command: +98 +- data: +0xff 0x0a$"))))
        << text.toStdString();
}

TEST(CanDispatchRuleTest, LogLineNamesTheRuleThatHasAName)
{
    CanDispatchRule tested;
    tested.setObjectName(QStringLiteral("DaddProtocol dispatcher"));
    LogSpy log;
    tested.process(messageFrom(0x721, 98));
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_TRUE(log.texts().constFirst().contains(QRegularExpression(
        QStringLiteral("const +DaddProtocol dispatcher *: Message doesn't matches rule"))));
}

TEST(CanDispatchRuleTest, MessageIsPassedOnAsItIs)
{
    CanDispatchRule tested;
    open(tested);
    QSharedPointer<const CanMessage> pHeard;
    QObject::connect(&tested, &CanDispatchRule::messageMatched, &tested,
                     [&](const auto &pMessage) { pHeard = pMessage; });
    const auto pMessage = messageFrom(0x721, 98, bytes("01"));
    tested.process(pMessage);
    EXPECT_EQ(pHeard, pMessage);
}

TEST(CanDispatchRuleTest, NullMessageMatchesNothing)
{
    CanDispatchRule tested;
    open(tested);
    const QSignalSpy matched(&tested, &CanDispatchRule::messageMatched);
    EXPECT_FALSE(tested.process({}));
    EXPECT_EQ(matched.count(), 0);
}

TEST(CanDispatchRuleTest, ConstructorTakesTheCommands)
{
    QObject parent;
    CanDispatchRule tested(QList<int>{97, 98}, &parent);
    EXPECT_EQ(tested.parent(), &parent);
    EXPECT_FALSE(tested.isRuleMatching(*messageFrom(0x721, 98)));
    tested.setSourceAddressesRule(CanDispatchRule::RuleAll);
    EXPECT_TRUE(tested.isRuleMatching(*messageFrom(0x721, 98)));
    EXPECT_FALSE(tested.isRuleMatching(*messageFrom(0x721, 99)));
}

TEST(CanDispatchRuleTest, InitializeSetsTheRulesBackAndKeepsTheLists)
{
    CanDispatchRule tested;
    open(tested);
    tested.setCommandsList(QList<int>{98});
    tested.setSourceAddressList(QList<int>{0x721});
    tested.initialize();
    EXPECT_TRUE(tested.isRuleMatching(*messageFrom(0x721, 98)));
    EXPECT_FALSE(tested.isRuleMatching(*messageFrom(0x721, 97)));
    EXPECT_FALSE(tested.isRuleMatching(*messageFrom(0x419, 98)));
}

TEST(CanDispatchRuleTest, ListsAreReplaced)
{
    CanDispatchRule tested;
    tested.setCommandsList(QList<int>{98, 99});
    tested.setCommandsList(97);
    tested.setSourceAddressList(QList<int>{0x721, 0x722});
    tested.setSourceAddressList(0x419);
    EXPECT_TRUE(tested.isRuleMatching(*messageFrom(0x419, 97)));
    EXPECT_FALSE(tested.isRuleMatching(*messageFrom(0x419, 98)));
    EXPECT_FALSE(tested.isRuleMatching(*messageFrom(0x721, 97)));
    tested.setCommandsList(QList<int>{98, 99});
    EXPECT_FALSE(tested.isRuleMatching(*messageFrom(0x419, 97)));
    EXPECT_TRUE(tested.isRuleMatching(*messageFrom(0x419, 99)));
}

TEST(CanDispatchRuleInterface, NumbersAndSignal)
{
    const QMetaObject &meta = CanDispatchRule::staticMetaObject;
    const QMetaEnum rules = meta.enumerator(meta.indexOfEnumerator("Rule"));
    ASSERT_EQ(rules.keyCount(), 4);
    EXPECT_EQ(rules.keyToValue("RuleNone"), 0);
    EXPECT_EQ(rules.keyToValue("RuleOnlyListed"), 1);
    EXPECT_EQ(rules.keyToValue("RuleAllExceptListed"), 2);
    EXPECT_EQ(rules.keyToValue("RuleAll"), 3);
    EXPECT_THAT(methodsOf(meta, QMetaMethod::Signal),
                ElementsAre("messageMatched(QSharedPointer<const CanMessage>)"));
    EXPECT_THAT(methodsOf(meta, QMetaMethod::Slot), IsEmpty());
    EXPECT_STREQ(meta.superClass()->className(), "QObject");
}

class AfterCanDispatchRule : public CanDispatchRule
{
public:
    virtual void next() {}
};

TEST(CanDispatchRuleInterface, AddsNoVirtualOperationToQObject)
{
    EXPECT_EQ(placeOf(&AfterCanDispatchRule::next), placeAfterQObject(0));
}
