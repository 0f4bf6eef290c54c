// What a lambda captures here outlives its connection, and timers are tried without a context.
// clazy:excludeall=connect-3arg-lambda,lambda-in-connect

#include "support/virtualtime.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QPointer>
#include <QSignalSpy>
#include <QSocketNotifier>
#include <QStringList>
#include <QThread>
#include <QTimer>
#include <QTimerEvent>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

/// Hands its timer events on, so that a test can look at startTimer() and killTimer().
class TimerObject : public QObject
{
public:
    explicit TimerObject(std::function<void(int)> onTimer)
        : m_onTimer(std::move(onTimer))
    {
    }

protected:
    void timerEvent(QTimerEvent *pEvent) override { m_onTimer(pEvent->timerId()); }

private:
    std::function<void(int)> m_onTimer; ///< gets the timer's id
};

void post(QObject *pContext, const std::function<void()> &slot)
{
    QMetaObject::invokeMethod(pContext, slot, Qt::QueuedConnection);
}

} // namespace

class VirtualTimeTest : public ::testing::Test
{
protected:
    using Log = std::vector<std::pair<int, int>>; ///< ms since the test began, who

    void SetUp() override
    {
        m_pTime = VirtualTime::instance();
        ASSERT_NE(m_pTime, nullptr);
        m_start = m_pTime->now();
    }

    int elapsedMs() const { return static_cast<int>((m_pTime->now() - m_start).count()); }
    void note(int who) { m_log.emplace_back(elapsedMs(), who); }
    std::function<void()> noting(int who)
    {
        return [this, who] { note(who); };
    }

    /// A timer that notes `who` each time it fires.
    std::unique_ptr<QTimer> startTimer(int intervalMs, int who, bool isSingleShot = false)
    {
        auto pTimer = std::make_unique<QTimer>();
        pTimer->setSingleShot(isSingleShot);
        QObject::connect(pTimer.get(), &QTimer::timeout, pTimer.get(), noting(who));
        pTimer->start(intervalMs);
        return pTimer;
    }

    void execFor(int intervalMs)
    {
        QEventLoop loop;
        QTimer::singleShot(intervalMs, &loop, &QEventLoop::quit);
        loop.exec();
    }

    VirtualTime *m_pTime = nullptr;
    milliseconds m_start{0};
    Log m_log;
};

using VirtualTimeDeathTest = VirtualTimeTest;

// When and in which order

TEST_F(VirtualTimeTest, TimerOf1200MsHasNotFiredAt1199MsAndHasAt1200Ms)
{
    const auto pTimer = startTimer(1200, 1, true);
    m_pTime->advance(1199ms);
    EXPECT_EQ(m_log, Log{});
    EXPECT_EQ(elapsedMs(), 1199);
    m_pTime->advance(1ms);
    EXPECT_EQ(m_log, (Log{{1200, 1}}));
    EXPECT_EQ(elapsedMs(), 1200);
}

TEST_F(VirtualTimeTest, EventLoopEndedAt1199MsLeavesATimerOf1200MsToTheNextLoop)
{
    const auto pTimer = startTimer(1200, 1, true);
    execFor(1199);
    EXPECT_EQ(m_log, Log{});
    execFor(1);
    EXPECT_EQ(m_log, (Log{{1200, 1}}));
}

TEST_F(VirtualTimeTest, TenMinutesPassInNoRealTime)
{
    QElapsedTimer realTime;
    realTime.start();
    execFor(600000);
    EXPECT_EQ(elapsedMs(), 600000);
    EXPECT_LT(realTime.elapsed(), 6000);
}

TEST_F(VirtualTimeTest, HundredMsTimerFiresExactly6000TimesInTenMinutes)
{
    const auto pTimer = startTimer(100, 1);
    m_pTime->advance(10min);
    ASSERT_EQ(m_log.size(), 6000U);
    for (int i = 0; i < 6000; ++i)
        ASSERT_EQ(m_log[static_cast<std::size_t>(i)], std::make_pair(100 * (i + 1), 1));
}

TEST_F(VirtualTimeTest, CoarseTimersAreAsExactAsPreciseOnes)
{
    for (const auto type : {Qt::PreciseTimer, Qt::CoarseTimer, Qt::VeryCoarseTimer}) {
        QTimer timer;
        timer.setTimerType(type);
        QObject::connect(&timer, &QTimer::timeout, &timer, noting(type));
        timer.start(1777);
        m_pTime->advance(3554ms);
    }
    EXPECT_EQ(m_log, (Log{{1777, Qt::PreciseTimer},
                          {3554, Qt::PreciseTimer},
                          {5331, Qt::CoarseTimer},
                          {7108, Qt::CoarseTimer},
                          {8885, Qt::VeryCoarseTimer},
                          {10662, Qt::VeryCoarseTimer}}));
}

TEST_F(VirtualTimeTest, TimersFireByDeadlineThenInTheOrderInWhichTheyWereStarted)
{
    const auto pLate = startTimer(30, 1, true);
    const auto pFirst = startTimer(20, 2, true);
    const auto pSecond = startTimer(20, 3, true);
    m_pTime->advance(10ms);
    const auto pThird = startTimer(10, 4, true);
    const auto pEarly = startTimer(5, 5, true);
    m_pTime->advance(20ms);
    EXPECT_EQ(m_log, (Log{{15, 5}, {20, 2}, {20, 3}, {20, 4}, {30, 1}}));
}

TEST_F(VirtualTimeTest, RepeatingTimerKeepsItsPlaceAmongTimersOfOneInstant)
{
    const auto pBefore = startTimer(30, 1, true);
    const auto pRepeating = startTimer(10, 2);
    const auto pAfter = startTimer(30, 3, true);
    m_pTime->advance(30ms);
    EXPECT_EQ(m_log, (Log{{10, 2}, {20, 2}, {30, 1}, {30, 2}, {30, 3}}));
}

TEST_F(VirtualTimeTest, PostedEventsAreDeliveredBeforeTimersThatAreDue)
{
    QObject context;
    const auto pTimer = startTimer(0, 1, true);
    post(&context, [this, &context] {
        note(2);
        post(&context, noting(3));
    });
    m_pTime->advance(0ms);
    EXPECT_EQ(m_log, (Log{{0, 2}, {0, 3}, {0, 1}}));
}

TEST_F(VirtualTimeTest, EventsPostedByASlotAreDeliveredBeforeTheNextTimerOfTheSameInstant)
{
    QObject context;
    QTimer::singleShot(10, &context, [this, &context] {
        note(1);
        post(&context, [this, &context] {
            note(2);
            post(&context, noting(3));
        });
    });
    QTimer::singleShot(10, &context, noting(4));
    execFor(10);
    EXPECT_EQ(m_log, (Log{{10, 1}, {10, 2}, {10, 3}, {10, 4}}));
}

/// Several hundred timers of every kind, half of them with intervals that often coincide; the
/// second half starts later.
class MixedTimersTest : public VirtualTimeTest
{
protected:
    static constexpr int s_count = 400;
    static constexpr int s_secondStartMs = 1234;
    static constexpr int s_endMs = 280000;

    enum Kind : int { SingleTimer, RepeatingTimer, ObjectTimer, SingleShot };

    static Kind kind(int i) { return static_cast<Kind>(i % 4); }
    static bool isSingle(int i) { return kind(i) == SingleTimer || kind(i) == SingleShot; }
    static int startMs(int i) { return i < s_count / 2 ? 0 : s_secondStartMs; }
    static int intervalMs(int i)
    {
        return i / 4 % 2 == 0 ? 250 * (1 + i % 40) : 111 + i * 7919 % 9973;
    }

    static Log expected()
    {
        Log log;
        for (int i = 0; i < s_count; ++i) {
            const int last = isSingle(i) ? startMs(i) + intervalMs(i) : s_endMs;
            for (int at = startMs(i) + intervalMs(i); at <= last; at += intervalMs(i))
                log.emplace_back(at, i);
        }
        std::sort(log.begin(), log.end());
        return log;
    }

    void start(int i)
    {
        if (kind(i) == SingleShot) {
            QTimer::singleShot(intervalMs(i), &m_context, noting(i));
            return;
        }
        if (kind(i) == ObjectTimer) {
            m_objects.push_back(std::make_unique<TimerObject>([this, i](int) { note(i); }));
            m_objects.back()->startTimer(intervalMs(i));
            return;
        }
        m_objects.push_back(startTimer(intervalMs(i), i, kind(i) == SingleTimer));
    }

    void startHalf(int first)
    {
        for (int i = first; i < first + s_count / 2; ++i)
            start(i);
    }

    QObject m_context;
    std::vector<std::unique_ptr<QObject>> m_objects;
};

TEST_F(MixedTimersTest, EveryDeadlineOf280SecondsIsExactWhenTimeIsAdvanced)
{
    startHalf(0);
    m_pTime->advance(milliseconds(s_secondStartMs));
    startHalf(s_count / 2);
    m_pTime->advance(milliseconds(s_endMs - s_secondStartMs));
    EXPECT_GT(m_log.size(), 10000U);
    EXPECT_EQ(m_log, expected());
    EXPECT_EQ(elapsedMs(), s_endMs);
}

TEST_F(MixedTimersTest, EveryDeadlineOf280SecondsIsExactInAnEventLoop)
{
    startHalf(0);
    execFor(s_secondStartMs);
    startHalf(s_count / 2);
    execFor(s_endMs - s_secondStartMs);
    EXPECT_GT(m_log.size(), 10000U);
    EXPECT_EQ(m_log, expected());
    EXPECT_EQ(elapsedMs(), s_endMs);
}

// Zero intervals and single shots

TEST_F(VirtualTimeTest, TimerStartedWithZeroFiresWithoutTheClockMoving)
{
    m_pTime->advance(7ms);
    const auto pTimer = startTimer(0, 1, true);
    const auto pLater = startTimer(1, 2, true);
    EXPECT_EQ(m_log, Log{});
    m_pTime->advance(0ms);
    EXPECT_EQ(m_log, (Log{{7, 1}}));
}

TEST_F(VirtualTimeTest, RepeatingZeroTimerLetsWhatElseIsDueFireFirst)
{
    QTimer zero;
    int firings = 0;
    QObject::connect(&zero, &QTimer::timeout, &zero, [this, &zero, &firings] {
        note(1);
        if (++firings == 3)
            zero.stop();
    });
    zero.start(0);
    const auto pOther = startTimer(0, 2, true);
    const auto pLater = startTimer(1, 3, true);
    m_pTime->advance(1ms);
    EXPECT_EQ(m_log, (Log{{0, 1}, {0, 2}, {0, 1}, {0, 1}, {1, 3}}));
}

TEST_F(VirtualTimeTest, EveryKindOfZeroSingleShotFiresWithoutTheClockMoving)
{
    QTimer byName;
    QTimer byPointer;
    QObject context;
    byName.setInterval(5);
    byPointer.setInterval(6);
    QTimer::singleShot(0, &byName, SLOT(start()));
    QTimer::singleShot(0, &byPointer, qOverload<>(&QTimer::start));
    QTimer::singleShot(0, noting(1));
    QTimer::singleShot(0, &context, noting(2));
    QTimer::singleShot(0, Qt::PreciseTimer, &context, noting(3));
    QTimer::singleShot(0ms, &context, noting(4));
    const auto pLater = startTimer(1, 5, true);
    m_pTime->advance(0ms);
    EXPECT_EQ(m_log, (Log{{0, 1}, {0, 2}, {0, 3}, {0, 4}}));
    EXPECT_EQ(byName.remainingTime(), 5);
    EXPECT_EQ(byPointer.remainingTime(), 6);
}

TEST_F(VirtualTimeTest, EveryKindOfSingleShotFiresOnceAtItsTime)
{
    QTimer byName;
    QTimer byPointer;
    QObject context;
    byName.setInterval(5);
    byPointer.setInterval(6);
    QTimer::singleShot(10, &byName, SLOT(start()));
    QTimer::singleShot(20, &byPointer, qOverload<>(&QTimer::start));
    QTimer::singleShot(30, noting(1));
    QTimer::singleShot(30, Qt::VeryCoarseTimer, noting(2));
    QTimer::singleShot(40, &context, noting(3));
    QTimer::singleShot(40, Qt::PreciseTimer, &context, noting(4));
    QTimer::singleShot(50ms, &context, noting(5));
    QObject::connect(&byName, &QTimer::timeout, &context, noting(6));
    QObject::connect(&byPointer, &QTimer::timeout, &context, noting(7));
    byName.setSingleShot(true);
    byPointer.setSingleShot(true);
    m_pTime->advance(200ms);
    EXPECT_EQ(m_log, (Log{{15, 6}, {26, 7}, {30, 1}, {30, 2}, {40, 3}, {40, 4}, {50, 5}}));
}

// Timers that are changed while they run

TEST_F(VirtualTimeTest, TimerReArmedInItsOwnSlotRunsItsNewIntervalFromThere)
{
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &timer, [this, &timer] {
        note(1);
        timer.start(timer.interval() + 7);
    });
    timer.start(10);
    m_pTime->advance(100ms);
    EXPECT_EQ(m_log, (Log{{10, 1}, {27, 1}, {51, 1}, {82, 1}}));
}

TEST_F(VirtualTimeTest, TimerRemovedByAnothersSlotDueAtTheSameInstantDoesNotFire)
{
    const auto pFirst = startTimer(10, 1, true);
    const auto pSecond = startTimer(10, 2);
    QObject::connect(pFirst.get(), &QTimer::timeout, pSecond.get(), &QTimer::stop);
    m_pTime->advance(100ms);
    EXPECT_EQ(m_log, (Log{{10, 1}}));
}

TEST_F(VirtualTimeTest, TimerReArmedByAnothersSlotDueAtTheSameInstantFiresAtItsNewTime)
{
    QObject context;
    QTimer second;
    second.setSingleShot(true);
    QObject::connect(&second, &QTimer::timeout, &context, noting(2));
    QTimer::singleShot(10, &context, [&second] { second.start(10); });
    second.start(10);
    m_pTime->advance(100ms);
    EXPECT_EQ(m_log, (Log{{20, 2}}));
}

TEST_F(VirtualTimeTest, RestartCountsTheWholeIntervalAnew)
{
    const auto pTimer = startTimer(100, 1);
    m_pTime->advance(99ms);
    pTimer->start();
    m_pTime->advance(99ms);
    EXPECT_EQ(m_log, Log{});
    m_pTime->advance(101ms);
    EXPECT_EQ(m_log, (Log{{199, 1}, {299, 1}}));
}

TEST_F(VirtualTimeTest, IntervalSetOnARunningTimerCountsFromThere)
{
    const auto pTimer = startTimer(100, 1);
    m_pTime->advance(60ms);
    pTimer->setInterval(50);
    m_pTime->advance(100ms);
    EXPECT_EQ(m_log, (Log{{110, 1}, {160, 1}}));
}

TEST_F(VirtualTimeTest, TimerKilledInItsTimerEventFiresOnce)
{
    std::unique_ptr<TimerObject> pObject;
    pObject = std::make_unique<TimerObject>([this, &pObject](int timerId) {
        note(1);
        pObject->killTimer(timerId);
    });
    pObject->startTimer(10);
    m_pTime->advance(100ms);
    EXPECT_EQ(m_log, (Log{{10, 1}}));
}

TEST_F(VirtualTimeTest, StoppedTimerNeverFires)
{
    const auto pTimer = startTimer(10, 1);
    m_pTime->advance(9ms);
    pTimer->stop();
    m_pTime->advance(1min);
    EXPECT_EQ(m_log, Log{});
}

TEST_F(VirtualTimeTest, RemainingTimeFollowsTheClock)
{
    QTimer timer;
    EXPECT_EQ(timer.remainingTime(), -1);
    timer.start(1000);
    EXPECT_EQ(timer.remainingTime(), 1000);
    m_pTime->advance(400ms);
    EXPECT_EQ(timer.remainingTime(), 600);
    m_pTime->advance(599ms);
    EXPECT_EQ(timer.remainingTime(), 1);
    m_pTime->advance(1ms);
    EXPECT_EQ(timer.remainingTime(), 1000);
    timer.stop();
    EXPECT_EQ(timer.remainingTime(), -1);
    EXPECT_EQ(m_pTime->remainingTime(0), -1); // no timer has this id
}

TEST_F(VirtualTimeTest, RemainingTimeInASlotIsThatToTheNextDeadline)
{
    QTimer repeating;
    QTimer single;
    single.setSingleShot(true);
    std::vector<int> remaining;
    const auto noteRemaining = [&] {
        remaining.push_back(repeating.remainingTime());
        remaining.push_back(single.remainingTime());
    };
    QObject::connect(&repeating, &QTimer::timeout, &repeating, noteRemaining);
    QObject::connect(&single, &QTimer::timeout, &single, noteRemaining);
    repeating.start(100);
    single.start(130);
    m_pTime->advance(150ms);
    EXPECT_EQ(remaining, (std::vector<int>{100, 30, 70, -1}));
}

TEST_F(VirtualTimeTest, RegisteredTimersAreThoseOfTheObjectAsTheyWereStarted)
{
    TimerObject object([](int) {});
    TimerObject other([](int) {});
    const int first = object.startTimer(10, Qt::PreciseTimer);
    other.startTimer(20);
    const int second = object.startTimer(30, Qt::VeryCoarseTimer);
    std::set<std::tuple<int, int, int>> timers;
    const auto registered = m_pTime->registeredTimers(&object);
    for (const auto &info : registered)
        timers.emplace(info.timerId, info.interval, info.timerType);
    EXPECT_EQ(timers, (std::set<std::tuple<int, int, int>>{{first, 10, Qt::PreciseTimer},
                                                           {second, 30, Qt::VeryCoarseTimer}}));
}

// Objects that go

TEST_F(VirtualTimeTest, ObjectDestroyedWithRunningTimersHearsNothingMore)
{
    auto pObject = std::make_unique<TimerObject>([this](int) { note(1); });
    const auto pOther = startTimer(10, 2, true);
    pObject->startTimer(10);
    pObject->startTimer(20);
    QTimer::singleShot(15, pObject.get(), noting(3));
    pObject.reset();
    m_pTime->advance(100ms);
    EXPECT_EQ(m_log, (Log{{10, 2}}));
}

TEST_F(VirtualTimeTest, ObjectDestroyedByAnothersSlotDueAtTheSameInstantHearsNothing)
{
    QObject context;
    auto pVictim = std::make_unique<TimerObject>([this](int) { note(1); });
    QTimer::singleShot(10, &context, [&pVictim] { pVictim.reset(); });
    pVictim->startTimer(10);
    m_pTime->advance(100ms);
    EXPECT_EQ(m_log, Log{});
    EXPECT_EQ(pVictim, nullptr);
}

TEST_F(VirtualTimeTest, ObjectMayDestroyItselfInItsTimerEvent)
{
    QPointer<TimerObject> pObject;
    pObject = new TimerObject([this, &pObject](int) {
        note(1);
        delete pObject;
    });
    pObject->startTimer(10);
    pObject->startTimer(10);
    m_pTime->advance(100ms);
    EXPECT_EQ(m_log, (Log{{10, 1}}));
    EXPECT_TRUE(pObject.isNull());
}

TEST_F(VirtualTimeTest, ObjectDeletedLaterInASlotIsGoneBeforeTheNextTimer)
{
    QPointer<QTimer> pTimer = new QTimer;
    QObject context;
    QObject::connect(pTimer, &QTimer::timeout, pTimer, &QObject::deleteLater);
    QObject::connect(pTimer, &QTimer::timeout, &context, noting(1));
    pTimer->start(10);
    QTimer::singleShot(10, &context, [this, &pTimer] { note(pTimer.isNull() ? 2 : 3); });
    m_pTime->advance(100ms);
    EXPECT_EQ(m_log, (Log{{10, 1}, {10, 2}}));
}

TEST_F(VirtualTimeTest, ObjectDeletedLaterOutsideOfAnyLoopIsGoneWhenTimeIsAdvanced)
{
    QPointer<QObject> pObject = new QObject;
    pObject->deleteLater();
    QCoreApplication::processEvents();
    EXPECT_FALSE(pObject.isNull()); // so says Qt: only a loop deletes it
    const auto pTimer = startTimer(10, 1);
    EXPECT_TRUE(m_pTime->runUntil([&pObject] { return pObject.isNull(); }, 1000ms));
    EXPECT_EQ(elapsedMs(), 0);
}

TEST_F(VirtualTimeTest, WhatADeferredDeletionPostsIsDeliveredBeforeTheNextTimer)
{
    QObject context;
    auto *const pObject = new QObject;
    QObject::connect(pObject, &QObject::destroyed, &context, noting(1), Qt::QueuedConnection);
    pObject->deleteLater();
    QCoreApplication::processEvents(); // leaves it to a loop
    const auto pTimer = startTimer(0, 2, true);
    m_pTime->advance(0ms);
    EXPECT_EQ(m_log, (Log{{0, 1}, {0, 2}}));
}

TEST_F(VirtualTimeTest, ObjectDeletedLaterOutlivesANestedLoopOfTheSlotThatAskedForIt)
{
    QPointer<QObject> pObject = new QObject;
    QObject context;
    std::vector<bool> isGone;
    QTimer::singleShot(10, &context, [&] {
        pObject->deleteLater();
        execFor(10);
        isGone.push_back(pObject.isNull());
        m_pTime->advance(10ms);
        isGone.push_back(pObject.isNull());
    });
    QTimer::singleShot(31, &context, [&] { isGone.push_back(pObject.isNull()); });
    execFor(100);
    EXPECT_EQ(isGone, (std::vector<bool>{false, false, true}));
}

// Loops

TEST_F(VirtualTimeTest, NestedLoopFiresTheTimersOfTheOuterLoop)
{
    QObject context;
    const auto pOuter = startTimer(10, 1);
    QTimer::singleShot(15, &context, [this] {
        note(2);
        execFor(20);
        note(3);
    });
    execFor(45);
    EXPECT_EQ(m_log, (Log{{10, 1}, {15, 2}, {20, 1}, {30, 1}, {35, 3}, {40, 1}}));
}

TEST_F(VirtualTimeTest, TimerIsNotReEnteredByANestedLoopInItsSlotAndItsPeriodStays)
{
    QTimer timer;
    bool isFirst = true;
    QObject::connect(&timer, &QTimer::timeout, &timer, [this, &isFirst] {
        note(1);
        if (std::exchange(isFirst, false))
            execFor(250);
        note(2);
    });
    timer.start(100);
    execFor(550);
    EXPECT_EQ(m_log, (Log{{100, 1}, {350, 2}, {400, 1}, {400, 2}, {500, 1}, {500, 2}}));
}

TEST_F(VirtualTimeTest, DeadlineAtTheVeryEndOfANestedLoopInATimersOwnSlotIsMissed)
{
    QTimer timer;
    int firings = 0;
    QObject::connect(&timer, &QTimer::timeout, &timer, [this, &firings] {
        note(1);
        ++firings;
        if (firings == 1)
            m_pTime->advance(100ms);
        if (firings == 2)
            execFor(100);
    });
    timer.start(100);
    m_pTime->advance(600ms);
    EXPECT_EQ(m_log, (Log{{100, 1}, {300, 1}, {500, 1}, {600, 1}}));
}

TEST_F(VirtualTimeTest, DeadlineThatProcessEventsMeetsInATimersOwnSlotIsMissed)
{
    QEventLoop loop;
    QTimer::singleShot(200, &loop, &QEventLoop::quit); // before the timer's deadline at 200 ms
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &timer, [this, &loop] {
        note(1);
        if (elapsedMs() > 100)
            return;
        loop.exec();
        QCoreApplication::processEvents();
        note(2);
    });
    timer.start(100);
    m_pTime->advance(300ms);
    EXPECT_EQ(m_log, (Log{{100, 1}, {200, 2}, {300, 1}}));
}

TEST_F(VirtualTimeTest, ZeroTimerIsNotReEnteredByANestedLoopInItsSlot)
{
    QTimer zero;
    int firings = 0;
    QObject::connect(&zero, &QTimer::timeout, &zero, [this, &zero, &firings] {
        note(1);
        if (++firings == 2)
            zero.stop();
        QCoreApplication::processEvents();
        m_pTime->advance(10ms);
        note(2);
    });
    zero.start(0);
    m_pTime->advance(20ms);
    EXPECT_EQ(m_log, (Log{{0, 1}, {10, 2}, {10, 1}, {20, 2}}));
}

TEST_F(VirtualTimeTest, QuitInASlotStopsTheTimeThere)
{
    QEventLoop loop;
    const auto pSameInstant = startTimer(11, 1, true);
    const auto pLater = startTimer(12, 2, true);
    m_pTime->advance(1ms);
    QTimer::singleShot(9, &loop, &QEventLoop::quit);
    loop.exec();
    EXPECT_EQ(elapsedMs(), 10);
    QTimer::singleShot(1, &loop, noting(3));
    QTimer::singleShot(0, &loop, &QEventLoop::quit);
    loop.exec();
    EXPECT_EQ(elapsedMs(), 10);
    EXPECT_EQ(m_log, Log{});
}

TEST_F(VirtualTimeTest, QuitInASlotLeavesTimersOfTheSameInstantToTheNextLoop)
{
    QEventLoop loop;
    QTimer::singleShot(10, &loop, &QEventLoop::quit);
    const auto pSameInstant = startTimer(10, 1, true);
    loop.exec();
    EXPECT_EQ(m_log, Log{});
    m_pTime->advance(0ms);
    EXPECT_EQ(m_log, (Log{{10, 1}}));
}

TEST_F(VirtualTimeTest, QuitInAPostedEventStopsTheTimeThere)
{
    QEventLoop loop;
    const auto pTimer = startTimer(0, 1, true);
    post(&loop, [&loop] { loop.quit(); });
    loop.exec();
    EXPECT_EQ(m_log, Log{});
    EXPECT_EQ(elapsedMs(), 0);
}

TEST_F(VirtualTimeTest, QuitOfTheOuterLoopInsideANestedOneStopsTheTimeWhenThatEnds)
{
    QEventLoop outer;
    const auto pLater = startTimer(31, 1, true);
    QTimer::singleShot(10, &outer, [this, &outer] {
        QTimer::singleShot(10, &outer, &QEventLoop::quit);
        execFor(20);
        note(2);
    });
    outer.exec();
    EXPECT_EQ(m_log, (Log{{30, 2}}));
    EXPECT_EQ(elapsedMs(), 30);
}

TEST_F(VirtualTimeTest, QuitByADeferredDeletionStopsTheTimeThere)
{
    QEventLoop outer;
    auto *const pObject = new QObject;
    QObject::connect(pObject, &QObject::destroyed, &outer, [&outer] {
        outer.quit();
        QCoreApplication::processEvents(); // takes no interruption from the outer loop
    });
    pObject->deleteLater();
    QCoreApplication::processEvents(); // leaves it to a loop
    const auto pLater = startTimer(1, 1, true);
    outer.exec();
    EXPECT_EQ(m_log, Log{});
    EXPECT_EQ(elapsedMs(), 0);
}

TEST_F(VirtualTimeTest, ProcessEventsDeliversWhatIsPostedAndDueAndDoesNotMoveTheClock)
{
    QObject context;
    const auto pDue = startTimer(0, 1);
    const auto pNotDue = startTimer(1, 2);
    const auto pStarting = startTimer(0, 3, true);
    std::unique_ptr<QTimer> pStarted;
    QObject::connect(pStarting.get(), &QTimer::timeout, &context,
                     [this, &pStarted] { pStarted = startTimer(0, 4, true); });
    post(&context, noting(5));
    QCoreApplication::processEvents();
    EXPECT_EQ(m_log, (Log{{0, 5}, {0, 1}, {0, 3}}));
    m_log.clear();
    QCoreApplication::processEvents();
    EXPECT_EQ(m_log, (Log{{0, 1}, {0, 4}}));
    EXPECT_EQ(elapsedMs(), 0);
}

TEST_F(VirtualTimeTest, ProcessEventsDeliversWhatASlotHasPostedBeforeTheNextTimer)
{
    const auto pFirst = startTimer(0, 1, true);
    const auto pSecond = startTimer(0, 2, true);
    QObject::connect(pFirst.get(), &QTimer::timeout, pFirst.get(), noting(3), Qt::QueuedConnection);
    QObject::connect(pSecond.get(), &QTimer::timeout, pSecond.get(), noting(4),
                     Qt::QueuedConnection);
    QCoreApplication::processEvents();
    EXPECT_EQ(m_log, (Log{{0, 1}, {0, 3}, {0, 2}, {0, 4}}));
}

TEST_F(VirtualTimeTest, ProcessEventsSaysWhetherItHasDoneAnything)
{
    QObject context;
    QEventLoop loop;
    loop.processEvents(); // whatever the start has left
    const auto pNotDue = startTimer(1, 1);
    EXPECT_FALSE(m_pTime->hasPendingEvents());
    EXPECT_FALSE(loop.processEvents());
    post(&context, noting(2));
    EXPECT_TRUE(m_pTime->hasPendingEvents());
    EXPECT_TRUE(loop.processEvents());
    const auto pDue = startTimer(0, 3, true);
    EXPECT_TRUE(m_pTime->hasPendingEvents());
    EXPECT_TRUE(loop.processEvents());
    EXPECT_FALSE(m_pTime->hasPendingEvents());
    EXPECT_FALSE(loop.processEvents());
    EXPECT_EQ(m_log, (Log{{0, 2}, {0, 3}}));
}

TEST_F(VirtualTimeTest, InterruptEndsProcessEventsBetweenTimersThatAreDue)
{
    const auto pFirst = startTimer(0, 1, true);
    const auto pSecond = startTimer(0, 2, true);
    QObject::connect(pFirst.get(), &QTimer::timeout, m_pTime, &VirtualTime::interrupt);
    QCoreApplication::processEvents();
    EXPECT_EQ(m_log, (Log{{0, 1}}));
    QCoreApplication::processEvents();
    EXPECT_EQ(m_log, (Log{{0, 1}, {0, 2}}));
}

TEST_F(VirtualTimeTest, WhatIsPostedWhenTheLoopIsAboutToBlockComesBeforeTheClockMoves)
{
    QObject context;
    bool isFirst = true;
    QObject::connect(m_pTime, &VirtualTime::aboutToBlock, &context, [&] {
        if (std::exchange(isFirst, false))
            post(&context, noting(1));
    });
    execFor(10);
    EXPECT_EQ(m_log, (Log{{0, 1}}));
    EXPECT_EQ(elapsedMs(), 10);
}

TEST_F(VirtualTimeTest, SignalSpyHearsASignalInTimeAndLosesNoMoreTime)
{
    QTimer timer;
    QSignalSpy timeout(&timer, &QTimer::timeout);
    timer.start(4999);
    EXPECT_TRUE(timeout.wait(5000));
    EXPECT_EQ(elapsedMs(), 4999);
}

TEST_F(VirtualTimeTest, SignalSpyGivesUpAfterExactlyItsTimeOut)
{
    QTimer timer;
    QSignalSpy timeout(&timer, &QTimer::timeout);
    timer.start(5001);
    EXPECT_FALSE(timeout.wait(5000));
    EXPECT_EQ(elapsedMs(), 5000);
    EXPECT_EQ(timeout.count(), 0);
}

// advance() and runUntil()

TEST_F(VirtualTimeTest, AdvanceWithNothingToDoMovesTheClockAlone)
{
    m_pTime->advance(0ms);
    EXPECT_EQ(elapsedMs(), 0);
    m_pTime->advance(1ms);
    EXPECT_EQ(elapsedMs(), 1);
    m_pTime->advance(24h);
    EXPECT_EQ(elapsedMs(), 86400001);
}

TEST_F(VirtualTimeTest, AdvanceDeliversPostedEventsFirstAndLast)
{
    QObject context;
    post(&context, noting(1));
    QTimer::singleShot(10, &context, [this, &context] {
        note(2);
        post(&context, [this, &context] {
            note(3);
            post(&context, noting(4));
        });
    });
    m_pTime->advance(10ms);
    EXPECT_EQ(m_log, (Log{{0, 1}, {10, 2}, {10, 3}, {10, 4}}));
}

TEST_F(VirtualTimeTest, AdvanceIsNotShortenedByAnInterrupt)
{
    const auto pTimer = startTimer(10, 1);
    QObject::connect(pTimer.get(), &QTimer::timeout, pTimer.get(),
                     [this] { m_pTime->interrupt(); });
    m_pTime->advance(25ms);
    EXPECT_EQ(m_log, (Log{{10, 1}, {20, 1}}));
    EXPECT_EQ(elapsedMs(), 25);
}

TEST_F(VirtualTimeTest, AdvanceInASlotMovesTheOneClock)
{
    QObject context;
    QTimer::singleShot(10, &context, [this] {
        m_pTime->advance(20ms);
        note(1);
    });
    const auto pOther = startTimer(25, 2, true);
    m_pTime->advance(15ms);
    EXPECT_EQ(m_log, (Log{{25, 2}, {30, 1}}));
    EXPECT_EQ(elapsedMs(), 30);
}

TEST_F(VirtualTimeTest, RunUntilStopsAtTheTimerThatMadeItTrue)
{
    const auto pTimer = startTimer(10, 1);
    const auto pSameInstant = startTimer(30, 2);
    EXPECT_TRUE(m_pTime->runUntil([this] { return m_log.size() == 3; }, 30ms));
    EXPECT_EQ(m_log, (Log{{10, 1}, {20, 1}, {30, 1}}));
    EXPECT_EQ(elapsedMs(), 30);
}

TEST_F(VirtualTimeTest, RunUntilStopsAtTheLastInstantOfItsLimit)
{
    const auto pTimer = startTimer(30, 1);
    EXPECT_TRUE(m_pTime->runUntil([this] { return !m_log.empty(); }, 30ms));
    EXPECT_EQ(elapsedMs(), 30);
}

TEST_F(VirtualTimeTest, RunUntilGivesUpWhenItsLimitHasPassed)
{
    const auto pTimer = startTimer(31, 1);
    EXPECT_FALSE(m_pTime->runUntil([this] { return !m_log.empty(); }, 30ms));
    EXPECT_EQ(elapsedMs(), 30);
}

TEST_F(VirtualTimeTest, RunUntilStopsAtThePostedEventThatMadeItTrue)
{
    QObject context;
    const auto pTimer = startTimer(0, 1);
    post(&context, noting(2));
    EXPECT_TRUE(m_pTime->runUntil([this] { return !m_log.empty(); }, 30ms));
    EXPECT_EQ(m_log, (Log{{0, 2}}));
}

TEST_F(VirtualTimeTest, RunUntilDoesNothingWhenItHoldsAlready)
{
    QObject context;
    post(&context, noting(1));
    EXPECT_TRUE(m_pTime->runUntil([] { return true; }, 30ms));
    EXPECT_EQ(m_log, Log{});
    EXPECT_EQ(elapsedMs(), 0);
}

// Threads, sockets, ends

TEST_F(VirtualTimeTest, EventPostedByAnotherThreadWakesTheLoopWithoutTheClockMoving)
{
    QEventLoop loop;
    QElapsedTimer realTime;
    realTime.start();
    std::thread thread([this, &loop] {
        std::this_thread::sleep_for(50ms);
        post(&loop, [this, &loop] {
            note(1);
            loop.quit();
        });
    });
    loop.exec();
    EXPECT_LT(realTime.elapsed(), 2500); // heard, not found when the wait was over
    EXPECT_EQ(m_log, (Log{{0, 1}}));
    thread.join();
}

TEST_F(VirtualTimeTest, ExitCalledInAnotherThreadEndsTheLoopWithoutTheClockMoving)
{
    QEventLoop loop;
    QElapsedTimer realTime;
    realTime.start();
    std::thread thread([&loop] {
        std::this_thread::sleep_for(50ms);
        loop.exit(3);
    });
    EXPECT_EQ(loop.exec(), 3);
    EXPECT_LT(realTime.elapsed(), 2500);
    EXPECT_EQ(elapsedMs(), 0);
    thread.join();
}

TEST_F(VirtualTimeTest, LoopInATimersSlotWithNoOtherTimerWaitsWithoutTheClockMoving)
{
    const auto pTimer = startTimer(10, 1);
    QObject::connect(pTimer.get(), &QTimer::timeout, pTimer.get(), [this] {
        QEventLoop loop;
        std::thread thread([&loop] {
            std::this_thread::sleep_for(50ms);
            loop.exit();
        });
        loop.exec();
        note(2);
        thread.join();
    });
    m_pTime->advance(10ms);
    EXPECT_EQ(m_log, (Log{{10, 1}, {10, 2}}));
}

TEST_F(VirtualTimeTest, ThreadOnAnotherDispatcherHasNoVirtualTime)
{
    VirtualTime *pInThread = m_pTime;
    std::thread thread([&pInThread] {
        const QEventLoop loop; // makes the thread's dispatcher
        pInThread = VirtualTime::instance();
    });
    thread.join();
    EXPECT_EQ(pInThread, nullptr);
}

TEST_F(VirtualTimeTest, SocketNotifierIsWarnedOf)
{
    static QStringList s_warnings;
    const auto pPrevious =
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
            if (type == QtWarningMsg)
                s_warnings << text;
        });
    const QSocketNotifier notifier(0, QSocketNotifier::Read);
    qInstallMessageHandler(pPrevious);
    EXPECT_EQ(s_warnings, QStringList{QStringLiteral(
                              "virtual time knows no sockets: this notifier never fires")});
}

TEST_F(VirtualTimeDeathTest, LoopThatNothingCanWakeEndsTheProcess)
{
    m_pTime->advance(1234ms);
    QElapsedTimer realTime;
    realTime.start();
    EXPECT_EXIT(QEventLoop().exec(), ::testing::KilledBySignal(SIGABRT),
                "virtual time stands still: at .* ms the event loop waits, but no timer is left to "
                "fire, nothing is posted and no other thread has woken it for 5000 ms");
    EXPECT_GE(realTime.elapsed(), 5000);
}

TEST_F(VirtualTimeDeathTest, ZeroTimerThatKeepsTimeFromMovingEndsTheProcessAndIsNamed)
{
    QThread owner;
    QTimer timer(&owner);
    timer.start(0);
    EXPECT_EXIT(m_pTime->advance(1ms), ::testing::KilledBySignal(SIGABRT),
                "virtual time stands still: at .* ms timers have fired 100000 times without the "
                "time moving, and the next is one of a QTimer of QThread");
}

TEST_F(VirtualTimeTest, ZeroTimerMayFire100000TimesWithoutTheTimeMoving)
{
    QTimer timer;
    int firings = 0;
    QObject::connect(&timer, &QTimer::timeout, &timer, [&timer, &firings] {
        if (++firings % 100000 == 0)
            timer.start(firings == 100000 ? 1 : 3600000);
        else if (timer.interval() == 1)
            timer.start(0);
    });
    m_pTime->advance(1ms); // what has fired before does not count
    timer.start(0);
    m_pTime->advance(1s);
    EXPECT_EQ(firings, 200000);
}

TEST_F(VirtualTimeDeathTest, EventsPostedWithoutEndEndTheProcess)
{
    QObject context;
    std::function<void()> postAgain = [&context, &postAgain] { post(&context, postAgain); };
    postAgain();
    EXPECT_EXIT(m_pTime->advance(1ms), ::testing::KilledBySignal(SIGABRT),
                "virtual time stands still: at .* ms posted events have been delivered 1000000 "
                "times, and each time more were posted");
}

TEST_F(VirtualTimeTest, AnyNumberOfPostedEventsIsDeliveredWhenTheyComeWithPauses)
{
    QObject context;
    int delivered = 0;
    for (int i = 0; i < 1000001; ++i) {
        post(&context, [&delivered] { ++delivered; });
        QCoreApplication::processEvents();
        QCoreApplication::processEvents(); // finds nothing
    }
    EXPECT_EQ(delivered, 1000001);
}

#ifndef QT_NO_DEBUG
TEST_F(VirtualTimeDeathTest, UseInAnotherThreadIsAsserted)
{
    EXPECT_EXIT(
        {
            std::thread thread([this] { m_pTime->advance(1ms); });
            thread.join();
        },
        ::testing::KilledBySignal(SIGABRT),
        "only wakeUp\\(\\) and interrupt\\(\\) may be called from another thread");
}
#endif
