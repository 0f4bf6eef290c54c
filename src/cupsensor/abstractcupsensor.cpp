#include "cupsensor/abstractcupsensor.h"

#include "logformatter.h"

#include <QElapsedTimer>
#include <QMetaType>
#include <QMutexLocker>
#include <QPointer>
#include <QThread>
#include <QtConcurrent>

namespace {

/// What is logged when it is set; null for a number that names no sensibility.
const char *textOf(AbstractCupSensor::CupSensorSensibility sensibility)
{
    switch (sensibility) {
    case AbstractCupSensor::SensibilityHigh:
        return "AbstractCupSensor: Setting high sensibility";
    case AbstractCupSensor::SensibilityMedium:
        return "AbstractCupSensor: Setting medium sensibility";
    case AbstractCupSensor::SensibilityLow:
        return "AbstractCupSensor: Setting low sensibility";
    }
    return nullptr;
}

} // namespace

std::atomic<bool> AbstractCupSensor::s_isFirstReading = true;

AbstractCupSensor::AbstractCupSensor(QObject *pParent, CupSensorType type, bool isPollingSensor)
    : LogInFile(pParent, QStringLiteral("cup_sensor_values.txt"), Log::Hardware, {2.5, 1, false})
    , m_isPollingSensor(isPollingSensor)
    , m_cupSensorType(type)
{
    qRegisterMetaType<QList<quint16>>("QList<quint16>");
    if (isPollingSensor)
        connect(this, &AbstractCupSensor::rawValueChanged, this,
                &AbstractCupSensor::onRawValueChangedFromProtocol);
    connect(this, &AbstractCupSensor::cupPresenceChanged, this,
            &AbstractCupSensor::isCupCarrierBlockedByCupChanged);
    connect(this, &AbstractCupSensor::isCupCarrierPositionHomeChanged, this,
            &AbstractCupSensor::isCupCarrierBlockedByCupChanged);
}

AbstractCupSensor::~AbstractCupSensor() = default;

void AbstractCupSensor::setSensibility(CupSensorSensibility sensibility)
{
    const char *const pText = textOf(sensibility);
    if (pText == nullptr) {
        LogFormatter(4, Log::Hardware)
            << Q_FUNC_INFO
            << QStringLiteral(": Invalid value %1").arg(static_cast<int>(sensibility));
        return;
    }
    LogFormatter(1, Log::Hardware) << pText;
    if (m_sensibility == sensibility)
        return;
    m_sensibility = sensibility;
    Q_EMIT cupPresenceChanged();
}

quint16 AbstractCupSensor::rawValue() const
{
    const QMutexLocker lock(&m_mutex);
    return m_rawValue;
}

QString AbstractCupSensor::valueString() const
{
    return QString::number(rawValue());
}

quint16 AbstractCupSensor::readRawValuesFromDevice(bool &error)
{
    LogFormatter(4, Log::Hardware)
        << "This should be implemented by daughter class if a loop is a polling loop is needed !";
    error = true;
    return 0;
}

void AbstractCupSensor::onRawValueChangedFromProtocol(quint16 rawValues)
{
    const bool wasPresent = isCupPresent();
    setRawValue(rawValues);
    const bool isPresent = isCupPresent();
    const QPointer<AbstractCupSensor> pThis = this; // a slot may delete the sensor
    if (wasPresent != isPresent || s_isFirstReading) {
        LogFormatter(1, Log::Hardware) << QStringLiteral("Cup presence changed: ") +
                                              QString::asprintf("C%d", isPresent ? 1 : 0);
        Q_EMIT cupPresenceChanged();
    }
    if (pThis && isLogInFile())
        logString(QString::asprintf("%05d(%d)", rawValues, isPresent ? 1 : 0));
    s_isFirstReading = false; // only now: a reading that a slot pushes in still counts as the first
}

bool AbstractCupSensor::isCupCarrierBlockedByCup()
{
    return !m_isCupCarrierPositionHome && isAnyCupPresent(false);
}

void AbstractCupSensor::onIsCupCarrierPositionHomeChangedFromProtocol(bool isHome)
{
    changeCupCarrierPosition(isHome);
}

void AbstractCupSensor::setIsCupCarrierPositionHome(bool isHome)
{
    changeCupCarrierPosition(isHome);
}

bool AbstractCupSensor::isAnyCupPresent(bool forceUpdate)
{
    const QPointer<AbstractCupSensor> pThis = this; // a slot may delete the sensor
    if (forceUpdate)
        updateFromDevice();
    return pThis && isCupPresent();
}

bool AbstractCupSensor::startMeasureLoop()
{
    if (!m_isPollingSensor)
        return true;
    if (m_isLoopRunning) {
        LogFormatter(0, Log::Hardware) << Q_FUNC_INFO << ": Already running !";
        return true;
    }
    m_isLoopRunning = true;
    m_loop = QtConcurrent::run(this, &AbstractCupSensor::updateLoop);
    return true;
}

bool AbstractCupSensor::stopMeasureLoop()
{
    if (!m_isPollingSensor)
        return true;
    if (!m_isLoopRunning) {
        LogFormatter(0, Log::Hardware) << Q_FUNC_INFO << ": Not running !";
        return true;
    }
    m_isLoopRunning = false;
    LogFormatter(1, Log::Hardware) << Q_FUNC_INFO << ": Waiting for read thread...";
    m_loop.waitForFinished();
    LogFormatter(1, Log::Hardware) << Q_FUNC_INFO << ": Got it";
    return true;
}

bool AbstractCupSensor::updateFromDevice()
{
    if (!m_isPollingSensor || m_isLoopRunning)
        return true;
    LogFormatter(1, Log::Hardware) << "Updating cup sensor position due to forced update";
    bool error = false;
    const QPointer<AbstractCupSensor> pThis = this; // a slot may delete the sensor
    const quint16 value = readRawValuesFromDevice(error);
    if (!pThis)
        return false;
    if (error) {
        LogFormatter(3, Log::Machine) << Q_FUNC_INFO << ": Failed in readRawValuesFromDevice";
        return false;
    }
    const quint16 oldValue = rawValue();
    setRawValue(value);
    if (value != oldValue)
        Q_EMIT cupPresenceChanged();
    return true;
}

void AbstractCupSensor::setRawValue(quint16 value)
{
    const QMutexLocker lock(&m_mutex);
    m_rawValue = value;
}

/// On a thread of the pool. What the device gives is handed on whether it failed or not.
bool AbstractCupSensor::updateLoop()
{
    // The pool was full until the loop was stopped: waiting for a job that has not begun runs it on
    // the waiting thread.
    if (!m_isLoopRunning && QThread::currentThread() == thread())
        return true;
    for (;;) {
        QElapsedTimer elapsed;
        elapsed.start();
        bool error = false;
        const quint16 value = readRawValuesFromDevice(error);
        m_isFirstValueRead = true;
        Q_EMIT rawValueChanged(value);
        if (!m_isLoopRunning)
            return true;
        const qint64 rest = m_loopPeriod - elapsed.elapsed();
        if (rest > 0)
            QThread::msleep(static_cast<unsigned long>(rest));
        if (rest > 0 && !m_isLoopRunning)
            return true;
    }
}

void AbstractCupSensor::changeCupCarrierPosition(bool isHome)
{
    if (m_isCupCarrierPositionHome.exchange(isHome) == isHome)
        return;
    LogFormatter(1, Log::Hardware)
        << QStringLiteral("Cup carrier position changed, home: %1").arg(isHome ? 1 : 0);
    Q_EMIT isCupCarrierPositionHomeChanged();
}
