#ifndef PROCESSCOUNTS_H
#define PROCESSCOUNTS_H

#include <QDir>
#include <QThread>

inline int entriesOf(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

/// Of this process, once no thread that ended is still on its way out.
inline int threadCount()
{
    int count = 0;
    for (int same = 0; same < 10; ++same) {
        const int now = entriesOf(QStringLiteral("/proc/self/task"));
        if (now != count)
            same = 0;
        count = now;
        QThread::msleep(2);
    }
    return count;
}

/// Of this process, the one that looks included.
inline int descriptorCount()
{
    return entriesOf(QStringLiteral("/proc/self/fd"));
}

#endif // PROCESSCOUNTS_H
