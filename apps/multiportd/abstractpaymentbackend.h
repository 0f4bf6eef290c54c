#ifndef ABSTRACTPAYMENTBACKEND_H
#define ABSTRACTPAYMENTBACKEND_H

#include "linkrecords.h"

#include <QByteArray>
#include <QObject>
#include <QString>

/// The payment line behind the server. With 9 data bits each character is two bytes: first the mode
/// (1 address, 0 data), then the lower eight bits. Lives in the server's thread.
class AbstractPaymentBackend : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    /// False, with a reason for people, when it cannot be used. Also called again after failed().
    virtual bool open(QString *pError) = 0;

    /// Whether the line can be used after open() has succeeded.
    static constexpr bool isReady() { return true; }

    /// A MultiportProtocol::Status.
    virtual quint8 setSerialLine(const multiportlink::SerialLine &line) = 0;

    /// Sends, or drops with a line in the log; never waits. Pairs may be cut anywhere.
    virtual void write(const QByteArray &bytes) = 0;

    /// Another sender's bytes follow: half a pair of the last one is forgotten.
    virtual void startAfresh() {}

Q_SIGNALS:
    void dataReceived(const QByteArray &bytes);
    /// The line cannot be used until open() is called again. Never inside write().
    void failed(const QString &reason);
};

#endif // ABSTRACTPAYMENTBACKEND_H
