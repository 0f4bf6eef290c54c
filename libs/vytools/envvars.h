#ifndef ENVVARS_H
#define ENVVARS_H

#include "vytools1_export.h"

#include <QString>

namespace vytools::envvar {

/// One environment variable by its name. It is read at each use, so a change is seen at once.
class VYTOOLS1_EXPORT EnvVarString
{
public:
    constexpr explicit EnvVarString(const char *pName)
        : m_pName(pName)
    {
    }

    /// The value; empty when the variable is unset or empty.
    operator QString() const; // implicit: used where a QString is asked for

    const char *name() const { return m_pName; }

private:
    const char *m_pName;
};

/// The environment variables that the libraries read, the path table's aside (see SystemPath).
class VYTOOLS1_EXPORT EnvVars
{
public:
    /// VY_CUP_SENSOR_SIMULATION_FILE: the file that a simulated cup sensor follows; without it the
    /// sensor takes its readings from the user interface.
    static constexpr EnvVarString CupSensorSimulationFilePath =
        EnvVarString("VY_CUP_SENSOR_SIMULATION_FILE");

    /// VY_MULTIPORT: host:port of the multiport server, instead of the platform's own.
    static constexpr EnvVarString MultiportServer = EnvVarString("VY_MULTIPORT");
};

} // namespace vytools::envvar

#endif // ENVVARS_H
