#ifndef SETTINGSCOMMAND_H
#define SETTINGSCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// Adds `vyhw settings get|list|check`.
void addSettingsCommand(CLI::App &app, Console &console);

#endif // SETTINGSCOMMAND_H
