#ifndef CANRECORDREADER_H
#define CANRECORDREADER_H

#include "canbus/canframe.h"

#include <QByteArray>

/// The record of 4+1+n bytes that a frame is on the link.
QByteArray canRecordOf(const CanFrame &frame);

/// Takes records out of a client's stream, which arrives cut anywhere. Holds at most one incomplete
/// record besides what was appended last.
class CanRecordReader
{
public:
    void append(const QByteArray &bytes) { m_bytes += bytes; }

    /// False when no whole record is left, and for ever once a record says that it has more than 8
    /// bytes. `record` is good until the next call.
    bool next(CanFrame &frame, QByteArray &record);
    bool isBroken() const { return m_isBroken; }

private:
    bool dropTaken();

    QByteArray m_bytes;
    int m_taken = 0; ///< bytes at the beginning whose records have been handed out
    bool m_isBroken = false;
};

#endif // CANRECORDREADER_H
