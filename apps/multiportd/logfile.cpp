#include "multiportd/logfile.h"

#include "logformatter.h"
#include "systempath.h"

#include <QFile>
#include <QFileInfo>

namespace {

/// The name in the folder of log files, which becomes that of `path`.
QString moveLogsTo(const QString &path)
{
    const QFileInfo info(path);
    qputenv(SystemPath::variable(SystemPath::Logs).toLatin1().constData(),
            QFile::encodeName(info.absolutePath()));
    return info.fileName();
}

} // namespace

LogFile::LogFile(const QString &path)
    : m_file(nullptr, moveLogsTo(path), Log::Hardware, {1.0, 4, false})
{
    m_file.setLogInFile(true);
    m_observer = LogFormatter::addObserver(
        [this](const LogRecord &record) { m_file.logString(record.text); });
}

LogFile::~LogFile()
{
    LogFormatter::removeObserver(m_observer);
}
