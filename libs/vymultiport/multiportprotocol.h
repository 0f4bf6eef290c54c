#ifndef MULTIPORTPROTOCOL_H
#define MULTIPORTPROTOCOL_H

#include "vymultiport1_export.h"

#include <QObject>

/// The words of the multiport server's requests. docs/multiport-link.md says how they travel.
class VYMULTIPORT1_EXPORT MultiportProtocol
{
    Q_GADGET

public:
    /// What a request asks for, and what Multiport::lastCommandTerminationStatus() names. The
    /// door's have the numbers of its own requests, the others are chosen here.
    enum Command : unsigned char {
        CommandClaim = 10,
        CommandSetSerialLine = 20,
        CommandSetOutput = 30,
        CommandBlinkOutput = 31,
        CommandDigitInput = 49,
        CommandMotorStatus = 53,
        CommandStopMotor = 54,
        CommandStartMotor = 74,
        CommandSetParameter = 75,
    };
    Q_ENUM(Command)

    /// How a request ended. The numbers are chosen here, but for the door's 0 and 1.
    enum Status : unsigned char {
        StatusDone = 0,
        StatusRejected = 1,       ///< by the device
        StatusInvalidPayload = 2, ///< not the payload of this command
        StatusNotPermitted = 3,   ///< the client is an observer
        StatusUnknownCommand = 4,
        StatusNoDevice = 5, ///< the server has none for this command
        StatusFailed = 6,   ///< the device failed, or did not answer
    };
    Q_ENUM(Status)

    /// What the server tells unasked, or just before the status of a request. The numbers are those
    /// of the door's own reports.
    enum Event : unsigned char {
        EventUpperMicroswitch = 7,
        EventLowerMicroswitch = 8,
        EventMicroswitches = 65,
        EventMotorStatus = 67,
    };
    Q_ENUM(Event)

    enum BaudRate : int { Baud9600 = 9600 };
    Q_ENUM(BaudRate)

    enum DataBits : int { DataBits8 = 8, DataBits9 = 9 };
    Q_ENUM(DataBits)

    /// The names of 1 and 2 are chosen here.
    enum Parity : int { ParityNone = 0, ParityEven = 1, ParityOdd = 2 };
    Q_ENUM(Parity)

    /// Whether the server itself would keep the payment bus; it does not.
    enum MDBMode : int { MDBModeOff = 0 };
    Q_ENUM(MDBMode)

    /// How the door's motor is to run: ten bytes on the link, in this order.
    struct MotorStartPlusParams
    {
        quint8 motorNumber;
        quint8 direction;
        quint16 firstPhaseSpeed;
        quint16 firstPhaseDuration;
        quint16 secondPhaseSpeed;
        quint16 secondPhaseDuration;
    };
};

#endif // MULTIPORTPROTOCOL_H
