#ifndef CANMESSAGES_H
#define CANMESSAGES_H

#include "canbus/canframe.h"
#include "canbus/canmessage.h"
#include "canbus/vycanframe.h"
#include "canbus/vystream.h"

#include <QByteArray>
#include <QList>
#include <QSharedPointer>

/// bytes("02 00 2a") is the three bytes.
inline CanBytes bytes(const char *pHex)
{
    CanBytes list;
    const auto all = QByteArray::fromHex(pHex);
    for (const char byte : all)
        list.append(static_cast<unsigned char>(byte));
    return list;
}

/// A frame whose identifier stands there whole.
inline CanFrame withId(quint32 id, const char *pHex)
{
    CanFrame made;
    made.setId(id);
    made.setData(bytes(pHex));
    return made;
}

/// A frame as it stands on the bus.
inline CanFrame frame(int source, int destination, int index, const CanBytes &data)
{
    VYCanFrame made;
    made.setSourceAddress(source);
    made.setDestinationAddress(destination);
    made.setFrameIndex(index);
    made.setData(data);
    return std::move(made);
}

/// A received message.
inline QSharedPointer<const CanMessage> messageFrom(int source, int command,
                                                    const CanBytes &data = {})
{
    auto pMessage = QSharedPointer<CanMessage>::create(-1, command, data);
    pMessage->setSource(source);
    return pMessage;
}

/// The frames in which a board sends a message with these payload bytes.
inline QList<CanFrame> framesOf(int source, int destination, int command,
                                const CanBytes &payload = {})
{
    CanBytes stream;
    CanVy::writeStream(CanMessage(destination, command, payload), stream);
    QList<CanFrame> frames;
    CanVy::writeFrames(stream, source, destination, frames);
    return frames;
}

#endif // CANMESSAGES_H
