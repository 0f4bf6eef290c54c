#include "simulator/simulatedmachine.h"

SimulatedMachine::SimulatedMachine(QObject *pParent)
    : SimulatedMachine(Addresses(), pParent)
{
}

SimulatedMachine::SimulatedMachine(Addresses addresses, QObject *pParent)
    : QObject(pParent)
    , m_actuatorBoard(addresses.actuatorBoard, addresses.cpuBoard)
{
    m_canBus.attach(&m_actuatorBoard);
}

void SimulatedMachine::setLinkCut(bool isCut)
{
    if (isCut == m_isLinkCut)
        return;
    m_isLinkCut = isCut;
    Q_EMIT linkCutAsked(isCut);
}
