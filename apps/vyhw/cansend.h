#ifndef CANSEND_H
#define CANSEND_H

#include "canbus/canbytes.h"

class Console;

struct CanSending
{
    int destination;
    int command;
    CanBytes bytes;
    int count;    ///< messages, at least 1
    bool isJson;  ///< one object for each message instead of a line of text
    bool isInLog; ///< frames also go to "canBus.txt"
};

/// Sends the messages on the simulated bus, one after the other, and prints what became of each.
/// Ends after the one under way at Ctrl-C. Fails when one is not
/// acknowledged, or when the log cannot be written.
void sendOnCan(const CanSending &sending, Console &console);

#endif // CANSEND_H
