#ifndef RUNFOR_H
#define RUNFOR_H

inline constexpr double s_longestRun =
    1e6; ///< seconds; the event loop counts milliseconds in an int

/// Runs the event loop for this many seconds, or until Ctrl-C or SIGTERM; 0 seconds: until those.
void runFor(double seconds);

#endif // RUNFOR_H
