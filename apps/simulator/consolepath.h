#ifndef CONSOLEPATH_H
#define CONSOLEPATH_H

#include <QString>

/// Where the simulator's control console listens, and its users look for it, unless told otherwise:
/// the variable VY_SIM_CONSOLE, else vy-sim.sock in the session's runtime folder (XDG_RUNTIME_DIR),
/// else /tmp/vy-sim-<user number>.sock.
QString defaultConsolePath();

#endif // CONSOLEPATH_H
