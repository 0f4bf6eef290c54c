#ifndef OUTPUTCOMMAND_H
#define OUTPUTCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// vyhw output set|blink
void addOutputCommand(CLI::App &app, Console &console);

#endif // OUTPUTCOMMAND_H
