#include "eventgrouphandler.h"

#include "assertions.h"
#include "logformatter.h"

#include <QPointer>

namespace tools {

EventGroupHandler::EventGroupHandler(QObject *pParent)
    : QObject(pParent)
{
    m_timeoutTimer.setSingleShot(true);
    m_timeoutTimer.setTimerType(Qt::PreciseTimer);
    m_timeoutTimer.setInterval(s_stepTimeout);
    connect(&m_timeoutTimer, &QTimer::timeout, this, [this] { endAttempt(false); });
    m_turnTimer.setSingleShot(true);
    m_turnTimer.setInterval(0);
    connect(&m_turnTimer, &QTimer::timeout, this, &EventGroupHandler::beginAttempt);
}

EventGroupHandler::~EventGroupHandler() = default;

void EventGroupHandler::addEvent(const EventSteps &steps)
{
    if (!steps.action || !steps.connector || !steps.check) {
        printAssertMsg(QStringLiteral("steps.action && steps.connector && steps.check"),
                       QStringLiteral("An event step needs an action, a connector and a check"),
                       "libs/vytools/eventgrouphandler", __LINE__);
        return;
    }
    m_steps.enqueue(steps);
}

void EventGroupHandler::start()
{
    if (m_isRunning)
        return;
    m_isRunning = true;
    m_hasAllSucceeded = true;
    m_index = 0;
    m_attempt = 0;
    m_turnTimer.start();
}

void EventGroupHandler::checkResult(const QVariant &result)
{
    if (!m_timeoutTimer.isActive())
        return;
    const QPointer<EventGroupHandler> pThis = this;
    const auto check = m_steps.head().check; // a copy: it may delete the handler
    const bool hasSucceeded = check(result);
    if (pThis)
        endAttempt(hasSucceeded);
}

void EventGroupHandler::beginAttempt()
{
    if (m_steps.isEmpty()) {
        finishGroup();
        return;
    }
    ++m_attempt;
    const EventSteps steps = m_steps.head(); // a copy: the action may delete the handler
    m_timeoutTimer.start();
    steps.connector(*this); // before the action, whose answer may come at once
    steps.action();
}

void EventGroupHandler::endAttempt(bool hasSucceeded)
{
    m_timeoutTimer.stop();
    dropConnection();
    m_turnTimer.start();
    if (!hasSucceeded && m_attempt < s_attempts)
        return;
    if (!hasSucceeded)
        LogFormatter(3, Log::Global)
            << Q_FUNC_INFO << "Step" << m_index << "failed" << m_attempt << "times";
    m_steps.dequeue();
    m_attempt = 0;
    m_hasAllSucceeded = m_hasAllSucceeded && hasSucceeded;
    Q_EMIT stepFinished(m_index++, hasSucceeded);
}

void EventGroupHandler::finishGroup()
{
    m_isRunning = false;
    Q_EMIT finished(m_hasAllSucceeded);
}

void EventGroupHandler::dropConnection()
{
    if (m_pConnection)
        disconnect(*m_pConnection);
    m_pConnection.reset();
}

} // namespace tools
