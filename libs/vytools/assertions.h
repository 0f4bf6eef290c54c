#ifndef ASSERTIONS_H
#define ASSERTIONS_H

#include "vytools1_export.h"

#include <QString>
#include <functional>

/// A failed assertion as an observer sees it.
struct AssertRecord
{
    QString condition; ///< the expression that did not hold; may be empty
    QString message;
    QString file; ///< the unit's path below the source root, without its ending
    int line;
    bool isRelease; ///< from printReleaseAssertMsg()
};

using AssertObserver = std::function<void(const AssertRecord &)>;

/// Reports a programming error as one critical line of the category vy.assert and returns; the call
/// goes on. Any thread.
VYTOOLS1_EXPORT void printAssertMsg(const QString &condition, const QString &message,
                                    const char *pFile, int line);

/// The same for a missing essential: the caller follows it with exit(1).
VYTOOLS1_EXPORT void printReleaseAssertMsg(const QString &condition, const QString &message,
                                           const char *pFile, int line);

/// Called for every report, in the reporting thread; returns the number for removeAssertObserver().
VYTOOLS1_EXPORT int addAssertObserver(const AssertObserver &observer);
VYTOOLS1_EXPORT void removeAssertObserver(int number);

#endif // ASSERTIONS_H
