#ifndef MACHINETEXT_H
#define MACHINETEXT_H

#include <QString>

/// What error lines say about the machines of the registry.

/// "Ostrel, Duvana, ..."
QString modelNames();

/// "- (no subtype), 2, 3": the subtypes of a model of the registry.
/// \param none what stands for the model without a subtype where the user writes it
QString subtypeNumbers(const QString &model, const QString &none);

#endif // MACHINETEXT_H
