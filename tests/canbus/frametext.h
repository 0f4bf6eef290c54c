#ifndef FRAMETEXT_H
#define FRAMETEXT_H

#include "canbus/canframe.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

/// "254419:02002a000028 ..." for what was received.
inline QString textOf(const QList<CanFrame> &frames)
{
    QStringList texts;
    for (const CanFrame &one : frames) {
        QByteArray data;
        for (const unsigned char byte : one.data())
            data.append(static_cast<char>(byte));
        texts.append(QString::number(one.id(), 16) + QLatin1Char(':') +
                     QString::fromLatin1(data.toHex()));
    }
    return texts.join(QLatin1Char(' '));
}

#endif // FRAMETEXT_H
