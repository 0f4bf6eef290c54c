#include "simulator/consolepath.h"

#include <QtGlobal>

#include <unistd.h>

QString defaultConsolePath()
{
    QString chosen = qEnvironmentVariable("VY_SIM_CONSOLE");
    if (!chosen.isEmpty())
        return chosen;
    const QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!folder.isEmpty())
        return folder + QStringLiteral("/vy-sim.sock");
    return QStringLiteral("/tmp/vy-sim-%1.sock").arg(::getuid());
}
