#ifndef CANBYTES_H
#define CANBYTES_H

#include "vyhardware1_export.h"

#include <QList>
#include <QString>

/// Bytes as they travel on the bus, in bus order.
using CanBytes = QList<unsigned char>;

/// " 0x02 0x1a": a blank and two lower-case hexadecimal digits for each byte; empty for none.
VYHARDWARE1_EXPORT QString canBytesToString(const CanBytes &bytes);

#endif // CANBYTES_H
