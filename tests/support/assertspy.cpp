#include "support/assertspy.h"

#include <algorithm>

AssertSpy::AssertSpy()
    : m_observer(
          addAssertObserver([this](const AssertRecord &record) { m_records.append(record); }))
{
}

AssertSpy::~AssertSpy()
{
    removeAssertObserver(m_observer);
}

int AssertSpy::count(const char *pCondition, const char *pMessage, const char *pFile) const
{
    return static_cast<int>(
        std::count_if(m_records.cbegin(), m_records.cend(), [&](const AssertRecord &record) {
            return record.condition == QString::fromUtf8(pCondition) &&
                   record.message == QString::fromUtf8(pMessage) &&
                   record.file == QString::fromUtf8(pFile);
        }));
}
