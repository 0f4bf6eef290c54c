#ifndef CANRECORD_H
#define CANRECORD_H

#include "canbus/canframe.h"

#include <QByteArray>

/// Frames as the multiport server's CAN stream carries them: identifier (4 bytes, big-endian),
/// number of data bytes (1 byte), data, one record after the other.
namespace CanRecord {

constexpr int IdSize = 4;
constexpr int HeadSize = 5; ///< identifier and length

VYHARDWARE1_EXPORT void append(QByteArray &stream, const CanFrame &frame);
VYHARDWARE1_EXPORT QByteArray encode(const CanFrame &frame);

/// Takes frames out of a stream that arrives cut anywhere. Holds at most one incomplete record
/// besides what was appended last.
class VYHARDWARE1_EXPORT Reader
{
public:
    void append(const QByteArray &bytes);

    /// Writes the next whole frame over `frame`, whose memory is used again; false while it is
    /// incomplete, and for ever once isBroken().
    bool next(CanFrame &frame);

    /// A record claimed more than 8 data bytes, which no frame has: its place in the stream is
    /// lost.
    bool isBroken() const { return m_isBroken; }

private:
    QByteArray m_bytes;
    int m_taken = 0; ///< bytes at the beginning whose frames have been handed out
    bool m_isBroken = false;
};

} // namespace CanRecord

#endif // CANRECORD_H
