// The payment line takes any bytes, cut anywhere, whatever the application reads of them, and tells
// of each byte, or with 9 data bits of each chunk.
//
// Input: 1 byte whose lowest bit chooses 9 data bits and whose others how often a character is
// read, then chunks of 1 byte of length and so many bytes.

#include "fuzzbus.h"
#include "fuzzmachine.h"

#include "ethernet/uartoverethernetinterface.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

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
    Multiport &client = Machine::instance().client();
    if (size < 1)
        return 0;
    const bool is9Bit = (pData[0] & 1U) != 0;
    const int reads = pData[0] >> 1U;
    UartOverEthernetInterface uart(QStringLiteral("fuzz"), {1, 1, false}, nullptr);
    uart.setDatabits(is9Bit ? 9 : 8);
    uart.setConnected(true, true);
    uart.setSerialSetupDone(true);
    int told = 0;
    QObject::connect(&uart, &AbstractHardwareInterface::polled, &uart, [&](int event) {
        if (event != AbstractHardwareInterface::pollDataReady)
            std::abort();
        ++told;
        for (int i = 0; i < reads; ++i)
            read(uart, is9Bit);
    });
    int expected = 0;
    forEachChunk(pData + 1, size - 1, [&](const QByteArray &chunk) {
        expected += is9Bit && !chunk.isEmpty() ? 1 : chunk.size();
        Q_EMIT client.interface(Multiport::PaymentInterface)
            ->dataReceived(MultiportInterface::PaymentPort, chunk);
    });
    if (told != expected)
        std::abort();
    uart.clearIncomingData();
    unsigned char byte = 0;
    if (uart.readByte(byte))
        std::abort(); // cleared, nothing waits
    return 0;
}
