#ifndef CANINTERFACE_MULTIPORT_H
#define CANINTERFACE_MULTIPORT_H

#include "canbus/abstractcaninterface.h"

#include <QByteArray>
#include <QPointer>

class Multiport;

/// The machine's CAN bus, which the multiport server relays as a stream of bytes: for each frame
/// the identifier (4 bytes, big-endian), the number of data bytes (1 byte), the data. Uses the
/// client of the environment.
class VYHARDWARE1_EXPORT CanInterface_Multiport : public AbstractCanInterface
{
    Q_OBJECT

public:
    explicit CanInterface_Multiport(QObject *pParent);

    /// False, with a log line, without a client and when the channel is open already. The name is
    /// not used. Forgets bytes of a frame that was not whole.
    bool openInterface(const QString &name) override;
    /// False without a client.
    bool closeInterface() override;
    bool isOpen() const override;
    using AbstractCanInterface::writeToCan;
    /// False when the link is down; the frame is then not sent later either.
    bool writeToCan(const CanFrame &frame) override;

    /// The four bytes in reverse order: the stream's identifier is big-endian.
    static unsigned int swap(unsigned int value);

public Q_SLOTS:
    /// Bytes of the stream, cut anywhere. What a frame lacks comes with a later delivery; a length
    /// of 128 or more cannot be meant and empties the buffer, and so does a link that is lost or
    /// back. A delivery that comes while a frame is being handled is decoded after it, or in the
    /// event loop that its handler runs.
    void readFromCan(const QByteArray &bytes);

Q_SIGNALS:
    /// Every frame of the stream, not filtered yet; feeds onFrameReceived(). Applications want
    /// AbstractCanInterface::frameReceived.
    void frameReceived(const CanFrame &frame); // clazy:exclude=overridden-signal

private:
    Multiport *multiport() const;
    void listenTo(Multiport *pMultiport);
    void readRestInNestedLoop();
    void readInNestedLoop();
    void clearBuffer();

    QByteArray m_buffer;
    CanFrame m_frame;   ///< the one that was read last; its memory is used again
    int m_consumed = 0; ///< bytes at the buffer's beginning whose frames have been emitted
    bool m_isReading = false;
    bool m_isNestedReadPosted = false;
    QByteArray m_record;          ///< that was written last; its memory is used again
    QPointer<Multiport> m_pHeard; ///< whose bytes we get
};

#endif // CANINTERFACE_MULTIPORT_H
