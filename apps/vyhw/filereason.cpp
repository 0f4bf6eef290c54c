#include "filereason.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool isPipe(const QString &path)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 && S_ISFIFO(status.st_mode);
}

} // namespace

QString reasonAgainstReading(const QString &path, const QString &expected, PipeIs pipeIs)
{
    const QFileInfo info(path);
    const int error = ::access(QFile::encodeName(path).constData(), R_OK) == 0 ? 0 : errno;
    if (error == ENOENT || error == ENOTDIR)
        return QStringLiteral("there is no such file");
    if (info.isDir())
        return QStringLiteral("a folder; expected ") + expected;
    if (error == EACCES)
        return QStringLiteral("no permission to read it");
    if (error != 0)
        return qt_error_string(error);
    if (info.isFile() || (pipeIs == PipeIs::Taken && isPipe(path)))
        return {};
    return QStringLiteral("not a file; expected ") + expected;
}
