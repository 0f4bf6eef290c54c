#ifndef ABSTRACTPHYSICALBUTTONSREADER_H
#define ABSTRACTPHYSICALBUTTONSREADER_H

#include "buttons/physicalbuttonid.h"
#include "vyhardware1_export.h"

#include <QObject>

/// Reads the push buttons of a platform at a fixed interval. PhysicalButtons moves it to a thread
/// of its own. A platform's reader declares the signal buttonReleased(PhysicalButtonId) itself and,
/// at the end of readInput(), asks for the next read after readInterval().
class VYHARDWARE1_EXPORT AbstractPhysicalButtonsReader : public QObject
{
    Q_OBJECT

public:
    AbstractPhysicalButtonsReader();
    ~AbstractPhysicalButtonsReader() override;

    int readInterval() const { return m_readInterval; } ///< ms; 100 at first
    void setReadInterval(int ms); ///< before reading starts; negative is ignored

public Q_SLOTS:
    /// The first call asks for a read on the next turn of the event loop; others do nothing.
    void startReading();
    virtual void readInput() = 0;

Q_SIGNALS:
    void buttonPressed(PhysicalButtonId button);

private:
    bool m_isStarted = false;
    int m_readInterval = 100;
};

#endif // ABSTRACTPHYSICALBUTTONSREADER_H
