#include "ethernet/uartoverethernetinterface.h"

#include "assertions.h"
#include "hardwareenvironment.h"
#include "logformatter.h"
#include "multiport.h"

#include <QThread>
#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

constexpr auto s_pUnit = "src/ethernet/uartoverethernetinterface";
constexpr int s_modeDatabits = 9;
constexpr int s_maxIncoming = 64 * 1024; ///< bytes that wait for an application that does not read

Multiport *multiport()
{
    return gHardwareEnv != nullptr ? gHardwareEnv->multiport() : nullptr;
}

void require(bool invokeResult, int line)
{
    if (invokeResult)
        return;
    printReleaseAssertMsg(QStringLiteral("invokeResult"), QStringLiteral("invoke method failed"),
                          s_pUnit, line);
    exit(1);
}

} // namespace

QByteArray UartOverEthernetInterface::s_outgoing;

UartOverEthernetInterface::UartOverEthernetInterface(
    const QString &name, const RotatingLogFileConfiguration &logConfiguration, QObject *pParent)
    : AbstractUartInterface(name, QStringLiteral("paymentSocket.txt"), Log::Payment,
                            logConfiguration, pParent)
{
    m_pollTimer.setSingleShot(true);
    connect(&m_pollTimer, &QTimer::timeout, this, &UartOverEthernetInterface::onPollTimeout);
    listenTo(multiport());
    if (!m_pLine) {
        printReleaseAssertMsg(QStringLiteral("gHardwareEnv->multiport()->paymentInterface()"),
                              QStringLiteral("Payment interface not created!"), s_pUnit, __LINE__);
        exit(1);
    }
    m_isServerConnected = m_pHeard->isServerConnected();
    m_isPaymentConnected = m_pHeard->isPaymentConnected();
    if (m_isServerConnected && m_isPaymentConnected)
        setSerialLine(databits());
}

UartOverEthernetInterface::~UartOverEthernetInterface() = default;

void UartOverEthernetInterface::listenTo(Multiport *pMultiport)
{
    if (m_pHeard)
        disconnect(m_pHeard, nullptr, this, nullptr);
    if (m_pLine)
        disconnect(m_pLine, nullptr, this, nullptr);
    m_pHeard = pMultiport;
    m_pLine = pMultiport ? pMultiport->interface(Multiport::PaymentInterface) : nullptr;
    if (gHardwareEnv)
        connect(gHardwareEnv, &HardwareEnvironment::multiportChanged, this,
                &UartOverEthernetInterface::onMultiportChanged, Qt::UniqueConnection);
    if (!m_pLine)
        return;
    connect(pMultiport, &Multiport::multiportServerConnectedChanged, this,
            &UartOverEthernetInterface::onMultiportServerConnectedChanged);
    connect(pMultiport, &Multiport::paymentConnectedChanged, this,
            &UartOverEthernetInterface::onPaymentConnectedChanged);
    connect(pMultiport, &Multiport::lastCommandTerminationStatus, this,
            &UartOverEthernetInterface::onCommandTerminated);
    connect(pMultiport, &QObject::destroyed, this, [this] { setConnected(false, false); });
    connect(m_pLine, &MultiportInterface::dataReceived, this,
            &UartOverEthernetInterface::onDataReceived);
}

void UartOverEthernetInterface::onMultiportChanged()
{
    if (multiport() == m_pHeard)
        return;
    listenTo(multiport());
    const QPointer<UartOverEthernetInterface> pThis(this);
    setConnected(false, false); // as the old one's
    if (pThis && m_pHeard)
        setConnected(m_pHeard->isServerConnected(), m_pHeard->isPaymentConnected());
}

bool UartOverEthernetInterface::isMultiportAvailable() const
{
    if (multiport())
        return true;
    LogFormatter(4, Log::Hardware) << Q_FUNC_INFO << "multiport pointer incorrect";
    return false;
}

bool UartOverEthernetInterface::isReady() const
{
    return m_isServerConnected && m_isPaymentConnected && m_isSerialSetupDone;
}

bool UartOverEthernetInterface::open(const QString & /*name*/)
{
    onMultiportChanged(); // to an environment that is not the one we were made in
    if (!isMultiportAvailable())
        return false;
    require(QMetaObject::invokeMethod(multiport(), "setEnabled",
                                      Q_ARG(Multiport::Interface, Multiport::PaymentInterface)),
            __LINE__);
    return true;
}

bool UartOverEthernetInterface::close()
{
    if (!m_isServerConnected || !m_isPaymentConnected || !isMultiportAvailable())
        return false;
    require(QMetaObject::invokeMethod(multiport(), "setEnabled",
                                      Q_ARG(Multiport::Interface, Multiport::PaymentInterface),
                                      Q_ARG(bool, false)),
            __LINE__);
    return true;
}

bool UartOverEthernetInterface::onSetBaudrate(int /*baudrate*/)
{
    return setSerialLine(databits());
}

bool UartOverEthernetInterface::onSetDatabits(int databits)
{
    return setSerialLine(databits);
}

/// onCommandTerminated() hears how it ended.
bool UartOverEthernetInterface::setSerialLine(int databits) const
{
    if (!isMultiportAvailable() || !multiport()->isOpen(Multiport::PaymentInterface))
        return true;
    const bool hasMode = databits == s_modeDatabits;
    require(QMetaObject::invokeMethod(
                multiport(), "setSerialLineParameters",
                Q_ARG(MultiportInterface::Port, MultiportInterface::PaymentPort),
                Q_ARG(MultiportProtocol::BaudRate, MultiportProtocol::Baud9600),
                Q_ARG(MultiportProtocol::DataBits,
                      hasMode ? MultiportProtocol::DataBits9 : MultiportProtocol::DataBits8),
                Q_ARG(MultiportProtocol::Parity,
                      hasMode ? MultiportProtocol::ParityNone : MultiportProtocol::ParityEven),
                Q_ARG(MultiportProtocol::MDBMode, MultiportProtocol::MDBModeOff)),
            __LINE__);
    return true;
}

void UartOverEthernetInterface::onMultiportServerConnectedChanged(bool isConnected)
{
    setConnected(isConnected, m_isPaymentConnected);
}

void UartOverEthernetInterface::onPaymentConnectedChanged(bool isConnected)
{
    setConnected(m_isServerConnected, isConnected);
}

void UartOverEthernetInterface::setConnected(bool isServerConnected, bool isPaymentConnected)
{
    const bool wasReady = isReady();
    const bool isLost = (m_isServerConnected && !isServerConnected) ||
                        (m_isPaymentConnected && !isPaymentConnected);
    m_isServerConnected = isServerConnected;
    m_isPaymentConnected = isPaymentConnected;
    if (isLost) {
        m_isSerialSetupDone = false;
        m_pollTimer.stop();
    }
    m_arrived.clear(); // the rest of a chunk that is just being told
    clearIncomingData();
    if (isServerConnected && isPaymentConnected)
        onSetDatabits(databits());
    const QPointer<UartOverEthernetInterface> pThis(this);
    if (isReady() != wasReady)
        Q_EMIT readyChanged(isReady());
    if (pThis && isLost && wasReady)
        Q_EMIT polled(pollError); // pollingLoopResult() would drop it
}

/// A setup counts for the connection that it was asked for on: one that ends while the line is gone
/// says nothing of the next.
void UartOverEthernetInterface::onCommandTerminated(unsigned char command, unsigned char status)
{
    if (command != MultiportProtocol::CommandSetSerialLine || !m_isServerConnected ||
        !m_isPaymentConnected)
        return;
    if (status != MultiportProtocol::StatusDone)
        LogFormatter(3, Log::Payment) << Q_FUNC_INFO << "Serial line not set up, status" << status;
    setSerialSetupDone(status == MultiportProtocol::StatusDone);
}

void UartOverEthernetInterface::setSerialSetupDone(bool isDone)
{
    const bool wasReady = isReady();
    m_isSerialSetupDone = isDone;
    if (isReady() != wasReady)
        Q_EMIT readyChanged(isReady());
}

bool UartOverEthernetInterface::writeByte(const quint8 &byte)
{
    return writeBytes(QByteArray(1, static_cast<char>(byte)));
}

bool UartOverEthernetInterface::writeBytes(const QByteArray &bytes)
{
    if (!isMultiportAvailable() || !isReady())
        return false;
    QByteArray outgoing = bytes;
    return writeAndFlushData(outgoing);
}

bool UartOverEthernetInterface::writeByte(const quint8 &byte, const bool &mode)
{
    if (!canWriteModes(Q_FUNC_INFO))
        return false;
    s_outgoing.append(mode ? '\1' : '\0').append(static_cast<char>(byte));
    return writeAndFlushData(s_outgoing);
}

bool UartOverEthernetInterface::writeBytes(const QVector<QPair<bool, unsigned char>> &characters)
{
    if (!canWriteModes(Q_FUNC_INFO))
        return false;
    for (const auto &[mode, byte] : characters)
        s_outgoing.append(mode ? '\1' : '\0').append(static_cast<char>(byte));
    return writeAndFlushData(s_outgoing);
}

bool UartOverEthernetInterface::canWriteModes(const char *pFunction) const
{
    if (databits() != s_modeDatabits) {
        LogFormatter(3, Log::Hardware)
            << pFunction << "Can't write mode bit with" << databits() << "data bits !";
        return false;
    }
    return isMultiportAvailable() && isReady();
}

bool UartOverEthernetInterface::writeAndFlushData(QByteArray &bytes)
{
    qint64 written = -1;
    if (m_pLine) {
        // Waiting for our own thread would be for ever.
        const bool isOurThread = m_pLine->thread() == QThread::currentThread();
        require(QMetaObject::invokeMethod(m_pLine, "write",
                                          isOurThread ? Qt::DirectConnection
                                                      : Qt::BlockingQueuedConnection,
                                          Q_RETURN_ARG(qint64, written), Q_ARG(QByteArray, bytes)),
                __LINE__);
    }
    if (written != bytes.size()) {
        LogFormatter(3, Log::Payment)
            << Q_FUNC_INFO << "Only" << written << "of" << bytes.size() << "bytes written";
        s_outgoing.clear();
        return false;
    }
    logSent(bytes);
    bytes.clear();
    pollingLoop();
    return true;
}

bool UartOverEthernetInterface::readByte(unsigned char &byte)
{
    if (m_incoming.isEmpty())
        return false;
    byte = m_incoming.takeFirst();
    return true;
}

bool UartOverEthernetInterface::readByte(unsigned char &byte, bool &mode)
{
    unsigned char modeByte = 0;
    if (!readByte(modeByte))
        return false;
    if (modeByte > 1) {
        LogFormatter(3, Log::Hardware)
            << Q_FUNC_INFO << "Mode byte is not address or data byte, flushing !";
        clearIncomingData();
        return false;
    }
    if (!readByte(byte)) {
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << "Failed reading second byte !";
        return false;
    }
    mode = modeByte == 1;
    return true;
}

void UartOverEthernetInterface::clearIncomingData()
{
    if (!m_incoming.isEmpty()) {
        QByteArray waiting;
        for (const unsigned char byte : std::as_const(m_incoming))
            waiting.append(static_cast<char>(byte));
        LogFormatter(1, Log::Hardware) << Q_FUNC_INFO << "deleting" << waiting.toHex();
    }
    m_incoming.clear();
}

void UartOverEthernetInterface::onDataReceived(unsigned int /*port*/, const QByteArray &bytes)
{
    logReceived(bytes);
    m_arrived += bytes;
    // Whoever hears of a byte may run an event loop: the rest, and what comes then, is told there.
    const QPointer<UartOverEthernetInterface> pThis(this); // or delete it
    while (pThis && !m_arrived.isEmpty()) {
        const QByteArray next = databits() > 8 ? m_arrived : m_arrived.left(1);
        m_arrived.remove(0, next.size());
        append(next);
        pollingLoopResult(ResultDataReady);
    }
}

void UartOverEthernetInterface::append(const QByteArray &bytes)
{
    if (!m_incoming.isEmpty() && m_incoming.size() + bytes.size() > s_maxIncoming) {
        LogFormatter(3, Log::Payment)
            << Q_FUNC_INFO << "Nobody reads" << m_incoming.size() << "bytes";
        clearIncomingData();
    }
    for (const char byte : bytes)
        m_incoming.append(static_cast<unsigned char>(byte));
}

void UartOverEthernetInterface::pollingLoop()
{
    require(QMetaObject::invokeMethod(&m_pollTimer, "start", Q_ARG(int, pollTimeoutMs())),
            __LINE__);
}

void UartOverEthernetInterface::onPollTimeout()
{
    pollingLoopResult(ResultTimeout);
}

void UartOverEthernetInterface::pollingLoopResult(PollResult result)
{
    if (!isReady())
        return;
    const QPointer<UartOverEthernetInterface> pThis(this);
    switch (result) {
    case ResultDataReady:
        pollingLoop();
        Q_EMIT polled(pollDataReady);
        return;
    case ResultTimeout:
    case ResultError:
        Q_EMIT polled(result == ResultTimeout ? pollTimeout : pollError);
        if (pThis)
            clearIncomingData(); // last: whoever hears it may want what has come
        return;
    }
    printAssertMsg(QStringLiteral("false"), QStringLiteral("Wrong poll result"), s_pUnit, __LINE__);
}
