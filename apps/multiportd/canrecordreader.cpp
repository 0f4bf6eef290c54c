#include "multiportd/canrecordreader.h"

#include "canbus/vystream.h"

#include <QtEndian>
#include <algorithm>

namespace {

constexpr int s_idSize = 4;
constexpr int s_headSize = 5; ///< identifier and length

} // namespace

QByteArray canRecordOf(const CanFrame &frame)
{
    QByteArray record(s_headSize + frame.dataSize(), Qt::Uninitialized);
    qToBigEndian(frame.id(), record.data());
    record[s_idSize] = static_cast<char>(frame.dataSize());
    std::copy(frame.data().cbegin(), frame.data().cend(), record.begin() + s_headSize);
    return record;
}

bool CanRecordReader::next(CanFrame &frame, QByteArray &record)
{
    const int waiting = m_bytes.size() - m_taken;
    if (m_isBroken || waiting < s_headSize)
        return dropTaken();
    const char *const pRecord = m_bytes.constData() + m_taken;
    const int size = static_cast<unsigned char>(pRecord[s_idSize]);
    m_isBroken = size > CanVy::FrameDataMaxSize;
    if (m_isBroken || waiting < s_headSize + size)
        return dropTaken();
    const auto *const pData = reinterpret_cast<const unsigned char *>(pRecord + s_headSize);
    frame.setId(qFromBigEndian<quint32>(pRecord));
    frame.overwriteData(pData, pData + size);
    record = QByteArray::fromRawData(pRecord, s_headSize + size);
    m_taken += s_headSize + size;
    return true;
}

bool CanRecordReader::dropTaken()
{
    m_bytes.remove(0, m_taken);
    m_taken = 0;
    return false;
}
