#ifndef ABSTRACTOUTPUTSBACKEND_H
#define ABSTRACTOUTPUTSBACKEND_H

#include <QObject>

/// The digital outputs behind the server. Lives in the server's thread.
class AbstractOutputsBackend : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // Each returns a MultiportProtocol::Status.
    virtual quint8 setOutput(quint8 output, bool isOn) = 0;
    virtual quint8 setBlinking(quint8 output, bool isOn) = 0;
};

#endif // ABSTRACTOUTPUTSBACKEND_H
