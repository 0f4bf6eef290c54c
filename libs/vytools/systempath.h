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
        /// Folder of the kernel's GPIO files: "/sys/class/gpio/"; VY_PATH_GPIO.
        GpioBase,
        /// Versions of the installed system image: "/etc/vyhardware/systemkey-versions" (chosen
        /// here); VY_PATH_SYSTEM_KEY_VERSIONS.
        SystemKeyVersions,
        /// The kernel's description of the processor: "/proc/cpuinfo"; VY_PATH_CPUINFO.
        CpuInfo,
        /// Folder of the rotating log files: "/var/log/vyhardware/" (chosen here); VY_PATH_LOGS.
        Logs,
        /// The machine's JSON settings file: "/etc/vyhardware/settings.json" (chosen here);
        /// VY_PATH_SETTINGS.
        Settings,
        /// The display's highest brightness: "/sys/class/backlight/backlight/max_brightness"
        /// (chosen
        /// here); VY_PATH_MAX_BRIGHTNESS.
        MaxBrightness,
        /// The display's brightness: "/sys/class/backlight/backlight/brightness" (chosen here);
        /// VY_PATH_BRIGHTNESS.
        Brightness,
        /// The input device of the push buttons: "/dev/input/event0" (chosen here);
        /// VY_PATH_BUTTONS.
        Buttons,
    };

    /// The path; a folder ends with "/".
    static QString path(Entry entry);

    /// The environment variable that overrides it.
    static QString variable(Entry entry);
};

#endif // SYSTEMPATH_H
