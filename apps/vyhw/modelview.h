#ifndef MODELVIEW_H
#define MODELVIEW_H

#include <QJsonObject>
#include <QString>

class HardwareSettings;
struct MachineConfiguration;

/// Everything a machine has, for a person: what the display and the supply are, then the properties
/// by their names, flags in two columns, then the numbers.
QString modelAsText(const MachineConfiguration &machine, const HardwareSettings &settings);

/// The same for a program: {"model", "subtype", "subtypeName", "supportedVoltages",
/// "supportedDaddDeviceModels", "properties": {every property by its name}}.
QJsonObject modelAsJson(const MachineConfiguration &machine, const HardwareSettings &settings);

#endif // MODELVIEW_H
