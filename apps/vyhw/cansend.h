#ifndef CANSEND_H
#define CANSEND_H

#include "canbus/canbytes.h"
#include "serveraddress.h"

#include <optional>

class Console;

struct CanSending
{
    int destination;
    int command;
    CanBytes bytes;
    int count;    ///< messages, at least 1
    bool isJson;  ///< one object for each message instead of a line of text
    bool isInLog; ///< frames also go to "canBus.txt"
    std::optional<multiportlink::ServerAddress> server; ///< else the simulated bus
};

/// Sends the messages, one after the other, and prints what became of each; on the simulated bus,
/// or as the controller of a multiport server. Ends after the one under way at Ctrl-C. Fails when
/// one is not acknowledged, or when the log cannot be written.
void sendOnCan(const CanSending &sending, Console &console);

#endif // CANSEND_H
