#ifndef SYSTEMPATH_H
#define SYSTEMPATH_H

#include "vytools1_export.h"

#include <QString>

/// The table of paths outside the process. Each has the target machine's default and an environment
/// variable that overrides it, read at each use; tests and the simulator redirect the files so.
/// Nothing here logs, because logging asks for paths. Any thread.
class VYTOOLS1_EXPORT SystemPath
{
public:
    enum Entry : int {
        GpioBase,          ///< folder of the kernel's GPIO files; VY_PATH_GPIO
        SystemKeyVersions, ///< versions of the installed system image; VY_PATH_SYSTEM_KEY_VERSIONS
        CpuInfo,           ///< the kernel's description of the processor; VY_PATH_CPUINFO
        Logs,              ///< folder of the rotating log files; VY_PATH_LOGS
        Settings,          ///< the machine's JSON settings file; VY_PATH_SETTINGS
    };

    /// The path; a folder ends with "/".
    static QString path(Entry entry);

    /// The environment variable that overrides it.
    static QString variable(Entry entry);
};

#endif // SYSTEMPATH_H
