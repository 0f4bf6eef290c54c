#include "support/logspy.h"

#include <algorithm>

LogSpy::LogSpy()
    : m_observer(LogFormatter::addObserver([this](const LogRecord &record) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_records.push_back(record);
    }))
{
}

LogSpy::~LogSpy()
{
    LogFormatter::removeObserver(m_observer);
}

QList<LogRecord> LogSpy::records() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    QList<LogRecord> records;
    for (const LogRecord &record : m_records)
        records.append(record);
    return records;
}

QStringList LogSpy::texts() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    QStringList texts;
    for (const LogRecord &record : m_records)
        texts.append(record.text);
    return texts;
}

int LogSpy::count(const QString &part) const
{
    return countIf([&](const LogRecord &record) { return record.text.contains(part); });
}

int LogSpy::count(const QString &part, int level) const
{
    return countIf([&](const LogRecord &record) {
        return record.level == level && record.text.contains(part);
    });
}

int LogSpy::count(const QString &part, int level, LogModule module) const
{
    return countIf([&](const LogRecord &record) {
        return record.level == level && record.module == module && record.text.contains(part);
    });
}

void LogSpy::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_records.clear();
}

int LogSpy::countIf(const std::function<bool(const LogRecord &)> &isCounted) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(std::count_if(m_records.cbegin(), m_records.cend(), isCounted));
}
