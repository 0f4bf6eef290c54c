#include "envvars.h"

namespace vytools::envvar {

EnvVarString::operator QString() const
{
    return qEnvironmentVariable(m_pName);
}

} // namespace vytools::envvar
