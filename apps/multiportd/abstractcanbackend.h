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

    /// False, with a reason for people, when it cannot be used. Also called again after failed().
    virtual bool open(QString *pError) = 0;

    /// Whether frames reach the bus, which may be only some time after open(): then ready() tells.
    virtual bool isReady() const { return true; }

    /// Puts a frame on the bus, or drops it with a line in the log; never waits.
    virtual void send(const CanFrame &frame) = 0;

Q_SIGNALS:
    /// A frame of another node.
    void frameReceived(const CanFrame &frame);
    void ready();
    /// The bus cannot be used until open() is called again. Never inside send().
    void failed(const QString &reason);
};

#endif // ABSTRACTCANBACKEND_H
