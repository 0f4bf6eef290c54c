#ifndef CONTROLCOMMANDS_H
#define CONTROLCOMMANDS_H

#include <QByteArray>
#include <QJsonObject>

class SimulatedMachine;

/// Does what a line of the control console asks of the machine; docs/simulator.md has the words.
/// The answer is {"done": true}, the status, or {"error": what was expected, "kind": "call" when
/// the command itself is wrong, "machine" when the machine cannot do it now}.
QJsonObject obeyControlLine(SimulatedMachine &machine, const QByteArray &line);

#endif // CONTROLCOMMANDS_H
