#ifndef SIMCOMMAND_H
#define SIMCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// Adds `vyhw sim status`, `vyhw sim set` and `vyhw sim fault`.
void addSimCommand(CLI::App &app, Console &console);

#endif // SIMCOMMAND_H
