#include "logformatter.h"

#include "observers_p.h"
#include "rotatinglogfile_p.h"

namespace {

/// Never destroyed, so that destructors of static objects can still log.
Observers<LogRecord> &observers()
{
    static auto *const pObservers = new Observers<LogRecord>;
    return *pObservers;
}

QtMsgType messageType(int level)
{
    if (level <= LogDebug)
        return QtDebugMsg;
    if (level < LogWarning)
        return QtInfoMsg;
    return level == LogWarning ? QtWarningMsg : QtCriticalMsg;
}

} // namespace

int LogFormatter::addObserver(const Observer &observer)
{
    return observers().add(observer);
}

void LogFormatter::removeObserver(int number)
{
    observers().remove(number);
}

void LogFormatter::logEvent(int moduleNumber, int level, const QString &text)
{
    static auto *const pFile = new std::shared_ptr<RotatingLogFile>(
        RotatingLogFile::shared(QStringLiteral("events.txt"), {1.0, 3, false}));
    const QString line =
        QStringLiteral("[0x%1] %2").arg(moduleNumber, 4, 16, QLatin1Char('0')).arg(text);
    LogFormatter(level, Log::Event) << line;
    (*pFile)->write(QStringLiteral("level %1 %2").arg(level).arg(line));
}

LogLine::LogLine(int level, LogModule module, const char *pFile, int sourceLine,
                 const char *pFunction)
    : m_context(pFile, sourceLine, pFunction, LogModules::category(module).categoryName())
    , m_level(level)
    , m_module(module)
    , m_stream(&m_text)
{
    m_stream.nospace().noquote();
}

LogLine::~LogLine()
{
    observers().tell({m_level, m_module, m_text});
    qt_message_output(messageType(m_level), m_context, m_text);
}
