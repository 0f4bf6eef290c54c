#include "buttons/inputeventbuttonsreader.h"

#include "logformatter.h"

#include <QFile>
#include <QTimer>
#include <utility>

#ifdef Q_OS_LINUX
#    include <cerrno>
#    include <cstring>
#    include <fcntl.h>
#    include <linux/input.h>
#    include <unistd.h>
#endif

InputEventButtonsReader::InputEventButtonsReader(QString devicePath)
    : m_devicePath(std::move(devicePath))
{
}

#ifdef Q_OS_LINUX

namespace {

constexpr int s_recordSize = static_cast<int>(sizeof(input_event));

} // namespace

InputEventButtonsReader::~InputEventButtonsReader()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

void InputEventButtonsReader::readInput()
{
    if (m_descriptor >= 0 || open())
        readRecords();
    handleRecords();
    QTimer::singleShot(readInterval(), this, &InputEventButtonsReader::readInput);
}

bool InputEventButtonsReader::open()
{
    m_descriptor =
        ::open(QFile::encodeName(m_devicePath).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (m_descriptor < 0)
        loseDevice(qt_error_string(errno));
    return m_descriptor >= 0;
}

void InputEventButtonsReader::readRecords()
{
    QByteArray bytes(s_recordsPerRead * s_recordSize - m_unhandled.size(), Qt::Uninitialized);
    const ssize_t count = ::read(m_descriptor, bytes.data(), static_cast<size_t>(bytes.size()));
    if (count > 0) {
        m_unhandled.append(bytes.constData(), static_cast<int>(count));
        m_isLossTold = false;
    } else if (count == 0) {
        loseDevice(QStringLiteral("end of file"));
    } else if (errno == EAGAIN) {
        m_isLossTold = false; // it is there, and nothing is pressed
    } else if (errno != EINTR) {
        loseDevice(qt_error_string(errno));
    }
}

void InputEventButtonsReader::handleRecords()
{
    const QByteArray records = std::exchange(m_unhandled, {});
    const int whole = records.size() - records.size() % s_recordSize;
    m_unhandled = records.mid(whole);
    for (int offset = 0; offset < whole; offset += s_recordSize) {
        input_event event = {};
        std::memcpy(&event, records.constData() + offset, sizeof event);
        if (event.type == EV_KEY)
            handleKey(static_cast<PhysicalButtonId>(event.code), event.value);
    }
}

#else // no input devices there: no button is ever pressed

InputEventButtonsReader::~InputEventButtonsReader() = default;

void InputEventButtonsReader::readInput()
{
    loseDevice(QStringLiteral("not supported on this system"));
}

#endif

void InputEventButtonsReader::handleKey(PhysicalButtonId button, int value)
{
    if (value == 1) {
        m_held.insert(button);
        Q_EMIT buttonPressed(button);
    } else if (value == 0) {
        m_held.remove(button);
        Q_EMIT buttonReleased(button);
    }
}

void InputEventButtonsReader::loseDevice(const QString &reason)
{
    if (!m_isLossTold)
        LogFormatter(3, Log::InputOutput)
            << "Buttons cannot be read from" << quoted(m_devicePath) << reason;
    m_isLossTold = true;
#ifdef Q_OS_LINUX
    if (m_descriptor >= 0)
        ::close(m_descriptor);
#endif
    m_descriptor = -1;
    m_unhandled.clear(); // the half record's other half never comes
    const QSet<int> held = std::exchange(m_held, {});
    for (const int button : held)
        Q_EMIT buttonReleased(static_cast<PhysicalButtonId>(button));
}
