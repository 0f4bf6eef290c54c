#ifndef MULTIPORTINTERFACE_H
#define MULTIPORTINTERFACE_H

#include "vymultiport1_export.h"

#include <QByteArray>
#include <QObject>

/// One line that the multiport server relays, over a TCP connection of its own that carries the
/// line's bytes and nothing else. Made and deleted by Multiport; lives in the client's thread, so
/// that others invoke its operations (QMetaObject::invokeMethod()).
class VYMULTIPORT1_EXPORT MultiportInterface : public QObject
{
    Q_OBJECT

public:
    /// The server's usual port of a line, which also names the line in requests.
    enum Port : unsigned int { PaymentPort = 4000 };
    Q_ENUM(Port)

    /// The number of bytes taken: all or, while the line is not connected, none (-1). They leave at
    /// once. A server that lets more than 1 MiB wait is taken for dead.
    Q_INVOKABLE virtual qint64 write(const QByteArray &bytes) = 0;

Q_SIGNALS:
    /// Bytes of the line as they arrive, cut anywhere; `port` is the server's port of the line.
    /// Emitted in the thread of Multiport.
    void dataReceived(unsigned int port, QByteArray bytes);

protected:
    MultiportInterface() = default;
};

#endif // MULTIPORTINTERFACE_H
