#include "simulator/simulatedcanbus.h"

#include "simulator/simulatedboard.h"

#include <QPointer>

SimulatedCanBus::SimulatedCanBus(QObject *pParent)
    : QObject(pParent)
{
}

// NOLINTNEXTLINE(readability-make-member-function-const): the bus has one board more
void SimulatedCanBus::attach(SimulatedBoard *pBoard)
{
    connect(this, &SimulatedCanBus::heard, pBoard, &SimulatedBoard::hear);
    connect(pBoard, &SimulatedBoard::spoke, this, &SimulatedCanBus::onSpoke);
}

void SimulatedCanBus::send(const CanFrame &frame)
{
    Q_EMIT heard(frame);
}

void SimulatedCanBus::onSpoke(const CanFrame &frame)
{
    const QPointer<SimulatedCanBus> pThis(this);
    Q_EMIT frameOnBus(frame);
    if (pThis)
        Q_EMIT heard(frame); // a board overlooks its own
}
