#ifndef MULTIPORT_H
#define MULTIPORT_H

#include "vymultiport1_export.h"

#include <QObject>
#include <QString>

/// The client of the multiport server, a separate board that owns the CAN bus, the payment line and
/// the digital outputs. Lives in the thread of its creator.
///
/// Still to come: the link itself. Until then the client keeps what it is told and is never
/// connected; the interfaces (CAN, payment line), the door's operations and the signals that tell
/// of connections follow with the link.
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

    /// `server` is a host name or an address, with ":port" behind it where the port is not the
    /// server's usual one. Nothing is connected before init().
    Multiport(QString server, int mode, QObject *pParent);

    QString server() const { return m_server; }
    int mode() const { return m_mode; }

    /// Starts the client, or with false stops it.
    void init(bool isOn) { m_isStarted = isOn; }
    bool isStarted() const { return m_isStarted; }

    /// Switches an output of the server's digital-output board. Lost while there is no link.
    void setOutputEnabled(int output, bool isOn);
    /// Lets an output blink. Lost while there is no link.
    void setBlinkOutput(int output, bool isOn);

private:
    QString m_server;
    int m_mode;
    bool m_isStarted = false;
};

#endif // MULTIPORT_H
