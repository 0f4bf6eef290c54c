#ifndef VYCANFRAME_H
#define VYCANFRAME_H

#include "canbus/canframe.h"
#include "vyhardware1_export.h"

/// A frame with the fields of the machine's protocol in its identifier: destination in bits 0 to
/// 10, source in bits 11 to 21, frame index in bits 22 to 27. The bits above are left as they are.
///
/// The first frame of a message has index 0 and begins with 0x02, the command and the length of the
/// message's data, both 16 bits big-endian. The acknowledges, commands 1 and 2, have the command
/// that they answer in place of the length.
class VYHARDWARE1_EXPORT VYCanFrame : public CanFrame
{
public:
    static constexpr unsigned char StartByte = 0x02;

    VYCanFrame() = default;
    explicit VYCanFrame(const CanFrame &frame)
        : CanFrame(frame)
    {
    }

    int frameIndex() const { return frameIndex(*this); }
    static int frameIndex(const CanFrame &frame) { return field(frame, IndexShift, IndexMask); }
    void setFrameIndex(int index) { setField(index, IndexShift, IndexMask); } ///< its low 6 bits

    bool isFirstFrame() const { return isFirstFrame(*this); }
    static bool isFirstFrame(const CanFrame &frame) { return frameIndex(frame) == 0; }

    int sourceAddress() const { return sourceAddress(*this); }
    static int sourceAddress(const CanFrame &frame)
    {
        return field(frame, SourceShift, AddressMask);
    }
    void setSourceAddress(int address) { setField(address, SourceShift, AddressMask); } ///< 11 bits

    int destinationAddress() const { return destinationAddress(*this); }
    static int destinationAddress(const CanFrame &frame) { return field(frame, 0, AddressMask); }
    void setDestinationAddress(int address) { setField(address, 0, AddressMask); } ///< 11 bits

    // What a first frame says of its message; -1 and a log line when it is none, does not begin
    // with 0x02, or has fewer than 5 bytes.
    int messageCommandInFirstFrame() const { return messageCommandInFirstFrame(*this); }
    static int messageCommandInFirstFrame(const CanFrame &frame);
    int messageDataLengthInFirstFrame() const { return messageDataLengthInFirstFrame(*this); }
    static int messageDataLengthInFirstFrame(const CanFrame &frame);

private:
    static constexpr quint32 AddressMask = 0x7FF;
    static constexpr quint32 IndexMask = 0x3F;
    static constexpr unsigned SourceShift = 11;
    static constexpr unsigned IndexShift = 22;

    static int field(const CanFrame &frame, unsigned shift, quint32 mask)
    {
        return static_cast<int>(frame.id() >> shift & mask);
    }
    void setField(int value, unsigned shift, quint32 mask)
    {
        setId((id() & ~(mask << shift)) | (static_cast<quint32>(value) & mask) << shift);
    }
};

#endif // VYCANFRAME_H
