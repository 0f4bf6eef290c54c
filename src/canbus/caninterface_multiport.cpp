#include "canbus/caninterface_multiport.h"

#include "assertions.h"
#include "canbus/canrecord.h"
#include "canbus/vystream.h"
#include "hardwareenvironment.h"
#include "logformatter.h"

#include <QtEndian>

#include <cstdlib>
#include <utility>

namespace {

constexpr auto s_noMultiport = "multiport pointer incorrect";

QString headText(quint32 id, int length)
{
    return QString::asprintf("0x%02x 0x%02x", id, static_cast<unsigned>(length));
}

} // namespace

CanInterface_Multiport::CanInterface_Multiport(QObject *pParent)
    : AbstractCanInterface(pParent, false)
{
    connect(this, &CanInterface_Multiport::frameReceived, this,
            &CanInterface_Multiport::onFrameReceived);
    listenTo(multiport());
}

bool CanInterface_Multiport::openInterface(const QString & /*name*/)
{
    Multiport *const pMultiport = multiport();
    if (!pMultiport) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << s_noMultiport;
        return false;
    }
    if (isOpen()) {
        LogFormatter(3, Log::CanBus) << Q_FUNC_INFO << "multiport CAN bus channel already opened";
        return false;
    }
    listenTo(pMultiport);
    clearBuffer();
    pMultiport->setEnabled(Multiport::CanBusInterface, true);
    return true;
}

bool CanInterface_Multiport::closeInterface()
{
    Multiport *const pMultiport = multiport();
    if (!pMultiport) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << s_noMultiport;
        return false;
    }
    if (isOpen())
        pMultiport->setEnabled(Multiport::CanBusInterface, false);
    return true;
}

bool CanInterface_Multiport::isOpen() const
{
    const Multiport *const pMultiport = multiport();
    if (!pMultiport) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << s_noMultiport;
        return false;
    }
    return pMultiport->isOpen(Multiport::CanBusInterface);
}

bool CanInterface_Multiport::writeToCan(const CanFrame &frame)
{
#ifdef Q_OS_WIN
    Q_UNUSED(frame)
    printReleaseAssertMsg(
        QStringLiteral("false"),
        QStringLiteral("Canbus multiport interface is not supported under windows"),
        "src/canbus/caninterface_multiport", __LINE__);
    std::exit(EXIT_FAILURE);
#else
    Multiport *const pMultiport = multiport();
    if (!pMultiport) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << s_noMultiport;
        return false;
    }
    if (frame.dataSize() > CanVy::FrameDataMaxSize) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "A frame of" << frame.dataSize()
                                     << "bytes, expected at most" << CanVy::FrameDataMaxSize;
        return false;
    }
    m_record.resize(0); // keeps its memory
    CanRecord::append(m_record, frame);
    return pMultiport->writeToCanBus(m_record);
#endif
}

// Every line bears this operation's signature, and counts as a branch of it.
// NOLINTNEXTLINE(readability-function-cognitive-complexity,readability-function-size)
void CanInterface_Multiport::readFromCan(const QByteArray &bytes)
{
    LogFormatter(0, Log::CanBus) << Q_FUNC_INFO << "new data:" << bytes.toHex();
    m_buffer.append(bytes);
    LogFormatter(0, Log::CanBus) << Q_FUNC_INFO << "buffer:" << m_buffer.mid(m_consumed).toHex();
    if (m_isReading) {
        readRestInNestedLoop();
        return;
    }
    m_isReading = true;
    const QPointer<CanInterface_Multiport> pThis(this); // a slot may delete it
    while (m_buffer.size() - m_consumed > CanRecord::IdSize) {
        const char *const pRecord = m_buffer.constData() + m_consumed;
        const quint32 id = swap(qFromLittleEndian<quint32>(pRecord));
        // The length is signed on the wire. NOLINTNEXTLINE(bugprone-signed-char-misuse)
        const int length = qFromBigEndian<qint8>(pRecord + CanRecord::IdSize);
        if (length < 0) {
            LogFormatter(4, Log::CanBus)
                << Q_FUNC_INFO << "Invalid length" << length << "in the stream, buffer cleared";
            m_consumed = m_buffer.size();
            break;
        }
        if (length + CanRecord::IdSize >= m_buffer.size() - m_consumed) {
            LogFormatter(0, Log::CanBus)
                << Q_FUNC_INFO << "Not enough data for current dlc" << headText(id, length);
            break;
        }
        const char *const pData = pRecord + CanRecord::HeadSize;
        LogFormatter(0, Log::CanBus) << Q_FUNC_INFO << "new CanFrame:" << headText(id, length)
                                     << QByteArray::fromRawData(pData, length).toHex();
        m_frame.setId(id);
        m_frame.overwriteData(pData, pData + length);
        // First: whoever hears the frame may close and reopen, or wait for what is behind it.
        m_consumed += CanRecord::HeadSize + length;
        if (m_consumed < m_buffer.size())
            readRestInNestedLoop();
        CanFrame frame = std::move(m_frame); // stays as it is if a nested event loop reads on
        Q_EMIT frameReceived(frame);
        if (!pThis)
            return;
        m_frame = std::move(frame);
    }
    m_buffer.remove(0, m_consumed);
    m_consumed = 0;
    m_isReading = false;
    if (!m_buffer.isEmpty())
        LogFormatter(0, Log::CanBus) << Q_FUNC_INFO << "Not enough data:" << m_buffer.size();
}

/// Without it, whoever waits for a message inside the handling of another would wait in vain.
void CanInterface_Multiport::readRestInNestedLoop()
{
    if (std::exchange(m_isNestedReadPosted, true))
        return;
    QMetaObject::invokeMethod(this, &CanInterface_Multiport::readInNestedLoop,
                              Qt::QueuedConnection);
}

void CanInterface_Multiport::readInNestedLoop()
{
    m_isNestedReadPosted = false;
    if (!m_isReading) // what has come meanwhile is read by now
        return;
    const QPointer<CanInterface_Multiport> pThis(this);
    m_isReading = false;
    readFromCan({});
    if (pThis)
        m_isReading = true;
}

Multiport *CanInterface_Multiport::multiport() const
{
    return gHardwareEnv ? gHardwareEnv->multiport() : nullptr;
}

unsigned int CanInterface_Multiport::swap(unsigned int value)
{
    return qbswap(value);
}

void CanInterface_Multiport::listenTo(Multiport *pMultiport)
{
    if (!pMultiport || pMultiport == m_pHeard)
        return;
    if (m_pHeard)
        disconnect(m_pHeard, nullptr, this, nullptr);
    m_pHeard = pMultiport;
    connect(pMultiport, &Multiport::newDataOnCanBus, this, &CanInterface_Multiport::readFromCan);
    // The channel's connections each begin with a whole record.
    connect(pMultiport, &Multiport::canBusConnectedChanged, this,
            &CanInterface_Multiport::clearBuffer);
}

void CanInterface_Multiport::clearBuffer()
{
    m_buffer.clear();
    m_consumed = 0;
}
