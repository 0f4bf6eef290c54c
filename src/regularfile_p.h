#ifndef REGULARFILE_P_H
#define REGULARFILE_P_H

#include <QFile>
#include <QFileInfo>

/// Opens a file unless there is something of its name that is no regular file: a pipe or a device
/// could block, or never end.
inline bool openRegularFile(QFile &file, QIODevice::OpenMode mode)
{
    const QFileInfo info(file);
    return (!info.exists() || info.isFile()) && file.open(mode);
}

#endif // REGULARFILE_P_H
