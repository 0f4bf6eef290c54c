#include "simulator/actuatorboard.h"

ActuatorBoard::ActuatorBoard(int address, int cpuBoard, QObject *pParent)
    : SimulatedBoard(address, pParent)
    , m_cpuBoard(cpuBoard)
{
    m_repeatTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_repeatTimer, &QTimer::timeout, this, &ActuatorBoard::report);
    m_repeatTimer.start(RepeatPeriod);
}

bool ActuatorBoard::setCupReading(int reading)
{
    if (reading < 0 || reading > MaxCupReading)
        return false;
    if (reading == m_cupReading)
        return true;
    m_cupReading = reading;
    m_repeatTimer.start(); // a period from now
    report();
    return true;
}

void ActuatorBoard::onRestarted()
{
    m_repeatTimer.start();
    report();
}

void ActuatorBoard::report()
{
    CanMessage payload;
    payload.appendDataUnsignedShort(static_cast<unsigned short>(m_cupReading));
    speak(m_cpuBoard, CommandCupReading, payload.data());
}
