#ifndef BACKENDS_H
#define BACKENDS_H

#include "multiportd/abstractcanbackend.h"
#include "multiportd/abstractoutputsbackend.h"
#include "multiportd/abstractpaymentbackend.h"
#include "multiportd/options.h"

#include <QString>
#include <memory>

class ControlConsole;
class SimulatedMachine;

/// The backends that the options ask for. What nobody asks for is null.
class Backends
{
public:
    Backends();
    ~Backends();
    Q_DISABLE_COPY_MOVE(Backends)

    /// False, with a reason for people, when one cannot be used. Logs what is not there.
    bool open(const Options &options, QString *pError);

    AbstractCanBackend *can() const { return m_pCan.get(); }
    AbstractPaymentBackend *payment() const { return m_pPayment.get(); }
    AbstractOutputsBackend *outputs() const { return m_pOutputs.get(); }
    SimulatedMachine *machine() const { return m_pMachine.get(); }

private:
    void make(const Options &options);
    void makeSimulated(const Options &options);
    bool listenOnConsole(const QString &path, QString *pError);
    void tellMissing() const;

    std::unique_ptr<SimulatedMachine> m_pMachine; ///< outlives the console and the backends
    std::unique_ptr<ControlConsole> m_pConsole;
    std::unique_ptr<AbstractCanBackend> m_pCan;
    std::unique_ptr<AbstractPaymentBackend> m_pPayment;
    std::unique_ptr<AbstractOutputsBackend> m_pOutputs;
};

#endif // BACKENDS_H
