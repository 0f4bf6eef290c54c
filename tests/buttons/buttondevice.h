#ifndef BUTTONDEVICE_H
#define BUTTONDEVICE_H

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

/// One record as the kernel hands it out.
inline QByteArray record(int type, int code, int value)
{
    input_event event{};
    event.type = static_cast<decltype(event.type)>(type);
    event.code = static_cast<decltype(event.code)>(code);
    event.value = value;
    return {reinterpret_cast<const char *>(&event), sizeof event};
}

inline QByteArray press(int button)
{
    return record(EV_KEY, button, 1);
}

inline QByteArray release(int button)
{
    return record(EV_KEY, button, 0);
}

/// Stands for an input device: a FIFO, which a reader opens and reads as it does a device. It gives
/// no more than what was written, and nothing more at all once it is unplugged.
class ButtonDevice
{
public:
    ButtonDevice() = default;
    ~ButtonDevice() { unplug(); }
    Q_DISABLE_COPY_MOVE(ButtonDevice)

    QString path() const { return m_folder.filePath(QStringLiteral("event0")); }

    void plugIn()
    {
        ASSERT_EQ(mkfifo(encodedPath().constData(), 0600), 0);
        // For reading too, so that this does not wait for a reader.
        m_descriptor = open(encodedPath().constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(m_descriptor, 0);
    }

    void unplug()
    {
        QFile::remove(path());
        endStream();
    }

    /// Leaves the file.
    void endStream()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
        m_descriptor = -1;
    }

    /// As many of the bytes as there is room for; how many these were.
    int offer(const QByteArray &bytes) const
    {
        const ssize_t written =
            ::write(m_descriptor, bytes.constData(), static_cast<size_t>(bytes.size()));
        return written < 0 ? 0 : static_cast<int>(written);
    }

    void write(const QByteArray &bytes) const { ASSERT_EQ(offer(bytes), bytes.size()); }

private:
    QByteArray encodedPath() const { return QFile::encodeName(path()); }

    QTemporaryDir m_folder;
    int m_descriptor = -1;
};

#endif // BUTTONDEVICE_H
