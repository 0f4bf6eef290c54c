#ifndef CANFRAME_H
#define CANFRAME_H

#include "canbus/canbytes.h"
#include "vyhardware1_export.h"

#include <QMetaType>

#include <algorithm>
#include <iterator>

/// One frame as it travels on the bus: an extended identifier and up to 8 bytes. A plain value.
class VYHARDWARE1_EXPORT CanFrame
{
public:
    CanFrame() = default;

    /// The 29-bit identifier; VYCanFrame knows its fields.
    quint32 id() const { return m_id; }
    void setId(quint32 id) { m_id = id; }

    const CanBytes &data() const { return m_data; }
    void setData(const CanBytes &data) { m_data = data; }
    /// Writes the bytes over the old ones; no memory is asked for where the list is long enough and
    /// not shared.
    template <typename Iterator>                    // sometimes a pointer, but never named like one
    void overwriteData(Iterator from, Iterator to); // NOLINT(readability-identifier-naming)
    void appendData(const char &byte) { m_data.append(static_cast<unsigned char>(byte)); }
    int dataSize() const { return m_data.size(); }

    /// Travels with the frame; nothing in this library reads it.
    quint32 reserved() const { return m_reserved; }
    void setReserved(quint32 word) { m_reserved = word; }

    /// See canBytesToString().
    QString dataToString() const { return canBytesToString(m_data); }

private:
    quint32 m_id = 0;
    CanBytes m_data;
    quint32 m_reserved = 0;
};
Q_DECLARE_METATYPE(CanFrame)

template <typename Iterator>
void CanFrame::overwriteData(Iterator from, Iterator to) // NOLINT(readability-identifier-naming)
{
    const auto size = static_cast<int>(std::distance(from, to));
    if (m_data.size() > size)
        m_data.erase(m_data.begin() + size, m_data.end());
    if (m_data.size() < size)
        m_data.reserve(size);
    while (m_data.size() < size)
        m_data.append(0);
    std::copy(from, to, m_data.begin());
}

#endif // CANFRAME_H
