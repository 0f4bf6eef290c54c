// The frame line of the log, for any frame: nothing crashes, the line ends as it must and says how
// many bytes there are.
//
// Input: 4 bytes of identifier, then the data bytes.

#include "canbus/abstractcaninterface.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

class Sink : public AbstractCanInterface
{
public:
    Sink()
        : AbstractCanInterface(nullptr, false)
    {
    }

    bool openInterface(const QString & /*name*/) override { return true; }
    bool closeInterface() override { return true; }
    bool isOpen() const override { return true; }
    using AbstractCanInterface::writeToCan;
    bool writeToCan(const CanFrame & /*frame*/) override { return true; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *pData, std::size_t size)
{
    static const bool s_isQuiet = [] {
        QLoggingCategory::setFilterRules(QStringLiteral("vy.*=false"));
        return true;
    }();
    (void)s_isQuiet;
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
