#include "loginfile.h"

#include "logformatter.h"
#include "rotatinglogfile_p.h"

LogInFile::LogInFile(QObject *pParent, const QString &fileName, LogModule module,
                     const RotatingLogFileConfiguration &configuration)
    : QObject(pParent)
    , m_pFile(RotatingLogFile::shared(fileName, configuration))
    , m_module(module)
{
}

LogInFile::~LogInFile() = default;

void LogInFile::logString(const QString &text)
{
    if (m_isLogInDebug)
        LogFormatter(0, m_module) << text.trimmed();
    if (m_isLogInFile)
        m_pFile->write(text);
}
