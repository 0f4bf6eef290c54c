#include "canbus/canrecord.h"

#include "canbus/vystream.h"

#include <QtEndian>

#include <algorithm>

namespace CanRecord {

void append(QByteArray &stream, const CanFrame &frame)
{
    const int place = stream.size();
    stream.resize(place + HeadSize + frame.dataSize());
    char *const pRecord = stream.data() + place;
    qToBigEndian(frame.id(), pRecord);
    pRecord[IdSize] = static_cast<char>(frame.dataSize());
    std::copy(frame.data().cbegin(), frame.data().cend(), pRecord + HeadSize);
}

QByteArray encode(const CanFrame &frame)
{
    QByteArray record;
    append(record, frame);
    return record;
}

void Reader::append(const QByteArray &bytes)
{
    if (!m_isBroken)
        m_bytes += bytes;
}

bool Reader::next(CanFrame &frame)
{
    const char *const pRecord = m_bytes.constData() + m_taken;
    const int waiting = m_bytes.size() - m_taken;
    const int size = waiting < HeadSize ? 0 : static_cast<quint8>(pRecord[IdSize]);
    m_isBroken = m_isBroken || size > CanVy::FrameDataMaxSize;
    if (m_isBroken || waiting < HeadSize + size) {
        m_bytes.remove(0, m_isBroken ? m_bytes.size() : m_taken);
        m_taken = 0;
        return false;
    }
    frame.setId(qFromBigEndian<quint32>(pRecord));
    frame.overwriteData(pRecord + HeadSize, pRecord + HeadSize + size);
    m_taken += HeadSize + size;
    return true;
}

} // namespace CanRecord
