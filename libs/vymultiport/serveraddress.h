#ifndef SERVERADDRESS_H
#define SERVERADDRESS_H

#include "vymultiport1_export.h"

#include <QString>
#include <optional>

namespace multiportlink {

/// Where the control connection of a multiport server is.
struct ServerAddress
{
    QString host;
    quint16 port;
};

/// Reads "host", "host:port", "[IPv6]" or "[IPv6]:port", with a port from 1 to 65535; without one
/// it is the usual one. Nothing for anything else.
VYMULTIPORT1_EXPORT std::optional<ServerAddress> serverAddress(const QString &text);

} // namespace multiportlink

#endif // SERVERADDRESS_H
