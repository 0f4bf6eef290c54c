#include "canbus/abstractcaninterface.h"

#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vycanframe.h"
#include "logformatter.h"

#include <QPointer>

namespace {

constexpr int s_dataWidth = 40; ///< characters; what is longer is not cut

QString boardName(int address)
{
    return CanVy::Address::toString(address);
}

QString parameterDetails(const VYCanFrame &frame, int command)
{
    const int high = frame.data().value(5);
    const int low = frame.data().value(6);
    const int parameter = high << 8 | low;
    return QStringLiteral(" Received by %1 from %2 commandId:%3(%4):%5(%6) frame num:1")
        .arg(boardName(frame.destinationAddress()), boardName(frame.sourceAddress()),
             CanVy::commandCanToString(command), QString::number(command),
             CanVy::vdbToString(parameter), QString::number(high == 0x80 ? low : parameter));
}

/// Source and destination stand the other way round than above, on purpose.
QString commandDetails(const VYCanFrame &frame, int command)
{
    return QStringLiteral(" Received by %1 from %2 commandId:%3(%4) frame num:1")
        .arg(boardName(frame.sourceAddress()), boardName(frame.destinationAddress()),
             CanVy::commandCanToString(command), QString::number(command));
}

QString details(const VYCanFrame &frame)
{
    if (frame.id() == 0)
        return {};
    if (!frame.isFirstFrame())
        return QStringLiteral(" frame num:%1").arg(frame.frameIndex() + 1);
    const int command = frame.messageCommandInFirstFrame();
    const bool isParameter =
        command == CanVy::CommandSetParameter || command == CanVy::CommandGetParameter;
    return isParameter ? parameterDetails(frame, command) : commandDetails(frame, command);
}

} // namespace

AbstractCanInterface::AbstractCanInterface(QObject *pParent, bool isSimulated)
    : LogInFile(pParent, QStringLiteral("canBus.txt"), Log::CanBus, {8.0, 1, false})
    , m_isSimulated(isSimulated)
{
}

void AbstractCanInterface::setInterfaceName(const QString &name)
{
    m_interfaceName = name;
    m_isIncomingTraced = name == QLatin1String("canBus.txt"); // asked for with every frame
}

bool AbstractCanInterface::writeToCan(const QList<CanFrame> &frames)
{
    const QPointer<AbstractCanInterface> pThis(this); // whoever hears a frame may delete it
    for (const CanFrame &frame : frames) {
        if (isLogInFile())
            logFrame(frame, false, QStringLiteral("Sending:"));
        if (!writeToCan(frame) || !pThis)
            return false;
    }
    return true;
}

void AbstractCanInterface::onFrameReceived(const CanFrame &frame)
{
    if (CanVy::Address::isReceivedAddressFiltered(VYCanFrame::destinationAddress(frame)))
        return;
    if (isLogInFile())
        logFrame(frame, true, QStringLiteral("Received:"));
    Q_EMIT frameReceived(frame);
}

void AbstractCanInterface::logFrame(const CanFrame &frame, bool isReceived, const QString &comment)
{
    logString(_logFrame(frame, isReceived, comment));
}

QString AbstractCanInterface::_logFrame(const CanFrame &frame, bool isReceived,
                                        const QString &comment) const
{
    const QString head = QStringLiteral("%1 |id:0x%2|data(%3):%4")
                             .arg(QLatin1String(isReceived ? ">>RX> " : " <TX<<"))
                             .arg(frame.id(), 16, 16, QLatin1Char('0'))
                             .arg(frame.dataSize())
                             .arg(frame.dataToString().leftJustified(s_dataWidth));
    return head + QLatin1String("| ") + comment + details(VYCanFrame(frame)) +
           QLatin1String("\r\n");
}

int AbstractCanInterface::traceFile(const CanFrame &frame, bool isReceived, QString comment)
{
    if (!m_traceFile.isOpen()) {
        LogFormatter(4, Log::CanBus)
            << Q_FUNC_INFO << ": Couldn't write to file"
            << quoted(m_traceFile.fileName()) + QLatin1String(", file is not opened");
        return 0;
    }
    const auto written = m_traceFile.write(_logFrame(frame, isReceived, comment).toUtf8());
    const bool isFlushed = m_traceFile.flush();
    if (written < 0 || !isFlushed) {
        LogFormatter(4, Log::CanBus)
            << Q_FUNC_INFO << ": Couldn't write to file" << quoted(m_traceFile.fileName());
        return -1;
    }
    return static_cast<int>(written);
}
