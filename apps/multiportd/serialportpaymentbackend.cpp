#include "multiportd/serialportpaymentbackend.h"

#include "logformatter.h"
#include "multiportprotocol.h"

#include <limits>
#include <sys/ioctl.h>
#include <termios.h>
#include <utility>

namespace {

constexpr int s_maxWaiting = 64 * 1024; ///< bytes, over half a minute of the line at 9600 baud
constexpr int s_bitsPerCharacter = 11;  ///< start, eight, parity, stop
constexpr int s_sentPollMs = 1;
constexpr quint32 s_maxBaudRate = std::numeric_limits<qint32>::max();

/// How long the line needs for them at least, in ms, rounded up.
int durationMs(int characters, qint32 baudRate)
{
    return (characters * s_bitsPerCharacter * 1000 + baudRate - 1) / baudRate;
}

/// Nothing waits in the driver.
bool isDrained(int descriptor)
{
    int waiting = 0;
    return ::ioctl(descriptor, TIOCOUTQ, &waiting) != 0 || waiting == 0;
}

QSerialPort::Parity parityOf(quint8 parity)
{
    if (parity == MultiportProtocol::ParityEven)
        return QSerialPort::EvenParity;
    if (parity == MultiportProtocol::ParityOdd)
        return QSerialPort::OddParity;
    return QSerialPort::NoParity;
}

} // namespace

SerialPortPaymentBackend::SerialPortPaymentBackend(const QString &device, QObject *pParent)
    : AbstractPaymentBackend(pParent)
    , m_device(device)
{
    m_port.setPortName(device);
    m_sentTimer.setSingleShot(true);
    m_sentTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_sentTimer, &QTimer::timeout, this, &SerialPortPaymentBackend::onSent);
    connect(&m_port, &QSerialPort::readyRead, this, &SerialPortPaymentBackend::receive);
    connect(&m_port, &QSerialPort::errorOccurred, this, &SerialPortPaymentBackend::onError);
}

SerialPortPaymentBackend::~SerialPortPaymentBackend()
{
    m_port.disconnect(this);
}

bool SerialPortPaymentBackend::open(QString *pError)
{
    m_port.setBaudRate(QSerialPort::Baud9600);
    m_port.setParity(QSerialPort::NoParity);
    m_isNineBit = false;
    if (m_port.open(QIODevice::ReadWrite))
        return true;
    *pError =
        QStringLiteral("cannot open serial device %1: %2").arg(m_device, m_port.errorString());
    return false;
}

quint8 SerialPortPaymentBackend::setSerialLine(const multiportlink::SerialLine &line)
{
    const bool isNineBit = line.dataBits == MultiportProtocol::DataBits9;
    if (isNineBit && line.parity != MultiportProtocol::ParityNone)
        return MultiportProtocol::StatusRejected; // the parity bit is taken
    if (!m_port.isOpen() || line.baudRate > s_maxBaudRate)
        return MultiportProtocol::StatusFailed;
    m_sentTimer.stop();
    m_waiting.clear();
    receive(); // under the parity that it came with
    m_reader.clear();
    const qint32 oldBaudRate = m_port.baudRate();
    const QSerialPort::Parity oldParity = m_port.parity();
    if (setUp(static_cast<qint32>(line.baudRate), isNineBit, parityOf(line.parity)))
        return MultiportProtocol::StatusDone;
    setUp(oldBaudRate, m_isNineBit, oldParity); // else the port takes the line for set up next time
    return MultiportProtocol::StatusFailed;
}

/// The parity is that of a line with 8 bits.
bool SerialPortPaymentBackend::setUp(qint32 baudRate, bool isNineBit, QSerialPort::Parity parity)
{
    if (!m_port.setBaudRate(baudRate) || !m_port.setDataBits(QSerialPort::Data8))
        return false;
    if (!(isNineBit ? setMode(false) : m_port.setParity(parity)))
        return false;
    m_isNineBit = isNineBit;
    return true;
}

void SerialPortPaymentBackend::write(const QByteArray &bytes)
{
    if (m_waiting.size() + m_port.bytesToWrite() + bytes.size() > s_maxWaiting) {
        if (!std::exchange(m_isLossTold, true))
            LogFormatter(4, Log::Payment)
                << Q_FUNC_INFO
                << "Bytes are lost until the line has sent what waits:" << s_maxWaiting
                << "bytes wait";
        return;
    }
    if (!m_port.isOpen())
        return; // failed() has said so
    m_isLossTold = false;
    if (!m_isNineBit) {
        m_port.write(bytes);
        return;
    }
    m_waiting += bytes;
    if (!m_sentTimer.isActive())
        sendNext();
}

void SerialPortPaymentBackend::startAfresh()
{
    if (m_waiting.size() % 2 != 0)
        m_waiting.chop(1);
}

/// Characters of one mode go out together, with the line's parity set for them.
void SerialPortPaymentBackend::sendNext()
{
    if (m_waiting.size() < 2) {
        setMode(false); // what comes in is mostly data
        return;
    }
    if (!setMode(m_waiting.at(0) != 0)) {
        LogFormatter(4, Log::Payment)
            << Q_FUNC_INFO << "The parity cannot be set, lost bytes:" << m_waiting.size()
            << m_port.errorString();
        m_waiting.clear();
        return;
    }
    sendRun();
}

void SerialPortPaymentBackend::sendRun()
{
    const char mode = m_waiting.at(0);
    QByteArray run;
    int taken = 0;
    for (; taken + 1 < m_waiting.size() && m_waiting.at(taken) == mode; taken += 2)
        run += m_waiting.at(taken + 1);
    m_waiting.remove(0, taken);
    m_port.write(run);
    m_port.flush();
    m_sentTimer.start(durationMs(run.size(), m_port.baudRate()));
}

void SerialPortPaymentBackend::onSent()
{
    if (m_port.bytesToWrite() > 0 || !isDrained(m_port.handle())) {
        m_sentTimer.start(s_sentPollMs);
        return;
    }
    ::tcdrain(m_port.handle()); // the device's own buffer: a few characters at most
    sendNext();
}

bool SerialPortPaymentBackend::setMode(bool isAddress)
{
    const QSerialPort::Parity parity =
        isAddress ? QSerialPort::MarkParity : QSerialPort::SpaceParity;
    if (m_port.parity() == parity)
        return true;
    receive(); // under the parity that it came with
    m_isAddress = isAddress;
    return m_port.setParity(parity) && markParityErrors();
}

/// Has the driver mark each character whose ninth bit is not the line's parity.
bool SerialPortPaymentBackend::markParityErrors()
{
    termios settings = {};
    if (::tcgetattr(m_port.handle(), &settings) != 0)
        return false;
    settings.c_iflag &= ~static_cast<tcflag_t>(IGNPAR | ISTRIP);
    settings.c_iflag |= INPCK | PARMRK;
    if (::tcsetattr(m_port.handle(), TCSANOW, &settings) != 0)
        return false;
    // A driver that cannot do mark and space takes the flag away and says nothing.
    return ::tcgetattr(m_port.handle(), &settings) == 0 && (settings.c_cflag & CMSPAR) != 0;
}

void SerialPortPaymentBackend::receive()
{
    const QByteArray bytes = m_port.readAll();
    if (bytes.isEmpty())
        return;
    const QByteArray told = m_isNineBit ? m_reader.read(bytes, m_isAddress) : bytes;
    if (!told.isEmpty())
        Q_EMIT dataReceived(told);
}

void SerialPortPaymentBackend::onError(QSerialPort::SerialPortError error)
{
    const bool isGone = error == QSerialPort::ReadError || error == QSerialPort::WriteError ||
                        error == QSerialPort::ResourceError;
    if (isGone && m_port.isOpen()) // later: the port is in the middle of its work
        QMetaObject::invokeMethod(this, &SerialPortPaymentBackend::fail, Qt::QueuedConnection);
}

/// Closes the device: one that is gone would tell so again and again.
void SerialPortPaymentBackend::fail()
{
    if (!m_port.isOpen())
        return;
    const QString reason = m_device + QStringLiteral(": ") + m_port.errorString();
    m_sentTimer.stop();
    m_waiting.clear();
    m_reader.clear();
    m_port.close();
    Q_EMIT failed(reason);
}
