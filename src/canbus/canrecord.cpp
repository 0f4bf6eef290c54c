#include "canbus/canrecord.h"

#include "canbus/vystream.h"

#include <QtEndian>

#include <algorithm>

namespace CanRecord {

QByteArray encode(const CanFrame &frame)
{
    QByteArray record(HeadSize + frame.dataSize(), '\0');
    qToBigEndian(frame.id(), record.data());
    record[IdSize] = static_cast<char>(frame.dataSize());
    std::copy(frame.data().cbegin(), frame.data().cend(), record.begin() + HeadSize);
    return record;
}

void Reader::append(const QByteArray &bytes)
{
    if (!m_isBroken)
        m_bytes += bytes;
}

std::optional<CanFrame> Reader::next()
{
    const char *const pRecord = m_bytes.constData() + m_taken;
    const int waiting = m_bytes.size() - m_taken;
    const int size = waiting < HeadSize ? 0 : static_cast<quint8>(pRecord[IdSize]);
    m_isBroken = m_isBroken || size > CanVy::FrameDataMaxSize;
    if (m_isBroken || waiting < HeadSize + size) {
        m_bytes.remove(0, m_isBroken ? m_bytes.size() : m_taken);
        m_taken = 0;
        return std::nullopt;
    }
    CanFrame frame;
    frame.setId(qFromBigEndian<quint32>(pRecord));
    frame.overwriteData(pRecord + HeadSize, pRecord + HeadSize + size);
    m_taken += HeadSize + size;
    return frame;
}

} // namespace CanRecord
