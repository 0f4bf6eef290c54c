#include "system.h"

#include "logformatter.h"

#include <QFile>
#include <cerrno>

#ifdef Q_OS_WIN
#    include <io.h>
#else
#    include <unistd.h>
#endif

namespace {

bool syncHandle(int handle)
{
#ifdef Q_OS_WIN
    return ::_commit(handle) == 0;
#else
    return ::fsync(handle) == 0;
#endif
}

} // namespace

bool System::syncFile(QFile &file)
{
    if (!file.isWritable() || !file.flush()) {
        LogFormatter(4, Log::Global)
            << Q_FUNC_INFO << "Could not write" << quoted(file.fileName())
            << (file.isWritable() ? file.errorString()
                                  : QStringLiteral("it is not open for writing"));
        return false;
    }
    if (!syncHandle(file.handle())) {
        const int error = errno; // logging may change it
        LogFormatter(4, Log::Global)
            << Q_FUNC_INFO << "Could not sync" << quoted(file.fileName()) << qt_error_string(error);
        return false;
    }
    return true;
}
