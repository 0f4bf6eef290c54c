#ifndef ABSTRACTUARTINTERFACE_H
#define ABSTRACTUARTINTERFACE_H

#include "abstracthardwareinterface.h"
#include "loginfile.h"

#include <QByteArray>
#include <QPair>
#include <QVector>

/// A serial line of 8-bit characters, or of 9-bit ones: the eight bits of a byte and the mode,
/// which is true for an address and false for data. All operations return at once; a poll of the
/// line ends with polled().
///
/// After pollDataReady read until a read gives false: what has come meanwhile is not told again.
///
/// Keeps a rotating log of the bytes in both directions, see LogInFile.
class VYHARDWARECLASSES1_EXPORT AbstractUartInterface : public AbstractHardwareInterface
{
    Q_OBJECT

public:
    AbstractUartInterface(const QString &name, const QString &logFileName, LogModule logModule,
                          const RotatingLogFileConfiguration &logConfiguration, QObject *pParent);
    ~AbstractUartInterface() override;

    int baudrate() const { return m_baudrate; }           ///< 9600 at first
    int databits() const { return m_databits; }           ///< 8 at first
    int pollTimeoutMs() const { return m_pollTimeoutMs; } ///< 200 at first

    /// Kept and handed to the line. False when the line cannot take it; it is kept all the same and
    /// handed over again when the line is back.
    bool setBaudrate(int baudrate);
    /// The same.
    bool setDatabits(int databits);
    /// For the polls that begin from now on; less than 0 counts as 0.
    void setPollTimeoutMs(int timeoutMs);

    /// Both off at first.
    void setLogInFile(bool isOn) { m_log.setLogInFile(isOn); }
    void setLogInDebug(bool isOn) { m_log.setLogInDebug(isOn); }

    /// What `name` is depends on the kind of line.
    virtual bool open(const QString &name) = 0;
    virtual bool close() = 0;

    // False when not all could be written; a successful one begins a new poll.
    virtual bool writeByte(const quint8 &byte) = 0;
    virtual bool writeBytes(const QByteArray &bytes) = 0;
    virtual bool writeByte(const quint8 &byte, const bool &mode) = 0;
    virtual bool writeBytes(const QVector<QPair<bool, unsigned char>> &characters) = 0;

    // False when nothing is waiting.
    virtual bool readByte(unsigned char &byte) = 0;
    virtual bool readByte(unsigned char &byte, bool &mode) = 0;

    /// Forgets what has come and was not read.
    virtual void clearIncomingData() = 0;

    /// Begins a poll: waits for pollTimeoutMs() from now on.
    virtual void pollingLoop() = 0;

protected:
    /// The new value is kept already.
    virtual bool onSetBaudrate(int baudrate) = 0;
    virtual bool onSetDatabits(int databits) = 0;

    // One line in hexadecimal.
    void logSent(const QByteArray &bytes);
    void logReceived(const QByteArray &bytes);

private:
    void logBytes(QLatin1String direction, const QByteArray &bytes);

    int m_baudrate = 9600;
    int m_databits = 8;
    int m_pollTimeoutMs = 200;
    LogInFile m_log;
};

#endif // ABSTRACTUARTINTERFACE_H
