#ifndef FAULTYBUS_H
#define FAULTYBUS_H

#include "boardreceiver.h"
#include "canbus/abstractcaninterface.h"

#include <QList>

#include <utility>
#include <vector>

/// What goes wrong, once: with one frame of a message or with its acknowledge.
enum class Fault {
    None,
    Dropped,
    Duplicated,           ///< comes twice, at the same instant
    Reordered,            ///< changes places with the next frame, the last with the one before
    CorruptedData,        ///< lowest bit of the last byte
    CorruptedStart,       ///< lowest bit of the start byte
    CorruptedCommand,     ///< lowest bit
    CorruptedLengthUp,    ///< the message seems one byte longer
    CorruptedLengthDown,  ///< two bytes shorter
    CorruptedIndex,       ///< lowest bit
    CorruptedSource,      ///< lowest bit
    CorruptedDestination, ///< lowest bit
    Truncated,            ///< by its last byte
    TruncatedToFour,      ///< one byte less than a header needs
    TruncatedToNothing,
    ForeignSource,      ///< a frame of another sender with the same index comes before
    ForeignDestination, ///< a frame for somebody else with the same index comes before
    DelayedBelow,       ///< it and what follows, just short of the time-out
    DelayedAbove,       ///< and just past it
    Mute,               ///< from here on the board says and hears nothing
    Restarted,          ///< after this frame; a board that was sending begins anew
    // From here on the frame does not matter.
    AckLost,
    AckDoubled,
    AckOfOtherBoard,
    AckOfOtherCommand,
    RefusedOnce,
    RefusedTwice,
    RefusedThrice,
    RefusedLate, ///< the acknowledge is followed by a refusal
};

constexpr int s_gapMs = 10;         ///< between the frames of a board
constexpr int s_replyMs = 5;        ///< until a board answers
constexpr int s_board = 0x419;      ///< the actuator board of an Ostrel
constexpr int s_computer = 0x4A8;   ///< and its computer
constexpr int s_otherBoard = 0x41E; ///< even, as the two above differ from theirs in other bits
constexpr int s_command = 0x24;
constexpr int s_nextCommand = 0x25;

/// A message under way: when each frame arrives, in ms from the start, in the order of arrival.
struct Delivery
{
    int afterMs;
    CanFrame frame;
};
using Transmission = std::vector<Delivery>;

/// What befalls which frame of a message of how many.
struct FaultCase
{
    Fault fault;
    int frames;
    int place;
};

/// The payload that makes a message of so many full frames.
CanBytes payloadOf(int frames);

/// What arrives of a message when this befalls the frame at `place`.
/// \param gapMs between two frames
/// \param delayMs of the delayed frames
Transmission garbled(const QList<CanFrame> &frames, const FaultCase &fault, int gapMs, int delayMs);

/// A bus with one board on it. The first message in either direction suffers the fault, all that
/// follow are well. Notes down what is written, with the instant since it was made.
class FaultyBus : public AbstractCanInterface
{
    Q_OBJECT

public:
    FaultyBus(const FaultCase &fault, bool isSimulated);

    bool openInterface(const QString &) override { return true; }
    bool closeInterface() override { return true; }
    bool isOpen() const override { return true; }
    bool writeToCan(const CanFrame &frame) override;         ///< an automatic answer
    bool writeToCan(const QList<CanFrame> &frames) override; ///< a message

    /// The board sends a message on its own.
    void sendFromBoard();

    int nowMs() const;
    QList<int> sends(int command) const;                       ///< when the computer sent it
    QList<int> heard(int command) const;                       ///< when the board had it whole
    QList<int> acknowledged() const { return m_acknowledged; } ///< the board's own message
    const std::vector<Delivery> &answers() const { return m_answers; }

private:
    bool isFault(Fault fault) const { return m_fault.fault == fault; }
    int timeoutMs() const { return isSimulated() ? 200 : 1200; }
    void deliverToBoard(const CanFrame &frame, bool isRestarting);
    void answer(const CanMessage &message);
    void acknowledge(int source, int destination, int command, int answered, int laterMs = 0);

    const FaultCase m_fault;
    const int m_startMs;
    bool m_isFirstMessage = true;
    bool m_isMute = false;
    int m_answersGiven = 0;
    BoardReceiver m_receiver{s_board};
    std::vector<std::pair<int, int>> m_sends; ///< when, command
    std::vector<std::pair<int, int>> m_heard;
    QList<int> m_acknowledged;
    Transmission m_answers;
};

#endif // FAULTYBUS_H
