#ifndef FAKECUPSENSOR_H
#define FAKECUPSENSOR_H

#include "cupsensor/abstractcupsensor.h"

#include <QThread>
#include <functional>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

/// A sensor whose device is a function of the test. A reading from s_threshold on is a cup.
class FakeCupSensor : public AbstractCupSensor
{
public:
    using Device = std::function<quint16(bool &error)>;

    static constexpr quint16 s_threshold = 100;

    explicit FakeCupSensor(bool isPolled, CupSensorType type = CupSensorTypeVl6180x)
        : AbstractCupSensor(nullptr, type, isPolled)
    {
    }
    /// Polled every `periodMs`.
    explicit FakeCupSensor(int periodMs, Device device)
        : FakeCupSensor(true)
    {
        m_loopPeriod = periodMs;
        m_device = std::move(device);
    }

    using AbstractCupSensor::m_loopPeriod;
    using AbstractCupSensor::m_secondInterval;

    void setDevice(Device device) { m_device = std::move(device); } ///< not while the loop runs

    bool isCupPresent() const override
    {
        const quint16 reading = rawValue();
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_decisions.emplace_back(QThread::currentThread(), reading);
        return reading >= s_threshold;
    }
    QString channelName() const override { return QStringLiteral("Fake"); }
    QString valueString() const override { return AbstractCupSensor::valueString(); }
    QString rawValueString() const override { return QStringLiteral("raw"); }
    quint16 readRawValuesFromDevice(bool &error) override { return m_device(error); }

    /// The readings that isCupPresent() has decided on since the last call, and where.
    std::vector<std::pair<QThread *, quint16>> takeDecisions()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_decisions, {});
    }

private:
    Device m_device = [](bool &error) -> quint16 {
        error = true;
        return 0;
    };
    mutable std::mutex m_mutex; ///< guards the decisions
    mutable std::vector<std::pair<QThread *, quint16>> m_decisions;
};

/// The threads that a signal is emitted in while this lives.
class ThreadSpy
{
public:
    template <typename Sender, typename Signal>
    ThreadSpy(const Sender *pSender, Signal signal)
        : m_connection(QObject::connect(pSender, signal, [this] {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_threads.insert(QThread::currentThread());
            ++m_count;
        }))
    {
    }
    ~ThreadSpy() { QObject::disconnect(m_connection); }
    Q_DISABLE_COPY_MOVE(ThreadSpy)

    int count() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_count;
    }
    std::set<QThread *> threads() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_threads;
    }

private:
    mutable std::mutex m_mutex;
    std::set<QThread *> m_threads;
    int m_count = 0;
    QMetaObject::Connection m_connection;
};

/// The process's first reading is told whether presence changes or not. Most tests look at what
/// comes later, and begin with this.
inline void spendFirstReadingOfTheProcess()
{
    FakeCupSensor(false).onRawValueChangedFromProtocol(0);
}

#endif // FAKECUPSENSOR_H
