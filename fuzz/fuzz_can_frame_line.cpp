// The frame line of the log, for any frame: nothing crashes, the line ends as it must and says how
// many bytes there are.
//
// Input: 4 bytes of identifier, then the data bytes.

#include "fuzzbus.h"

#include <QCoreApplication>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *pData, std::size_t size)
{
    turnLogOff();
    static Sink s_sink;

    CanFrame frame;
    quint32 id = 0;
    std::size_t at = 0;
    for (; at < 4 && at < size; ++at)
        id = id << 8U | pData[at];
    frame.setId(id);
    for (; at < size; ++at)
        frame.appendData(static_cast<char>(pData[at]));

    const bool isReceived = (id & 1U) != 0;
    const QString line = s_sink._logFrame(frame, isReceived, QStringLiteral("x"));
    const QString head = QStringLiteral("%1 |id:0x%2|data(%3):")
                             .arg(QLatin1String(isReceived ? ">>RX> " : " <TX<<"))
                             .arg(id, 16, 16, QLatin1Char('0'))
                             .arg(frame.dataSize());
    if (!line.startsWith(head) || !line.endsWith(QLatin1String("\r\n")) ||
        !line.contains(QLatin1String("| x")))
        std::abort();
    return 0;
}
