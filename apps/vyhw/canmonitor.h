#ifndef CANMONITOR_H
#define CANMONITOR_H

#include "serveraddress.h"

class Console;

struct CanMonitoring
{
    multiportlink::ServerAddress server;
    double seconds; ///< 0: until Ctrl-C
    bool isJson;    ///< one object for each message instead of a line of text
};

/// Prints the messages of the multiport server's CAN bus as they are answered, as an observer.
void monitorCan(const CanMonitoring &monitoring, Console &console);

#endif // CANMONITOR_H
