#ifndef ABSTRACTHARDWAREINTERFACE_H
#define ABSTRACTHARDWAREINTERFACE_H

#include "vyhardwareclasses1_export.h"

#include <QObject>
#include <QString>

/// A piece of hardware that is asked again and again, and says after each time what came of it.
class VYHARDWARECLASSES1_EXPORT AbstractHardwareInterface : public QObject
{
    Q_OBJECT

public:
    enum PollEvent : int {
        pollDataReady = 0, ///< there is something to read
        pollTimeout = 1,   ///< nothing has come in time; what had come is forgotten
        pollError = 2,     ///< the hardware cannot be reached any more
    };
    Q_ENUM(PollEvent)

    AbstractHardwareInterface(QString name, QObject *pParent);
    ~AbstractHardwareInterface() override;

    const QString &name() const { return m_name; } ///< for people

Q_SIGNALS:
    void polled(AbstractHardwareInterface::PollEvent event);

private:
    const QString m_name;
};

#endif // ABSTRACTHARDWAREINTERFACE_H
