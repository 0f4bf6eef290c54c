#ifndef VIRTUALTIME_H
#define VIRTUALTIME_H

#include <QAbstractEventDispatcher>
#include <QList>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <utility>

/// Event dispatcher whose clock jumps instead of running, so that tests of long procedures are
/// instant and exact to the millisecond. Install it with QCoreApplication::setEventDispatcher()
/// before the application object is made; the application then owns it.
///
/// An event loop on it delivers what is posted. Only when nothing is left does the clock jump to
/// the next deadline, and one timer fires; what its slot posts is delivered before the next timer.
/// - Timers fire by deadline, then by the order in which they were started; a repeating timer keeps
///   its place. One with interval 0 queues behind all that is due at the same instant.
/// - Deadlines of a repeating timer are exact multiples of its interval. Coarse and very coarse
///   timers are as exact as precise ones.
/// - A timer is not re-entered by a nested loop in its own slot; a deadline missed that way is
///   dropped, the period stays.
/// - Without QEventLoop::WaitForMoreEvents (QCoreApplication::processEvents()) the clock stands:
///   what is posted and what is due already is delivered, each timer once at most.
///
/// Nothing hangs: where time would stand still for good, the process ends by qFatal() with a text
/// that says why ("virtual time stands still: ...").
///
/// QTimer, startTimer(), nested QEventLoop, remainingTime(), QSignalSpy::wait() and deleteLater()
/// follow this clock. QTest::qWait(), QElapsedTimer, QDeadlineTimer, dates, sleeps and the timers
/// of other threads do not, and there are no sockets.
///
/// Belongs to one thread. Only wakeUp() and interrupt() may come from others.
class VirtualTime : public QAbstractEventDispatcher
{
    Q_OBJECT

public:
    explicit VirtualTime(QObject *pParent = nullptr);

    /// The calling thread's dispatcher; null when that is another one than virtual time.
    static VirtualTime *instance();

    /// Since the start.
    std::chrono::milliseconds now() const { return m_now; }

    /// Lets exactly this much time pass and delivers, as an event loop does, what is due up to and
    /// including its last instant; posted events first and last. interrupt() does not shorten it.
    /// The clock stands later only if a slot lets more time pass on its own, in a nested loop.
    void advance(std::chrono::milliseconds duration);

    /// Like advance(), but asks done before the first and after every step (one delivery of posted
    /// events, or one timer) and returns true as soon as it holds; the clock stays there.
    /// False when the limit has passed.
    bool runUntil(const std::function<bool()> &done, std::chrono::milliseconds limit);

    bool processEvents(QEventLoop::ProcessEventsFlags flags) override;
    bool hasPendingEvents() override;

    /// Only warns: a notifier never fires here.
    void registerSocketNotifier(QSocketNotifier *pNotifier) override;
    void unregisterSocketNotifier(QSocketNotifier *pNotifier) override;

    /// Interval in ms.
    void registerTimer(int timerId, int interval, Qt::TimerType timerType,
                       QObject *pObject) override;
    bool unregisterTimer(int timerId) override;
    bool unregisterTimers(QObject *pObject) override;
    QList<TimerInfo> registeredTimers(QObject *pObject) const override;

    /// In ms; -1 when there is no such timer.
    int remainingTime(int timerId) override;

    /// From any thread.
    void wakeUp() override;

    /// From any thread. Ends the running processEvents() before the clock moves.
    void interrupt() override;
    void flush() override;

    bool event(QEvent *pEvent) override;

private:
    using Place = std::pair<std::chrono::milliseconds, quint64>; ///< deadline, order of start

    struct Timer
    {
        QObject *pObject; ///< borrowed; an object takes its timers away before it goes
        std::chrono::milliseconds interval;
        Place place;
        Qt::TimerType type;
        bool isFiring = false; ///< its slot runs
    };
    using Timers = std::map<int, Timer>; ///< by Qt's timer id

    bool stepOrWait();
    bool stepsDueNow();
    bool stepUntil(const std::function<bool()> &done, std::chrono::milliseconds end);

    bool deliverPosted();
    bool fireNext(std::chrono::milliseconds limit,
                  quint64 lastOrder = std::numeric_limits<quint64>::max());
    Timers::iterator nextTimer(quint64 lastOrder);
    Timers::iterator removeTimer(Timers::iterator timer);
    void fire(int timerId, Timer &timer);
    void rearm(Timer &timer);
    void dropMissed(const Place &upTo);
    void moveTo(std::chrono::milliseconds instant);

    bool isWoken();
    bool takeWakeUp();
    quint64 interrupts();
    void waitForWakeUp();

    void countFiring(const QObject *pObject);
    void countDelivery(bool isWoken);
    void assertOwnThread() const;

    Timers m_timers;
    std::map<Place, int> m_queue; ///< the same timers' ids
    std::chrono::milliseconds m_now{0};
    quint64 m_lastOrder = 0;
    int m_firings = 0;    ///< without the clock moving
    int m_deliveries = 0; ///< of posted events, one right after the other

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_wakeUp;
    bool m_isWoken = true;    ///< events may have been posted before this object was made
    quint64 m_interrupts = 0; ///< counted, so that a nested loop takes none from an outer one
};

#endif // VIRTUALTIME_H
