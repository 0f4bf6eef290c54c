#ifndef MULTIPORTMACHINE_H
#define MULTIPORTMACHINE_H

#include "canbus/canmessages.h"
#include "canbus/testmachine.h"
#include "multiport.h"
#include "support/virtualtime.h"

#include <QByteArray>

/// A machine with a multiport client that no server is behind: what the server relays is told by
/// the test. Belongs to a program that runs in virtual time.
class MultiportMachine
{
public:
    MultiportMachine() { m_machine.environment().setMultiport(newClient()); }

    HardwareEnvironment &environment() { return m_machine.environment(); }
    Multiport &client() { return *environment().multiport(); }

    /// For the environment, which owns it.
    Multiport *newClient()
    {
        return new Multiport(QStringLiteral("localhost"), Multiport::ModeLocal, &environment());
    }

    bool isCanOpen() { return client().isOpen(Multiport::CanBusInterface); }

    /// The server relays these bytes, and they are handled.
    static void deliver(Multiport &client, const QByteArray &stream)
    {
        Q_EMIT client.newDataOnCanBus(stream);
        VirtualTime::instance()->advance(std::chrono::milliseconds(0));
    }
    void deliver(const QByteArray &stream) { deliver(client(), stream); }
    void deliverHex(const char *pHex) { deliver(QByteArray::fromHex(pHex)); }

private:
    TestMachine m_machine;
};

#endif // MULTIPORTMACHINE_H
