#ifndef ACTUATORBOARD_H
#define ACTUATORBOARD_H

#include "simulator/simulatedboard.h"

/// The actuator board: it acknowledges what it is sent (dispensing is not simulated, taken() counts
/// it) and measures the cup. It reports the reading to the CPU board when it changes, after a
/// restart, and every RepeatPeriod.
class ActuatorBoard : public SimulatedBoard
{
    Q_OBJECT

public:
    /// A report's command; its payload is the reading, two bytes big-endian.
    static constexpr int CommandCupReading = 0x11;
    static constexpr std::chrono::milliseconds RepeatPeriod{1000};
    static constexpr int MaxCupReading = 0xFFFF;

    /// \param cpuBoard the address that reports go to
    ActuatorBoard(int address, int cpuBoard, QObject *pParent = nullptr);

    /// In the sensor's unit; 0, no cup, at first. False for a value below 0 or above MaxCupReading.
    bool setCupReading(int reading);
    int cupReading() const { return m_cupReading; }

protected:
    void onRestarted() override;

private:
    void report();

    const int m_cpuBoard;
    int m_cupReading = 0;
    QTimer m_repeatTimer{this};
};

#endif // ACTUATORBOARD_H
