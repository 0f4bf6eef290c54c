#include "busbench.h"
#include "interfaceprobe.h"

#include "canbus/candispatchrule.h"
#include "canbus/caninterface_dummy.h"
#include "canbus/caninterface_multiport.h"
#include "canbus/canprotocol_test.h"

#include "support/assertspy.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QMetaEnum>
#include <QMetaType>

#include <limits>

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

CanBus::CanInterfaceType interfaceType(int number)
{
    return static_cast<CanBus::CanInterfaceType>(number);
}

CanBus::CanProtocolType protocolType(int number)
{
    return static_cast<CanBus::CanProtocolType>(number);
}

/// No bus has been made yet, and none is left behind.
class NewBusTest : public ::testing::Test
{
protected:
    ~NewBusTest() override
    {
        const AbstractCanInterface *const pInterface = CanBus::instance()->canInterface();
        CanBus::deleteInstance();
        delete pInterface;
    }

    TestMachine m_machine;
};

struct SetupCase
{
    const char *pName;
    int interfaceType;
    int protocolType;
    const char *pInterfaceClass;
    const char *pProtocolClass;
};

class CanBusSetupTable : public NewBusTest, public ::testing::WithParamInterface<SetupCase>
{
};

struct NumberCase
{
    const char *pName;
    int number;
};

} // namespace

TEST_P(CanBusSetupTable, MakesInterfaceAndProtocol)
{
    CanBus *const pBus = CanBus::instance();
    EXPECT_TRUE(pBus->setup(interfaceType(GetParam().interfaceType),
                            protocolType(GetParam().protocolType)));
    ASSERT_NE(pBus->canInterface(), nullptr);
    ASSERT_NE(pBus->canProtocol(), nullptr);
    EXPECT_STREQ(pBus->canInterface()->metaObject()->className(), GetParam().pInterfaceClass);
    EXPECT_STREQ(pBus->canProtocol()->metaObject()->className(), GetParam().pProtocolClass);
    EXPECT_EQ(pBus->canProtocol()->canInterface(), pBus->canInterface());
    EXPECT_EQ(pBus->canInterface()->parent(), nullptr);
    EXPECT_FALSE(pBus->isInterfaceBusy());
}

const SetupCase s_setupCases[] = {
    {"DummyAndTest", 1, 1, "CanInterface_Dummy", "CanProtocol_Test"},
    {"DummyAndVy", 1, 2, "CanInterface_Dummy", "CanProtocol_Vy"},
    {"MultiportAndTest", 4, 1, "CanInterface_Multiport", "CanProtocol_Test"},
    {"MultiportAndVy", 4, 2, "CanInterface_Multiport", "CanProtocol_Vy"},
};
INSTANTIATE_TEST_SUITE_P(Types, CanBusSetupTable, ::testing::ValuesIn(s_setupCases), caseName);

TEST_F(NewBusTest, SetupWithAWrongInterfaceStillSetsTheProtocol)
{
    CanBus *const pBus = CanBus::instance();
    EXPECT_FALSE(pBus->setup(interfaceType(2), CanBus::CanProtocolVy));
    EXPECT_EQ(pBus->canInterface(), nullptr);
    EXPECT_NE(pBus->canProtocol(), nullptr);
}

TEST_F(NewBusTest, SetupWithAWrongProtocolStillSetsTheInterface)
{
    CanBus *const pBus = CanBus::instance();
    EXPECT_FALSE(pBus->setup(CanBus::CanInterfaceDummy, protocolType(3)));
    EXPECT_NE(pBus->canInterface(), nullptr);
    EXPECT_EQ(pBus->canProtocol(), nullptr);
}

TEST_F(NewBusTest, DummyOfTheBusIsNotTracedAndOpen)
{
    CanBus *const pBus = CanBus::instance();
    ASSERT_TRUE(pBus->setInterfaceType(CanBus::CanInterfaceDummy));
    EXPECT_TRUE(pBus->canInterface()->isOpen());
    EXPECT_EQ(pBus->canInterface()->interfaceName(), QString()); // a traced one would keep its name
}

TEST_F(NewBusTest, MultiportThatCannotBeOpenedIsSetAllTheSame)
{
    CanBus *const pBus = CanBus::instance();
    EXPECT_TRUE(pBus->setInterfaceType(CanBus::CanInterfaceMultiport));
    ASSERT_NE(pBus->canInterface(), nullptr);
    EXPECT_FALSE(pBus->canInterface()->isOpen());
}

class CanInterfaceNumberTable : public NewBusTest, public ::testing::WithParamInterface<NumberCase>
{
};

TEST_P(CanInterfaceNumberTable, IsReportedAndChangesNothing)
{
    CanBus *const pBus = CanBus::instance();
    pBus->setInterfaceType(CanBus::CanInterfaceDummy);
    const AbstractCanInterface *const pBefore = pBus->canInterface();
    LogSpy log;
    AssertSpy asserts;
    EXPECT_FALSE(pBus->setInterfaceType(interfaceType(GetParam().number)));
    EXPECT_EQ(pBus->canInterface(), pBefore);
    const QString number = QString::number(GetParam().number);
    EXPECT_EQ(log.count(QStringLiteral("Invalid or unavailable interface ") + number), 1);
    ASSERT_EQ(asserts.records().size(), 1);
    const AssertRecord &record = asserts.records().constFirst();
    EXPECT_EQ(record.message, QStringLiteral("Failed to create CAN interface of type ") + number);
    EXPECT_EQ(record.file, QStringLiteral("src/canbus/canbus"));
    EXPECT_EQ(record.line, 273);
    EXPECT_FALSE(record.isRelease);
}

const NumberCase s_wrongInterfaces[] = {
    {"Zero", 0}, {"Two", 2},       {"Three", 3},
    {"Five", 5}, {"Negative", -1}, {"Largest", std::numeric_limits<int>::max()},
};
INSTANTIATE_TEST_SUITE_P(Wrong, CanInterfaceNumberTable, ::testing::ValuesIn(s_wrongInterfaces),
                         caseName);

class CanProtocolNumberTable : public NewBusTest, public ::testing::WithParamInterface<NumberCase>
{
};

TEST_P(CanProtocolNumberTable, IsLoggedAndChangesNothing)
{
    CanBus *const pBus = CanBus::instance();
    pBus->setProtocolType(CanBus::CanProtocolVy);
    const AbstractCanProtocol *const pBefore = pBus->canProtocol();
    LogSpy log;
    AssertSpy asserts;
    EXPECT_FALSE(pBus->setProtocolType(protocolType(GetParam().number)));
    EXPECT_EQ(pBus->canProtocol(), pBefore);
    EXPECT_EQ(log.count(QStringLiteral("Invalid protocol %1").arg(GetParam().number)), 1);
    EXPECT_TRUE(asserts.records().isEmpty());
}

const NumberCase s_wrongProtocols[] = {
    {"Zero", 0},
    {"Three", 3},
    {"Four", 4},
    {"Negative", -1},
    {"Smallest", std::numeric_limits<int>::min()},
};
INSTANTIATE_TEST_SUITE_P(Wrong, CanProtocolNumberTable, ::testing::ValuesIn(s_wrongProtocols),
                         caseName);

// The singleton.

TEST_F(NewBusTest, InstanceIsMadeOnceWithoutParentAndEmpty)
{
    CanBus *const pBus = CanBus::instance();
    EXPECT_EQ(CanBus::instance(), pBus);
    EXPECT_EQ(pBus->parent(), nullptr);
    EXPECT_EQ(pBus->canInterface(), nullptr);
    EXPECT_EQ(pBus->canProtocol(), nullptr);
    EXPECT_FALSE(pBus->isInterfaceBusy());
}

TEST_F(NewBusTest, InstanceAfterDeleteInstanceIsNew)
{
    const QPointer<CanBus> pBus = CanBus::instance();
    CanBus::instance()->setProtocolType(CanBus::CanProtocolVy);
    CanBus::deleteInstance();
    EXPECT_TRUE(pBus.isNull());
    EXPECT_EQ(CanBus::instance()->canProtocol(), nullptr);
}

TEST_F(NewBusTest, DeleteInstanceTwiceOrWithoutInstanceDoesNothing)
{
    CanBus::deleteInstance();
    const QPointer<CanBus> pBus = CanBus::instance();
    ASSERT_FALSE(pBus.isNull());
    CanBus::deleteInstance();
    EXPECT_TRUE(pBus.isNull());
    CanBus::deleteInstance();
    EXPECT_NE(CanBus::instance(), nullptr);
}

TEST_F(BusBench, DeleteInstanceDeletesProtocolAndChannelsButNotInterfaceAndRules)
{
    const QPointer<AbstractCanProtocol> pProtocol = m_pBus->canProtocol();
    const QPointer<CanBusChannel> pChannel = channel();
    const QPointer<CanDispatchRule> pRule = new CanDispatchRule;
    m_pBus->addDispatchRule(pRule);
    CanBus::deleteInstance();
    EXPECT_TRUE(pProtocol.isNull());
    EXPECT_TRUE(pChannel.isNull());
    EXPECT_TRUE(CanBusChannel::channels().isEmpty());
    EXPECT_FALSE(m_pInterface.isNull());
    ASSERT_FALSE(pRule.isNull());
    delete pRule;
}

TEST_F(NewBusTest, ConstructorRegistersTheMetaTypesByTheirNames)
{
    CanBus::instance();
    for (const char *const pName : {"CanAnswer", "CanMessage", "CanFrame",
                                    "QSharedPointer<const CanMessage>", "CanBusChannel*"})
        EXPECT_NE(QMetaType::type(pName), static_cast<int>(QMetaType::UnknownType)) << pName;
}

TEST_F(NewBusTest, SendingErrorSignalIsHeardByTheBusItself)
{
    CanBus *const pBus = CanBus::instance();
    CanBusNode node(7);
    int errors = 0;
    QObject::connect(&node, &CanBusNode::answerError, pBus,
                     [&](const CanAnswer &answer, const auto &pMessage) {
                         errors += answer.type() == CanAnswer::AnswerSendingError && !pMessage;
                     });
    CanBusChannel::channel(7)->setNode(&node);
    Q_EMIT pBus->generateSendingErrorAnswerRequested(7);
    EXPECT_EQ(errors, 1);
}

// Exchanging interface and protocol.

TEST_F(BusBench, NewInterfaceReplacesTheOldOneAndLosesItsLogSwitches)
{
    const QPointer<AbstractCanInterface> pOld = m_pInterface.data();
    auto *const pNew = new RecordingInterface;
    pNew->setLogInFile(true);
    pNew->setLogInDebug(true);
    EXPECT_TRUE(m_pBus->setInterface(pNew));
    EXPECT_TRUE(pOld.isNull());
    EXPECT_EQ(m_pBus->canInterface(), pNew);
    EXPECT_EQ(m_pBus->canProtocol()->canInterface(), pNew);
    EXPECT_FALSE(pNew->isLogInFile());
    EXPECT_FALSE(pNew->isLogInDebug());
    m_pInterface = pNew; // the bench deletes it
}

TEST_F(BusBench, NullInterfaceDeletesTheOldOne)
{
    EXPECT_TRUE(m_pBus->setInterface(nullptr));
    EXPECT_TRUE(m_pInterface.isNull());
    EXPECT_EQ(m_pBus->canInterface(), nullptr);
    EXPECT_EQ(m_pBus->canProtocol()->canInterface(), nullptr);
    EXPECT_TRUE(m_pBus->setInterface(nullptr));
}

TEST_F(BusBench, CurrentInterfaceStays)
{
    EXPECT_TRUE(m_pBus->setInterface(m_pInterface));
    ASSERT_FALSE(m_pInterface.isNull());
    EXPECT_EQ(m_pBus->canInterface(), m_pInterface);
    ASSERT_TRUE(send(m_node, {s_reset}));
    said();
    acknowledge(s_reset); // heard once
    EXPECT_EQ(said().size(), 4U);
}

TEST_F(BusBench, NewProtocolReplacesTheOldOneAndGetsAddressAndInterface)
{
    const QPointer<AbstractCanProtocol> pOld = m_pBus->canProtocol();
    auto *const pNew = new CanProtocol_Vy(nullptr);
    EXPECT_TRUE(m_pBus->setProtocol(pNew));
    EXPECT_TRUE(pOld.isNull());
    EXPECT_EQ(m_pBus->canProtocol(), pNew);
    EXPECT_EQ(pNew->ownAddress(), s_cpu);
    EXPECT_EQ(pNew->canInterface(), m_pInterface);
    ASSERT_TRUE(send(m_node, {s_reset}));
    said();
    acknowledge(s_reset);
    EXPECT_EQ(said().size(), 4U);
}

TEST_F(BusBench, NullProtocolDoesNothing)
{
    const AbstractCanProtocol *const pBefore = m_pBus->canProtocol();
    EXPECT_FALSE(m_pBus->setProtocol(nullptr));
    EXPECT_EQ(m_pBus->canProtocol(), pBefore);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(BusBench, CurrentProtocolStaysAndIsConnectedOnce)
{
    AbstractCanProtocol *const pProtocol = m_pBus->canProtocol();
    EXPECT_TRUE(m_pBus->setProtocol(pProtocol));
    ASSERT_EQ(m_pBus->canProtocol(), pProtocol);
    ASSERT_TRUE(send(m_node, {s_reset}));
    said();
    acknowledge(s_reset);
    EXPECT_EQ(said().size(), 4U);
}

TEST_F(BusBench, TestProtocolOfTheBusIsInRealMode)
{
    ASSERT_TRUE(m_pBus->setProtocolType(CanBus::CanProtocolTest));
    send(m_node, {s_reset});
    said();
    speak(s_board, s_test); // in pure test mode this would be taken for the acknowledge
    EXPECT_TRUE(channel()->isWaitingForAnswer());
    acknowledge(s_reset);
    EXPECT_FALSE(channel()->isWaitingForAnswer());
}

TEST_F(BusBench, InterfaceCanBeExchangedInsideItsOwnWrite)
{
    auto *const pNew = new RecordingInterface;
    m_pInterface->setOnWrite([&](const CanFrame &) { m_pBus->setInterface(pNew); });
    send(m_node, {s_reset});
    EXPECT_EQ(m_pBus->canInterface(), pNew);
    advance(0ms);
    EXPECT_TRUE(m_pInterface.isNull());
    pNew->onFrameReceived(frame(s_board, s_cpu, 0, bytes("02 00 01 00 24 27")));
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
    m_pInterface = pNew;
}

TEST_F(BusBench, ProtocolCanBeExchangedInTheSlotThatHearsThatAllIsSent)
{
    const QPointer<AbstractCanProtocol> pOld = m_pBus->canProtocol();
    QObject::connect(m_pBus, &CanBus::dequedAllmessages, m_pBus, [&] {
        if (m_pBus->canProtocol() == pOld)
            m_pBus->setProtocolType(CanBus::CanProtocolTest);
    });
    send(m_node, {s_reset});
    acknowledge(s_reset);
    advance(0ms);
    EXPECT_TRUE(pOld.isNull());
    EXPECT_EQ(m_pBus->canProtocol()->metaObject(), &CanProtocol_Test::staticMetaObject);
    ASSERT_TRUE(send(m_node, {s_test}));
    acknowledge(s_test);
    EXPECT_FALSE(m_pBus->isInterfaceBusy());
}

// Busy.

struct BusyCase
{
    const char *pName;
    bool isWaiting; ///< else a message is in the queue
};

class CanBusBusyTable : public BusBench, public ::testing::WithParamInterface<BusyCase>
{
protected:
    CanBusBusyTable()
    {
        if (GetParam().isWaiting)
            send(m_node, {s_reset});
        else
            channel()->appendPendingMessage(CanBusChannel::Message::create(s_board, s_reset));
        m_log.clear();
    }

    LogSpy m_log;
};

TEST_P(CanBusBusyTable, BusIsBusy)
{
    EXPECT_TRUE(m_pBus->isInterfaceBusy());
}

TEST_P(CanBusBusyTable, InterfaceTypeIsRefusedBeforeItIsLookedAt)
{
    AssertSpy asserts;
    for (const int type : {1, 4, 9})
        EXPECT_FALSE(m_pBus->setInterfaceType(interfaceType(type))) << type;
    for (const int type : {1, 4, 9})
        EXPECT_EQ(m_log.count(
                      QStringLiteral("Interface in use, cannot change to interface %1").arg(type)),
                  1);
    EXPECT_EQ(m_log.records().size(), 3);
    EXPECT_TRUE(asserts.records().isEmpty());
    EXPECT_EQ(m_pBus->canInterface(), m_pInterface);
}

TEST_P(CanBusBusyTable, InterfaceIsRefusedAndStaysTheCallers)
{
    const QPointer<AbstractCanInterface> pNew = new RecordingInterface;
    EXPECT_FALSE(m_pBus->setInterface(pNew));
    EXPECT_FALSE(m_pBus->setInterface(nullptr));
    EXPECT_EQ(m_log.count("Interface in use, cannot change Interface"), 2);
    EXPECT_EQ(m_pBus->canInterface(), m_pInterface);
    ASSERT_FALSE(pNew.isNull());
    delete pNew;
}

TEST_P(CanBusBusyTable, ProtocolTypeIsRefusedBeforeItIsLookedAt)
{
    const AbstractCanProtocol *const pBefore = m_pBus->canProtocol();
    for (const int type : {1, 2, 3}) {
        EXPECT_FALSE(m_pBus->setProtocolType(protocolType(type))) << type;
        EXPECT_EQ(
            m_log.count(QStringLiteral("Protocol in use, cannot change to protocol %1").arg(type)),
            1);
    }
    EXPECT_EQ(m_log.records().size(), 3);
    EXPECT_EQ(m_pBus->canProtocol(), pBefore);
}

TEST_P(CanBusBusyTable, ProtocolIsRefusedAndStaysTheCallers)
{
    const AbstractCanProtocol *const pBefore = m_pBus->canProtocol();
    const QPointer<AbstractCanProtocol> pNew = new CanProtocol_Vy(nullptr);
    EXPECT_FALSE(m_pBus->setProtocol(pNew));
    EXPECT_EQ(m_log.count("Protocol in use, cannot change protocol"), 1);
    EXPECT_EQ(m_pBus->canProtocol(), pBefore);
    ASSERT_FALSE(pNew.isNull());
    delete pNew;
}

TEST_P(CanBusBusyTable, SetupIsRefusedTwice)
{
    EXPECT_FALSE(m_pBus->setup(CanBus::CanInterfaceDummy, CanBus::CanProtocolVy));
    EXPECT_EQ(m_log.count("Interface in use, cannot change to interface 1"), 1);
    EXPECT_EQ(m_log.count("Protocol in use, cannot change to protocol 2"), 1);
}

const BusyCase s_busyCases[] = {{"Waiting", true}, {"Queued", false}};
INSTANTIATE_TEST_SUITE_P(Channel, CanBusBusyTable, ::testing::ValuesIn(s_busyCases), caseName);

TEST_F(NewBusTest, WaitingChannelDoesNotKeepABusWithoutProtocolBusy)
{
    CanBus *const pBus = CanBus::instance();
    CanBusChannel::channel(7)->setIsWaitingForAnswer(true);
    EXPECT_FALSE(pBus->isInterfaceBusy());
    EXPECT_TRUE(pBus->setProtocolType(CanBus::CanProtocolVy));
    EXPECT_TRUE(pBus->isInterfaceBusy());
}

// The meta-object.

TEST(CanBusInterface, SignalsAndSlotsInTheirOrder)
{
    EXPECT_THAT(methodsOf(CanBus::staticMetaObject, QMetaMethod::Signal),
                ElementsAre("communicationTimeout(CanAnswer,QSharedPointer<const CanMessage>)",
                            "generateSendingErrorAnswerRequested(int)", "dequedAllmessages()"));
    EXPECT_THAT(
        methodsOf(CanBus::staticMetaObject, QMetaMethod::Slot),
        ElementsAre("onAnswerReceived(CanBusChannel*,CanAnswer,QSharedPointer<const CanMessage>)",
                    "onMessageReceived(QSharedPointer<const CanMessage>)",
                    "generateSendingErrorAnswer(int)"));
    EXPECT_STREQ(CanBus::staticMetaObject.superClass()->className(), "QObject");
}

TEST(CanBusInterface, EnumerationsHaveTheirNumbers)
{
    const QMetaObject &meta = CanBus::staticMetaObject;
    const QMetaEnum interfaces = meta.enumerator(meta.indexOfEnumerator("CanInterfaceType"));
    ASSERT_EQ(interfaces.keyCount(), 2);
    EXPECT_EQ(interfaces.keyToValue("CanInterfaceDummy"), 1);
    EXPECT_EQ(interfaces.keyToValue("CanInterfaceMultiport"), 4);
    const QMetaEnum protocols = meta.enumerator(meta.indexOfEnumerator("CanProtocolType"));
    ASSERT_EQ(protocols.keyCount(), 2);
    EXPECT_EQ(protocols.keyToValue("CanProtocolTest"), 1);
    EXPECT_EQ(protocols.keyToValue("CanProtocolVy"), 2);
}
