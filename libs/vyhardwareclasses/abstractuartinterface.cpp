#include "abstractuartinterface.h"

AbstractUartInterface::AbstractUartInterface(const QString &name, const QString &logFileName,
                                             LogModule logModule,
                                             const RotatingLogFileConfiguration &logConfiguration,
                                             QObject *pParent)
    : AbstractHardwareInterface(name, pParent)
    , m_log(this, logFileName, logModule, logConfiguration)
{
}

AbstractUartInterface::~AbstractUartInterface() = default;

bool AbstractUartInterface::setBaudrate(int baudrate)
{
    m_baudrate = baudrate;
    return onSetBaudrate(baudrate);
}

bool AbstractUartInterface::setDatabits(int databits)
{
    m_databits = databits;
    return onSetDatabits(databits);
}

void AbstractUartInterface::setPollTimeoutMs(int timeoutMs)
{
    m_pollTimeoutMs = qMax(0, timeoutMs);
}

void AbstractUartInterface::logSent(const QByteArray &bytes)
{
    logBytes(QLatin1String("sent"), bytes);
}

void AbstractUartInterface::logReceived(const QByteArray &bytes)
{
    logBytes(QLatin1String("received"), bytes);
}

void AbstractUartInterface::logBytes(QLatin1String direction, const QByteArray &bytes)
{
    if (!m_log.isLogInFile() && !m_log.isLogInDebug())
        return;
    m_log.logString(
        QStringLiteral("%1 %2: %3").arg(name(), direction, QLatin1String(bytes.toHex(' '))));
}
