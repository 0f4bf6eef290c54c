#ifndef LINKCOMMAND_H
#define LINKCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// vyhw link status
void addLinkCommand(CLI::App &app, Console &console);

#endif // LINKCOMMAND_H
