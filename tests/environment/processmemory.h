#ifndef PROCESSMEMORY_H
#define PROCESSMEMORY_H

#include <QByteArray>
#include <QFile>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool s_isMemoryExact = false; ///< a sanitizer keeps what was freed, and more
#else
inline constexpr bool s_isMemoryExact = true;
#endif

/// A number out of the kernel's account of this process, such as "VmRSS" and "VmHWM" in KiB; 0
/// without one.
inline long processNumber(const QByteArray &name)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).simplified().split(' ').first().toLong();
    }
    return 0;
}

/// KiB that the process held at once since its start, or since forgetPeak().
inline long peakMemory()
{
    return processNumber("VmHWM");
}

inline void forgetPeak()
{
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    if (file.open(QIODevice::WriteOnly))
        file.write("5");
}

#endif // PROCESSMEMORY_H
