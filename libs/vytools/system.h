#ifndef SYSTEM_H
#define SYSTEM_H

#include "vytools1_export.h"

class QFile;

/// What Qt lacks of the operating system.
class VYTOOLS1_EXPORT System
{
public:
    /// Brings what was written to the open `file` to the disk itself, so that it outlives a power
    /// cut (the name of a new file is the folder's, and is not brought there). Blocks until it is
    /// there; false, with a line in the log, when that failed.
    static bool syncFile(QFile &file);
};

#endif // SYSTEM_H
