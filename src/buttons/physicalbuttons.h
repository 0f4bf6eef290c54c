#ifndef PHYSICALBUTTONS_H
#define PHYSICALBUTTONS_H

#include "buttons/physicalbuttonid.h"
#include "vyhardware1_export.h"

#include <QObject>
#include <QThread>

class AbstractPhysicalButtonsReader;

/// The presses and releases of the machine's push buttons, read in a thread of its own. On a
/// platform without a reader (a desktop) nothing is ever emitted. Lives in the thread of the first
/// caller of instance(); the environment deletes it when it unloads its modules.
class VYHARDWARE1_EXPORT PhysicalButtons : public QObject
{
    Q_OBJECT

public:
    /// The one object of the process, made at the first call, without parent.
    static PhysicalButtons *instance();

    /// With the platform's reader.
    explicit PhysicalButtons(QObject *pParent);

    /// With this reader, which is taken over; null for none.
    PhysicalButtons(AbstractPhysicalButtonsReader *pReader, QObject *pParent);

    /// Ends the reading thread and waits for it.
    ~PhysicalButtons() override;

Q_SIGNALS:
    void buttonPressed(PhysicalButtonId button);
    void buttonReleased(PhysicalButtonId button);

private:
    QThread m_readingThread;
    AbstractPhysicalButtonsReader *m_pReader; ///< owned; lives in the reading thread; null for none

    static PhysicalButtons *m_pInstance;
};

#endif // PHYSICALBUTTONS_H
