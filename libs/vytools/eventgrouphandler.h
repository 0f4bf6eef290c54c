#ifndef EVENTGROUPHANDLER_H
#define EVENTGROUPHANDLER_H

#include "vytools1_export.h"

#include <QObject>
#include <QQueue>
#include <QTimer>
#include <QVariant>
#include <chrono>
#include <functional>
#include <memory>

namespace tools {

class EventGroupHandler;

/// One step of an event group. All three callables are needed.
struct EventSteps
{
    /// Starts what the step is about, for example sends a request.
    std::function<void()> action;
    /// Subscribes the handler to the signal that tells the outcome, with
    /// EventGroupHandler::setConnection(), and returns what that returned.
    std::function<std::weak_ptr<QMetaObject::Connection>(EventGroupHandler &)> connector;
    /// Whether the outcome that the signal carried is the wanted one.
    std::function<bool(const QVariant &)> check;
};

/// Runs steps one after the other, each as: connect, act, wait for the signal, check, disconnect. A
/// step that fails its check or gets no answer within s_stepTimeout begins again, twice at most;
/// then it counts as failed and the next one runs. Each step begins on a turn of the event loop of
/// its own. Steps may be added at any time; they run once start() has been called.
///
/// Deleting the handler ends the group and its connection. Lives in one thread.
class VYTOOLS1_EXPORT EventGroupHandler : public QObject
{
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds s_stepTimeout{5000}; ///< chosen here
    static constexpr int s_attempts = 3;                            ///< chosen here

    explicit EventGroupHandler(QObject *pParent = nullptr);
    ~EventGroupHandler() override;

    /// Puts the step at the end. A step that lacks a callable is a programming error: reported,
    /// refused.
    void addEvent(const EventSteps &steps);

    /// Begins with the first step. Does nothing while the group runs.
    void start();
    bool isRunning() const { return m_isRunning; }

    /// For connectors: hands the first argument of each `signal` of `pSender` to checkResult()
    /// until the step is over. The argument's type must be known to QVariant.
    template <typename Sender, typename Class, typename Value>
    std::weak_ptr<QMetaObject::Connection> setConnection(const Sender *pSender,
                                                         void (Class::*signal)(Value))
    {
        dropConnection();
        const auto check = [this](const std::decay_t<Value> &value) {
            checkResult(QVariant::fromValue(value));
        };
        m_pConnection =
            std::make_shared<QMetaObject::Connection>(connect(pSender, signal, this, check));
        return m_pConnection;
    }

    /// Ends the running step's attempt with this outcome; ignored while no step waits for one.
    void checkResult(const QVariant &result);

Q_SIGNALS:
    /// A step is over, for good; `index` counts from 0 since start().
    void stepFinished(int index, bool hasSucceeded);
    /// No step is left; true when every one of them has succeeded. The group can be started again.
    void finished(bool hasSucceeded);

private:
    void beginAttempt();
    void endAttempt(bool hasSucceeded);
    void finishGroup();
    void dropConnection();

    QQueue<EventSteps> m_steps; ///< the running one first
    std::shared_ptr<QMetaObject::Connection> m_pConnection;
    QTimer m_timeoutTimer; ///< runs while a step waits for its signal
    QTimer m_turnTimer;    ///< brings the next attempt on a later turn
    int m_index = 0;
    int m_attempt = 0;
    bool m_isRunning = false;
    bool m_hasAllSucceeded = true;
};

} // namespace tools

#endif // EVENTGROUPHANDLER_H
