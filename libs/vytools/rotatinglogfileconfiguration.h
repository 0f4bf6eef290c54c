#ifndef ROTATINGLOGFILECONFIGURATION_H
#define ROTATINGLOGFILECONFIGURATION_H

/// How a log file is kept small: "log.txt" becomes "log.1.txt" when it is full, that one
/// "log.2.txt", and so on; the oldest is deleted.
struct RotatingLogFileConfiguration
{
    double sizeMebibytes;   ///< a file that would grow past this is rotated; more than 0
    int olderFiles;         ///< how many full files are kept beside the current one, 0 upwards
    bool isRotatedWhenOpen; ///< true begins a new file each time the log is opened
};

#endif // ROTATINGLOGFILECONFIGURATION_H
