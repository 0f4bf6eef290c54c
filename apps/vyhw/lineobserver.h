#ifndef LINEOBSERVER_H
#define LINEOBSERVER_H

#include "multiport.h"
#include "serveraddress.h"

#include <functional>

class Console;

/// Follows a line of the multiport server as an observer, until Ctrl-C, for so many seconds (0: for
/// ever), or until the server goes, which is told as an error. `take` gets the bytes as they come
/// and ends it by returning false; `idle` is called 20 times a second. Both may print.
void observeLine(const multiportlink::ServerAddress &server, Multiport::Interface line,
                 double seconds, Console &console, const std::function<bool(QByteArray)> &take,
                 const std::function<void()> &idle);

#endif // LINEOBSERVER_H
