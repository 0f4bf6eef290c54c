#include "multiport.h"

#include "logformatter.h"

#include <utility>

Multiport::Multiport(QString server, int mode, QObject *pParent)
    : QObject(pParent)
    , m_server(std::move(server))
    , m_mode(mode)
{
}

void Multiport::setEnabled(Multiport::Interface interface, bool isOn)
{
    if (isOn)
        m_openInterfaces.insert(interface);
    else
        m_openInterfaces.remove(interface);
}

bool Multiport::isOpen(Interface interface) const
{
    return m_openInterfaces.contains(interface);
}

bool Multiport::writeToCanBus(const QByteArray &bytes)
{
    LogFormatter(3, Log::CanBus) << Q_FUNC_INFO << "No link to the multiport server,"
                                 << bytes.size() << "bytes not sent";
    return false;
}

void Multiport::setOutputEnabled(int output, bool isOn)
{
    LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << "No link to the multiport server, output"
                                   << output << "not set to" << isOn;
}

void Multiport::setBlinkOutput(int output, bool isOn)
{
    LogFormatter(3, Log::Hardware)
        << Q_FUNC_INFO << "No link to the multiport server, blinking of output" << output
        << "not set to" << isOn;
}
