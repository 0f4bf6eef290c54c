#ifndef BRIGHTNESSCOMMAND_H
#define BRIGHTNESSCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// Adds `vyhw brightness SET`.
void addBrightnessCommand(CLI::App &app, Console &console);

#endif // BRIGHTNESSCOMMAND_H
