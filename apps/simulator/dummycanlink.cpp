#include "simulator/dummycanlink.h"

#include "canbus/caninterface_dummy.h"
#include "simulator/simulatedcanbus.h"

#include <QPointer>

DummyCanLink::DummyCanLink(CanInterface_Dummy *pInterface, SimulatedCanBus *pBus, QObject *pParent)
    : QObject(pParent)
{
    pInterface->setAnswerSimulation(false);
    const QPointer<SimulatedCanBus> pBoards(pBus);
    connect(pInterface, &CanInterface_Dummy::frameSent, this, [pInterface, pBoards] {
        if (pBoards)
            pBoards->send(pInterface->lastFrameSent());
    });
    const QPointer<CanInterface_Dummy> pReceiver(pInterface);
    connect(pBus, &SimulatedCanBus::frameOnBus, this, [pReceiver](const CanFrame &frame) {
        if (pReceiver)
            pReceiver->onFrameReceived(frame);
    });
}
