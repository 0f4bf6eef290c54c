#include "buttons/abstractphysicalbuttonsreader.h"

#include <QTimer>

AbstractPhysicalButtonsReader::AbstractPhysicalButtonsReader() = default;

AbstractPhysicalButtonsReader::~AbstractPhysicalButtonsReader() = default;

void AbstractPhysicalButtonsReader::setReadInterval(int ms)
{
    if (ms >= 0)
        m_readInterval = ms;
}

void AbstractPhysicalButtonsReader::startReading()
{
    if (m_isStarted)
        return;
    m_isStarted = true;
    QTimer::singleShot(0, this, &AbstractPhysicalButtonsReader::readInput);
}
