#ifndef SIMULATEDBACKENDS_H
#define SIMULATEDBACKENDS_H

#include "multiportd/abstractcanbackend.h"
#include "multiportd/abstractoutputsbackend.h"
#include "multiportd/abstractpaymentbackend.h"

class PaymentPeripheral;
class SimulatedCanBus;
class SimulatedOutputs;

// The simulated machine behind the server; its parts are borrowed and outlive these.

class SimulatedCanBackend : public AbstractCanBackend
{
    Q_OBJECT

public:
    explicit SimulatedCanBackend(SimulatedCanBus *pBus, QObject *pParent = nullptr);

    bool open(QString *pError) override;
    void send(const CanFrame &frame) override;

private:
    SimulatedCanBus *m_pBus;
};

class SimulatedPaymentBackend : public AbstractPaymentBackend
{
    Q_OBJECT

public:
    explicit SimulatedPaymentBackend(PaymentPeripheral *pPeripheral, QObject *pParent = nullptr);

    bool open(QString *pError) override;
    quint8 setSerialLine(const multiportlink::SerialLine &line) override;
    void write(const QByteArray &bytes) override;
    void startAfresh() override;

private:
    PaymentPeripheral *m_pPeripheral;
};

class SimulatedOutputsBackend : public AbstractOutputsBackend
{
    Q_OBJECT

public:
    explicit SimulatedOutputsBackend(SimulatedOutputs *pOutputs, QObject *pParent = nullptr);

    quint8 setOutput(quint8 output, bool isOn) override;
    quint8 setBlinking(quint8 output, bool isOn) override;

private:
    SimulatedOutputs *m_pOutputs;
};

#endif // SIMULATEDBACKENDS_H
