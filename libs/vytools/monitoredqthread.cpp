#include "monitoredqthread.h"

#include "logformatter.h"

namespace monitored_threads {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

MonitoredQThread::MonitoredQThread(const QString &name, bool isTickingAutomatically,
                                   QObject *pParent)
    : QThread(pParent)
    , m_isTickingAutomatically(isTickingAutomatically)
{
    setObjectName(name);
    m_watchTimer.setInterval(s_tickInterval);
    connect(&m_watchTimer, &QTimer::timeout, this, &MonitoredQThread::checkForStall);
    connect(this, &QThread::started, &m_watchTimer, qOverload<>(&QTimer::start));
    connect(this, &QThread::finished, &m_watchTimer, &QTimer::stop);
}

MonitoredQThread::~MonitoredQThread() = default;

void MonitoredQThread::tick()
{
    m_lastTick = steady_clock::now();
}

std::optional<milliseconds> MonitoredQThread::timeSinceLastTick() const
{
    if (!m_isTickable)
        return std::nullopt;
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - m_lastTick.load());
}

void MonitoredQThread::checkForStall()
{
    const std::optional<milliseconds> silence = timeSinceLastTick();
    const bool isStalled = silence && *silence > s_stallLimit;
    if (isStalled && !m_isStallTold)
        LogFormatter(3, Log::Global)
            << "Thread" << objectName() << "has not ticked for" << silence->count() << "ms";
    m_isStallTold = isStalled;
}

void MonitoredQThread::run()
{
    tick();
    m_isTickable = true;
    QTimer ticker;
    connect(&ticker, &QTimer::timeout, &ticker, [this] { tick(); });
    if (m_isTickingAutomatically)
        ticker.start(s_tickInterval);
    exec();
    m_isTickable = false;
}

} // namespace monitored_threads
