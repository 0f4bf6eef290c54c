// The payment line takes any bytes, cut anywhere, whatever the application reads of them.
//
// Input: 1 byte whose lowest bit chooses 9 data bits and whose others how often a character is
// read, then chunks of 1 byte of length and so many bytes.

#include "fuzzbus.h"

#include "abstracthardwarecontroller.h"
#include "ethernet/uartoverethernetinterface.h"
#include "hardwareenvironment.h"
#include "hardwaresettings.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

/// A machine whose client has no server; what the line brings is told by its signal.
struct Machine
{
    Machine()
    {
        environment.setMultiport(
            new Multiport(QStringLiteral("localhost"), Multiport::ModeLocal, &environment));
    }

    int argc = 0;
    QCoreApplication application{argc, nullptr};
    HardwareSettings settings;
    HardwareEnvironment environment{HardwareEnvironment::Lirenta, &settings};
};

void read(UartOverEthernetInterface &uart, bool is9Bit)
{
    unsigned char byte = 0;
    bool mode = false;
    if (is9Bit)
        uart.readByte(byte, mode);
    else
        uart.readByte(byte);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *pData, std::size_t size)
{
    turnLogOff();
    static auto *const s_pMachine = new Machine; // until the process ends
    if (size < 1)
        return 0;
    const bool is9Bit = (pData[0] & 1U) != 0;
    const int reads = pData[0] >> 1U;
    UartOverEthernetInterface uart(QStringLiteral("fuzz"), {1, 1, false}, nullptr);
    uart.setDatabits(is9Bit ? 9 : 8);
    MultiportInterface *const pLine =
        s_pMachine->environment.multiport()->interface(Multiport::PaymentInterface);
    for (std::size_t at = 1; at < size;) {
        const std::size_t count = std::min<std::size_t>(pData[at], size - at - 1);
        Q_EMIT pLine->dataReceived(
            MultiportInterface::PaymentPort,
            QByteArray(reinterpret_cast<const char *>(pData + at + 1), static_cast<int>(count)));
        for (int i = 0; i < reads; ++i)
            read(uart, is9Bit);
        at += count + 1;
    }
    uart.clearIncomingData();
    unsigned char byte = 0;
    if (uart.readByte(byte))
        std::abort(); // cleared, nothing waits
    return 0;
}
