#ifndef PAYMENTCOMMAND_H
#define PAYMENTCOMMAND_H

#include <CLI/App.hpp>

class Console;

/// vyhw payment monitor
void addPaymentCommand(CLI::App &app, Console &console);

#endif // PAYMENTCOMMAND_H
