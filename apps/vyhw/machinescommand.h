#ifndef MACHINESCOMMAND_H
#define MACHINESCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// Adds `vyhw machines`.
void addMachinesCommand(CLI::App &app, Console &console);

#endif // MACHINESCOMMAND_H
