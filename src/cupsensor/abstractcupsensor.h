#ifndef ABSTRACTCUPSENSOR_H
#define ABSTRACTCUPSENSOR_H

#include "loginfile.h"
#include "vyhardware1_export.h"

#include <QFuture>
#include <QMutex>
#include <QString>
#include <atomic>

/// Tells whether a cup stands in the dispensing area and, on machines with a moving cup carrier,
/// whether a cup keeps the carrier from moving. Presence is a pure function of the last reading: a
/// variant decides it in isCupPresent(), without debounce.
///
/// Readings are pushed in through onRawValueChangedFromProtocol(), or, for a polling sensor, read
/// by a loop on a thread of the global pool. They are handled in the thread of this object, which
/// sends all signals but rawValueChanged() (and, of the simulated sensor, the carrier's). The owner
/// stops the loop before it deletes the sensor. With the switch of LogInFile on, every reading goes
/// to "cup_sensor_values.txt".
class VYHARDWARE1_EXPORT AbstractCupSensor : public LogInFile
{
    Q_OBJECT

public:
    enum CupSensorType : int {
        CupSensorTypeNone = 0,
        CupSensorTypeOstrelSpi = 1,
        CupSensorTypeLirenAB = 2,
        CupSensorTypeVl6180x = 3,
        CupSensorTypeSimulated = 4,
    };
    Q_ENUM(CupSensorType)

    enum CupSensorSensibility : int {
        SensibilityHigh = 0,
        SensibilityMedium = 1,
        SensibilityLow = 2,
    };
    Q_ENUM(CupSensorSensibility)

    AbstractCupSensor(QObject *pParent, CupSensorType type, bool isPollingSensor);
    ~AbstractCupSensor() override;

    /// A change emits cupPresenceChanged(), because presence may depend on it; a number that is
    /// none of the three is logged and ignored.
    virtual void setSensibility(CupSensorSensibility sensibility);
    CupSensorSensibility sensibility() const { return m_sensibility; }

    Q_INVOKABLE AbstractCupSensor::CupSensorType cupSensorType() const { return m_cupSensorType; }
    Q_INVOKABLE quint16 rawValue() const; ///< the last reading, in the variant's unit; any thread
    Q_INVOKABLE virtual bool isCupPresent() const = 0;
    Q_INVOKABLE virtual QString channelName() const = 0;
    Q_INVOKABLE virtual QString valueString() const = 0; ///< the base gives the reading in decimal
    Q_INVOKABLE virtual QString rawValueString() const = 0;

    /// Reads the device once, on the loop's thread or, for a forced update, on the caller's. A
    /// variant that fails sets `error` and returns its last good value.
    virtual quint16 readRawValuesFromDevice(bool &error);

    /// Takes one reading, from wherever it comes.
    Q_INVOKABLE void onRawValueChangedFromProtocol(quint16 rawValues);

    Q_INVOKABLE bool isCupCarrierPositionHome() const { return m_isCupCarrierPositionHome; }
    Q_INVOKABLE bool isCupCarrierBlockedByCup(); ///< never while the carrier is home
    Q_INVOKABLE void onIsCupCarrierPositionHomeChangedFromProtocol(bool isHome);
    Q_INVOKABLE void setIsCupCarrierPositionHome(bool isHome);

    /// With `forceUpdate` the device is read first, see updateFromDevice().
    bool isAnyCupPresent(bool forceUpdate);

    bool isPollingSensor() const { return m_isPollingSensor; }
    bool isMeasureLoopRunning() const { return m_isLoopRunning; }

    bool isFirstValueRead() const { return m_isFirstValueRead; } ///< the loop has polled once

    // These three do nothing and return true for a sensor that is not polled.

    /// The loop keeps a thread of the global pool as long as it runs. While the pool is full it
    /// waits for one; its first poll comes as soon as it has it.
    bool startMeasureLoop();

    /// In the sensor's thread. Blocks until the loop has ended: at most one period and one read. A
    /// loop that still waits for a thread of the pool ends at once, without a read.
    bool stopMeasureLoop();

    /// Reads the device once, unless the loop runs; false, with the reading as it was, when that
    /// fails. Writes no value file and emits no rawValueChanged().
    bool updateFromDevice();

Q_SIGNALS:
    void cupPresenceChanged();
    void rawValueChanged(unsigned short value); ///< from the loop's thread, at each poll
    void isCupCarrierPositionHomeChanged();
    void isCupCarrierBlockedByCupChanged(); ///< when presence or the carrier's position changes

protected:
    /// Takes the mutex; no signal.
    void setRawValue(quint16 value);

    int m_loopPeriod = 1000;     ///< ms from the start of one poll to the next
    int m_secondInterval = 2000; ///< ms; part of each variant's set-up, nothing here reads it
    std::atomic<bool> m_isPollingSensor;

private:
    bool updateLoop();
    void changeCupCarrierPosition(bool isHome);

    mutable QRecursiveMutex m_mutex; ///< guards m_rawValue
    quint16 m_rawValue = 0;
    std::atomic<bool> m_isLoopRunning = false;
    std::atomic<bool> m_isFirstValueRead = false; ///< the loop has polled at least once
    std::atomic<CupSensorSensibility> m_sensibility = SensibilityHigh;
    const CupSensorType m_cupSensorType;
    std::atomic<bool> m_isCupCarrierPositionHome = false;
    QFuture<bool> m_loop;

    static std::atomic<bool> s_isFirstReading; ///< of the process
};

#endif // ABSTRACTCUPSENSOR_H
