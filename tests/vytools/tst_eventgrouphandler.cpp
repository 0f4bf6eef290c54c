#include "eventgrouphandler.h"

#include "support/assertspy.h"
#include "support/casename.h"
#include "support/virtualtime.h"

#include <QMetaMethod>
#include <QPointer>
#include <QSignalSpy>
#include <QStringList>
#include <gtest/gtest.h>
#include <memory>

using std::chrono::milliseconds;
using tools::EventGroupHandler;
using tools::EventSteps;
using namespace std::chrono_literals;

/// Something that is asked and answers by signals.
class Device : public QObject
{
    Q_OBJECT

public:
    enum Status : int { Succeeded = 0, Refused = 2 };
    Q_ENUM(Status)

    /// Whether somebody is connected to one of the signals.
    bool isHeard() const
    {
        return isSignalConnected(QMetaMethod::fromSignal(&Device::answered)) ||
               isSignalConnected(QMetaMethod::fromSignal(&Device::named)) ||
               isSignalConnected(QMetaMethod::fromSignal(&Device::reported));
    }

Q_SIGNALS:
    void answered(int value);
    void named(const QString &name);
    void reported(Device::Status status);
};

namespace {

void passTime(milliseconds time)
{
    VirtualTime::instance()->advance(time);
}

/// All that is due now.
void passTurns()
{
    passTime(0ms);
}

} // namespace

class EventGroupHandlerTest : public ::testing::Test
{
protected:
    EventGroupHandlerTest()
        : m_pDevice(std::make_unique<Device>())
        , m_pHandler(new EventGroupHandler)
    {
        QObject::connect(m_pHandler, &EventGroupHandler::stepFinished, &m_context,
                         [this](int index, bool hasSucceeded) {
                             note(QStringLiteral("step%1 %2").arg(index).arg(word(hasSucceeded)));
                         });
        QObject::connect(m_pHandler, &EventGroupHandler::finished, &m_context,
                         [this](bool hasSucceeded) {
                             note(QStringLiteral("group %1").arg(word(hasSucceeded)));
                         });
    }
    ~EventGroupHandlerTest() override { delete m_pHandler.data(); }

    /// A step that is answered by Device::answered and wants the value 0.
    EventSteps step(
        const QString &name, const std::function<void()> &action = [] {})
    {
        return {[this, name, action] {
                    note(QStringLiteral("act ") + name);
                    action();
                },
                [this, name](EventGroupHandler &handler) {
                    note(QStringLiteral("connect ") + name);
                    return handler.setConnection(m_pDevice.get(), &Device::answered);
                },
                [this, name](const QVariant &value) {
                    note(QStringLiteral("check %1 %2").arg(name, value.toString()));
                    return value == QVariant(0);
                }};
    }

    /// A step whose action is answered with this value at once.
    EventSteps answeredStep(const QString &name, int value = 0)
    {
        return step(name, [this, value] { answer(value); });
    }

    EventGroupHandler &handler() const { return *m_pHandler; }
    Device &device() const { return *m_pDevice; }
    void answer(int value) const { Q_EMIT m_pDevice->answered(value); }

    void start(const EventSteps &steps) const
    {
        handler().addEvent(steps);
        handler().start();
        passTurns();
    }

    void note(const QString &text) { m_notes << text; }
    int count(const QString &text) const { return static_cast<int>(m_notes.count(text)); }

    /// What has been noted since the last look, as "connect a|act a|check a 0|step0 ok|group ok".
    std::string takeNotes()
    {
        std::string notes = m_notes.join(QLatin1Char('|')).toStdString();
        m_notes.clear();
        return notes;
    }

    std::unique_ptr<Device> m_pDevice;
    QPointer<EventGroupHandler> m_pHandler;
    QObject m_context;

private:
    static QString word(bool hasSucceeded)
    {
        return hasSucceeded ? QStringLiteral("ok") : QStringLiteral("failed");
    }

    QStringList m_notes;
};

namespace {

const QString a = QStringLiteral("a"); // NOLINT(cert-err58-cpp): does not throw
const QString b = QStringLiteral("b"); // NOLINT(cert-err58-cpp): does not throw

} // namespace

TEST_F(EventGroupHandlerTest, StepConnectsActsWaitsAndChecks)
{
    start(step(a));
    EXPECT_EQ(takeNotes(), "connect a|act a");
    EXPECT_TRUE(handler().isRunning());
    passTime(1000ms);
    EXPECT_EQ(takeNotes(), "");
    answer(0);
    passTurns();
    EXPECT_EQ(takeNotes(), "check a 0|step0 ok|group ok");
    EXPECT_FALSE(handler().isRunning());
}

TEST_F(EventGroupHandlerTest, StepsRunInTheirOrderOneAfterTheOther)
{
    handler().addEvent(step(a));
    handler().addEvent(step(b));
    handler().start();
    passTime(4999ms);
    EXPECT_EQ(takeNotes(), "connect a|act a");
    answer(0);
    passTime(4999ms);
    EXPECT_EQ(takeNotes(), "check a 0|step0 ok|connect b|act b");
    answer(0);
    passTurns();
    EXPECT_EQ(takeNotes(), "check b 0|step1 ok|group ok");
}

TEST_F(EventGroupHandlerTest, EachStepBeginsOnALaterTurn)
{
    handler().addEvent(step(a));
    handler().addEvent(step(b));
    handler().start();
    EXPECT_TRUE(handler().isRunning());
    EXPECT_EQ(takeNotes(), "");
    passTurns();
    takeNotes();
    answer(0);
    EXPECT_EQ(count(QStringLiteral("connect b")), 0);
    passTurns();
    EXPECT_EQ(count(QStringLiteral("connect b")), 1);
}

TEST_F(EventGroupHandlerTest, NothingBeginsBeforeStart)
{
    handler().addEvent(step(a));
    passTime(20000ms);
    EXPECT_FALSE(handler().isRunning());
    EXPECT_FALSE(device().isHeard());
    EXPECT_EQ(takeNotes(), "");
}

TEST_F(EventGroupHandlerTest, AnswerInsideTheActionCounts)
{
    start(answeredStep(a));
    EXPECT_EQ(takeNotes(), "connect a|act a|check a 0|step0 ok|group ok");
}

TEST_F(EventGroupHandlerTest, OnlyTheFirstAnswerOfAnAttemptCounts)
{
    handler().addEvent(step(a, [this] {
        answer(0);
        answer(7);
    }));
    handler().addEvent(step(b));
    handler().start();
    passTurns();
    EXPECT_EQ(takeNotes(), "connect a|act a|check a 0|step0 ok|connect b|act b");
}

TEST_F(EventGroupHandlerTest, CheckGetsTheSignalsText)
{
    QVariant value;
    EventSteps steps = step(a);
    steps.connector = [this](EventGroupHandler &handler) {
        return handler.setConnection(m_pDevice.get(), &Device::named);
    };
    steps.check = [&value](const QVariant &result) {
        value = result;
        return true;
    };
    start(steps);
    Q_EMIT device().named(QStringLiteral("grinder"));
    passTurns();
    EXPECT_EQ(value.type(), QVariant::String);
    EXPECT_EQ(value.toString().toStdString(), "grinder");
}

TEST_F(EventGroupHandlerTest, CheckCanReadAStatusAsANumber)
{
    QVariant value;
    EventSteps steps = step(a);
    steps.connector = [this](EventGroupHandler &handler) {
        return handler.setConnection(m_pDevice.get(), &Device::reported);
    };
    steps.check = [&value](const QVariant &result) {
        value = result;
        return result.toUInt() == 0;
    };
    start(steps);
    Q_EMIT device().reported(Device::Refused);
    passTurns();
    EXPECT_EQ(value.toUInt(), 2U);
    EXPECT_EQ(value.value<Device::Status>(), Device::Refused);
    takeNotes();

    Q_EMIT device().reported(Device::Succeeded);
    passTurns();
    EXPECT_EQ(takeNotes(), "step0 ok|group ok");
}

TEST_F(EventGroupHandlerTest, ResultMayComeWithoutAConnection)
{
    EventSteps steps = step(a);
    steps.connector = [](EventGroupHandler &) { return std::weak_ptr<QMetaObject::Connection>(); };
    start(steps);
    handler().checkResult(QVariant(0));
    passTurns();
    EXPECT_EQ(takeNotes(), "act a|check a 0|step0 ok|group ok");
}

TEST_F(EventGroupHandlerTest, ConnectionLastsAsLongAsTheAttempt)
{
    std::weak_ptr<QMetaObject::Connection> pConnection;
    EventSteps steps = step(a);
    steps.connector = [this, &pConnection](EventGroupHandler &handler) {
        pConnection = handler.setConnection(m_pDevice.get(), &Device::answered);
        return pConnection;
    };
    EXPECT_FALSE(device().isHeard());
    start(steps);
    EXPECT_TRUE(device().isHeard());
    EXPECT_FALSE(pConnection.expired());
    answer(0);
    EXPECT_FALSE(device().isHeard());
    EXPECT_TRUE(pConnection.expired());
}

TEST_F(EventGroupHandlerTest, LateSignalReachesNothing)
{
    handler().addEvent(step(a));
    EventSteps steps = step(b);
    steps.connector = [this](EventGroupHandler &handler) {
        return handler.setConnection(m_pDevice.get(), &Device::named);
    };
    steps.check = [this](const QVariant &name) {
        note(QStringLiteral("check ") + name.toString());
        return true;
    };
    handler().addEvent(steps);
    handler().start();
    passTurns();
    answer(0);
    answer(7); // between the steps
    passTurns();
    EXPECT_EQ(takeNotes(), "connect a|act a|check a 0|step0 ok|act b");
    answer(7); // during the next one, which waits for another signal
    passTurns();
    EXPECT_EQ(takeNotes(), "");
    Q_EMIT device().named(QStringLiteral("grinder"));
    passTurns();
    EXPECT_EQ(takeNotes(), "check grinder|step1 ok|group ok");
    answer(7);
    Q_EMIT device().named(QStringLiteral("late"));
    passTime(20000ms);
    EXPECT_EQ(takeNotes(), "");
}

TEST_F(EventGroupHandlerTest, ResultIsIgnoredWhileNoStepWaits)
{
    handler().checkResult(QVariant(0));
    handler().addEvent(step(a));
    handler().checkResult(QVariant(0));
    handler().start();
    handler().checkResult(QVariant(0)); // the step has not begun
    passTurns();
    EXPECT_EQ(takeNotes(), "connect a|act a");
    answer(0);
    handler().checkResult(QVariant(7));
    passTurns();
    handler().checkResult(QVariant(7));
    passTurns();
    EXPECT_EQ(takeNotes(), "check a 0|step0 ok|group ok");
}

TEST_F(EventGroupHandlerTest, FailingCheckIsRetriedTwiceThenTheNextStepRuns)
{
    handler().addEvent(answeredStep(a, 2));
    handler().addEvent(answeredStep(b));
    handler().start();
    passTurns();
    EXPECT_EQ(takeNotes(), "connect a|act a|check a 2|"
                           "connect a|act a|check a 2|"
                           "connect a|act a|check a 2|step0 failed|"
                           "connect b|act b|check b 0|step1 ok|group failed");
    EXPECT_FALSE(handler().isRunning());
}

TEST_F(EventGroupHandlerTest, AttemptsThatGetNoAnswerEndAfterFiveSecondsEach)
{
    start(step(a));
    for (int attempt = 1; attempt < 3; ++attempt) {
        EXPECT_EQ(takeNotes(), "connect a|act a") << attempt;
        passTime(4999ms);
        EXPECT_EQ(takeNotes(), "") << attempt;
        passTime(1ms);
    }
    EXPECT_EQ(takeNotes(), "connect a|act a");
    passTime(4999ms);
    EXPECT_EQ(takeNotes(), "");
    passTime(1ms);
    EXPECT_EQ(takeNotes(), "step0 failed|group failed");
    EXPECT_FALSE(device().isHeard());
    passTime(60000ms);
    EXPECT_EQ(takeNotes(), "");
}

TEST_F(EventGroupHandlerTest, TimeBeginsAgainWithEachAttempt)
{
    start(step(a));
    passTime(3000ms);
    answer(2);
    passTime(4999ms);
    EXPECT_EQ(takeNotes(), "connect a|act a|check a 2|connect a|act a");
    passTime(1ms);
    EXPECT_EQ(takeNotes(), "connect a|act a");
    passTime(4999ms);
    answer(0);
    passTurns();
    EXPECT_EQ(takeNotes(), "check a 0|step0 ok|group ok");
}

TEST_F(EventGroupHandlerTest, TimeBeginsAgainWithEachStep)
{
    handler().addEvent(step(a));
    handler().addEvent(step(b));
    handler().start();
    passTime(4999ms);
    answer(0);
    passTime(4999ms);
    EXPECT_EQ(takeNotes(), "connect a|act a|check a 0|step0 ok|connect b|act b");
    passTime(1ms);
    EXPECT_EQ(takeNotes(), "connect b|act b");
}

struct AttemptsCase
{
    const char *pName;
    int failures;
    bool isTimeOut; ///< no answer, instead of a wrong one
    const char *pEnd;
};

class EventGroupHandlerAttempts : public EventGroupHandlerTest,
                                  public ::testing::WithParamInterface<AttemptsCase>
{
};

TEST_P(EventGroupHandlerAttempts, OneMaySucceedAfterFailures)
{
    handler().addEvent(step(a));
    handler().start();
    for (int i = 0; i < GetParam().failures; ++i) {
        passTurns();
        if (GetParam().isTimeOut)
            passTime(EventGroupHandler::s_stepTimeout);
        else
            answer(2);
    }
    passTurns();
    answer(0);
    passTurns();
    EXPECT_EQ(count(QStringLiteral("act a")), std::min(GetParam().failures + 1, 3));
    const std::string notes = takeNotes();
    EXPECT_EQ(notes.substr(notes.find("step0")), GetParam().pEnd);
}

const AttemptsCase s_attemptsCases[] = {
    {"FirstAttempt", 0, false, "step0 ok|group ok"},
    {"SecondAfterAWrongAnswer", 1, false, "step0 ok|group ok"},
    {"ThirdAfterWrongAnswers", 2, false, "step0 ok|group ok"},
    {"NoneAfterWrongAnswers", 3, false, "step0 failed|group failed"},
    {"SecondAfterATimeOut", 1, true, "step0 ok|group ok"},
    {"ThirdAfterTimeOuts", 2, true, "step0 ok|group ok"},
    {"NoneAfterTimeOuts", 3, true, "step0 failed|group failed"},
};
INSTANTIATE_TEST_SUITE_P(Rows, EventGroupHandlerAttempts, ::testing::ValuesIn(s_attemptsCases),
                         caseName);

TEST_F(EventGroupHandlerTest, AttemptsOfOneStepDoNotCountForTheNext)
{
    handler().addEvent(answeredStep(a, 2));
    handler().addEvent(answeredStep(b, 2));
    handler().addEvent(answeredStep(QStringLiteral("c")));
    handler().start();
    passTurns();
    EXPECT_EQ(count(QStringLiteral("act a")), 3);
    EXPECT_EQ(count(QStringLiteral("act b")), 3);
    EXPECT_EQ(count(QStringLiteral("act c")), 1);
}

TEST_F(EventGroupHandlerTest, SignalsComeInOrderWithIndexAndOutcome)
{
    QSignalSpy steps(m_pHandler, &EventGroupHandler::stepFinished);
    QSignalSpy group(m_pHandler, &EventGroupHandler::finished);
    for (const int value : {0, 2, 0})
        handler().addEvent(answeredStep(a, value));
    handler().start();
    passTurns();
    ASSERT_EQ(steps.count(), 3);
    EXPECT_EQ(steps[0], (QVariantList{0, true}));
    EXPECT_EQ(steps[1], (QVariantList{1, false}));
    EXPECT_EQ(steps[2], (QVariantList{2, true}));
    ASSERT_EQ(group.count(), 1);
    EXPECT_EQ(group[0], QVariantList{false});
}

TEST_F(EventGroupHandlerTest, EmptyGroupSucceeds)
{
    handler().start();
    passTime(20000ms);
    EXPECT_EQ(takeNotes(), "group ok");
    EXPECT_FALSE(handler().isRunning());
}

TEST_F(EventGroupHandlerTest, StepAddedWhileAnotherWaitsRunsToo)
{
    start(step(a));
    handler().addEvent(answeredStep(b));
    passTurns();
    EXPECT_EQ(takeNotes(), "connect a|act a");
    answer(0);
    passTurns();
    EXPECT_EQ(takeNotes(), "check a 0|step0 ok|connect b|act b|check b 0|step1 ok|group ok");
}

TEST_F(EventGroupHandlerTest, StepAddedInTheLastActionRunsToo)
{
    start(step(a, [this] {
        handler().addEvent(answeredStep(b));
        answer(0);
    }));
    EXPECT_EQ(takeNotes(),
              "connect a|act a|check a 0|step0 ok|connect b|act b|check b 0|step1 ok|group ok");
}

TEST_F(EventGroupHandlerTest, StepAddedWhenTheLastIsOverRunsToo)
{
    QObject::connect(m_pHandler, &EventGroupHandler::stepFinished, &m_context, [this](int index) {
        if (index == 0)
            handler().addEvent(answeredStep(b));
    });
    start(answeredStep(a));
    EXPECT_EQ(takeNotes(),
              "connect a|act a|check a 0|step0 ok|connect b|act b|check b 0|step1 ok|group ok");
}

TEST_F(EventGroupHandlerTest, StepAddedWhenTheGroupHasFinishedWaitsForAStart)
{
    start(answeredStep(a));
    takeNotes();
    handler().addEvent(answeredStep(b));
    passTime(20000ms);
    EXPECT_EQ(takeNotes(), "");
    handler().start();
    passTurns();
    EXPECT_EQ(takeNotes(), "connect b|act b|check b 0|step0 ok|group ok");
}

TEST_F(EventGroupHandlerTest, StartDoesNothingWhileTheGroupRuns)
{
    handler().addEvent(answeredStep(a));
    handler().addEvent(step(b, [this] { handler().start(); }));
    handler().start();
    handler().start();
    passTurns();
    EXPECT_EQ(takeNotes(), "connect a|act a|check a 0|step0 ok|connect b|act b");
    handler().start();
    passTime(4999ms);
    handler().start();
    EXPECT_EQ(takeNotes(), "");
    answer(0);
    passTurns();
    EXPECT_EQ(takeNotes(), "check b 0|step1 ok|group ok");
}

TEST_F(EventGroupHandlerTest, NextStartHasNoMemoryOfTheLast)
{
    start(answeredStep(a, 2));
    takeNotes();
    start(answeredStep(b));
    EXPECT_EQ(takeNotes(), "connect b|act b|check b 0|step0 ok|group ok");
}

TEST_F(EventGroupHandlerTest, GroupCanBeStartedAgainByTheSlotOfFinished)
{
    QObject::connect(m_pHandler, &EventGroupHandler::finished, &m_context,
                     [this, isFirst = true]() mutable {
                         EXPECT_FALSE(handler().isRunning());
                         if (!std::exchange(isFirst, false))
                             return;
                         handler().addEvent(answeredStep(b));
                         handler().start();
                     });
    start(answeredStep(a));
    EXPECT_EQ(takeNotes(), "connect a|act a|check a 0|step0 ok|group ok|"
                           "connect b|act b|check b 0|step0 ok|group ok");
}

struct IncompleteCase
{
    const char *pName;
    bool hasAction;
    bool hasConnector;
    bool hasCheck;
};

class EventGroupHandlerIncomplete : public EventGroupHandlerTest,
                                    public ::testing::WithParamInterface<IncompleteCase>
{
};

TEST_P(EventGroupHandlerIncomplete, StepIsReportedAndRefused)
{
    EventSteps steps = step(a);
    if (!GetParam().hasAction)
        steps.action = nullptr;
    if (!GetParam().hasConnector)
        steps.connector = nullptr;
    if (!GetParam().hasCheck)
        steps.check = nullptr;

    const AssertSpy asserts;
    handler().addEvent(steps);
    ASSERT_EQ(asserts.records().size(), 1);
    EXPECT_FALSE(asserts.records().constFirst().isRelease);
    start(answeredStep(b));
    EXPECT_EQ(asserts.records().size(), 1);
    EXPECT_EQ(takeNotes(), "connect b|act b|check b 0|step0 ok|group ok");
}

const IncompleteCase s_incompleteCases[] = {
    {"NoAction", false, true, true},
    {"NoConnector", true, false, true},
    {"NoCheck", true, true, false},
    {"Nothing", false, false, false},
};
INSTANTIATE_TEST_SUITE_P(Rows, EventGroupHandlerIncomplete, ::testing::ValuesIn(s_incompleteCases),
                         caseName);

/// The handler is deleted in the middle of something.
class EventGroupHandlerDeletion : public EventGroupHandlerTest
{
protected:
    void deleteHandler() const { delete m_pHandler.data(); }

    /// Nothing of the handler may be left, now and later.
    void expectNothingMore(const std::string &notes)
    {
        EXPECT_TRUE(m_pHandler.isNull());
        EXPECT_FALSE(device().isHeard());
        answer(0);
        passTime(60000ms);
        EXPECT_EQ(takeNotes(), notes);
    }
};

TEST_F(EventGroupHandlerDeletion, BeforeTheFirstTurn)
{
    handler().addEvent(step(a));
    handler().start();
    deleteHandler();
    expectNothingMore("");
}

TEST_F(EventGroupHandlerDeletion, InAnAction)
{
    const QString large(1000, QLatin1Char('x')); // what the action owns must outlive the deletion
    start(step(a, [this, large] {
        deleteHandler();
        note(QString::number(large.count(QLatin1Char('x'))));
    }));
    expectNothingMore("connect a|act a|1000");
}

TEST_F(EventGroupHandlerDeletion, InAnActionThatHasBeenAnswered)
{
    start(step(a, [this] {
        answer(0);
        deleteHandler();
    }));
    EXPECT_TRUE(m_pHandler.isNull());
    EXPECT_FALSE(device().isHeard());
    passTime(60000ms);
    EXPECT_EQ(count(QStringLiteral("act a")), 1);
    EXPECT_EQ(count(QStringLiteral("group ok")), 0);
}

TEST_F(EventGroupHandlerDeletion, InACheck)
{
    const QString large(1000, QLatin1Char('x'));
    EventSteps steps = step(a);
    steps.check = [this, large](const QVariant &) {
        deleteHandler();
        note(QString::number(large.count(QLatin1Char('x'))));
        return true;
    };
    start(steps);
    answer(0);
    expectNothingMore("connect a|act a|1000");
}

TEST_F(EventGroupHandlerDeletion, WhileAStepWaits)
{
    start(step(a));
    passTime(2500ms);
    deleteHandler();
    expectNothingMore("connect a|act a");
}

TEST_F(EventGroupHandlerDeletion, BetweenTwoAttempts)
{
    start(step(a));
    answer(2);
    deleteHandler();
    expectNothingMore("connect a|act a|check a 2");
}

TEST_F(EventGroupHandlerDeletion, WhenAStepHasSucceeded)
{
    QObject::connect(m_pHandler, &EventGroupHandler::stepFinished, &m_context,
                     [this] { deleteHandler(); });
    handler().addEvent(answeredStep(a));
    handler().addEvent(answeredStep(b));
    handler().start();
    passTurns();
    expectNothingMore("connect a|act a|check a 0|step0 ok");
}

TEST_F(EventGroupHandlerDeletion, WhenAStepHasFailedByItsTime)
{
    QObject::connect(m_pHandler, &EventGroupHandler::stepFinished, &m_context,
                     [this] { deleteHandler(); });
    start(step(a));
    passTime(15000ms);
    expectNothingMore("connect a|act a|connect a|act a|connect a|act a|step0 failed");
}

TEST_F(EventGroupHandlerDeletion, WhenTheGroupHasFinished)
{
    QObject::connect(m_pHandler, &EventGroupHandler::finished, &m_context,
                     [this] { deleteHandler(); });
    start(answeredStep(a));
    expectNothingMore("connect a|act a|check a 0|step0 ok|group ok");
}

TEST_F(EventGroupHandlerTest, SenderThatIsDeletedWhileAStepWaitsIsOneThatDoesNotAnswer)
{
    EventSteps steps = step(a);
    steps.connector = [this](EventGroupHandler &handler) {
        return m_pDevice ? handler.setConnection(m_pDevice.get(), &Device::answered)
                         : std::weak_ptr<QMetaObject::Connection>();
    };
    start(steps);
    passTime(1000ms);
    m_pDevice.reset();
    passTime(13999ms);
    EXPECT_EQ(takeNotes(), "act a|act a|act a");
    passTime(1ms);
    EXPECT_EQ(takeNotes(), "step0 failed|group failed");
}

#include "tst_eventgrouphandler.moc"
