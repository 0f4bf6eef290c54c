#include "support/virtualtime.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimerEvent>

#include <algorithm>
#include <iterator>
#include <utility>

using std::chrono::milliseconds;

namespace {

/// Real time that a loop without timers waits for another thread.
constexpr milliseconds s_wakeUpTimeout{5000};
constexpr int s_maxFirings = 100000;
constexpr int s_maxDeliveries = 1000000; ///< well above what a busy thread posts in one go

/// Takes steps through QCoreApplication::sendEvent(). They then count as an event loop of their own
/// for deleteLater(): what was deleted later outside goes now, what a slot around them deleted
/// later stays until that slot has returned.
class RunEvent : public QEvent
{
public:
    explicit RunEvent(std::function<void()> steps)
        : QEvent(runType())
        , m_steps(std::move(steps))
    {
    }

    static Type runType()
    {
        static const int s_type = registerEventType();
        return static_cast<Type>(s_type);
    }

    void run() const { m_steps(); }

private:
    std::function<void()> m_steps;
};

QByteArray className(const QObject *pObject)
{
    QByteArray name = pObject->metaObject()->className();
    if (!pObject->parent())
        return name;
    return name + " of " + pObject->parent()->metaObject()->className();
}

} // namespace

VirtualTime::VirtualTime(QObject *pParent)
    : QAbstractEventDispatcher(pParent)
{
}

VirtualTime *VirtualTime::instance()
{
    return qobject_cast<VirtualTime *>(QAbstractEventDispatcher::instance());
}

void VirtualTime::advance(milliseconds duration)
{
    runUntil([] { return false; }, duration);
}

bool VirtualTime::runUntil(const std::function<bool()> &done, milliseconds limit)
{
    assertOwnThread();
    Q_ASSERT_X(limit >= milliseconds::zero(), Q_FUNC_INFO, "time does not run backwards");
    const milliseconds end = m_now + limit;
    bool isDone = false;
    RunEvent event([this, &done, &isDone, end] { isDone = stepUntil(done, end); });
    QCoreApplication::sendEvent(this, &event);
    if (isDone)
        return true;
    moveTo(end);
    dropMissed({end, m_lastOrder});
    return false;
}

bool VirtualTime::processEvents(QEventLoop::ProcessEventsFlags flags)
{
    assertOwnThread();
    Q_EMIT awake();
    return flags.testFlag(QEventLoop::WaitForMoreEvents) ? stepOrWait() : stepsDueNow();
}

bool VirtualTime::hasPendingEvents()
{
    const auto next = nextTimer(m_lastOrder);
    return isWoken() || (next != m_timers.end() && next->second.place.first <= m_now);
}

void VirtualTime::registerSocketNotifier(QSocketNotifier *)
{
    qWarning("virtual time knows no sockets: this notifier never fires");
}

void VirtualTime::unregisterSocketNotifier(QSocketNotifier *) {}

void VirtualTime::registerTimer(int timerId, int interval, Qt::TimerType timerType,
                                QObject *pObject)
{
    assertOwnThread();
    const milliseconds period(interval);
    const Place place(m_now + period, ++m_lastOrder);
    m_timers.emplace(timerId, Timer{pObject, period, place, timerType});
    m_queue.emplace(place, timerId);
}

bool VirtualTime::unregisterTimer(int timerId)
{
    assertOwnThread();
    const auto it = m_timers.find(timerId);
    if (it == m_timers.end())
        return false;
    removeTimer(it);
    return true;
}

bool VirtualTime::unregisterTimers(QObject *pObject)
{
    assertOwnThread();
    const auto before = m_timers.size();
    for (auto it = m_timers.begin(); it != m_timers.end();)
        it = it->second.pObject == pObject ? removeTimer(it) : std::next(it);
    return m_timers.size() < before;
}

QList<QAbstractEventDispatcher::TimerInfo> VirtualTime::registeredTimers(QObject *pObject) const
{
    assertOwnThread();
    QList<TimerInfo> infos;
    for (const auto &[id, timer] : m_timers) {
        if (timer.pObject == pObject)
            infos << TimerInfo(id, static_cast<int>(timer.interval.count()), timer.type);
    }
    return infos;
}

int VirtualTime::remainingTime(int timerId)
{
    assertOwnThread();
    const auto it = m_timers.find(timerId);
    if (it == m_timers.end())
        return -1;
    return static_cast<int>(std::max(it->second.place.first - m_now, milliseconds::zero()).count());
}

void VirtualTime::wakeUp()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isWoken = true;
    m_wakeUp.notify_all();
}

// Wakes up as well: an interrupt that comes from another thread between two calls of
// processEvents() must keep the second one from moving the clock.
void VirtualTime::interrupt()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_interrupts;
    m_isWoken = true;
    m_wakeUp.notify_all();
}

void VirtualTime::flush() {}

bool VirtualTime::event(QEvent *pEvent)
{
    if (pEvent->type() != RunEvent::runType())
        return QAbstractEventDispatcher::event(pEvent);
    static_cast<const RunEvent *>(pEvent)->run();
    return true;
}

/// One step of an event loop, which looks at its exit flag after each.
bool VirtualTime::stepOrWait()
{
    const quint64 interruptsBefore = interrupts();
    if (deliverPosted() || interrupts() != interruptsBefore)
        return true;
    Q_EMIT aboutToBlock();
    if (!isWoken() && !fireNext(milliseconds::max()))
        waitForWakeUp();
    return true;
}

/// All that is due, except timers that are started or re-armed while this runs.
bool VirtualTime::stepsDueNow()
{
    const quint64 interruptsBefore = interrupts();
    const quint64 lastOrder = m_lastOrder;
    const milliseconds due = m_now;
    bool hasWorked = deliverPosted();
    while (interrupts() == interruptsBefore && fireNext(due, lastOrder)) {
        deliverPosted();
        hasWorked = true;
    }
    dropMissed({due, lastOrder});
    return hasWorked;
}

bool VirtualTime::stepUntil(const std::function<bool()> &done, milliseconds end)
{
    while (!done()) {
        if (deliverPosted())
            continue;
        if (done()) // a deferred deletion that had to wait for this loop comes without a wake-up
            return true;
        if (!fireNext(end))
            return false;
    }
    return true;
}

/// One pass; true when there may have been something, or there is more. The queue itself does not
/// tell: it keeps the deferred deletions of outer loops.
bool VirtualTime::deliverPosted()
{
    const bool wasWoken = takeWakeUp();
    countDelivery(wasWoken);
    QCoreApplication::sendPostedEvents();
    return wasWoken || isWoken();
}

bool VirtualTime::fireNext(milliseconds limit, quint64 lastOrder)
{
    const auto next = nextTimer(lastOrder);
    if (next == m_timers.end() || next->second.place.first > limit)
        return false;
    auto &[id, timer] = *next;
    moveTo(timer.place.first);
    dropMissed(timer.place);
    countFiring(timer.pObject);
    fire(id, timer);
    return true;
}

VirtualTime::Timers::iterator VirtualTime::nextTimer(quint64 lastOrder)
{
    for (const auto &[place, id] : m_queue) {
        const auto it = m_timers.find(id);
        if (!it->second.isFiring && place.second <= lastOrder)
            return it;
    }
    return m_timers.end();
}

VirtualTime::Timers::iterator VirtualTime::removeTimer(Timers::iterator timer)
{
    m_queue.erase(timer->second.place);
    return m_timers.erase(timer);
}

void VirtualTime::fire(int timerId, Timer &timer)
{
    rearm(timer); // as Qt does: the slot finds the next deadline, and may change it
    timer.isFiring = true;
    QTimerEvent event(timerId);
    QCoreApplication::sendEvent(timer.pObject, &event);

    const auto it = m_timers.find(timerId); // the slot may have removed it
    if (it != m_timers.end())
        it->second.isFiring = false;
}

void VirtualTime::rearm(Timer &timer)
{
    auto node = m_queue.extract(timer.place);
    if (timer.interval > milliseconds::zero())
        timer.place.first += timer.interval;
    else
        timer.place = {m_now, ++m_lastOrder};
    node.key() = timer.place;
    m_queue.insert(std::move(node));
}

/// Timers in their own slots whose turn was up to this place, itself included.
void VirtualTime::dropMissed(const Place &upTo)
{
    for (auto it = m_queue.begin(); it != m_queue.end() && it->first <= upTo;) {
        Timer &timer = m_timers.at((it++)->second);
        while (timer.isFiring && timer.place <= upTo)
            rearm(timer);
    }
}

void VirtualTime::moveTo(milliseconds instant)
{
    if (instant <= m_now)
        return;
    m_now = instant;
    m_firings = 0;
}

bool VirtualTime::isWoken()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_isWoken;
}

bool VirtualTime::takeWakeUp()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_isWoken, false);
}

quint64 VirtualTime::interrupts()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_interrupts;
}

void VirtualTime::waitForWakeUp()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_wakeUp.wait_for(lock, s_wakeUpTimeout, [this] { return m_isWoken; }))
        return;
    lock.unlock(); // a message handler may post
    qFatal("virtual time stands still: at %lld ms the event loop waits, but no timer is left to "
           "fire, nothing is posted and no other thread has woken it for %lld ms",
           static_cast<long long>(m_now.count()), static_cast<long long>(s_wakeUpTimeout.count()));
}

void VirtualTime::countFiring(const QObject *pObject)
{
    if (++m_firings <= s_maxFirings)
        return;
    qFatal("virtual time stands still: at %lld ms timers have fired %d times without the time "
           "moving, and the next is one of a %s",
           static_cast<long long>(m_now.count()), s_maxFirings, className(pObject).constData());
}

void VirtualTime::countDelivery(bool isWoken)
{
    m_deliveries = isWoken ? m_deliveries + 1 : 0;
    if (m_deliveries <= s_maxDeliveries)
        return;
    qFatal("virtual time stands still: at %lld ms posted events have been delivered %d times, and "
           "each time more were posted",
           static_cast<long long>(m_now.count()), s_maxDeliveries);
}

void VirtualTime::assertOwnThread() const
{
    Q_ASSERT_X(QThread::currentThread() == thread(), "VirtualTime",
               "only wakeUp() and interrupt() may be called from another thread");
}
