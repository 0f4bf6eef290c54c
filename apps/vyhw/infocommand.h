#ifndef INFOCOMMAND_H
#define INFOCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// Adds `vyhw info`.
void addInfoCommand(CLI::App &app, Console &console);

#endif // INFOCOMMAND_H
