#ifndef INCOMINGCANMESSAGE_H
#define INCOMINGCANMESSAGE_H

#include "canbus/canmessage.h"

class QTimer;

/// A message whose frames are still arriving.
struct IncomingCanMessage
{
    bool isComplete = false;
    int lastFrameIndex = -1; ///< of the last frame that was taken into the message
    int totalSize = -1;      ///< bytes of the whole stream, header and checksum included
    QSharedPointer<CanMessage> pMessage = QSharedPointer<CanMessage>::create();
    QTimer *pReceptionTimer = nullptr; ///< null in a message of one frame; the protocol's

    // A timer that is restarted with each frame would cost more than the frame. So it runs on: what
    // it has left when a frame comes is noted, and when it expires it is started for the rest.
    int receptionTimeoutMs = -1; ///< how long a frame is awaited; -1: the timer is a variant's own
    int lastFrameToExpiryMs = 0; ///< from the last frame until the running timer expires
};

#endif // INCOMINGCANMESSAGE_H
