#ifndef BOARDRECEIVER_H
#define BOARDRECEIVER_H

#include "canbus/canframe.h"
#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vycanframe.h"
#include "canbus/vystream.h"

#include <QSharedPointer>

/// How a simulated board puts messages together: one at a time. A first frame begins anew, a frame
/// that does not follow on is overlooked. What stays incomplete is forgotten with the next one.
class BoardReceiver
{
public:
    explicit BoardReceiver(int address)
        : m_address(address)
    {
    }

    /// The message when the frame was its last, else null. Its data begin with the two length
    /// bytes.
    QSharedPointer<const CanMessage> take(const CanFrame &frame)
    {
        const int destination = VYCanFrame::destinationAddress(frame);
        if (destination != m_address && destination != CanVy::Address::Shared)
            return {};
        if (VYCanFrame::isFirstFrame(frame))
            return begin(frame);
        const CanMessage &message = *m_entry.pMessage;
        if (m_entry.lastFrameIndex < 0 ||
            VYCanFrame::frameIndex(frame) != m_entry.lastFrameIndex + 1 ||
            VYCanFrame::sourceAddress(frame) != message.source() ||
            destination != message.destination())
            return {};
        return finish(CanVy::decodeFollowingFrame(frame, m_entry));
    }

    /// A restart: what has come so far is gone.
    void forget() { m_entry = IncomingCanMessage(); }

    int address() const { return m_address; }

private:
    QSharedPointer<const CanMessage> begin(const CanFrame &frame)
    {
        forget();
        return finish(CanVy::decodeFirstFrame(frame, m_entry));
    }

    QSharedPointer<const CanMessage> finish(CanVy::Decoded decoded)
    {
        if (decoded == CanVy::Decoded::Incomplete)
            return {};
        const auto pMessage = m_entry.pMessage;
        forget();
        if (decoded == CanVy::Decoded::Whole && CanVy::takeOffEnvelope(pMessage->data()))
            return pMessage;
        return {};
    }

    int m_address;
    IncomingCanMessage m_entry;
};

#endif // BOARDRECEIVER_H
