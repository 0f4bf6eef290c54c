#ifndef BACKLIGHT_H
#define BACKLIGHT_H

#include "hardwareenvironment.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

inline void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

/// The two files that the kernel has for a backlight, in a folder of their own.
class Backlight
{
public:
    static constexpr const char *s_untouched = "untouched";

    explicit Backlight(const QByteArray &maximum)
    {
        writeFile(maximumFile(), maximum);
        writeFile(file(), s_untouched);
    }

    QString path(const QString &name) const { return m_folder.filePath(name); }
    QString maximumFile() const { return path(QStringLiteral("max_brightness")); }
    QString file() const { return path(QStringLiteral("brightness")); }

    /// What the brightness file holds.
    std::string written() const
    {
        QFile brightness(file());
        return brightness.open(QIODevice::ReadOnly) ? brightness.readAll().toStdString() : "(none)";
    }

private:
    // In memory, as the kernel's own files are: the tests write them some thousand times.
    QTemporaryDir m_folder{QFile::exists(QStringLiteral("/dev/shm"))
                               ? QStringLiteral("/dev/shm/backlight-XXXXXX")
                               : QDir::temp().filePath(QStringLiteral("backlight-XXXXXX"))};
};

/// The process has an environment with this platform value while this lives.
class PlatformValue
{
public:
    explicit PlatformValue(int platform) { m_environment.setPlatform(platform); }

private:
    class Settings : public HardwareSettings
    {
    public:
        AbstractHardwareController *createHardwareController() override { return nullptr; }
    };

    class Environment : public HardwareEnvironment
    {
    public:
        using HardwareEnvironment::HardwareEnvironment;
        using HardwareEnvironment::setPlatform;
    };

    Settings m_settings;
    Environment m_environment{HardwareEnvironment::Corvel, &m_settings};
};

#endif // BACKLIGHT_H
