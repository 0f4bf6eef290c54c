// The part of HardwareEnvironment that tells which system and which board this is.

#include "hardwareenvironment.h"
#include "logformatter.h"
#include "regularfile_p.h"
#include "systempath.h"

#include <QStringList>

namespace {

/// Bytes, chosen here; a longer line counts as several, so that memory stays bounded.
constexpr qint64 s_longestLine = 64LL << 10;

/// Up to the first NUL.
QString latin1(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.constData());
}

} // namespace

VersionNumber HardwareEnvironment::systemKeyVersion()
{
    static VersionNumber s_version; // empty until it was read
    if (s_version.size() > 0)
        return s_version;

    QFile file(SystemPath::path(SystemPath::SystemKeyVersions));
    if (!openRegularFile(file, QIODevice::ReadOnly)) {
        LogFormatter(4, Log::Machine) << Q_FUNC_INFO << "Failed opening systemkey versions file "
                                      << static_cast<const void *>(&file);
        return {};
    }
    QString line;
    do {
        line = latin1(file.readLine(s_longestLine));
        if (line.isEmpty()) { // the end, or a line that begins with NUL
            qWarning("%s Reached end of file, no core version found !", Q_FUNC_INFO);
            return {};
        }
    } while (!line.contains(QLatin1String("core")));

    line.remove(QLatin1Char('\n'));
    const QStringList parts = line.split(QLatin1Char('_'));
    if (parts.size() != 2) {
        LogFormatter(4, Log::Machine)
            << Q_FUNC_INFO << "Invalid version string format:" << quoted(line);
        return {};
    }
    const QString version = QString(parts.at(1)).replace(QLatin1Char('-'), QLatin1Char('.'));
    const VersionNumber number(version);
    if (version.split(QLatin1Char('.')).size() != 4 || number.size() != 4) {
        LogFormatter(4, Log::Machine)
            << Q_FUNC_INFO << "Invalid version string format:" << quoted(version);
        return {};
    }
    s_version = number;
    return s_version;
}

bool HardwareEnvironment::hasCpuInfoUpdated() const
{
    const VersionNumber version = systemKeyVersion();
    return version.size() > 0 && version >= VersionNumber(QStringLiteral("1.0.15.1"));
}

QString HardwareEnvironment::revisionString()
{
    QFile file(SystemPath::path(SystemPath::CpuInfo));
    if (!openRegularFile(file, QIODevice::ReadOnly | QIODevice::Text)) {
        LogFormatter(4, Log::Machine) << Q_FUNC_INFO << "Could not open the /proc/cpuinfo file.";
        return {};
    }
    // Not until atEnd(): the kernel's files have no size.
    for (QByteArray bytes = file.readLine(s_longestLine); !bytes.isEmpty();
         bytes = file.readLine(s_longestLine)) {
        const QString line = latin1(bytes);
        if (line.contains(QLatin1String("Revision")))
            return line.section(QLatin1Char(':'), 1, 1).trimmed();
        if (bytes.contains('\0')) // the text ends there
            break;
    }
    return {};
}
