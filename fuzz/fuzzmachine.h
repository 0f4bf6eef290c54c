#ifndef FUZZMACHINE_H
#define FUZZMACHINE_H

#include "abstracthardwarecontroller.h"
#include "hardwareenvironment.h"
#include "hardwaresettings.h"
#include "multiport.h"

#include <QByteArray>
#include <QCoreApplication>

#include <algorithm>
#include <cstddef>
#include <cstdint>

/// A machine whose client has no server; what the server relays is told by the client's signals.
class Machine
{
public:
    /// Lives until the process ends.
    static Machine &instance()
    {
        static auto *const s_pMachine = new Machine;
        return *s_pMachine;
    }

    Multiport &client() { return *m_environment.multiport(); }

private:
    struct Settings : HardwareSettings
    {
        AbstractHardwareController *createHardwareController() override { return nullptr; }
    };

    Machine()
    {
        m_environment.setMultiport(
            new Multiport(QStringLiteral("localhost"), Multiport::ModeLocal, &m_environment));
    }

    int m_argc = 0;
    QCoreApplication m_application{m_argc, nullptr};
    Settings m_settings;
    HardwareEnvironment m_environment{HardwareEnvironment::Lirenta, &m_settings};
};

/// Calls it with each chunk of an input: 1 byte of length and so many bytes.
template <typename Function>
void forEachChunk(const std::uint8_t *pData, std::size_t size, const Function &function)
{
    for (std::size_t at = 0; at < size;) {
        const std::size_t count = std::min<std::size_t>(pData[at], size - at - 1);
        function(
            QByteArray(reinterpret_cast<const char *>(pData + at + 1), static_cast<int>(count)));
        at += count + 1;
    }
}

#endif // FUZZMACHINE_H
