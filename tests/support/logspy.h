#ifndef LOGSPY_H
#define LOGSPY_H

#include "logformatter.h"

#include <QList>
#include <QStringList>
#include <functional>
#include <mutex>
#include <vector>

/// Keeps every line that is logged while it lives. Any thread may log meanwhile.
class LogSpy
{
public:
    LogSpy();
    ~LogSpy();
    Q_DISABLE_COPY_MOVE(LogSpy)

    QList<LogRecord> records() const;
    QStringList texts() const;

    /// How many lines contain `part`; with a level, or a level and a module, only those of it.
    int count(const QString &part) const;
    int count(const QString &part, int level) const;
    int count(const QString &part, int level, LogModule module) const;
    int count(const char *pPart) const { return count(QString::fromUtf8(pPart)); }
    int count(const char *pPart, int level) const { return count(QString::fromUtf8(pPart), level); }
    int count(const char *pPart, int level, LogModule module) const
    {
        return count(QString::fromUtf8(pPart), level, module);
    }

    void clear();

private:
    int countIf(const std::function<bool(const LogRecord &)> &isCounted) const;

    mutable std::mutex m_mutex;
    std::vector<LogRecord> m_records; ///< no QList: a copy of one shares its data with the loggers
    int m_observer;
};

#endif // LOGSPY_H
