#ifndef VYCAN_CMDS_AND_ADDR_H
#define VYCAN_CMDS_AND_ADDR_H

#include "vyhardware1_export.h"

#include <QString>

/// Names and numbers of the boards on the CAN bus. Pure functions, but for those that depend on the
/// machine's model.
namespace CanVy {

/// The name of a command, or "Unknown command 67 (0x43)".
VYHARDWARE1_EXPORT QString commandCanToString(int command);

/// The name of a parameter (commands 3 and 4), or "failure".
VYHARDWARE1_EXPORT QString vdbToString(int parameter);

constexpr int CommandAck = 1;
constexpr int CommandNack = 2;
constexpr int CommandSetParameter = 3;
constexpr int CommandGetParameter = 4;

/// The acknowledges: they name the command that they answer, and are never answered.
constexpr bool isAcknowledge(int command)
{
    return command == CommandAck || command == CommandNack;
}

/// Bus addresses, 11 bits. Those of this machine follow the model and subtype of gHardwareEnv;
/// without an environment they report the missing essential and return 0, and a model that is not
/// handled ends the process with status 1. Main thread.
class VYHARDWARE1_EXPORT Address
{
public:
    static constexpr int CoffeeToGo = 0x41E;
    static constexpr int Dadd = 0x721;
    /// What the protocols take beside messages to this computer's own address; a board that is sent
    /// to at this address may answer from any other.
    static constexpr int Shared = 0x301;

    static int actuatorBoard();
    static int cpuBoard(); ///< the source of all that this computer sends

    static int actuatorBoardLirenta();
    static int actuatorBoardCorvel();
    static int actuatorBoardNewQuindo();

    static int coffeeToGoBoard() { return CoffeeToGo; }
    static int daddBoard() { return Dadd; }

    /// The board's name, or the number in decimal.
    static QString toString(int address);

    static bool isCoffeeToGo(int address) { return address == CoffeeToGo; }
    static bool isDadd(int address) { return address == Dadd; }
    /// Received frames for such an address are dropped by every interface, without a word.
    static bool isReceivedAddressFiltered(int address) { return address == 0x705; }
};

class VYHARDWARE1_EXPORT ABAcceptedVersion
{
public:
    /// The software version of the actuator board that this machine accepts; 0 where none is set.
    /// Fails like Address.
    static int actuatorBoardAcceptedVersion();
};

} // namespace CanVy

#endif // VYCAN_CMDS_AND_ADDR_H
