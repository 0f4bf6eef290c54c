#include "busbench.h"
#include "interfaceprobe.h"

#include "support/casename.h"

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

TEST(CanBusNodeTest, NewNodeHasItsChannelAndTypeZero)
{
    QObject parent;
    const CanBusNode node(42, &parent);
    EXPECT_EQ(node.channelId(), 42);
    EXPECT_EQ(node.parent(), &parent);
    EXPECT_EQ(node.type(), 0);
    EXPECT_TRUE(node.messageBeingAnswered().isNull());
}

struct NotifyCase
{
    const char *pName;
    int type;
    std::vector<std::string> entries;
};

class CanBusNodeTable : public BusBench, public ::testing::WithParamInterface<NotifyCase>
{
};

TEST_P(CanBusNodeTable, TellsTheAnswerWithItsMessage)
{
    const auto type = static_cast<CanAnswer::AnswerType>(GetParam().type);
    m_node.notifyAnswerReception(CanAnswer(type), messageFrom(s_board, 99));
    EXPECT_THAT(said(), ElementsAreArray(GetParam().entries));
}

TEST_P(CanBusNodeTable, TellsTheAnswerWithoutMessage)
{
    const auto type = static_cast<CanAnswer::AnswerType>(GetParam().type);
    m_node.notifyAnswerReception(CanAnswer(type), {});
    EXPECT_EQ(said().size(), 1U);
}

const NotifyCase s_notifyCases[] = {
    {"None", 0, {"A answerError 0 99"}},         {"Ack", 1, {"A answerAcknowledged 1 99"}},
    {"SendingError", 2, {"A answerError 2 99"}}, {"AckNot", 3, {"A answerError 3 99"}},
    {"Timeout", 4, {"A answerError 4 99"}},      {"NumberThatIsNone", 17, {"A answerError 17 99"}},
};
INSTANTIATE_TEST_SUITE_P(Types, CanBusNodeTable, ::testing::ValuesIn(s_notifyCases), caseName);

TEST_F(BusBench, NodeSendsItsListOnItsChannel)
{
    QList<CanMessage *> list = messages({s_reset, s_test});
    EXPECT_TRUE(m_node.send(m_pBus, list));
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(channel()->node(), &m_node);
    EXPECT_EQ(channel()->pendingMessages().size(), 1);
}

TEST_F(BusBench, NodeSendsAMessageOnItsChannel)
{
    EXPECT_TRUE(m_farNode.send(m_pBus, message(s_reset)));
    EXPECT_EQ(channel(s_otherChannelId)->node(), &m_farNode);
}

TEST_F(BusBench, NodeWithoutBusSendsNothingAndDeletesTheMessages)
{
    const CanBytes data = bytes("05");
    QList<CanMessage *> list = {new CanMessage(s_board, s_reset, data)};
    EXPECT_FALSE(m_node.send(nullptr, list));
    EXPECT_TRUE(list.isEmpty());
    EXPECT_FALSE(m_node.send(nullptr, new CanMessage(s_board, s_reset, data)));
    EXPECT_TRUE(data.isDetached());
}

TEST_F(BusBench, NodeIsAvailableWhileItsChannelHasNoQueue)
{
    EXPECT_TRUE(m_node.isAvailable());
    send(m_node, {s_reset});
    EXPECT_TRUE(m_node.isAvailable());
    send(m_node, {s_test});
    EXPECT_FALSE(m_node.isAvailable());
    EXPECT_TRUE(m_farNode.isAvailable());
}

TEST_F(BusBench, NodesOwnSignalOfAnEmptyQueueIsNeverEmittedByTheBus)
{
    send(m_node, {s_reset});
    acknowledge(s_reset);
    send(m_node, {});
    for (const std::string &entry : said())
        EXPECT_NE(entry, "A dequedAllmessages");
}

TEST(CanBusNodeInterface, SignalsInTheirOrder)
{
    EXPECT_THAT(methodsOf(CanBusNode::staticMetaObject, QMetaMethod::Signal),
                ElementsAre("answerAcknowledged(CanAnswer,QSharedPointer<const CanMessage>)",
                            "answerError(CanAnswer,QSharedPointer<const CanMessage>)",
                            "dequedAllmessages()"));
    EXPECT_THAT(methodsOf(CanBusNode::staticMetaObject, QMetaMethod::Slot), IsEmpty());
    EXPECT_STREQ(CanBusNode::staticMetaObject.superClass()->className(), "QObject");
}

class AfterCanBusNode : public CanBusNode
{
public:
    using CanBusNode::CanBusNode;
    virtual void next() {}
};

TEST(CanBusNodeInterface, VirtualOperationsInTheirOrder)
{
    using SendList = bool (CanBusNode::*)(CanBus *, QList<CanMessage *> &);
    using SendMessage = bool (CanBusNode::*)(CanBus *, CanMessage *);
    EXPECT_EQ(placeOf(static_cast<SendList>(&CanBusNode::send)), placeAfterQObject(0));
    EXPECT_EQ(placeOf(static_cast<SendMessage>(&CanBusNode::send)), placeAfterQObject(1));
    EXPECT_EQ(placeOf(&CanBusNode::type), placeAfterQObject(2));
    EXPECT_EQ(placeOf(&AfterCanBusNode::next), placeAfterQObject(3));
}
