#ifndef FILEREASON_H
#define FILEREASON_H

#include <QString>

enum class PipeIs { Refused, Taken };

/// Why what is at this path is not to be opened for reading; empty when it may be. It is not
/// opened: the open() of a pipe or a device may wait, or act. \param expected such as "a JSON
/// settings file"
QString reasonAgainstReading(const QString &path, const QString &expected, PipeIs pipeIs);

#endif // FILEREASON_H
