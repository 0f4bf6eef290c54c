#ifndef MACHINETEXT_H
#define MACHINETEXT_H

#include <QString>

/// What error lines say about the machines of the registry.

/// "Ostrel, Duvana, ..."
QString modelNames();

/// "-1, 2, 3": the subtypes of a model of the registry.
QString subtypeNumbers(const QString &model);

#endif // MACHINETEXT_H
