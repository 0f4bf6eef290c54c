#include "assertions.h"

#include "observers_p.h"

#include <QDebug>
#include <QMessageLogger>

namespace {

Observers<AssertRecord> &observers()
{
    static auto *const pObservers = new Observers<AssertRecord>;
    return *pObservers;
}

void report(const AssertRecord &record, const char *pFile)
{
    observers().tell(record);
    QMessageLogger(pFile, record.line, nullptr, "vy.assert").critical().noquote().nospace()
        << (record.isRelease ? "Release assertion failed: " : "Assertion failed: ")
        << record.message << " [" << record.condition << "] in " << record.file << ", line "
        << record.line;
}

} // namespace

void printAssertMsg(const QString &condition, const QString &message, const char *pFile, int line)
{
    report({condition, message, QString::fromUtf8(pFile), line, false}, pFile);
}

void printReleaseAssertMsg(const QString &condition, const QString &message, const char *pFile,
                           int line)
{
    report({condition, message, QString::fromUtf8(pFile), line, true}, pFile);
}

int addAssertObserver(const AssertObserver &observer)
{
    return observers().add(observer);
}

void removeAssertObserver(int number)
{
    observers().remove(number);
}
