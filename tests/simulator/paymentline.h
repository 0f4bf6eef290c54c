#ifndef PAYMENTLINE_H
#define PAYMENTLINE_H

#include "simulator/multidrop.h"
#include "simulator/paymentperipheral.h"
#include "support/virtualtime.h"

#include <QByteArray>

#include <chrono>

/// A card reader on a line of 9-bit characters; what it says is kept in hexadecimal.
struct ReaderLine
{
    ReaderLine()
    {
        reader.setLine(9, 0);
        QObject::connect(&reader, &PaymentPeripheral::spoke, &reader,
                         [this](const QByteArray &bytes) { said += bytes; });
    }

    static void advance(int ms) { VirtualTime::instance()->advance(std::chrono::milliseconds(ms)); }

    /// What the reader says to these bytes, "01 12 00 12".
    QByteArray answerToBytes(const char *pHex)
    {
        reader.hear(QByteArray::fromHex(pHex));
        return taken();
    }
    QByteArray answerTo(int request, const char *pPayload = "")
    {
        reader.hear(Multidrop::toBytes(
            Multidrop::requestCharacters(request, QByteArray::fromHex(pPayload))));
        return taken();
    }
    /// What it says to a poll, which is then acknowledged.
    QByteArray told()
    {
        const QByteArray answer = answerTo(Multidrop::Poll);
        if (answer != "01 00")
            acknowledge();
        return answer;
    }
    void acknowledge() { reader.hear(QByteArray::fromHex("0000")); }

    /// Reset, told so, set up and enabled.
    void enable()
    {
        answerTo(Multidrop::Reset);
        told();
        answerTo(Multidrop::SetupConfig, "01000000");
        acknowledge();
        answerTo(Multidrop::SetupPrices, "fffe0000");
        answerTo(Multidrop::ReaderEnable);
    }
    /// With a card of so many cents in a session.
    void beginSession(int cents)
    {
        enable();
        reader.presentCard(cents);
        told();
    }

    QByteArray taken()
    {
        advance(0);
        const QByteArray hex = said.toHex(' ');
        said.clear();
        return hex;
    }

    PaymentPeripheral reader;
    QByteArray said;
};

#endif // PAYMENTLINE_H
