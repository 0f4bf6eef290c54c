#ifndef DUMMYCANLINK_H
#define DUMMYCANLINK_H

#include <QObject>

class CanInterface_Dummy;
class SimulatedCanBus;

/// Puts the boards of a simulated bus behind the library's dummy interface, in one process: what
/// the library writes they hear, what they speak it receives. Turns the interface's own answer
/// simulation off. Interface and bus are borrowed; either may go at any time.
///
///     auto *const pInterface = new CanInterface_Dummy(nullptr, false);
///     SimulatedCanBus bus;
///     DummyCanLink link(pInterface, &bus);
///     ActuatorBoard board(CanVy::Address::actuatorBoard(), CanVy::Address::cpuBoard());
///     bus.attach(&board);
///     CanBus::instance()->setInterface(pInterface);
class DummyCanLink : public QObject
{
    Q_OBJECT

public:
    DummyCanLink(CanInterface_Dummy *pInterface, SimulatedCanBus *pBus, QObject *pParent = nullptr);
};

#endif // DUMMYCANLINK_H
