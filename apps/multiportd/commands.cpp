#include "multiportd/commands.h"

#include "multiportd/abstractoutputsbackend.h"
#include "multiportd/abstractpaymentbackend.h"
#include "multiportprotocol.h"

namespace {

/// The door is not this server's.
quint8 doorStatus(const QByteArray &payload, int size)
{
    return payload.size() == size ? MultiportProtocol::StatusNoDevice
                                  : MultiportProtocol::StatusInvalidPayload;
}

bool isValid(const multiportlink::SerialLine &line)
{
    const bool isWidth = line.dataBits == MultiportProtocol::DataBits8 ||
                         line.dataBits == MultiportProtocol::DataBits9;
    return line.port == multiportlink::PaymentPort && line.baudRate > 0 && isWidth &&
           line.parity <= MultiportProtocol::ParityOdd &&
           line.mdbMode == MultiportProtocol::MDBModeOff;
}

} // namespace

quint8 Commands::carryOut(const multiportlink::Request &request) const
{
    switch (request.command) {
    case MultiportProtocol::CommandSetSerialLine:
        return setSerialLine(request.payload);
    case MultiportProtocol::CommandSetOutput:
    case MultiportProtocol::CommandBlinkOutput:
        return switchOutput(request.command, request.payload);
    case MultiportProtocol::CommandDigitInput:
        return doorStatus(request.payload, 0);
    case MultiportProtocol::CommandMotorStatus:
    case MultiportProtocol::CommandStopMotor:
        return doorStatus(request.payload, 1);
    case MultiportProtocol::CommandStartMotor:
        return doorStatus(request.payload, 10);
    case MultiportProtocol::CommandSetParameter:
        return doorStatus(request.payload, 4);
    default:
        return MultiportProtocol::StatusUnknownCommand;
    }
}

quint8 Commands::setSerialLine(const QByteArray &payload) const
{
    const std::optional<multiportlink::SerialLine> line = multiportlink::decodeSerialLine(payload);
    if (!line || !isValid(*line))
        return MultiportProtocol::StatusInvalidPayload;
    return m_pPayment == nullptr ? quint8{MultiportProtocol::StatusNoDevice}
                                 : m_pPayment->setSerialLine(*line);
}

quint8 Commands::switchOutput(quint8 command, const QByteArray &payload) const
{
    if (payload.size() != 2 || static_cast<quint8>(payload.at(1)) > 1)
        return MultiportProtocol::StatusInvalidPayload;
    if (m_pOutputs == nullptr)
        return MultiportProtocol::StatusNoDevice;
    const auto output = static_cast<quint8>(payload.at(0));
    const bool isOn = payload.at(1) == 1;
    return command == MultiportProtocol::CommandSetOutput ? m_pOutputs->setOutput(output, isOn)
                                                          : m_pOutputs->setBlinking(output, isOn);
}
