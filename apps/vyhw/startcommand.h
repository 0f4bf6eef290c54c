#ifndef STARTCOMMAND_H
#define STARTCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// Adds `vyhw start`.
void addStartCommand(CLI::App &app, Console &console);

#endif // STARTCOMMAND_H
