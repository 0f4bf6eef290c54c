#ifndef MULTIPORT_H
#define MULTIPORT_H

#include "vymultiport1_export.h"

#include <QByteArray>
#include <QObject>
#include <QSet>
#include <QString>

/// The client of the multiport server, a separate board that owns the CAN bus, the payment line and
/// the digital outputs. Lives in the thread of its creator.
///
/// Still to come: the link itself. Until then the client keeps what it is told and is never
/// connected; the payment line, the door's operations and the signals that tell of connections
/// follow with the link.
class VYMULTIPORT1_EXPORT Multiport : public QObject
{
    Q_OBJECT

public:
    /// Which server the client talks to.
    enum Mode : int {
        ModeLocal = 1,    ///< a server on the same computer, as on a desktop
        ModeInternal = 2, ///< the machine's own multiport board
    };
    Q_ENUM(Mode)

    /// What the server relays, each over a channel of its own.
    enum Interface : int {
        CanBusInterface = 1,
        PaymentInterface = 3,
    };
    Q_ENUM(Interface)

    /// `server` is a host name or an address, with ":port" behind it where the port is not the
    /// server's usual one. Nothing is connected before init().
    Multiport(QString server, int mode, QObject *pParent);

    QString server() const { return m_server; }
    int mode() const { return m_mode; }

    /// Starts the client, or with false stops it.
    void init(bool isOn) { m_isStarted = isOn; }
    bool isStarted() const { return m_isStarted; }

    /// Opens an interface, or with false closes it. An open one stays so while the link is down.
    Q_INVOKABLE void setEnabled(Multiport::Interface interface, bool isOn = true);
    bool isOpen(Interface interface) const;

    /// Sends bytes on the CAN channel: whole records of identifier (4 bytes, big-endian), length
    /// (1 byte) and data. False when the channel is not open or the link is down: they are then
    /// lost.
    bool writeToCanBus(const QByteArray &bytes);

    /// Switches an output of the server's digital-output board. Lost while there is no link.
    void setOutputEnabled(int output, bool isOn);
    /// Lets an output blink. Lost while there is no link.
    void setBlinkOutput(int output, bool isOn);

Q_SIGNALS:
    /// Bytes of the CAN channel as they arrive, records cut anywhere.
    void newDataOnCanBus(QByteArray bytes);

private:
    QString m_server;
    int m_mode;
    bool m_isStarted = false;
    QSet<int> m_openInterfaces;
};

#endif // MULTIPORT_H
