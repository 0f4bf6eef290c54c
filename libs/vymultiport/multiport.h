#ifndef MULTIPORT_H
#define MULTIPORT_H

#include "multiportinterface.h"
#include "multiportprotocol.h"
#include "vymultiport1_export.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <memory>

/// The client of the multiport server, a separate board that owns the CAN bus, the payment line,
/// the digital outputs and, on some machines, the door. Lives in the thread of its creator, which
/// runs an event loop; the sockets live in a thread named "Multiport" that exists as long as this
/// object.
///
/// The client keeps the link up by itself: when it is lost it connects again after growing pauses
/// (0.1 s to 1.5 s), opens what was open and sets the serial line up as before. What is asked for
/// while there is no link fails at once and is never sent later.
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

    /// What the server relays, each over a connection of its own.
    enum Interface : int {
        CanBusInterface = 1,
        PaymentInterface = 3,
    };
    Q_ENUM(Interface)

    /// `server` is a host name or an address, with ":port" behind it where the control port is not
    /// 4002 ("[::1]:4002" for an IPv6 address). Nothing is connected before init(). Names are
    /// looked up by Qt in a thread of its own, which may still do so when this object is gone; a
    /// machine should name an address.
    Multiport(QString server, int mode, QObject *pParent);
    /// Sends what was accepted, closes the link and waits for the thread.
    ~Multiport() override;

    QString server() const { return m_server; }
    int mode() const { return m_mode; }

    /// Starts the client, or with false stops it: open interfaces stay asked for.
    void init(bool isOn);
    bool isStarted() const { return m_isStarted; }

    /// As the last signals told.
    bool isServerConnected() const { return m_isServerConnected; }
    bool isCanBusConnected() const { return m_isCanBusConnected; }
    bool isPaymentConnected() const { return m_isPaymentConnected; }

    /// Opens an interface, or with false closes it. An open one stays so while the link is down.
    Q_INVOKABLE void setEnabled(Multiport::Interface interface, bool isOn = true);
    /// Whether it was asked for; see isCanBusConnected(), isPaymentConnected(). Any thread.
    bool isOpen(Interface interface) const;

    /// The connection of an interface, open or not; null for a number that names none. It lives in
    /// the client's thread and as long as this object.
    MultiportInterface *interface(Interface interface) const;

    /// Sends bytes on the CAN channel: whole records of identifier (4 bytes, big-endian), length
    /// (1 byte) and data. Bytes of one turn of the event loop leave in one write. False when the
    /// channel is not connected or 1 MiB waits to be sent: they are then lost.
    bool writeToCanBus(const QByteArray &bytes);

    /// Sets the serial line up, now and whenever the payment line is connected again.
    Q_INVOKABLE void setSerialLineParameters(MultiportInterface::Port port,
                                             MultiportProtocol::BaudRate baudRate,
                                             MultiportProtocol::DataBits dataBits,
                                             MultiportProtocol::Parity parity,
                                             MultiportProtocol::MDBMode mdbMode);

    // Requests. Each is answered by lastCommandTerminationStatus(); without a link each is lost,
    // with a log line.

    /// Switches an output of the server's digital-output board, 0 to 255.
    void setOutputEnabled(int output, bool isOn);
    /// Lets an output blink, 0 to 255.
    void setBlinkOutput(int output, bool isOn);
    void startDaddMotor(const MultiportProtocol::MotorStartPlusParams &parameters);
    void stopMotor(unsigned char motor);
    /// motorStatusChanged() comes before the termination status.
    void motorStatus(unsigned char motor);
    void setParameter(unsigned short number, unsigned short value);
    /// daddMicroswitchesStatusReceived() comes before the termination status.
    void sendRequestDigitInput();

Q_SIGNALS:
    void multiportServerConnectedChanged(bool isConnected);
    /// The line is open on a connected server. Comes after the server's true, before its false.
    void paymentConnectedChanged(bool isConnected);
    /// The same for the CAN channel.
    void canBusConnectedChanged(bool isConnected);
    /// Bytes of the CAN channel as they arrive, records cut anywhere.
    void newDataOnCanBus(QByteArray bytes);
    /// How a request ended, in the order of the requests: a MultiportProtocol::Command and a
    /// MultiportProtocol::Status. Not sent for requests whose answer the link did not live to see.
    void lastCommandTerminationStatus(unsigned char command, unsigned char status);
    // 0 released, 1 pressed.
    void daddUpperMicroswitchStatus(unsigned char status);
    void daddLowerMicroswitchStatus(unsigned char status);
    void daddMicroswitchesStatusReceived(unsigned char lower, unsigned char upper);
    void motorStatusChanged(unsigned char motor, unsigned char status);

protected:
    bool event(QEvent *pEvent) override;

private:
    class Private;
    void deliver(const struct LinkEvent &event);
    void report(unsigned char event, const QByteArray &payload);
    void request(unsigned char command, const QByteArray &payload);
    void switchOutput(unsigned char command, int output, bool isOn);
    void flushCanBus();

    QString m_server;
    int m_mode;
    bool m_isStarted = false;
    bool m_isServerConnected = false;
    bool m_isCanBusConnected = false;
    bool m_isPaymentConnected = false;
    std::unique_ptr<Private> m_pPrivate;
};

#endif // MULTIPORT_H
