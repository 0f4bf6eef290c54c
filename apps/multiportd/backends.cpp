#include "multiportd/backends.h"

#include "logformatter.h"
#include "multiportd/serialbuscanbackend.h"
#include "multiportd/serialportpaymentbackend.h"
#include "multiportd/simulatedbackends.h"
#include "simulator/consolepath.h"
#include "simulator/controlconsole.h"
#include "simulator/simulatedmachine.h"

Backends::Backends() = default;
Backends::~Backends() = default;

bool Backends::open(const Options &options, QString *pError)
{
    make(options);
    makeSimulated(options);
    tellMissing();
    if (m_pConsole && !listenOnConsole(options.consolePath, pError))
        return false;
    return (!m_pCan || m_pCan->open(pError)) && (!m_pPayment || m_pPayment->open(pError));
}

void Backends::make(const Options &options)
{
    if (!options.canPlugin.isEmpty())
        m_pCan = std::make_unique<SerialBusCanBackend>(options.canPlugin, options.canInterface);
    if (!options.paymentDevice.isEmpty())
        m_pPayment = std::make_unique<SerialPortPaymentBackend>(options.paymentDevice);
}

/// The machine's parts stand in for what nobody has named.
void Backends::makeSimulated(const Options &options)
{
    if (!options.isSimulated)
        return;
    m_pMachine = std::make_unique<SimulatedMachine>();
    if (!m_pCan)
        m_pCan = std::make_unique<SimulatedCanBackend>(&m_pMachine->canBus());
    if (!m_pPayment)
        m_pPayment = std::make_unique<SimulatedPaymentBackend>(&m_pMachine->payment());
    m_pOutputs = std::make_unique<SimulatedOutputsBackend>(&m_pMachine->outputs());
    m_pConsole = std::make_unique<ControlConsole>(m_pMachine.get(), nullptr);
}

/// A console that was asked for must be had; without the default one the server goes on.
bool Backends::listenOnConsole(const QString &path, QString *pError)
{
    if (!path.isEmpty())
        return m_pConsole->listen(path, pError);
    QString reason;
    if (!m_pConsole->listen(defaultConsolePath(), &reason)) {
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << "There is no console:" << reason;
        m_pConsole.reset();
    }
    return true;
}

void Backends::tellMissing() const
{
    if (!m_pCan)
        LogFormatter(3, Log::Hardware)
            << Q_FUNC_INFO << "There is no CAN bus: neither --can nor --simulate";
    if (!m_pPayment)
        LogFormatter(3, Log::Hardware)
            << Q_FUNC_INFO << "There is no payment line: neither --payment nor --simulate";
    if (!m_pOutputs)
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << "There are no outputs: no --simulate";
}
