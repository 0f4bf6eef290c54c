#include "canbus/caninterface_multiport.h"

#include "canbus/multiportmachine.h"
#include "support/casename.h"
#include "support/logfolder.h"
#include "support/logspy.h"

#include <QMetaMethod>
#include <QSignalSpy>
#include <gtest/gtest.h>
#include <memory>

namespace {

const char *const s_pWhole = "00 25 44 19 06 02 00 2a 00 00 28";

/// How often the client was missed.
int missing(const LogSpy &log)
{
    return log.count("multiport pointer incorrect", 4, Log::CanBus);
}

} // namespace

// How the interface finds, opens and closes the client's channel. What is in the stream is the
// business of tst_canportstream.cpp.
class CanInterfaceMultiportTest : public ::testing::Test
{
protected:
    LogFolder m_folder;
    MultiportMachine m_machine;
    CanInterface_Multiport m_interface{nullptr};
};

TEST_F(CanInterfaceMultiportTest, IsNotSimulatedAndNotOpenAtFirst)
{
    EXPECT_FALSE(m_interface.isSimulated());
    EXPECT_FALSE(m_interface.isOpen());
    EXPECT_FALSE(m_machine.isCanOpen());
}

TEST_F(CanInterfaceMultiportTest, OpensAndClosesTheClientsCanChannelAndNoOther)
{
    const LogSpy log;
    EXPECT_TRUE(m_interface.openInterface(QStringLiteral("any name")));
    EXPECT_TRUE(m_interface.isOpen());
    EXPECT_TRUE(m_machine.client().isOpen(static_cast<Multiport::Interface>(1)));
    EXPECT_FALSE(m_machine.client().isOpen(Multiport::PaymentInterface));

    EXPECT_TRUE(m_interface.closeInterface());
    EXPECT_FALSE(m_interface.isOpen());
    EXPECT_FALSE(m_machine.isCanOpen());
    EXPECT_TRUE(m_interface.closeInterface()); // it is closed, as was asked for
    EXPECT_TRUE(log.records().isEmpty());
}

TEST_F(CanInterfaceMultiportTest, CanBeOpenedAgain)
{
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(m_interface.openInterface(QString()));
        EXPECT_TRUE(m_interface.isOpen());
        m_interface.closeInterface();
        EXPECT_FALSE(m_interface.isOpen());
    }
}

TEST_F(CanInterfaceMultiportTest, ClosingWhatIsNotOpenLeavesTheOtherChannelsAlone)
{
    m_machine.client().setEnabled(Multiport::PaymentInterface, true);
    m_interface.closeInterface();
    m_interface.openInterface(QString());
    m_interface.closeInterface();
    m_interface.closeInterface();
    EXPECT_TRUE(m_machine.client().isOpen(Multiport::PaymentInterface));
    EXPECT_FALSE(m_machine.isCanOpen());
}

TEST_F(CanInterfaceMultiportTest, SecondOpeningIsRefused)
{
    EXPECT_TRUE(m_interface.openInterface(QString()));
    const LogSpy log;
    EXPECT_FALSE(m_interface.openInterface(QString()));
    EXPECT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.count("multiport CAN bus channel already opened", 3, Log::CanBus), 1);
    EXPECT_TRUE(m_interface.isOpen());
}

TEST_F(CanInterfaceMultiportTest, ChannelThatAnotherHasOpenedCannotBeOpened)
{
    m_machine.client().setEnabled(Multiport::CanBusInterface, true);
    const LogSpy log;
    EXPECT_TRUE(m_interface.isOpen());
    EXPECT_FALSE(m_interface.openInterface(QString()));
    EXPECT_EQ(log.count("multiport CAN bus channel already opened", 3, Log::CanBus), 1);
}

TEST_F(CanInterfaceMultiportTest, FrameGoesOutAsOneRecord)
{
    m_interface.openInterface(QString());
    const LogSpy log;
    CanFrame one = frame(0x4A8, 0x419, 0, bytes("02 00 2a 00 00 28"));
    // There is no link: what the client could not send is told by its size.
    EXPECT_FALSE(m_interface.writeToCan(one));
    EXPECT_EQ(log.count(" 11 bytes not sent", 3, Log::CanBus), 1);
    one.setData({});
    EXPECT_FALSE(m_interface.writeToCan(one));
    EXPECT_EQ(log.count(" 5 bytes not sent", 3, Log::CanBus), 1);
}

TEST_F(CanInterfaceMultiportTest, FrameOfMoreThanEightBytesIsRefused)
{
    m_interface.openInterface(QString());
    CanFrame one = frame(0x4A8, 0x419, 0, bytes("02 00 2a 00 02 01 02 2b"));
    {
        const LogSpy log;
        m_interface.writeToCan(one);
        EXPECT_EQ(log.count(" 13 bytes not sent", 3, Log::CanBus), 1);
    }
    one.appendData('\x09');
    const LogSpy log;
    EXPECT_FALSE(m_interface.writeToCan(one));
    EXPECT_EQ(log.count("A frame of 9 bytes, expected at most 8", 4, Log::CanBus), 1);
    EXPECT_EQ(log.records().size(), 1); // the client was not asked
}

TEST_F(CanInterfaceMultiportTest, FirstFrameThatIsNotSentEndsTheList)
{
    m_interface.openInterface(QString());
    const LogSpy log;
    EXPECT_FALSE(m_interface.writeToCan(framesOf(0x4A8, 0x419, 42, bytes("01 02 03 04 05"))));
    EXPECT_EQ(log.count("bytes not sent"), 1);
}

TEST_F(CanInterfaceMultiportTest, FramesOfTheClientPassFilterLogAndInheritedSignal)
{
    m_interface.setLogInFile(true);
    const QSignalSpy own(&m_interface, &CanInterface_Multiport::frameReceived);
    const QSignalSpy inherited(&m_interface, &AbstractCanInterface::frameReceived);
    m_machine.deliverHex(s_pWhole);
    EXPECT_EQ(own.count(), 1);
    ASSERT_EQ(inherited.count(), 1);
    const auto received = inherited.first().first().value<CanFrame>();
    EXPECT_EQ(received.id(), 0x00254419U);
    EXPECT_EQ(received.data(), bytes("02 00 2a 00 00 28"));
    EXPECT_EQ(received.reserved(), 0U);
    const QStringList lines = m_folder.lines(QStringLiteral("canBus.txt"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.first().contains(QStringLiteral("| Received: Received by CpuBoardOstrel")));
}

TEST_F(CanInterfaceMultiportTest, FrameForTheFilteredAddressStopsAtTheFilter)
{
    m_interface.setLogInFile(true);
    const QSignalSpy own(&m_interface, &CanInterface_Multiport::frameReceived);
    const QSignalSpy inherited(&m_interface, &AbstractCanInterface::frameReceived);
    m_machine.deliverHex("00 20 cf 05 01 02");
    EXPECT_EQ(own.count(), 1);
    EXPECT_EQ(inherited.count(), 0);
    EXPECT_TRUE(m_folder.names().isEmpty());
}

TEST_F(CanInterfaceMultiportTest, EveryFrameComesOnceHoweverOftenTheInterfaceIsOpened)
{
    const QSignalSpy received(&m_interface, &AbstractCanInterface::frameReceived);
    for (int i = 1; i <= 3; ++i) {
        m_interface.openInterface(QString());
        m_interface.openInterface(QString());
        m_machine.deliverHex(s_pWhole);
        EXPECT_EQ(received.count(), i);
        m_interface.closeInterface();
    }
}

TEST_F(CanInterfaceMultiportTest, InterfaceThatIsDestroyedHearsNothing)
{
    auto pInterface = std::make_unique<CanInterface_Multiport>(nullptr);
    pInterface->openInterface(QString());
    pInterface.reset();
    const LogSpy log;
    m_machine.deliverHex(s_pWhole);
    EXPECT_EQ(log.count("new data:"), 1); // the fixture's own
}

TEST_F(CanInterfaceMultiportTest, ClientThatGoesIsMissed)
{
    m_interface.openInterface(QString());
    delete m_machine.environment().multiport();
    const LogSpy log;
    EXPECT_FALSE(m_interface.isOpen());
    EXPECT_EQ(missing(log), 1);
    EXPECT_FALSE(m_interface.openInterface(QString()));
    m_interface.closeInterface();
    EXPECT_FALSE(m_interface.writeToCan(CanFrame()));
}

TEST_F(CanInterfaceMultiportTest, NewClientIsHeardOnceTheInterfaceIsOpened)
{
    m_interface.openInterface(QString());
    m_machine.environment().setMultiport(m_machine.newClient());
    EXPECT_FALSE(m_interface.isOpen());
    EXPECT_TRUE(m_interface.openInterface(QString()));
    const QSignalSpy received(&m_interface, &AbstractCanInterface::frameReceived);
    m_machine.deliverHex(s_pWhole);
    EXPECT_EQ(received.count(), 1);
}

TEST_F(CanInterfaceMultiportTest, OldClientIsHeardNoMoreOnceThereIsANewOne)
{
    Multiport old(QString(), Multiport::ModeLocal, nullptr); // not the environment's to delete
    m_machine.environment().setMultiport(&old);
    m_interface.openInterface(QString());
    m_machine.environment().setMultiport(m_machine.newClient());
    m_interface.openInterface(QString());
    const QSignalSpy received(&m_interface, &AbstractCanInterface::frameReceived);
    MultiportMachine::deliver(old, QByteArray::fromHex(s_pWhole));
    EXPECT_EQ(received.count(), 0);
    m_machine.deliverHex(s_pWhole);
    EXPECT_EQ(received.count(), 1);
}

namespace {

/// Nothing of it can work, and each attempt is told.
void expectNothingWorks(CanInterface_Multiport &interface)
{
    {
        const LogSpy log;
        EXPECT_FALSE(interface.openInterface(QString()));
        EXPECT_EQ(missing(log), 1);
        EXPECT_EQ(log.records().size(), 1);
    }
    {
        const LogSpy log;
        EXPECT_FALSE(interface.isOpen());
        EXPECT_EQ(missing(log), 1);
    }
    {
        const LogSpy log;
        EXPECT_FALSE(interface.closeInterface());
        EXPECT_GE(missing(log), 1);
    }
    EXPECT_FALSE(interface.writeToCan(CanFrame()));
}

} // namespace

TEST(CanInterfaceMultiportWithoutClient, NothingWorksWithoutAnEnvironment)
{
    ASSERT_EQ(gHardwareEnv, nullptr);
    CanInterface_Multiport interface(nullptr);
    expectNothingWorks(interface);
}

TEST(CanInterfaceMultiportWithoutClient, NothingWorksWhileTheEnvironmentHasNone)
{
    const TestMachine machine;
    CanInterface_Multiport interface(nullptr);
    expectNothingWorks(interface);
}

TEST(CanInterfaceMultiportWithoutClient, ClientThatComesLaterIsFoundWhenTheInterfaceIsOpened)
{
    CanInterface_Multiport interface(nullptr);
    const QSignalSpy received(&interface, &AbstractCanInterface::frameReceived);
    MultiportMachine machine;
    EXPECT_TRUE(interface.openInterface(QString()));
    machine.deliverHex(s_pWhole);
    EXPECT_EQ(received.count(), 1);
    interface.closeInterface();
    EXPECT_TRUE(interface.openInterface(QString()));
    machine.deliverHex(s_pWhole);
    EXPECT_EQ(received.count(), 2);
}

TEST(CanInterfaceMultiportMeta, HasASignalOfItsOwn)
{
    const QMetaObject &meta = CanInterface_Multiport::staticMetaObject;
    EXPECT_STREQ(meta.superClass()->className(), "AbstractCanInterface");
    const QMetaMethod signal = meta.method(meta.methodOffset());
    EXPECT_EQ(signal.methodSignature(), "frameReceived(CanFrame)");
    EXPECT_EQ(signal.methodType(), QMetaMethod::Signal);
    EXPECT_GE(meta.indexOfMethod("readFromCan(QByteArray)"), meta.methodOffset());
}

struct SwapCase
{
    const char *pName;
    unsigned int value;
    unsigned int swapped;
};

using CanInterfaceMultiportSwaps = ::testing::TestWithParam<SwapCase>;

TEST_P(CanInterfaceMultiportSwaps, ReverseTheFourBytes)
{
    EXPECT_EQ(CanInterface_Multiport::swap(GetParam().value), GetParam().swapped);
    EXPECT_EQ(CanInterface_Multiport::swap(GetParam().swapped), GetParam().value);
}

constexpr SwapCase s_swapCases[] = {
    {"Nothing", 0x00000000U, 0x00000000U},     {"Identifier", 0x00254419U, 0x19442500U},
    {"EachByte", 0x01020304U, 0x04030201U},    {"LowestBit", 0x00000001U, 0x01000000U},
    {"HighestBit", 0x80000000U, 0x00000080U},  {"SecondByte", 0x0000ff00U, 0x00ff0000U},
    {"BitsInABytesOrder", 0x0f000000U, 0x0fU}, {"All", 0xffffffffU, 0xffffffffU},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanInterfaceMultiportSwaps, ::testing::ValuesIn(s_swapCases),
                         caseName);
