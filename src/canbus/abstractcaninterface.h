#ifndef ABSTRACTCANINTERFACE_H
#define ABSTRACTCANINTERFACE_H

#include "canbus/canframe.h"
#include "loginfile.h"
#include "vyhardware1_export.h"

#include <QFile>
#include <QList>

/// Carries frames to and from a bus. Lives in the bus's thread.
///
/// Frames are recorded in two ways: in the rotating log "canBus.txt" while isLogInFile(), and in a
/// plain trace file where an interface opens one.
class VYHARDWARE1_EXPORT AbstractCanInterface : public LogInFile
{
    Q_OBJECT

public:
    AbstractCanInterface(QObject *pParent, bool isSimulated);

    // The order of the virtual operations is fixed.
    virtual bool openInterface(const QString &name) = 0;
    virtual bool closeInterface() = 0;
    virtual bool isOpen() const = 0;
    /// False when the frame could not be written.
    virtual bool writeToCan(const CanFrame &frame) = 0;
    /// In order, until the first failure, which gives false. Logs each frame before it is written.
    virtual bool writeToCan(const QList<CanFrame> &frames);
    /// Appends a line to the trace file and flushes it. The number of bytes written, 0 when the
    /// file is not open, negative when it could not be written.
    virtual int traceFile(const CanFrame &frame, bool isReceived, QString comment);

    /// No board is behind this interface; see AbstractCanProtocol::setCanInterface().
    bool isSimulated() const { return m_isSimulated; }

    /// Empty until the interface is opened with a name.
    const QString &interfaceName() const { return m_interfaceName; }

    /// The interface is called "canBus.txt": the protocol then traces every frame that comes.
    bool isIncomingTraced() const { return m_isIncomingTraced; }

    /// Writes a line to the rotating log, whether isLogInFile() or not is for the caller to ask.
    void logFrame(const CanFrame &frame, bool isReceived, const QString &comment);

    /// One line with the frame in words:
    ///
    ///     " <TX<< |id:0x0000000000254419|data(6): 0x02 0x00 ...| comment Received by ...\r\n"
    ///
    /// "Received by" is followed by the destination for the commands that set and get parameters,
    /// by the source for all others; readers of the log rely on both.
    QString _logFrame(const CanFrame &frame, bool isReceived, const QString &comment) const;

public Q_SLOTS:
    /// What came from the bus: drops frames for filtered addresses, logs, emits frameReceived().
    void onFrameReceived(const CanFrame &frame);

Q_SIGNALS:
    /// A frame that was not filtered. Connect to this one by &AbstractCanInterface::frameReceived:
    /// a variant may have a signal of the same name for frames not filtered yet.
    void frameReceived(const CanFrame &frame);

protected:
    void setInterfaceName(const QString &name);
    QFile &traceFileDevice() { return m_traceFile; }
    const QFile &traceFileDevice() const { return m_traceFile; }

private:
    QString m_interfaceName;
    bool m_isIncomingTraced = false;
    QFile m_traceFile;
    const bool m_isSimulated;
};

#endif // ABSTRACTCANINTERFACE_H
