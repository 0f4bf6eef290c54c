#ifndef PACKED_P_H
#define PACKED_P_H

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>

namespace multiportlink {

/// The numbers one after the other, big-endian, each as long as its type.
template <typename... Numbers>
QByteArray packed(Numbers... numbers)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    (stream << ... << numbers);
    return bytes;
}

} // namespace multiportlink

#endif // PACKED_P_H
