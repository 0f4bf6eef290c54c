#ifndef CANCOMMAND_H
#define CANCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// Adds `vyhw can send` and `vyhw can decode`.
void addCanCommand(CLI::App &app, Console &console);

#endif // CANCOMMAND_H
