#ifndef FUZZLINK_H
#define FUZZLINK_H

#include "linkrecords.h"

#include <QList>
#include <QtEndian>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

inline void check(bool isTrue)
{
    if (!isTrue)
        std::abort();
}

/// The record as it stood in its stream.
inline QByteArray recordOf(const multiportlink::Record &record)
{
    QByteArray bytes(2, '\0');
    qToBigEndian(static_cast<quint16>(record.body.size() + 1), bytes.data());
    return bytes + static_cast<char>(record.kind) + record.body;
}

inline void takeRecords(multiportlink::RecordReader &reader, QList<multiportlink::Record> &records)
{
    while (const auto record = reader.next())
        records.append(*record);
}

/// The records of an input, whose first byte says where the stream is cut. Stops the program when
/// another cut gives others, or when they are not the stream up to where it breaks or ends.
inline QList<multiportlink::Record> recordsOf(const std::uint8_t *pData, std::size_t size)
{
    using namespace multiportlink;
    if (size == 0)
        return {};
    const QByteArray stream(reinterpret_cast<const char *>(pData + 1), static_cast<int>(size - 1));

    RecordReader whole;
    whole.append(stream);
    QList<Record> records;
    takeRecords(whole, records);

    const int cut = std::min<int>(pData[0], stream.size());
    RecordReader inTwo;
    QList<Record> others;
    inTwo.append(stream.left(cut));
    takeRecords(inTwo, others);
    inTwo.append(stream.mid(cut));
    takeRecords(inTwo, others);

    check(whole.fault() == inTwo.fault());
    check(records.size() == others.size());
    QByteArray joined;
    for (int i = 0; i < records.size(); ++i) {
        check(records.at(i).kind == others.at(i).kind && records.at(i).body == others.at(i).body);
        joined += recordOf(records.at(i));
    }
    check(stream.startsWith(joined));
    return records;
}

#endif // FUZZLINK_H
