#ifndef MODELCOMMAND_H
#define MODELCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// Adds `vyhw model show`.
void addModelCommand(CLI::App &app, Console &console);

#endif // MODELCOMMAND_H
