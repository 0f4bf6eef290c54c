#ifndef PROCESSCOUNTS_H
#define PROCESSCOUNTS_H

#include <QDir>
#include <QThread>
#include <thread>

inline int entriesOf(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

/// Threads of this process, with those that are just on their way out. The first call makes and
/// ends one: a sanitizer begins a thread of its own with the program's first, and keeps it.
inline int threadCountNow()
{
    static const bool s_isSettled = [] {
        std::thread([] {}).join();
        return true;
    }();
    Q_UNUSED(s_isSettled)
    return entriesOf(QStringLiteral("/proc/self/task"));
}

/// Threads of this process, once no thread that ended is still on its way out.
inline int threadCount()
{
    int count = 0;
    for (int same = 0; same < 10; ++same) {
        const int now = threadCountNow();
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
