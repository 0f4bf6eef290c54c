#ifndef CONTROLLERLINK_H
#define CONTROLLERLINK_H

#include "serveraddress.h"

class Console;
class Multiport;

/// Starts the client if the server takes it, and waits until it is linked or, with CAN, until its
/// CAN channel is open; at most ServerPatience, or until Ctrl-C. False, after an error line, when
/// it is not.
bool waitForLink(Multiport &client, const multiportlink::ServerAddress &server, bool withCan,
                 Console &console);

/// Waits for the end of one request; at most ServerPatience. False, after an error line, unless it
/// was done.
bool waitForDone(Multiport &client, Console &console);

#endif // CONTROLLERLINK_H
