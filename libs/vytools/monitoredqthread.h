#ifndef MONITOREDQTHREAD_H
#define MONITOREDQTHREAD_H

#include "vytools1_export.h"

#include <QThread>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <optional>

namespace monitored_threads {

/// A named thread whose event loop is watched: it ticks, and when it has not ticked for a while the
/// log says so, once for each stall. The watching is done in the thread of this object, whose event
/// loop must therefore run. The owner ends the thread (quit(), wait()) before deleting the object.
class VYTOOLS1_EXPORT MonitoredQThread : public QThread
{
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds s_tickInterval{1000}; ///< chosen here
    static constexpr std::chrono::milliseconds s_stallLimit{5000};   ///< chosen here

    /// `name` is also what the operating system shows (15 characters of it). With automatic ticking
    /// the thread's event loop ticks by itself; without it the code in the thread calls tick().
    MonitoredQThread(const QString &name, bool isTickingAutomatically, QObject *pParent = nullptr);
    ~MonitoredQThread() override;

    void tick(); ///< "I am alive"; any thread, does not block; counts only while the thread runs

    /// How long ago the last tick was; nothing while the thread does not run. Any thread.
    std::optional<std::chrono::milliseconds> timeSinceLastTick() const;

    /// Looks once whether the thread has stalled; the object's own timer calls it each
    /// s_tickInterval while the thread runs.
    void checkForStall();

protected:
    void run() override;

private:
    const bool m_isTickingAutomatically;
    bool m_isStallTold = false;
    QTimer m_watchTimer{this};
    std::atomic<bool> m_isTickable = false; ///< while the thread runs
    std::atomic<std::chrono::steady_clock::time_point> m_lastTick{};
};

} // namespace monitored_threads

#endif // MONITOREDQTHREAD_H
