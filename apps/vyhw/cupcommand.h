#ifndef CUPCOMMAND_H
#define CUPCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// Adds `vyhw cup watch`.
void addCupCommand(CLI::App &app, Console &console);

#endif // CUPCOMMAND_H
