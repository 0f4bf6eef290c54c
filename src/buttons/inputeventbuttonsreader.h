#ifndef INPUTEVENTBUTTONSREADER_H
#define INPUTEVENTBUTTONSREADER_H

#include "buttons/abstractphysicalbuttonsreader.h"

#include <QByteArray>
#include <QSet>
#include <QString>

/// Reads the buttons from a Linux input device, a stream of `struct input_event` records. Of these,
/// key records count: 1 is a press, 0 a release, the kernel's own repeats are left out. At each
/// read interval all records that are waiting are read, s_recordsPerRead at most, so that a flood
/// keeps nobody waiting; the kernel keeps the rest.
///
/// A device that is not there, or vanishes, is told to the log once and looked for again at each
/// interval; buttons that were held down count as released when it vanishes.
class VYHARDWARE1_EXPORT InputEventButtonsReader : public AbstractPhysicalButtonsReader
{
    Q_OBJECT

public:
    static constexpr int s_recordsPerRead = 256; ///< chosen here

    explicit InputEventButtonsReader(QString devicePath);
    ~InputEventButtonsReader() override;

    void readInput() override;

Q_SIGNALS:
    void buttonReleased(PhysicalButtonId button);

private:
    bool open();
    void readRecords();
    void handleRecords();
    void handleKey(PhysicalButtonId button, int value);
    void loseDevice(const QString &reason);

    const QString m_devicePath;
    int m_descriptor = -1; ///< -1 while there is no device
    bool m_isLossTold = false;
    QByteArray m_unhandled; ///< bytes of records, the last of which may be half read
    QSet<int> m_held;       ///< buttons that are down
};

#endif // INPUTEVENTBUTTONSREADER_H
