#include "faultoutcomes.h"

#include "canbus/cananswer.h"

#include <algorithm>

namespace {

/// Something is missing at `place`: the beginning is refused, unless it is that which is missing.
FromBoard refusedBefore(int place, int timeout)
{
    if (place == 0)
        return {};
    return {{}, {s_gapMs * (place - 1) + timeout}, {}};
}

} // namespace

ToBoard outcomeToBoard(const FaultCase &cell, int timeout)
{
    const int answer = s_replyMs;
    ToBoard well{{0}, {0}, {answer}};
    ToBoard lost{{0, timeout}, {timeout}, {timeout + answer}};
    ToBoard unacknowledged{{0, timeout}, {0, timeout}, {timeout + answer}};
    const bool isOneFrame = cell.frames == 1;
    switch (cell.fault) {
    case Fault::None:
    case Fault::ForeignSource:
    case Fault::ForeignDestination:
        return well;
    case Fault::Duplicated: // nobody knows a message again; a following frame does not follow on
        return isOneFrame ? ToBoard{{0}, {0, 0}, {answer, answer}} : well;
    case Fault::Reordered: // one frame alone only changes places with somebody else's
        return isOneFrame ? well : lost;
    case Fault::CorruptedSource: // the board acknowledges to somebody else
        return isOneFrame ? unacknowledged : lost;
    case Fault::DelayedBelow:
        return {{0}, {timeout - 1 - answer}, {timeout - 1}};
    case Fault::DelayedAbove:
        return {{0, timeout}, {timeout + 1 - answer, timeout}, {timeout + 1, timeout + answer}};
    case Fault::Mute:
        return {{0, timeout, 2 * timeout}, {}, {}, 3 * timeout, CanAnswer::AnswerTimeout};
    case Fault::AckLost:
    case Fault::AckOfOtherBoard:
    case Fault::AckOfOtherCommand:
        return unacknowledged;
    case Fault::AckDoubled:
        return {{0}, {0}, {answer, answer}};
    case Fault::RefusedOnce:
        return {{0, answer}, {0, answer}, {2 * answer}};
    case Fault::RefusedTwice:
        return {{0, answer, 2 * answer}, {0, answer, 2 * answer}, {3 * answer}};
    case Fault::RefusedThrice: // the bus stops the channel: no time-out follows
        return {{0, answer, 2 * answer},
                {0, answer, 2 * answer},
                {},
                3 * answer,
                CanAnswer::AnswerAckNot};
    case Fault::RefusedLate: // matches although nobody waits: sent again, acknowledged again
        return {{0, 2 * answer}, {0, 2 * answer}, {answer, 3 * answer}};
    default: // the board cannot put it together and keeps silent
        return lost;
    }
}

FromBoard outcomeFromBoard(const FaultCase &cell, int timeout)
{
    const int last = cell.frames - 1;
    const int place = cell.place;
    const int end = s_gapMs * last;
    const bool isOneFrame = cell.frames == 1;
    FromBoard lostUnheard; // no refusal: the entry went at once, or never was
    switch (cell.fault) {
    case Fault::Dropped:
    case Fault::CorruptedIndex:
    case Fault::CorruptedDestination:
    case Fault::Mute:
        return refusedBefore(place, timeout);
    case Fault::CorruptedSource:
        if (isOneFrame)
            return {{0}, {}, {}, s_board ^ 1};
        if (place == 0)
            return {{}, {timeout}, {}, s_board ^ 1};
        return refusedBefore(place, timeout);
    case Fault::Duplicated: // a first frame begins a message of its own each time
        if (isOneFrame)
            return {{0, 0}, {}, {}};
        return place == 0 ? FromBoard{{end}, {timeout}, {}} : FromBoard{{end}, {}, {}};
    case Fault::Reordered: { // the earlier of the two is the last that follows on
        if (isOneFrame)
            return {{s_gapMs}, {}, {0}};
        const int later = std::min(place, last - 1) + 1;
        return {{}, {s_gapMs * later + timeout}, {}};
    }
    case Fault::CorruptedLengthUp: // waits for one byte more
        return {{}, {end + timeout}, {}};
    case Fault::Truncated: // nothing says how long a first frame is: it is missing at the end
        if (place == 0 && !isOneFrame)
            return {{}, {end + timeout}, {}};
        return lostUnheard;
    case Fault::CorruptedData: // checksum
    case Fault::CorruptedStart:
    case Fault::CorruptedCommand:
    case Fault::CorruptedLengthDown:
    case Fault::TruncatedToFour:
    case Fault::TruncatedToNothing:
        return lostUnheard;
    case Fault::ForeignSource:
        return place == 0 ? FromBoard{{end}, {}, {0}} : FromBoard{{end}, {}, {}};
    case Fault::DelayedBelow:
        return {{end + timeout - s_gapMs - 1}, {}, {}};
    case Fault::DelayedAbove: // what comes late begins nothing
        if (place == 0)
            return {{end + timeout - s_gapMs + 1}, {}, {}};
        return refusedBefore(place, timeout);
    case Fault::Restarted: // the older beginning takes over where the newer one gets as far
        if (place == last)
            return {{end, s_gapMs * (2 * last + 1)}, {}, {}};
        return {{s_gapMs * (place + 1 + last)}, {s_gapMs * (2 * place + 1) + timeout}, {}};
    default: // the computer does not wait for anything of what it acknowledges
        return {{end}, {}, {}};
    }
}

QList<int> acknowledgedToBoard(const FaultCase &cell, const FromBoard &outcome)
{
    switch (cell.fault) {
    case Fault::AckLost:
    case Fault::AckOfOtherBoard:
    case Fault::AckOfOtherCommand:
        return {};
    case Fault::AckDoubled:
        return outcome.received + outcome.received;
    default:
        return outcome.source == s_board ? outcome.received : QList<int>();
    }
}
