#ifndef MACHINECHOICE_H
#define MACHINECHOICE_H

#include "machineregistry.h"

#include <CLI/App.hpp>
#include <CLI/Validators.hpp>
#include <optional>
#include <string>

class Console;

/// For options whose text must not be empty, such as a shell variable that is not set.
CLI::Validator notEmpty();

/// The machine that a command is about, as the user named it: by MODEL and SUBTYPE, or by a
/// settings file with machine/model and machine/subtype.
struct MachineChoice
{
    std::string model;
    int subtype = HardwareSettings::NoSubtype;
    std::string file;
};

/// Adds MODEL, SUBTYPE and --settings to the command. The choice must live as long as the command.
void addMachineOptions(CLI::App &command, MachineChoice &choice);

/// Adds --settings alone.
CLI::Option *addSettingsOption(CLI::App &command, MachineChoice &choice);

/// The machine; nothing, after an error line, when there is no such machine or the file is wrong.
std::optional<MachineConfiguration> findMachine(const MachineChoice &choice, Console &console);

/// "Lirenta, subtype 8 (full instant)"
QString machineTitle(const MachineConfiguration &machine);

#endif // MACHINECHOICE_H
