#include "machinetext.h"

#include "machineregistry.h"

#include <QStringList>

QString modelNames()
{
    QStringList names;
    for (const MachineConfiguration &row : MachineRegistry::all())
        names.append(QString::fromLatin1(row.pModel));
    names.removeDuplicates();
    return names.join(QStringLiteral(", "));
}

QString subtypeNumbers(const QString &model, const QString &none)
{
    QStringList numbers;
    for (const MachineConfiguration &row : MachineRegistry::ofModel(model))
        numbers.append(row.subtype == HardwareSettings::NoSubtype
                           ? none + QLatin1String(" (no subtype)")
                           : QString::number(row.subtype));
    return numbers.join(QStringLiteral(", "));
}
