#ifndef COMMANDS_H
#define COMMANDS_H

#include "linkrecords.h"

class AbstractOutputsBackend;
class AbstractPaymentBackend;

/// Carries out the controller's requests, but for the claims. The backends are borrowed and may be
/// null.
class Commands
{
public:
    Commands(AbstractPaymentBackend *pPayment, AbstractOutputsBackend *pOutputs)
        : m_pPayment(pPayment)
        , m_pOutputs(pOutputs)
    {
    }

    /// A MultiportProtocol::Status.
    quint8 carryOut(const multiportlink::Request &request) const;

private:
    quint8 setSerialLine(const QByteArray &payload) const;
    quint8 switchOutput(quint8 command, const QByteArray &payload) const;

    AbstractPaymentBackend *m_pPayment;
    AbstractOutputsBackend *m_pOutputs;
};

#endif // COMMANDS_H
