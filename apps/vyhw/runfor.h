#ifndef RUNFOR_H
#define RUNFOR_H

#include <CLI/App.hpp>
#include <CLI/Validators.hpp>

/// For an option in seconds: more than 0 and at most a million (the event loop counts milliseconds
/// in an int).
CLI::Validator runTime();

class Interruption;

/// Runs the event loop for this many seconds, or until the interruption, which may have come
/// before; 0 seconds: until the interruption.
void runFor(double seconds, const Interruption &interruption);

#endif // RUNFOR_H
