#include "busbench.h"

#include "support/assertspy.h"
#include "support/casename.h"
#include "support/exittest.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;

namespace {

/// The door to an operation of the bus that none of its callers can reach with what fails in it.
template <auto Operation>
struct SendingDoor
{
    friend bool sendThroughDoor(CanBus &bus, int channelId, QList<CanMessage *> &messages,
                                CanBusNode *pNode, bool isDeletedOnFailure)
    {
        return (bus.*Operation)(channelId, messages, pNode, isDeletedOnFailure);
    }
};
template struct SendingDoor<&CanBus::_send>;
bool sendThroughDoor(CanBus &bus, int channelId, QList<CanMessage *> &messages, CanBusNode *pNode,
                     bool isDeletedOnFailure);

class QuietNode : public CanBusNode
{
public:
    using CanBusNode::CanBusNode;
    int type() const override { return 1; }
};

constexpr const char *s_noInterface =
    "log Interface not set. Call CanBus::setup or CanBus::setInterface";
constexpr const char *s_notOpen = "log Interface is not opened (call ::open())";
constexpr const char *s_noProtocol =
    "log Protocol not set. Call CanBus::setup or CanBus::setProtocol";
constexpr const char *s_busy = "log Protocol is busy sending or waiting for an answer";
constexpr const char *s_aborting = "log CanBus not available for sending. Aborting.";
constexpr const char *s_null = "log Tried to send a NULL message. Aborting sending";

} // namespace

struct RefusalCase
{
    const char *pName;
    bool hasInterface;
    bool isOpen;
    bool hasProtocol;
    bool isWaiting; ///< and has a message in its queue
    const char *pReason;
};

class CanBusRefusalTable : public BusBench, public ::testing::WithParamInterface<RefusalCase>
{
protected:
    CanBusRefusalTable()
    {
        const RefusalCase &row = GetParam();
        if (!row.hasProtocol) { // it cannot be taken away from a bus
            CanBus::deleteInstance();
            m_pBus = CanBus::instance();
            m_pBus->setInterface(m_pInterface);
            m_journal.hear(m_pBus);
        }
        if (row.isWaiting) {
            channel()->appendPendingMessage(CanBusChannel::Message::create(s_board, s_rotor));
            channel()->setIsWaitingForAnswer(true);
        }
        m_pInterface->setOpen(row.isOpen);
        if (!row.hasInterface)
            delete m_pInterface;
    }

    /// The lines for a sender of type 0.
    void expectLines()
    {
        const Entries lines = said();
        ASSERT_EQ(lines.size(), 3U);
        EXPECT_EQ(lines.front(), GetParam().pReason);
        EXPECT_EQ(lines.at(lines.size() - 2), s_aborting);
        EXPECT_THAT(lines.back(),
                    MatchesRegex("log CAN Bus not available, command .*ResetBoard.*36.*"
                                 "\\) toward .*DADD.* and subsequent messages not "
                                 "sent"));
    }
};

TEST_P(CanBusRefusalTable, FirstReasonIsLoggedForANode)
{
    EXPECT_FALSE(send(m_node, {s_reset, s_test}, s_otherBoard));
    expectLines();
}

TEST_P(CanBusRefusalTable, FirstReasonIsLoggedWithoutNode)
{
    EXPECT_FALSE(m_pBus->send(s_channelId, message(s_reset, s_otherBoard)));
    expectLines();
}

TEST_P(CanBusRefusalTable, ForANodeOfAnotherTypeOnlyWhatIsMissingIsLogged)
{
    QuietNode node(s_channelId);
    m_journal.hear(&node, QStringLiteral("quiet"));
    EXPECT_FALSE(m_pBus->send(message(s_reset), &node));
    if (GetParam().pReason == s_busy)
        EXPECT_THAT(said(), IsEmpty());
    else
        EXPECT_THAT(said(), ElementsAre(GetParam().pReason));
}

TEST_P(CanBusRefusalTable, NobodyIsEverToldOfMessagesThatWait)
{
    QuietNode node(s_channelId);
    EXPECT_FALSE(m_pBus->send(message(s_reset), &node));
    EXPECT_FALSE(m_pBus->send(message(s_reset), &m_node));
    EXPECT_THAT(said(), Not(Contains("log Channel has pending messages to send")));
}

TEST_P(CanBusRefusalTable, ChannelIsNotAvailable)
{
    EXPECT_FALSE(m_pBus->isAvailable(s_channelId));
    EXPECT_FALSE(m_pBus->isAvailable(channel()));
    EXPECT_FALSE(m_node.isAvailable());
}

TEST_P(CanBusRefusalTable, MessagesOfEveryFormAreDeletedAndTheListIsEmptied)
{
    QList<CanBytes> kept;
    const auto traced = [&kept] {
        kept.append(bytes("01 02 03"));
        return new CanMessage(s_board, s_reset, kept.constLast());
    };
    QList<CanMessage *> list = {traced(), traced()};
    EXPECT_FALSE(m_pBus->send(list, &m_node));
    EXPECT_TRUE(list.isEmpty());
    list = {traced(), traced()};
    EXPECT_FALSE(m_pBus->send(s_channelId, list));
    EXPECT_TRUE(list.isEmpty());
    EXPECT_FALSE(m_pBus->send(traced(), &m_node));
    EXPECT_FALSE(m_pBus->send(s_channelId, traced()));
    list = {traced(), traced()};
    EXPECT_FALSE(m_node.send(m_pBus, list));
    EXPECT_TRUE(list.isEmpty());
    EXPECT_FALSE(m_node.send(m_pBus, traced()));
    list = {traced()};
    EXPECT_FALSE(m_pBus->send(list, nullptr));
    EXPECT_TRUE(list.isEmpty());
    EXPECT_FALSE(m_pBus->send(traced(), nullptr));
    for (const CanBytes &data : kept)
        EXPECT_TRUE(data.isDetached()); // no message holds them any more
}

TEST_P(CanBusRefusalTable, EmptyListIsRefusedWithoutHarm)
{
    QList<CanMessage *> none;
    EXPECT_FALSE(m_pBus->send(none, &m_node));
    EXPECT_FALSE(m_pBus->send(s_channelId, none));
}

const RefusalCase s_refusalCases[] = {
    {"NoInterface", false, true, true, false, s_noInterface},
    {"NotOpen", true, false, true, false, s_notOpen},
    {"NoProtocol", true, true, false, false, s_noProtocol},
    {"Busy", true, true, true, true, s_busy},
    {"NoInterfaceAndNoProtocol", false, true, false, false, s_noInterface},
    {"NoInterfaceAndBusy", false, true, true, true, s_noInterface},
    {"NotOpenAndNoProtocol", true, false, false, false, s_notOpen},
    {"NotOpenAndBusy", true, false, true, true, s_notOpen},
    {"NoProtocolAndBusy", true, true, false, true, s_noProtocol},
};
INSTANTIATE_TEST_SUITE_P(Reasons, CanBusRefusalTable, ::testing::ValuesIn(s_refusalCases),
                         caseName);

TEST_F(BusBench, QueueOnAChannelThatDoesNotWaitGivesNoReason)
{
    channel()->appendPendingMessage(CanBusChannel::Message::create(s_board, s_rotor));
    EXPECT_FALSE(send(m_node, {s_reset}));
    EXPECT_THAT(said(), ElementsAre(s_aborting, MatchesRegex("log CAN Bus not available, .*")));
}

struct NullCase
{
    const char *pName;
    std::vector<int> commands; ///< 0 for a null pointer
};

class CanBusNullMessageTable : public BusBench, public ::testing::WithParamInterface<NullCase>
{
};

TEST_P(CanBusNullMessageTable, RefusesTheWholeList)
{
    const CanBytes data = bytes("05");
    QList<CanMessage *> list;
    for (const int command : GetParam().commands)
        list << (command == 0 ? nullptr : new CanMessage(s_board, command, data));
    EXPECT_FALSE(m_pBus->send(list, &m_node));
    EXPECT_TRUE(list.isEmpty());
    EXPECT_TRUE(data.isDetached());
    const Entries lines = said();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), s_null);
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
    EXPECT_TRUE(m_pInterface->written().isEmpty());
}

const NullCase s_nullCases[] = {
    {"Only", {0}},     {"First", {0, 36}}, {"Middle", {36, 0, 60}},
    {"Last", {36, 0}}, {"All", {0, 0, 0}},
};
INSTANTIATE_TEST_SUITE_P(Null, CanBusNullMessageTable, ::testing::ValuesIn(s_nullCases), caseName);

TEST_F(BusBench, NullAsTheOnlyMessageIsRefusedInAllForms)
{
    CanMessage *const pNone = nullptr;
    EXPECT_FALSE(m_pBus->send(s_channelId, pNone));
    EXPECT_FALSE(m_pBus->send(pNone, &m_node));
    EXPECT_FALSE(m_node.send(m_pBus, pNone));
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
}

TEST_F(BusBench, MissingNodeIsAnAssertion)
{
    AssertSpy asserts;
    QList<CanMessage *> list = messages({s_reset, s_test});
    EXPECT_FALSE(m_pBus->send(list, nullptr));
    EXPECT_FALSE(m_pBus->send(message(s_reset), nullptr));
    ASSERT_EQ(asserts.records().size(), 2);
    for (const AssertRecord &record : asserts.records()) {
        EXPECT_EQ(record.message, QStringLiteral("CanBusNode cannot be null"));
        EXPECT_EQ(record.file, QStringLiteral("src/canbus/canbus"));
        EXPECT_EQ(record.line, 330);
        EXPECT_FALSE(record.isRelease);
    }
    EXPECT_TRUE(list.isEmpty());
    EXPECT_TRUE(m_pInterface->written().isEmpty());
}

TEST_F(BusBench, NodeOfAnotherChannelEndsTheProcess)
{
    QList<CanMessage *> list = messages({s_reset});
    EXPECT_FATAL_ASSERTION(sendThroughDoor(*m_pBus, s_otherChannelId, list, &m_node, true),
                           "(channelId == pCanBusNode->channelId())",
                           "Channel Id parameter and for Can bus node are different",
                           "src/canbus/canbus");
    EXPECT_EXIT(sendThroughDoor(*m_pBus, s_otherChannelId, list, &m_node, true),
                ::testing::ExitedWithCode(1), "in src/canbus/canbus, line 377");
    qDeleteAll(list);
}

TEST_F(BusBench, RefusedMessagesStayTheCallersWhereAskedFor)
{
    m_pInterface->setOpen(false);
    QList<CanMessage *> list = messages({s_reset, s_test});
    EXPECT_FALSE(sendThroughDoor(*m_pBus, s_channelId, list, &m_node, false));
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list.at(1)->command(), s_test);
    qDeleteAll(list);
}
