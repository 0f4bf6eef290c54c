#ifndef LOGFILE_H
#define LOGFILE_H

#include "loginfile.h"

#include <QString>

/// Writes every line that is logged to a rotating file while it lives: 1 MiB, with four older files
/// beside it. One in a process, because it moves the folder of all log files to its own.
class LogFile
{
public:
    explicit LogFile(const QString &path);
    ~LogFile();
    Q_DISABLE_COPY_MOVE(LogFile)

private:
    LogInFile m_file;
    int m_observer;
};

#endif // LOGFILE_H
