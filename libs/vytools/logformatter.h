#ifndef LOGFORMATTER_H
#define LOGFORMATTER_H

#include "logmodules.h"
#include "vytools1_export.h"

#include <QDebug>
#include <QMessageLogContext>
#include <QString>
#include <functional>

/// The words that go with the numeric levels.
enum LogLevel : int { LogDebug = 0, LogInformation = 1, LogWarning = 3, LogError = 4 };

/// A line as an observer sees it.
struct LogRecord
{
    int level;        ///< as the logging code gave it, 0 to 4
    LogModule module; ///< as the logging code gave it
    QString text;     ///< the pieces with one blank between them
};

/// Front end of QLoggingCategory, for every thread:
///
///     LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "Invalid command" << command;
///
/// makes one line of its pieces, with one blank between two, and hands it to Qt's message handler
/// in the category of its module. Levels 0, 1, 2, 3 and 4 become debug, info, info, warning and
/// critical. Pieces are what QDebug takes; texts stand without quotes, see quoted(). While the
/// level is off for the module nothing to the right is evaluated.
class VYTOOLS1_EXPORT LogFormatter
{
public:
    using Observer = std::function<void(const LogRecord &)>;

    LogFormatter() = delete; ///< see the macro of this name below

    /// Called for every line that is logged, in the logging thread, one at a time; returns the
    /// number for removeObserver(). What the observer logs itself is not told to it. Any thread.
    static int addObserver(const Observer &observer);
    /// The observer is not called any more once this has returned. Any thread.
    static void removeObserver(int number);

    /// Writes `text` to the event log, as a line of the category vy.event and of the rotating file
    /// "events.txt": what a technician wants to find weeks later.
    /// \param moduleNumber the machine part that speaks, as the machine's service tools number it
    static void logEvent(int moduleNumber, int level, const QString &text);

    static bool isEnabled(int level, LogModule module);
};

/// A line while it is put together; it is logged when it goes out of scope.
class VYTOOLS1_EXPORT LogLine
{
public:
    LogLine(int level, LogModule module, const char *pFile, int sourceLine, const char *pFunction);
    ~LogLine();
    Q_DISABLE_COPY_MOVE(LogLine)

    template <typename Piece>
    LogLine &operator<<(const Piece &piece)
    {
        if (m_hasPieces)
            m_stream << ' ';
        m_hasPieces = true;
        m_stream << piece;
        return *this;
    }

private:
    QMessageLogContext m_context;
    int m_level;
    LogModule m_module;
    bool m_hasPieces = false;
    QString m_text;
    QDebug m_stream;
};

/// Gives both branches of the macro's condition the type void.
struct LogLineEnd
{
    void operator&(const LogLine & /*line*/) const {}
};

/// `text` in double quotes, as a piece of a line.
inline QString quoted(const QString &text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

inline bool LogFormatter::isEnabled(int level, LogModule module)
{
    const QLoggingCategory &category = LogModules::category(module);
    if (level <= LogDebug)
        return category.isDebugEnabled();
    if (level < LogWarning)
        return category.isInfoEnabled();
    return level == LogWarning ? category.isWarningEnabled() : category.isCriticalEnabled();
}

/// A macro, so that the pieces cost nothing while the level is off.
// NOLINTBEGIN(bugprone-macro-parentheses): the pieces follow behind the expansion
// clang-format off
#define LogFormatter(level, module)                                                                \
    !LogFormatter::isEnabled(level, module)                                                        \
        ? static_cast<void>(0)                                                                     \
        : LogLineEnd() & LogLine(level, module, QT_MESSAGELOG_FILE, QT_MESSAGELOG_LINE, QT_MESSAGELOG_FUNC)
// clang-format on
// NOLINTEND(bugprone-macro-parentheses)

#endif // LOGFORMATTER_H
