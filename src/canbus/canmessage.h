#ifndef CANMESSAGE_H
#define CANMESSAGE_H

#include "canbus/canbytes.h"
#include "vyhardware1_export.h"

#include <QByteArray>
#include <QMetaType>
#include <QSharedPointer>

/// One command with its payload, of any length, for or from a board. A plain value until it is
/// shared as QSharedPointer<const CanMessage>, then it is not changed any more.
///
/// The data of an outgoing message are the payload alone. Those of a received message begin with
/// the two bytes of the length field (or of the answered command, in an acknowledge): its payload
/// stands at offset 2.
class VYHARDWARE1_EXPORT CanMessage
{
public:
    static constexpr int MaxCommand = 0x7FF;

    CanMessage() = default;
    CanMessage(int destination, int command);
    CanMessage(int destination, int command, const CanBytes &data);
    CanMessage(int destination, int command, const char *pData);
    CanMessage(int destination, int command, const QByteArray &data);
    /// A new outgoing message for the board that `pOther` was meant for, with its command and data;
    /// unlike a copy it has no source and is not simulated. Of null: an empty one.
    explicit CanMessage(const CanMessage *pOther);

    /// Sets all but the data back to what a new message has.
    void init();

    int source() const { return m_source; } ///< -1 when not set
    void setSource(int address) { m_source = address; }
    int destination() const { return m_destination; } ///< -1 when not set
    void setDestination(int address) { m_destination = address; }

    int command() const { return m_command; } ///< -1 when not set
    /// -1 to MaxCommand; anything else is logged and becomes -1.
    void setCommand(int command);

    /// True for a message that was injected as if a board had sent it.
    bool isSimulated() const { return m_isSimulated; }
    void setSimulated(bool isSimulated) { m_isSimulated = isSimulated; }

    const CanBytes &data() const { return m_data; }
    CanBytes &data() { return m_data; }
    int dataSize() const { return m_data.size(); }
    void setData(const CanBytes &data) { m_data = data; }
    /// All characters but the last before the terminating zero: callers pass texts that end in a
    /// character that is no payload. Null gives no data.
    void setData(const char *pText);
    /// All bytes but the last, for the same reason.
    void setData(const QByteArray &bytes);

    // Big-endian.
    void appendDataUnsignedChar(unsigned char value) { m_data.append(value); }
    void appendDataUnsignedShort(unsigned short value);
    void appendDataUnsignedInt(unsigned int value);

    // Big-endian. An index outside the data raises an assertion; bytes outside the data read as 0.
    // Only the first byte is checked: ask dataSize() before a longer value is read.
    unsigned char dataUnsignedCharAt(int index) const;
    signed char dataSignedCharAt(int index) const;
    unsigned short dataUnsignedShortAt(int index) const;
    short dataSignedShortAt(int index) const;
    unsigned int dataUnsignedIntAt(int index) const;

    /// See canBytesToString().
    QString dataToString() const { return canBytesToString(m_data); }

private:
    /// The bytes from `index` on as one number.
    quint32 numberAt(int index, int bytes) const;

    int m_source = -1;
    int m_destination = -1;
    int m_command = -1;
    CanBytes m_data;
    bool m_isSimulated = false;
};
Q_DECLARE_METATYPE(CanMessage)
Q_DECLARE_METATYPE(QSharedPointer<const CanMessage>)

#endif // CANMESSAGE_H
