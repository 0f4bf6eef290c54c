#ifndef RUNFOR_H
#define RUNFOR_H

/// Runs the event loop for this many seconds, or until Ctrl-C or SIGTERM; 0 seconds: until those.
void runFor(double seconds);

#endif // RUNFOR_H
