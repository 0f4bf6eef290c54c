#include "canbus/canbytes.h"

QString canBytesToString(const CanBytes &bytes)
{
    QString text;
    text.reserve(5 * bytes.size());
    for (const unsigned char byte : bytes)
        text += QStringLiteral(" 0x%1").arg(byte, 2, 16, QLatin1Char('0'));
    return text;
}
