#ifndef CANNAMES_H
#define CANNAMES_H

#include "canbus/canbytes.h"

#include <QString>
#include <QStringList>
#include <optional>

/// The boards, commands and bytes of the CAN bus as a user types and reads them.

/// A board's name in any case, "actuator" for this machine's own actuator board, "shared" for the
/// address that every board takes, or a number from 0 to 0x7FF.
std::optional<int> boardFrom(const QString &text);

/// "ActuatorBoardOstrel", ...: all that have one, by address.
QStringList boardNames();

/// A command's name in any case, or a number from 0 to 0x7FF.
std::optional<int> commandFrom(const QString &text);

/// The names that contain the text, in any case; the shortest first.
QStringList commandNamesLike(const QString &text);

/// "01 ff 0a", with or without blanks.
std::optional<CanBytes> bytesFrom(const QString &text);

/// "DADD (0x721)"; the number alone where there is no name.
QString boardText(int address);

/// "VirtualSelect (42)"
QString commandText(int command);

/// "01 ff 0a"
QString bytesText(const CanBytes &bytes);

#endif // CANNAMES_H
