#ifndef CANEXCHANGE_H
#define CANEXCHANGE_H

#include <cstddef>
#include <memory>

/// Sends messages of one size to a board in the same process and takes the board's acknowledge,
/// again and again: the whole stack, or one of the floors that it is measured against. All frames
/// are carried over after the write has returned, as on a bus.
class CanExchange
{
public:
    CanExchange() = default;
    virtual ~CanExchange() = default;
    CanExchange(const CanExchange &) = delete;
    CanExchange &operator=(const CanExchange &) = delete;

    /// Makes the messages that exchange() will send.
    virtual void prepare(std::size_t messages) = 0;
    /// Sends the next one, delivers it on the other side, delivers the acknowledge.
    virtual void exchange() = 0;
    /// How many messages and acknowledges have been delivered whole.
    virtual std::size_t delivered() const = 0;
    virtual std::size_t acknowledged() const = 0;

    static std::size_t frames(std::size_t payload) { return (payload + 6 + 7) / 8; }
};

/// Bytes without Qt: stream, checksum, frames of a plain structure, and back.
std::unique_ptr<CanExchange> makeRawFloor(std::size_t payload);
/// What the library's interface fixes and nothing else: shared messages, lists of frames, the
/// pending list, one timer on each side, the queued messageSent, the signals at the end.
std::unique_ptr<CanExchange> makeFixedFloor(std::size_t payload);
/// CanBus::send() to messageReceived() and answerReceived().
std::unique_ptr<CanExchange> makeStack(std::size_t payload);
/// The library's encoder and decoder alone: a message to frames and back, nothing acknowledged.
std::unique_ptr<CanExchange> makeCodec(std::size_t payload);

#endif // CANEXCHANGE_H
