#include "canbus/vystream.h"

#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vycanframe.h"

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <numeric>

namespace CanVy {

namespace {

unsigned char high(int number)
{
    return static_cast<unsigned char>(static_cast<unsigned>(number) >> 8U);
}

unsigned char low(int number)
{
    return static_cast<unsigned char>(static_cast<unsigned>(number) & 0xFFU);
}

/// The exclusive-or of the bytes.
template <typename Iterator>
unsigned char checksum(Iterator from, Iterator to) // NOLINT(readability-identifier-naming)
{
    return std::accumulate(from, to, static_cast<unsigned char>(0), std::bit_xor<>());
}

} // namespace

void writeStream(const CanMessage &message, CanBytes &stream)
{
    const int command = message.command();
    const int size = message.dataSize();
    stream.erase(stream.begin(), stream.end()); // keeps the memory, unlike clear()
    stream.reserve(size + StreamOverhead);
    for (const unsigned char byte :
         {VYCanFrame::StartByte, high(command), low(command), high(size), low(size)})
        stream.append(byte);
    stream.append(message.data());
    stream.append(checksum(stream.cbegin(), stream.cend()));
}

void writeFrames(const CanBytes &stream, int source, int destination, QList<CanFrame> &frames)
{
    const int count = (stream.size() + FrameDataMaxSize - 1) / FrameDataMaxSize;
    while (frames.size() > count)
        frames.removeLast();
    frames.reserve(count);
    while (frames.size() < count)
        frames.append(CanFrame());

    VYCanFrame header;
    header.setSourceAddress(source);
    header.setDestinationAddress(destination);
    auto from = stream.cbegin();
    int index = 0;
    for (CanFrame &frame : frames) {
        const auto to = std::min(from + FrameDataMaxSize, stream.cend());
        header.setFrameIndex(index++);
        frame.setId(header.id());
        frame.overwriteData(from, to);
        from = to;
    }
}

CanFrame acknowledgeFrame(int source, int destination, int command, int answered)
{
    VYCanFrame frame;
    frame.setSourceAddress(source);
    frame.setDestinationAddress(destination);
    std::array<unsigned char, StreamOverhead> stream{VYCanFrame::StartByte, high(command),
                                                     low(command), high(answered), low(answered)};
    stream.back() = checksum(stream.cbegin(), std::prev(stream.cend()));
    frame.overwriteData(stream.cbegin(), stream.cend());
    return frame;
}

Decoded decodeFirstFrame(const CanFrame &frame, IncomingCanMessage &entry)
{
    if (!VYCanFrame::isFirstFrame(frame) || frame.dataSize() == 0 ||
        frame.data().first() != VYCanFrame::StartByte)
        return Decoded::Bad;
    const int command = VYCanFrame::messageCommandInFirstFrame(frame);
    if (command < 0)
        return Decoded::Bad;
    CanMessage &message = *entry.pMessage;
    message.setCommand(command);
    message.setSource(VYCanFrame::sourceAddress(frame));
    message.setDestination(VYCanFrame::destinationAddress(frame));
    entry.lastFrameIndex = 0;
    entry.totalSize = isAcknowledge(command)
                          ? StreamOverhead
                          : VYCanFrame::messageDataLengthInFirstFrame(frame) + StreamOverhead;
    // Asked for once; a size that is only announced never asks for more than can come.
    message.data().reserve(std::min(entry.totalSize, MaxFrames * FrameDataMaxSize));
    message.data().append(frame.data());
    return entry.totalSize > FrameDataMaxSize ? Decoded::Incomplete : Decoded::Whole;
}

Decoded decodeFollowingFrame(const CanFrame &frame, IncomingCanMessage &entry)
{
    entry.lastFrameIndex = VYCanFrame::frameIndex(frame);
    CanBytes &data = entry.pMessage->data();
    data.append(frame.data());
    if (frame.dataSize() != followingFrameSize(entry))
        return Decoded::Bad;
    return data.size() == entry.totalSize ? Decoded::Whole : Decoded::Incomplete;
}

int followingFrameSize(const IncomingCanMessage &entry)
{
    return std::min(entry.totalSize - FrameDataMaxSize * entry.lastFrameIndex, FrameDataMaxSize);
}

bool takeOffEnvelope(CanBytes &stream)
{
    constexpr int before = 3; // start byte and command
    if (stream.size() <= before ||
        checksum(stream.cbegin(), std::prev(stream.cend())) != stream.last())
        return false;
    stream.removeLast();
    stream.erase(stream.begin(), stream.begin() + before);
    return true;
}

CanAnswer answerOf(int command)
{
    if (command == CommandAck)
        return CanAnswer::AnswerAck;
    return command == CommandNack ? CanAnswer::AnswerAckNot : CanAnswer::AnswerNone;
}

} // namespace CanVy
