#include "multiportd/serialbuscanbackend.h"

#include "logformatter.h"

#include <QCanBus>
#include <QCanBusFrame>
#include <algorithm>
#include <limits>
#include <utility>

namespace {

constexpr int s_maxWaiting = 8192;              ///< frames, about a second of a full bus
constexpr qint64 s_maxBytesWaiting = 512 << 10; ///< as many frames, as a bus over TCP writes them
constexpr quint32 s_maxId = 0x1FFFFFFF;

QByteArray payloadOf(const CanFrame &frame)
{
    QByteArray payload(frame.dataSize(), Qt::Uninitialized);
    std::copy(frame.data().cbegin(), frame.data().cend(), payload.begin());
    return payload;
}

} // namespace

SerialBusCanBackend::SerialBusCanBackend(QString plugin, QString interface, QObject *pParent)
    : AbstractCanBackend(pParent)
    , m_plugin(std::move(plugin))
    , m_interface(std::move(interface))
{
}

SerialBusCanBackend::~SerialBusCanBackend()
{
    close();
}

void SerialBusCanBackend::close()
{
    if (!m_pDevice)
        return;
    m_pDevice->disconnect(this);
    m_pDevice->disconnectDevice();
    m_pDevice.reset();
}

bool SerialBusCanBackend::open(QString *pError)
{
    if (!QCanBus::instance()->plugins().contains(m_plugin)) {
        *pError = QStringLiteral("there is no CAN plugin \"%1\"; there are: %2")
                      .arg(m_plugin, QCanBus::instance()->plugins().join(QStringLiteral(", ")));
        return false;
    }
    if (isConnecting())
        return true;
    close();
    m_pDevice.reset(QCanBus::instance()->createDevice(m_plugin, m_interface, pError));
    if (!m_pDevice)
        return false;
    connect(m_pDevice.get(), &QCanBusDevice::framesReceived, this, &SerialBusCanBackend::receive);
    if (!m_pDevice->connectDevice()) {
        *pError = QStringLiteral("cannot connect CAN interface \"%1\" of plugin %2: %3")
                      .arg(m_interface, m_plugin, m_pDevice->errorString());
        return false;
    }
    m_pSocket = m_pDevice->findChild<QAbstractSocket *>();
    if (m_pSocket) // the device does not tell that its socket was refused
        connect(m_pSocket, &QAbstractSocket::errorOccurred, this,
                &SerialBusCanBackend::onSocketError);
    connect(m_pDevice.get(), &QCanBusDevice::stateChanged, this,
            &SerialBusCanBackend::onStateChanged);
    connect(m_pDevice.get(), &QCanBusDevice::errorOccurred, this, [this] { tellError(); });
    return true;
}

bool SerialBusCanBackend::isConnecting() const
{
    return m_pDevice && m_pDevice->state() == QCanBusDevice::ConnectingState &&
           (!m_pSocket || m_pSocket->state() != QAbstractSocket::UnconnectedState);
}

bool SerialBusCanBackend::isReady() const
{
    return m_pDevice && m_pDevice->state() == QCanBusDevice::ConnectedState;
}

/// A plugin that writes to a socket counts no frames: they wait there, as many bytes.
bool SerialBusCanBackend::isFull() const
{
    return m_pDevice && (m_pDevice->framesToWrite() >= s_maxWaiting ||
                         (m_pSocket && m_pSocket->bytesToWrite() >= s_maxBytesWaiting));
}

/// Not at the edge, where a line in the log would come again and again.
bool SerialBusCanBackend::hasRoomAgain() const
{
    return isReady() && m_pDevice->framesToWrite() == 0 &&
           (!m_pSocket || m_pSocket->bytesToWrite() == 0);
}

void SerialBusCanBackend::send(const CanFrame &frame)
{
    if (frame.id() > s_maxId) {
        lose(QStringLiteral("identifier 0x%1 has more than 29 bits").arg(frame.id(), 0, 16));
        return;
    }
    if (isFull()) {
        lose(QStringLiteral("%1 frames wait for the bus").arg(s_maxWaiting));
        return;
    }
    if (hasRoomAgain())
        m_isLossTold = false;
    QCanBusFrame sent(frame.id(), payloadOf(frame));
    sent.setExtendedFrameFormat(true);
    if (!isReady() || !m_pDevice->writeFrame(sent)) {
        lose(QStringLiteral("the bus takes none"));
        return;
    }
    m_isErrorTold = false;
}

void SerialBusCanBackend::lose(const QString &reason)
{
    if (!std::exchange(m_isLossTold, true))
        LogFormatter(4, Log::Hardware)
            << Q_FUNC_INFO << "CAN frames are lost until the bus takes them again:" << reason;
}

void SerialBusCanBackend::receive()
{
    const QVector<QCanBusFrame> frames = m_pDevice->readAllFrames();
    for (const QCanBusFrame &frame : frames)
        take(frame);
}

void SerialBusCanBackend::take(const QCanBusFrame &received)
{
    const bool isOurs = received.frameType() == QCanBusFrame::DataFrame &&
                        received.hasExtendedFrameFormat() && !received.hasFlexibleDataRateFormat();
    if (!isOurs) {
        m_foreignFrames += m_foreignFrames < std::numeric_limits<int>::max() ? 1 : 0;
        if (m_foreignFrames == 1)
            LogFormatter(3, Log::Hardware)
                << Q_FUNC_INFO
                << "Not relayed, as all others of its kind will not be:" << received.toString();
        return;
    }
    const QByteArray payload = received.payload();
    m_frame.setId(received.frameId());
    m_frame.overwriteData(payload.cbegin(), payload.cend());
    Q_EMIT frameReceived(m_frame);
}

void SerialBusCanBackend::tellError()
{
    if (!std::exchange(m_isErrorTold, true))
        LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << m_interface << m_pDevice->errorString();
}

void SerialBusCanBackend::onSocketError()
{
    if (m_pDevice->state() == QCanBusDevice::ConnectingState)
        Q_EMIT failed(QStringLiteral("%1: %2").arg(m_interface, m_pSocket->errorString()));
}

void SerialBusCanBackend::onStateChanged(QCanBusDevice::CanBusDeviceState state)
{
    if (state == QCanBusDevice::ConnectedState)
        Q_EMIT ready();
    if (state == QCanBusDevice::UnconnectedState)
        Q_EMIT failed(
            QStringLiteral("%1: the bus is gone, %2").arg(m_interface, m_pDevice->errorString()));
}
