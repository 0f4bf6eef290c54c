#include "canbus/caninterface_dummy.h"

#include "canbus/canmessages.h"
#include "support/casename.h"
#include "support/logfolder.h"
#include "support/logspy.h"
#include "support/messagespy.h"
#include "support/virtualtime.h"

#include <QMetaMethod>
#include <QPointer>
#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

/// From 0x4A8 to 0x419.
CanFrame sentFrame()
{
    return withId(0x00254419, "02 00 2a 00 00 28");
}

} // namespace

class CanInterfaceDummyTest : public ::testing::Test
{
protected:
    CanInterfaceDummyTest()
    {
        QObject::connect(&m_dummy, &AbstractCanInterface::frameReceived, &m_dummy,
                         [this](const CanFrame &one) { m_received.append(one); });
    }

    static void advance(std::chrono::milliseconds duration)
    {
        VirtualTime::instance()->advance(duration);
    }

    QString tracePath() const { return m_folder.path(QStringLiteral("trace")); }

    LogFolder m_folder;
    CanInterface_Dummy m_dummy{nullptr, false};
    CanInterface_Dummy m_traced{nullptr, true};
    QList<CanFrame> m_received; ///< by the one that is not traced
};

TEST_F(CanInterfaceDummyTest, IsSimulatedAndAnswersNothingAtFirst)
{
    EXPECT_TRUE(m_dummy.isSimulated());
    EXPECT_TRUE(m_traced.isSimulated());
    EXPECT_FALSE(m_dummy.isAnswerSimulation());
    EXPECT_EQ(m_dummy.lastFrameSent().id(), 0U);
    EXPECT_TRUE(m_dummy.lastFrameSent().data().isEmpty());
    EXPECT_TRUE(m_dummy.lastFirstFrameSent().data().isEmpty());
}

TEST_F(CanInterfaceDummyTest, IsOpenBeforeItIsOpenedWhenNotTraced)
{
    EXPECT_TRUE(m_dummy.isOpen());
    EXPECT_TRUE(m_dummy.openInterface(tracePath()));
    EXPECT_TRUE(m_dummy.isOpen());
    EXPECT_EQ(m_dummy.interfaceName(), QString());
    EXPECT_TRUE(m_dummy.writeToCan(sentFrame()));
    EXPECT_TRUE(m_folder.names().isEmpty());
    EXPECT_TRUE(m_dummy.closeInterface());
    EXPECT_TRUE(m_dummy.isOpen());
}

TEST_F(CanInterfaceDummyTest, IsOpenWhileTheTraceFileIs)
{
    EXPECT_FALSE(m_traced.isOpen());
    EXPECT_TRUE(m_traced.openInterface(tracePath()));
    EXPECT_TRUE(m_traced.isOpen());
    EXPECT_EQ(m_traced.interfaceName(), tracePath());
    EXPECT_TRUE(m_traced.closeInterface());
    EXPECT_FALSE(m_traced.isOpen());
    EXPECT_TRUE(m_traced.closeInterface());
}

TEST_F(CanInterfaceDummyTest, TraceFileIsEmptiedWhenItIsOpened)
{
    EXPECT_TRUE(m_traced.openInterface(tracePath()));
    m_traced.writeToCan(sentFrame());
    EXPECT_FALSE(m_folder.bytes(QStringLiteral("trace")).isEmpty());
    m_traced.closeInterface();

    EXPECT_TRUE(m_traced.openInterface(tracePath()));
    EXPECT_TRUE(m_folder.bytes(QStringLiteral("trace")).isEmpty());
    m_traced.writeToCan(sentFrame());
    EXPECT_EQ(m_folder.bytes(QStringLiteral("trace")),
              m_traced._logFrame(sentFrame(), false, QStringLiteral("->Simulated Send")).toUtf8());
}

TEST_F(CanInterfaceDummyTest, OpeningAnOpenOneAgainBeginsANewTrace)
{
    const MessageSpy qt; // which warns of a file that is given another name while it is open
    EXPECT_TRUE(m_traced.openInterface(tracePath()));
    m_traced.writeToCan(sentFrame());
    EXPECT_TRUE(m_traced.openInterface(tracePath()));
    EXPECT_TRUE(m_traced.isOpen());
    EXPECT_TRUE(m_folder.bytes(QStringLiteral("trace")).isEmpty());
    m_traced.writeToCan(sentFrame());

    const QString other = m_folder.path(QStringLiteral("other"));
    EXPECT_TRUE(m_traced.openInterface(other));
    EXPECT_EQ(m_traced.interfaceName(), other);
    m_traced.writeToCan(sentFrame());
    const QByteArray line =
        m_traced._logFrame(sentFrame(), false, QStringLiteral("->Simulated Send")).toUtf8();
    EXPECT_EQ(m_folder.bytes(QStringLiteral("trace")), line);
    EXPECT_EQ(m_folder.bytes(QStringLiteral("other")), line);
    EXPECT_TRUE(qt.messages().isEmpty());
}

TEST_F(CanInterfaceDummyTest, TraceFileThatCannotBeOpenedIsAFailure)
{
    for (const QString &path : {m_folder.path(), m_folder.path(QStringLiteral("a/b")), QString()}) {
        EXPECT_FALSE(m_traced.openInterface(path)) << path.toStdString();
        EXPECT_FALSE(m_traced.isOpen());
        EXPECT_EQ(m_traced.interfaceName(), path);
    }
    EXPECT_TRUE(m_traced.openInterface(tracePath()));
}

TEST_F(CanInterfaceDummyTest, EachFrameIsTraced)
{
    m_traced.openInterface(tracePath());
    EXPECT_TRUE(m_traced.writeToCan(framesOf(0x4A8, 0x419, 42, bytes("01 02 03 04 05"))));
    const QStringList lines = m_folder.lines(QStringLiteral("trace"));
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines.first().endsWith(
        QStringLiteral("| ->Simulated Send Received by CpuBoardOstrel from ActuatorBoardOstrel "
                       "commandId:VirtualSelect(42) frame num:1\r")))
        << lines.first().toStdString();
    EXPECT_TRUE(lines.last().endsWith(QStringLiteral("| ->Simulated Send frame num:2\r")))
        << lines.last().toStdString();
}

// Nothing that was written counts as failed but what is known to be lost.
TEST_F(CanInterfaceDummyTest, FrameIsTakenWhileTheTraceFileIsNotOpen)
{
    const LogSpy log;
    EXPECT_TRUE(m_traced.writeToCan(sentFrame()));
    EXPECT_EQ(log.count(", file is not opened", 4, Log::CanBus), 1);
    EXPECT_EQ(m_traced.lastFrameSent().id(), 0x00254419U);
}

TEST_F(CanInterfaceDummyTest, LostTraceFailsTheWriteButTheFrameIsTaken)
{
    ASSERT_TRUE(m_traced.openInterface(QStringLiteral("/dev/full")));
    m_traced.setAnswerSimulation(true);
    const QSignalSpy sent(&m_traced, &CanInterface_Dummy::frameSent);
    const QSignalSpy received(&m_traced, &AbstractCanInterface::frameReceived);
    EXPECT_FALSE(m_traced.writeToCan(sentFrame()));
    EXPECT_EQ(sent.count(), 1);
    EXPECT_EQ(m_traced.lastFirstFrameSent().id(), 0x00254419U);
    advance(20ms);
    EXPECT_EQ(received.count(), 1);
}

namespace {

/// A trace whose result the test decides.
class TraceResult : public CanInterface_Dummy
{
public:
    TraceResult(bool isTraced, int result)
        : CanInterface_Dummy(nullptr, isTraced)
        , m_result(result)
    {
    }
    int traceFile(const CanFrame &one, bool isReceived, QString comment) override
    {
        m_calls.append(QStringLiteral("%1 %2 %3").arg(one.id()).arg(isReceived).arg(comment));
        return m_result;
    }
    QStringList m_calls;

private:
    int m_result;
};

} // namespace

TEST_F(CanInterfaceDummyTest, OnlyANegativeTraceFailsTheWrite)
{
    for (const int result : {-1, 0, 1}) {
        TraceResult dummy(true, result);
        EXPECT_EQ(dummy.writeToCan(sentFrame()), result >= 0);
        EXPECT_EQ(dummy.m_calls, QStringList(QStringLiteral("2442265 0 ->Simulated Send")));
    }
    TraceResult dummy(false, -1);
    EXPECT_TRUE(dummy.writeToCan(sentFrame()));
    EXPECT_TRUE(dummy.m_calls.isEmpty());
}

TEST_F(CanInterfaceDummyTest, FrameIsTracedBeforeItIsTold)
{
    TraceResult dummy(true, 0);
    QObject::connect(&dummy, &CanInterface_Dummy::frameSent, &dummy,
                     [&] { dummy.m_calls.append(QStringLiteral("frameSent")); });
    dummy.writeToCan(sentFrame());
    EXPECT_EQ(dummy.m_calls, (QStringList{QStringLiteral("2442265 0 ->Simulated Send"),
                                          QStringLiteral("frameSent")}));
}

TEST_F(CanInterfaceDummyTest, TimeUntilTheAnswerBeginsWhenTheFrameHasBeenTold)
{
    m_dummy.setAnswerSimulation(true);
    QObject::connect(&m_dummy, &CanInterface_Dummy::frameSent, &m_dummy, [] { advance(20ms); });
    m_dummy.writeToCan(sentFrame());
    advance(19ms);
    EXPECT_TRUE(m_received.isEmpty());
    advance(1ms);
    EXPECT_EQ(m_received.size(), 1);
}

TEST_F(CanInterfaceDummyTest, ListenerMayDeleteItInsideTheWrite)
{
    for (const bool isTraced : {false, true}) {
        const QPointer<CanInterface_Dummy> pDummy = new CanInterface_Dummy(nullptr, isTraced);
        pDummy->setAnswerSimulation(true);
        pDummy->openInterface(tracePath());
        QObject::connect(pDummy, &CanInterface_Dummy::frameSent, [&] { delete pDummy; });
        EXPECT_TRUE(pDummy->writeToCan(sentFrame()));
        EXPECT_TRUE(pDummy.isNull());
    }
    advance(1000ms);
}

TEST_F(CanInterfaceDummyTest, ListenerMayDeleteItInsideTheWriteOfAList)
{
    const QPointer<CanInterface_Dummy> pDummy = new CanInterface_Dummy(nullptr, false);
    pDummy->setAnswerSimulation(true);
    int sent = 0;
    QObject::connect(pDummy, &CanInterface_Dummy::frameSent, [&] {
        ++sent;
        delete pDummy;
    });
    EXPECT_FALSE(pDummy->writeToCan(framesOf(0x4A8, 0x419, 42, bytes("01 02 03 04 05"))));
    EXPECT_EQ(sent, 1);
    EXPECT_TRUE(pDummy.isNull());
}

TEST_F(CanInterfaceDummyTest, LastFrameAndLastFirstFrameAreRemembered)
{
    CanFrame first = sentFrame();
    first.setReserved(7);
    m_dummy.writeToCan(first);
    CanFrame following = withId(0x00654419, "99");
    following.setReserved(8);
    m_dummy.writeToCan(following);

    EXPECT_EQ(m_dummy.lastFrameSent().id(), 0x00654419U);
    EXPECT_EQ(m_dummy.lastFrameSent().data(), bytes("99"));
    EXPECT_EQ(m_dummy.lastFrameSent().reserved(), 8U);
    EXPECT_EQ(m_dummy.lastFirstFrameSent().id(), 0x00254419U);
    EXPECT_EQ(m_dummy.lastFirstFrameSent().data(), bytes("02 00 2a 00 00 28"));
    EXPECT_EQ(m_dummy.lastFirstFrameSent().reserved(), 7U);
}

TEST_F(CanInterfaceDummyTest, FrameSentComesInsideEachWrite)
{
    const QSignalSpy sent(&m_dummy, &CanInterface_Dummy::frameSent);
    quint32 lastAtSignal = 0;
    QObject::connect(&m_dummy, &CanInterface_Dummy::frameSent, &m_dummy,
                     [&] { lastAtSignal = m_dummy.lastFrameSent().id(); });
    m_dummy.writeToCan(framesOf(0x4A8, 0x419, 42, bytes("01 02 03 04 05")));
    EXPECT_EQ(sent.count(), 2);
    EXPECT_EQ(lastAtSignal, 0x00654419U);
}

TEST_F(CanInterfaceDummyTest, FrameIsAcknowledgedAfter20Milliseconds)
{
    m_dummy.setAnswerSimulation(true);
    m_dummy.writeToCan(sentFrame());
    advance(19ms);
    EXPECT_TRUE(m_received.isEmpty());
    advance(1ms);
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.first().id(), 0x0020CCA8U);
    EXPECT_EQ(m_received.first().data(), bytes("02 00 01 00 2a 29"));
    advance(1000ms);
    EXPECT_EQ(m_received.size(), 1);
}

TEST_F(CanInterfaceDummyTest, MessageOfSeveralFramesIsAnsweredOnceAfterItsLastFrame)
{
    m_dummy.setAnswerSimulation(true);
    // The second frame looks like a first one but for its index.
    const QList<CanFrame> frames =
        framesOf(0x4A8, 0x419, 0x15D, bytes("11 22 33 02 00 2a 00 00 28 44 55"));
    ASSERT_EQ(frames.size(), 3);
    for (const CanFrame &one : frames) {
        advance(19ms);
        m_dummy.writeToCan(one);
    }
    advance(19ms);
    EXPECT_TRUE(m_received.isEmpty());
    advance(1ms);
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.first().id(), 0x0020CCA8U);
    EXPECT_EQ(m_received.first().data(), bytes("02 00 01 01 5d 5f"));
    advance(1000ms);
    EXPECT_EQ(m_received.size(), 1);
}

TEST_F(CanInterfaceDummyTest, NextMessageWithinTheTimeTakesTheAnswerOfTheOneBefore)
{
    m_dummy.setAnswerSimulation(true);
    m_dummy.writeToCan(sentFrame());
    advance(19ms);
    m_dummy.writeToCan(frame(0x4A8, 0x721, 0, bytes("02 00 62 00 00 60")));
    advance(19ms);
    EXPECT_TRUE(m_received.isEmpty());
    advance(1ms);
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(VYCanFrame::sourceAddress(m_received.first()), 0x721);
    EXPECT_EQ(m_received.first().data(), bytes("02 00 01 00 62 61"));
}

TEST_F(CanInterfaceDummyTest, WriteFromTheAnswerIsAnsweredToo)
{
    m_dummy.setAnswerSimulation(true);
    QObject::connect(&m_dummy, &AbstractCanInterface::frameReceived, &m_dummy, [this] {
        if (m_received.size() < 3)
            m_dummy.writeToCan(sentFrame());
    });
    m_dummy.writeToCan(sentFrame());
    advance(59ms);
    EXPECT_EQ(m_received.size(), 2);
    advance(1ms);
    EXPECT_EQ(m_received.size(), 3);
    advance(1000ms);
    EXPECT_EQ(m_received.size(), 3);
}

TEST_F(CanInterfaceDummyTest, NothingIsFedBackWhileTheAnswerSimulationIsOff)
{
    m_dummy.writeToCan(sentFrame());
    m_dummy.simulateIncomingFrameFromLastSent();
    m_dummy.simulateIncomingFrameFromLastFirstFrameSent();
    m_dummy.simulateIncomingFrame(sentFrame());
    advance(1000ms);
    EXPECT_TRUE(m_received.isEmpty());
}

TEST_F(CanInterfaceDummyTest, AnswerSimulationThatIsSwitchedOffInTimeAnswersNothing)
{
    m_dummy.setAnswerSimulation(true);
    EXPECT_TRUE(m_dummy.isAnswerSimulation());
    m_dummy.writeToCan(sentFrame());
    advance(10ms);
    m_dummy.setAnswerSimulation(false);
    advance(1000ms);
    EXPECT_TRUE(m_received.isEmpty());
}

TEST_F(CanInterfaceDummyTest, AnswerSimulationThatIsSwitchedOnTooLateAnswersNothing)
{
    m_dummy.writeToCan(sentFrame());
    m_dummy.setAnswerSimulation(true);
    advance(1000ms);
    EXPECT_TRUE(m_received.isEmpty());
}

struct ForgedCase
{
    const char *pName;
    quint32 id;
    const char *pHex; ///< of the first frame sent
    int answerCommand;
    quint32 answerId;
    const char *pAnswerHex; ///< null when there is no answer
};

class CanInterfaceDummyForged : public CanInterfaceDummyTest,
                                public ::testing::WithParamInterface<ForgedCase>
{
};

TEST_P(CanInterfaceDummyForged, IsTheBoardsAnswer)
{
    m_dummy.writeToCan(withId(GetParam().id, GetParam().pHex));
    m_dummy.setAnswerSimulation(true);
    m_dummy.simulateIncomingFrameFromLastFirstFrameSent(GetParam().answerCommand);
    ASSERT_EQ(m_received.size(), GetParam().pAnswerHex != nullptr ? 1 : 0);
    if (m_received.isEmpty())
        return;
    EXPECT_EQ(m_received.first().id(), GetParam().answerId);
    EXPECT_EQ(m_received.first().data(), bytes(GetParam().pAnswerHex));
}

const ForgedCase s_forgedCases[] = {
    {"Acknowledge", 0x00254419, "02 00 2a 00 00 28", 1, 0x0020CCA8, "02 00 01 00 2a 29"},
    {"NegativeAcknowledge", 0x00254419, "02 00 2a 00 00 28", 2, 0x0020CCA8, "02 00 02 00 2a 2a"},
    {"BothBytesOfBothCommands", 0x00254419, "02 07 ff 00 00 fa", 0x1234, 0x0020CCA8,
     "02 12 34 07 ff dc"},
    {"CommandBelowTheAcknowledges", 0x00254419, "02 00 00 00 00 02", 1, 0x0020CCA8,
     "02 00 01 00 00 03"},
    {"CommandAboveTheAcknowledges", 0x00254419, "02 00 03 00 00 01", 1, 0x0020CCA8,
     "02 00 01 00 03 00"},
    {"BitsAboveTheFieldsStay", 0xF0254419, "02 00 2a 00 00 28", 1, 0xF020CCA8, "02 00 01 00 2a 29"},
    {"CommandThatCannotBeRead", 0x00254419, "02 00 2a 00", 1, 0x0020CCA8, "02 00 01 ff ff 03"},
    {"AcknowledgeIsNotAnswered", 0x00254419, "02 00 01 00 2a 29", 1, 0, nullptr},
    {"NegativeAcknowledgeIsNotAnswered", 0x00254419, "02 00 02 00 2a 2a", 2, 0, nullptr},
    {"FirstFrameWithoutData", 0x00254419, "", 1, 0, nullptr},
    {"FollowingFrameAlone", 0x00654419, "02 00 2a 00 00 28", 1, 0, nullptr},
    {"AnswerForTheFilteredAddress", 0x00382C19, "02 00 2a 00 00 28", 1, 0, nullptr},
};
INSTANTIATE_TEST_SUITE_P(Rows, CanInterfaceDummyForged, ::testing::ValuesIn(s_forgedCases),
                         caseName);

TEST_F(CanInterfaceDummyTest, NothingIsForgedBeforeAFrameWasSent)
{
    m_dummy.setAnswerSimulation(true);
    m_dummy.simulateIncomingFrameFromLastFirstFrameSent();
    EXPECT_TRUE(m_received.isEmpty());
}

TEST_F(CanInterfaceDummyTest, AcknowledgeThatIsSentGetsNoAnswerInTime)
{
    m_dummy.setAnswerSimulation(true);
    for (const char *pHex : {"02 00 01 00 2a 29", "02 00 02 00 2a 2a"}) {
        m_dummy.writeToCan(withId(0x00254419, pHex));
        advance(1000ms);
    }
    EXPECT_TRUE(m_received.isEmpty());
}

TEST_F(CanInterfaceDummyTest, ForgedAnswerIsLoggedLikeARealOne)
{
    m_dummy.setAnswerSimulation(true);
    m_dummy.writeToCan(sentFrame());
    m_dummy.setLogInFile(true);
    advance(20ms);
    const QStringList lines = m_folder.lines(QStringLiteral("canBus.txt"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines.first().mid(25) + QLatin1Char('\n'),
              m_dummy._logFrame(withId(0x0020CCA8, "02 00 01 00 2a 29"), true,
                                QStringLiteral("Received:")));
}

TEST_F(CanInterfaceDummyTest, LastFrameSentCanComeBackUnchanged)
{
    m_dummy.writeToCan(sentFrame());
    CanFrame following = withId(0xF0654419, "99");
    following.setReserved(8);
    m_dummy.writeToCan(following);
    m_dummy.setAnswerSimulation(true);
    m_dummy.simulateIncomingFrameFromLastSent();
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.first().id(), 0xF0654419U);
    EXPECT_EQ(m_received.first().data(), bytes("99"));
    EXPECT_EQ(m_received.first().reserved(), 8U);
}

TEST_F(CanInterfaceDummyTest, FrameThatComesBackIsTheSameForEveryListener)
{
    QObject::disconnect(&m_dummy, &AbstractCanInterface::frameReceived, &m_dummy, nullptr);
    QObject::connect(&m_dummy, &AbstractCanInterface::frameReceived, &m_dummy,
                     [this] { m_dummy.writeToCan(withId(0x00654419, "99")); });
    QObject::connect(&m_dummy, &AbstractCanInterface::frameReceived, &m_dummy,
                     [this](const CanFrame &one) { m_received.append(one); });
    m_dummy.setAnswerSimulation(true);
    m_dummy.writeToCan(sentFrame());
    m_dummy.simulateIncomingFrameFromLastSent();
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.first().id(), 0x00254419U);
    EXPECT_EQ(m_received.first().data(), bytes("02 00 2a 00 00 28"));
}

TEST_F(CanInterfaceDummyTest, AnyFrameCanBeReceivedAndIsFiltered)
{
    m_dummy.setAnswerSimulation(true);
    m_dummy.simulateIncomingFrame(withId(0x0020CCA8, "01"));
    m_dummy.simulateIncomingFrame(frame(0x419, 0x705, 0, bytes("02")));
    m_dummy.simulateIncomingFrame(CanFrame());
    ASSERT_EQ(m_received.size(), 2);
    EXPECT_EQ(m_received.first().id(), 0x0020CCA8U);
    EXPECT_EQ(m_received.last().id(), 0U);
}

TEST_F(CanInterfaceDummyTest, InterfaceThatIsDestroyedAnswersNothing)
{
    {
        CanInterface_Dummy dummy(nullptr, false);
        dummy.setAnswerSimulation(true);
        dummy.writeToCan(sentFrame());
    }
    advance(1000ms);
}

TEST(CanInterfaceDummyMeta, SignalsAndSlotsStandInTheirOrder)
{
    const QMetaObject &meta = CanInterface_Dummy::staticMetaObject;
    QList<QByteArray> signatures;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        signatures.append(method.methodSignature());
        EXPECT_EQ(method.methodType(),
                  i == meta.methodOffset() ? QMetaMethod::Signal : QMetaMethod::Slot);
        EXPECT_EQ(method.access(), QMetaMethod::Public);
    }
    // The one with a default argument is there in both forms.
    const QList<QByteArray> expected{
        "frameSent()",
        "simulateIncomingFrameFromLastSent()",
        "simulateIncomingFrameFromLastFirstFrameSent(int)",
        "simulateIncomingFrameFromLastFirstFrameSent()",
        "simulateIncomingFrame(CanFrame)",
    };
    EXPECT_EQ(signatures, expected);
}
