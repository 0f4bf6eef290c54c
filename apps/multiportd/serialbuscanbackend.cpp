#include "multiportd/serialbuscanbackend.h"

#include "logformatter.h"

#include <QCanBus>
#include <QCanBusFrame>
#include <algorithm>
#include <utility>

namespace {

constexpr int s_maxWaiting = 8192; ///< frames, about a second of a full bus
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
    connect(m_pDevice.get(), &QCanBusDevice::stateChanged, this,
            &SerialBusCanBackend::onStateChanged);
    connect(m_pDevice.get(), &QCanBusDevice::errorOccurred, this, [this] { tellError(); });
    return true;
}

void SerialBusCanBackend::send(const CanFrame &frame)
{
    if (frame.id() > s_maxId) {
        lose(QStringLiteral("identifier 0x%1 has more than 29 bits").arg(frame.id(), 0, 16));
        return;
    }
    if (m_pDevice && m_pDevice->framesToWrite() >= s_maxWaiting) {
        lose(QStringLiteral("%1 frames wait for the bus").arg(s_maxWaiting));
        return;
    }
    QCanBusFrame sent(frame.id(), payloadOf(frame));
    sent.setExtendedFrameFormat(true);
    if (!m_pDevice || m_pDevice->state() != QCanBusDevice::ConnectedState ||
        !m_pDevice->writeFrame(sent)) {
        lose(QStringLiteral("the bus takes none"));
        return;
    }
    m_isLossTold = false;
    m_isErrorTold = false;
}

void SerialBusCanBackend::lose(const QString &reason)
{
    if (!std::exchange(m_isLossTold, true))
        LogFormatter(4, Log::Hardware)
            << Q_FUNC_INFO << "CAN frames are lost until one can be sent again:" << reason;
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
        if (m_foreignFrames++ == 0)
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

void SerialBusCanBackend::onStateChanged(QCanBusDevice::CanBusDeviceState state)
{
    if (state == QCanBusDevice::UnconnectedState)
        Q_EMIT failed(
            QStringLiteral("%1: the bus is gone, %2").arg(m_interface, m_pDevice->errorString()));
}
