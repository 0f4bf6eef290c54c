#include "multiportd/simulatedbackends.h"

#include "multiportprotocol.h"
#include "simulator/paymentperipheral.h"
#include "simulator/simulatedcanbus.h"
#include "simulator/simulatedoutputs.h"

namespace {

quint8 statusOf(bool isDone)
{
    return isDone ? MultiportProtocol::StatusDone : MultiportProtocol::StatusRejected;
}

} // namespace

SimulatedCanBackend::SimulatedCanBackend(SimulatedCanBus *pBus, QObject *pParent)
    : AbstractCanBackend(pParent)
    , m_pBus(pBus)
{
    connect(pBus, &SimulatedCanBus::frameOnBus, this, &SimulatedCanBackend::frameReceived);
}

bool SimulatedCanBackend::open(QString * /*pError*/)
{
    return true;
}

void SimulatedCanBackend::send(const CanFrame &frame)
{
    m_pBus->send(frame);
}

SimulatedPaymentBackend::SimulatedPaymentBackend(PaymentPeripheral *pPeripheral, QObject *pParent)
    : AbstractPaymentBackend(pParent)
    , m_pPeripheral(pPeripheral)
{
    connect(pPeripheral, &PaymentPeripheral::spoke, this, &SimulatedPaymentBackend::dataReceived);
}

bool SimulatedPaymentBackend::open(QString * /*pError*/)
{
    return true;
}

quint8 SimulatedPaymentBackend::setSerialLine(const multiportlink::SerialLine &line)
{
    return statusOf(m_pPeripheral->setLine(line.dataBits, line.parity));
}

void SimulatedPaymentBackend::write(const QByteArray &bytes)
{
    m_pPeripheral->hear(bytes);
}

void SimulatedPaymentBackend::startAfresh()
{
    m_pPeripheral->forgetLine();
}

SimulatedOutputsBackend::SimulatedOutputsBackend(SimulatedOutputs *pOutputs, QObject *pParent)
    : AbstractOutputsBackend(pParent)
    , m_pOutputs(pOutputs)
{
}

quint8 SimulatedOutputsBackend::setOutput(quint8 output, bool isOn)
{
    return statusOf(m_pOutputs->setOutput(output, isOn));
}

quint8 SimulatedOutputsBackend::setBlinking(quint8 output, bool isOn)
{
    return statusOf(m_pOutputs->setBlinking(output, isOn));
}
