#ifndef ASSERTSPY_H
#define ASSERTSPY_H

#include "assertions.h"

#include <QList>

/// Keeps every assertion report while it lives; for reports from the test's own thread.
class AssertSpy
{
public:
    AssertSpy();
    ~AssertSpy();
    Q_DISABLE_COPY_MOVE(AssertSpy)

    const QList<AssertRecord> &records() const { return m_records; }

    /// How many reports have exactly this condition, message and file.
    int count(const char *pCondition, const char *pMessage, const char *pFile) const;

private:
    QList<AssertRecord> m_records;
    int m_observer;
};

#endif // ASSERTSPY_H
