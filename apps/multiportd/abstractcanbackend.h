#ifndef ABSTRACTCANBACKEND_H
#define ABSTRACTCANBACKEND_H

#include "canbus/canframe.h"

#include <QObject>
#include <QString>

/// The CAN bus behind the server. Lives in the server's thread.
class AbstractCanBackend : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    /// False, with a reason for people, when it cannot be used.
    virtual bool open(QString *pError) = 0;

    /// Puts a frame on the bus, or drops it with a line in the log; never waits.
    virtual void send(const CanFrame &frame) = 0;

Q_SIGNALS:
    /// A frame of another node.
    void frameReceived(const CanFrame &frame);
    /// The bus cannot be used any more.
    void failed(const QString &reason);
};

#endif // ABSTRACTCANBACKEND_H
