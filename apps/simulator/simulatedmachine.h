#ifndef SIMULATEDMACHINE_H
#define SIMULATEDMACHINE_H

#include "simulator/actuatorboard.h"
#include "simulator/paymentperipheral.h"
#include "simulator/simulatedcanbus.h"
#include "simulator/simulatedoutputs.h"

#include <QObject>

/// What is behind the multiport server when there is no machine: boards on a CAN bus, a card reader
/// on the payment line, outputs. One thread.
class SimulatedMachine : public QObject
{
    Q_OBJECT

public:
    /// Bus addresses; at first those of a Lirenta (subtypes 3, 7, 8 and 14).
    struct Addresses
    {
        int actuatorBoard = 0x41C;
        int cpuBoard = 0x4AE; ///< whom the boards report to
    };

    explicit SimulatedMachine(QObject *pParent = nullptr);
    explicit SimulatedMachine(Addresses addresses, QObject *pParent = nullptr);

    SimulatedCanBus &canBus() { return m_canBus; }
    SimulatedOutputs &outputs() { return m_outputs; }
    PaymentPeripheral &payment() { return m_payment; }
    ActuatorBoard &actuatorBoard() { return m_actuatorBoard; }

    /// The network to the multiport server is cut. Whoever serves the machine obeys
    /// linkCutAsked(): it ends its clients and takes no new ones while this is on. When it cannot
    /// take them again it sets this again, from within the signal.
    void setLinkCut(bool isCut);
    bool isLinkCut() const { return m_isLinkCut; }

Q_SIGNALS:
    void linkCutAsked(bool isCut);

private:
    SimulatedCanBus m_canBus;
    SimulatedOutputs m_outputs;
    PaymentPeripheral m_payment;
    ActuatorBoard m_actuatorBoard;
    bool m_isLinkCut = false;
};

#endif // SIMULATEDMACHINE_H
