#include "support/logspy.h"

#include <algorithm>

namespace {

template <typename Filter>
int countIf(const QList<LogRecord> &records, Filter filter)
{
    return static_cast<int>(std::count_if(records.cbegin(), records.cend(), filter));
}

} // namespace

LogSpy::LogSpy()
    : m_observer(LogFormatter::addObserver([this](const LogRecord &record) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_records.append(record);
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
    return m_records;
}

QStringList LogSpy::texts() const
{
    QStringList texts;
    const QList<LogRecord> all = records();
    for (const LogRecord &record : all)
        texts.append(record.text);
    return texts;
}

int LogSpy::count(const QString &part) const
{
    return countIf(records(), [&](const LogRecord &record) { return record.text.contains(part); });
}

int LogSpy::count(const QString &part, int level) const
{
    return countIf(records(), [&](const LogRecord &record) {
        return record.level == level && record.text.contains(part);
    });
}

int LogSpy::count(const QString &part, int level, LogModule module) const
{
    return countIf(records(), [&](const LogRecord &record) {
        return record.level == level && record.module == module && record.text.contains(part);
    });
}

void LogSpy::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_records.clear();
}
