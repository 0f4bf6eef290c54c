#include "canbus/vycanframe.h"

#include "logformatter.h"

namespace {

constexpr auto s_unknown = "VY Message DataLength Unknown";
constexpr auto s_incomplete = "VY Message incomplete";
constexpr int s_headerSize = 5; ///< start byte, command, length

bool beginsMessage(const CanFrame &frame)
{
    return VYCanFrame::isFirstFrame(frame) && frame.dataSize() > 0 &&
           frame.data().first() == VYCanFrame::StartByte;
}

int shortAt(const CanFrame &frame, int index)
{
    return frame.data().at(index) << 8 | frame.data().at(index + 1);
}

} // namespace

int VYCanFrame::messageCommandInFirstFrame(const CanFrame &frame)
{
    if (!beginsMessage(frame)) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << s_unknown;
        return -1;
    }
    if (frame.dataSize() < s_headerSize) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << s_incomplete;
        return -1;
    }
    return shortAt(frame, 1);
}

int VYCanFrame::messageDataLengthInFirstFrame(const CanFrame &frame)
{
    if (!beginsMessage(frame)) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << s_unknown;
        return -1;
    }
    const int command = messageCommandInFirstFrame(frame);
    if (command == 1 || command == 2) {
        LogFormatter(4, Log::CanBus)
            << Q_FUNC_INFO << "VY Message DataLength field Not present (but fixed)";
        return 2;
    }
    if (frame.dataSize() < s_headerSize) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << s_incomplete;
        return -1;
    }
    return shortAt(frame, 3);
}
