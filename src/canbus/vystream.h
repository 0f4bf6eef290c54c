#ifndef VYSTREAM_H
#define VYSTREAM_H

#include "canbus/cananswer.h"
#include "canbus/canframe.h"
#include "canbus/canmessage.h"
#include "canbus/incomingcanmessage.h"
#include "vyhardware1_export.h"

#include <QList>

/// How a message becomes bytes and frames and back, without channels and timers: for the protocol
/// engine, for simulated boards and for tools that read traces. Pure functions.
///
/// The stream of a message: 0x02, command, number of data bytes (both 16 bits big-endian), the
/// data, the exclusive-or of all bytes before it. The stream of an acknowledge (command 1 or 2) has
/// the command that it answers in place of the number, and no data.
namespace CanVy {

constexpr int FrameDataMaxSize = 8;
constexpr int StreamOverhead = 6; ///< bytes of a message's stream beside its data
/// The frame index has 6 bits: no receiver can put together what needs more frames.
constexpr int MaxFrames = 64;

/// Makes `stream` the message's stream, with the length field whatever the command. Reuses the
/// list's memory.
VYHARDWARE1_EXPORT void writeStream(const CanMessage &message, CanBytes &stream);

/// Makes `frames` the stream in frames of at most 8 bytes, numbered from 0. Reuses the frames that
/// are there.
VYHARDWARE1_EXPORT void writeFrames(const CanBytes &stream, int source, int destination,
                                    QList<CanFrame> &frames);

/// The one frame of an acknowledge.
/// \param command 1 or 2
/// \param answered the command that is acknowledged
VYHARDWARE1_EXPORT CanFrame acknowledgeFrame(int source, int destination, int command,
                                             int answered);

enum class Decoded {
    Bad,        ///< cannot be taken; the message is lost
    Incomplete, ///< taken, more frames are to come
    Whole,      ///< taken, and all bytes are there: check them with takeOffEnvelope()
};

/// Begins a message with its first frame.
VYHARDWARE1_EXPORT Decoded decodeFirstFrame(const CanFrame &frame, IncomingCanMessage &entry);
/// Continues it. The frame is appended even when it is Bad, which means that it has not
/// followingFrameSize() bytes.
VYHARDWARE1_EXPORT Decoded decodeFollowingFrame(const CanFrame &frame, IncomingCanMessage &entry);
/// The bytes that the following frame with the entry's last index must have.
VYHARDWARE1_EXPORT int followingFrameSize(const IncomingCanMessage &entry);

/// Checks the stream's checksum and leaves the two bytes behind the command (the length, or the
/// answered command) and the data; false leaves it as it is.
VYHARDWARE1_EXPORT bool takeOffEnvelope(CanBytes &stream);

/// What a received command says to a message that was sent: AnswerAck, AnswerAckNot or AnswerNone.
VYHARDWARE1_EXPORT CanAnswer answerOf(int command);

} // namespace CanVy

#endif // VYSTREAM_H
