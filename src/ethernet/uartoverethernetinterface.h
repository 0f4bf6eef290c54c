#ifndef UARTOVERETHERNETINTERFACE_H
#define UARTOVERETHERNETINTERFACE_H

#include "abstractuartinterface.h"
#include "vyhardware1_export.h"

#include <QList>
#include <QPointer>
#include <QTimer>

class Multiport;
class MultiportInterface;

/// The payment line, which belongs to the multiport server. On the way there a 9-bit character is
/// two bytes, its mode (1 address, 0 data) and its eight bits; so it is in both directions.
///
/// The line is ready when the server is connected, the line is connected and the server has set it
/// up. Until then nothing is written and no poll ends; what was asked for meanwhile is never sent
/// later. A line that is lost ends its poll with pollError, once, and is set up again by itself
/// when it is back.
///
/// Uses the client of the environment, which must be there, and lives in its thread. When the
/// environment gets another client the line is lost; open() it again there.
class VYHARDWARE1_EXPORT UartOverEthernetInterface : public AbstractUartInterface
{
    Q_OBJECT

public:
    /// How a poll of the line ended.
    enum PollResult : int {
        ResultDataReady = 0,
        ResultTimeout = 1,
        ResultError = 2,
    };
    Q_ENUM(PollResult)

    /// Without a client in the environment: ends the process with status 1, after a fatal assertion
    /// report. A line that is open already is set up as ours.
    UartOverEthernetInterface(const QString &name,
                              const RotatingLogFileConfiguration &logConfiguration,
                              QObject *pParent);
    ~UartOverEthernetInterface() override;

    /// Whether the environment has a client; logs an error if not.
    bool isMultiportAvailable() const;

    /// Writes go out and polls end.
    bool isReady() const;

    /// The name is not used. True once the client was asked; readyChanged() follows.
    bool open(const QString &name) override;
    /// False while the line is not connected: it then stays asked for.
    bool close() override;

    // All wait for the client's thread to take the bytes, which does not wait for the network.
    bool writeByte(const quint8 &byte) override;
    bool writeBytes(const QByteArray &bytes) override;
    // These need 9 data bits.
    bool writeByte(const quint8 &byte, const bool &mode) override;
    bool writeBytes(const QVector<QPair<bool, unsigned char>> &characters) override;

    bool readByte(unsigned char &byte) override;
    /// A mode that is none forgets all that waits. A mode whose byte has not come is taken and
    /// lost.
    bool readByte(unsigned char &byte, bool &mode) override;

    void clearIncomingData() override;
    void pollingLoop() override;

public Q_SLOTS:
    void onMultiportServerConnectedChanged(bool isConnected);
    void onPaymentConnectedChanged(bool isConnected);
    void setConnected(bool isServerConnected, bool isPaymentConnected);
    /// The server has set the line up.
    void setSerialSetupDone(bool isDone);
    void pollingLoopResult(UartOverEthernetInterface::PollResult result);

Q_SIGNALS:
    /// Before the pollError of a line that is lost.
    void readyChanged(bool isReady);

protected:
    /// The line's speed is fixed: sets it up as it is.
    bool onSetBaudrate(int baudrate) override;
    bool onSetDatabits(int databits) override;

    /// Writes and empties `bytes`, and begins a new poll. On failure the buffer of the 9-bit writes
    /// is emptied, so that nothing stale goes out later.
    bool writeAndFlushData(QByteArray &bytes);

    static QByteArray s_outgoing; ///< 9-bit characters on their way; one for all instances

private:
    void listenTo(Multiport *pMultiport);
    void onMultiportChanged();
    void onCommandTerminated(unsigned char command, unsigned char status);
    void append(const QByteArray &bytes);
    void onDataReceived(unsigned int port, const QByteArray &bytes);
    void onPollTimeout();
    bool setSerialLine(int databits) const;
    bool canWriteModes(const char *pFunction) const;

    QPointer<Multiport> m_pHeard;         ///< whose signals we get
    QPointer<MultiportInterface> m_pLine; ///< of m_pHeard
    QTimer m_pollTimer{this};
    bool m_isServerConnected = false;
    bool m_isPaymentConnected = false;
    bool m_isSerialSetupDone = false;
    QList<unsigned char> m_incoming;
    QByteArray m_arrived; ///< that is about to be told
};

#endif // UARTOVERETHERNETINTERFACE_H
