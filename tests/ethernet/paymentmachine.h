#ifndef PAYMENTMACHINE_H
#define PAYMENTMACHINE_H

#include "canbus/testmachine.h"
#include "ethernet/uartoverethernetinterface.h"
#include "multiport.h"

#include <QByteArray>
#include <QList>
#include <QString>

/// A machine with a multiport client. What a server would have it say, the test says.
class PaymentMachine
{
public:
    explicit PaymentMachine(const QString &server = QStringLiteral("localhost"))
    {
        environment().setMultiport(newClient(server));
    }

    HardwareEnvironment &environment() { return m_machine.environment(); }
    Multiport &client() { return *environment().multiport(); }

    /// For the environment, which owns it.
    Multiport *newClient(const QString &server = QStringLiteral("localhost"))
    {
        return new Multiport(server, Multiport::ModeLocal, &environment());
    }

    bool isPaymentOpen() { return client().isOpen(Multiport::PaymentInterface); }

    /// As the client tells it when the link comes up.
    void connectLine() { connectLine(client()); }
    static void connectLine(Multiport &client)
    {
        Q_EMIT client.multiportServerConnectedChanged(true);
        Q_EMIT client.paymentConnectedChanged(true);
    }

    void terminate(unsigned char command, unsigned char status)
    {
        Q_EMIT client().lastCommandTerminationStatus(command, status);
    }

    /// The line is connected and set up.
    void makeReady()
    {
        connectLine();
        terminate(MultiportProtocol::CommandSetSerialLine, MultiportProtocol::StatusDone);
    }

    /// The line's device sends these bytes.
    void deliver(const char *pHex) { deliver(client(), QByteArray::fromHex(pHex)); }
    static void deliver(Multiport &client, const QByteArray &bytes)
    {
        Q_EMIT client.interface(Multiport::PaymentInterface)->dataReceived(4000, bytes);
    }

private:
    TestMachine m_machine;
};

/// Tells what is kept from applications.
class PaymentUart : public UartOverEthernetInterface
{
public:
    explicit PaymentUart(const RotatingLogFileConfiguration &logConfiguration = {1.0, 1, false})
        : UartOverEthernetInterface(QStringLiteral("payment"), logConfiguration, nullptr)
    {
        connect(this, &AbstractHardwareInterface::polled, this,
                [this](PollEvent event) { m_events.append(event); });
    }

    using UartOverEthernetInterface::onSetBaudrate;
    using UartOverEthernetInterface::onSetDatabits;
    using UartOverEthernetInterface::s_outgoing;
    using UartOverEthernetInterface::writeAndFlushData;

    const QList<int> &events() const { return m_events; }
    void forgetEvents() { m_events.clear(); }

    /// All that can be read as 8-bit characters.
    QByteArray readAll()
    {
        QByteArray bytes;
        unsigned char byte = 0;
        while (readByte(byte))
            bytes.append(static_cast<char>(byte));
        return bytes;
    }

private:
    QList<int> m_events; ///< as they came
};

#endif // PAYMENTMACHINE_H
