#ifndef CANLOGLINE_H
#define CANLOGLINE_H

#include "canbus/canframe.h"

#include <QtGlobal>
#include <optional>
#include <string_view>

/// One line of "canBus.txt" or of a trace:
///
///     2026-11-21T05:25:46.507Z  <TX<< |id:0x0000000000254419|data(2): 0x02 0x00   | Sending: ...
struct CanLogLine
{
    CanFrame frame;
    std::optional<qint64> time; ///< UTC, in ms since the Julian day 0; a trace has none
};

/// Null, or what was expected.
const char *readCanLogLine(std::string_view text, CanLogLine &line);

#endif // CANLOGLINE_H
