#ifndef VERSIONNUMBER_H
#define VERSIONNUMBER_H

#include "vytools1_export.h"

#include <QString>
#include <QVersionNumber>

/// A dotted version such as "1.0.15.1", compared number by number; a version that another one
/// continues is the smaller one (1.0 < 1.0.0).
class VYTOOLS1_EXPORT VersionNumber
{
public:
    VersionNumber() = default; ///< the empty version, of size 0

    /// Takes the numbers at the beginning of `text`: "1.2-rc" is 1.2, "abc" is empty.
    explicit VersionNumber(const QString &text)
        : m_version(QVersionNumber::fromString(text))
    {
    }

    int size() const { return m_version.segmentCount(); } ///< of numbers; 0 for an empty version
    QString toString() const { return m_version.toString(); }

    friend bool operator==(const VersionNumber &a, const VersionNumber &b)
    {
        return a.m_version == b.m_version;
    }
    friend bool operator!=(const VersionNumber &a, const VersionNumber &b)
    {
        return a.m_version != b.m_version;
    }
    friend bool operator<(const VersionNumber &a, const VersionNumber &b)
    {
        return a.m_version < b.m_version;
    }
    friend bool operator<=(const VersionNumber &a, const VersionNumber &b)
    {
        return a.m_version <= b.m_version;
    }
    friend bool operator>(const VersionNumber &a, const VersionNumber &b)
    {
        return a.m_version > b.m_version;
    }
    friend bool operator>=(const VersionNumber &a, const VersionNumber &b)
    {
        return a.m_version >= b.m_version;
    }

private:
    QVersionNumber m_version;
};

#endif // VERSIONNUMBER_H
