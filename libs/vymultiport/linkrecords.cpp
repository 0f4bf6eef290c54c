#include "linkrecords.h"

#include "packed_p.h"

#include <QtEndian>
#include <algorithm>

namespace multiportlink {

namespace {

constexpr int s_lengthSize = 2;
constexpr int s_kindSize = 1;
constexpr int s_maxBody = MaxRecordSize - s_lengthSize - s_kindSize;
constexpr char s_magic[] = {'V', 'Y', 'M', 'P'};
constexpr int s_magicSize = 4;

/// False, with numbers that mean nothing, when the bytes are not exactly theirs.
template <typename... Numbers>
bool unpack(const QByteArray &bytes, Numbers &...numbers)
{
    if (bytes.size() != static_cast<int>((sizeof(Numbers) + ...)))
        return false;
    QDataStream stream(bytes);
    (stream >> ... >> numbers);
    return true;
}

QByteArray record(Kind kind, const QByteArray &body)
{
    return packed(static_cast<quint16>(s_kindSize + body.size()), static_cast<quint8>(kind)) + body;
}

/// What follows the magic word; nothing when it is another.
std::optional<QByteArray> afterMagic(const QByteArray &body)
{
    if (!body.startsWith(QByteArray::fromRawData(s_magic, s_magicSize)))
        return std::nullopt;
    return body.mid(s_magicSize);
}

/// As much of the text as fits, and no character in parts.
QByteArray cutUtf8(const QString &text, int maxSize)
{
    const QByteArray utf8 = text.toUtf8();
    int size = std::min(utf8.size(), maxSize);
    const auto isInside = [&](int at) {
        return at > 0 && at < utf8.size() && (static_cast<quint8>(utf8.at(at)) & 0xc0U) == 0x80U;
    };
    while (isInside(size))
        --size;
    return utf8.left(size);
}

bool isKnown(quint8 kind)
{
    switch (static_cast<Kind>(kind)) {
    case Kind::Hello:
    case Kind::Request:
    case Kind::Heartbeat:
    case Kind::Welcome:
    case Kind::Status:
    case Kind::Event:
    case Kind::Goodbye:
        return true;
    }
    return false;
}

} // namespace

QByteArray encode(const Hello &hello)
{
    return record(Kind::Hello, QByteArray(s_magic, s_magicSize) +
                                   packed(hello.version, static_cast<quint8>(hello.role)));
}

QByteArray encode(const Welcome &welcome)
{
    return record(Kind::Welcome, QByteArray(s_magic, s_magicSize) +
                                     packed(welcome.version, static_cast<quint8>(welcome.role),
                                            welcome.canPort, welcome.paymentPort));
}

QByteArray encode(const Request &request)
{
    return record(Kind::Request, packed(request.sequence, request.command) + request.payload);
}

QByteArray encode(const Status &status)
{
    return record(Kind::Status, packed(status.sequence, status.command, status.status));
}

QByteArray encode(const Event &event)
{
    return record(Kind::Event, packed(event.event) + event.payload);
}

QByteArray encode(const Goodbye &goodbye)
{
    return record(Kind::Goodbye, packed(goodbye.reason) + cutUtf8(goodbye.text, s_maxBody - 1));
}

QByteArray encodeHeartbeat()
{
    return record(Kind::Heartbeat, {});
}

QByteArray encode(const Claim &claim)
{
    return packed(claim.interface, claim.port);
}

QByteArray encode(const SerialLine &line)
{
    return packed(line.port, line.baudRate, line.dataBits, line.parity, line.mdbMode);
}

std::optional<Hello> decodeHello(const QByteArray &body)
{
    const std::optional<QByteArray> rest = afterMagic(body);
    quint8 version = 0;
    quint8 role = 0;
    if (!rest || !unpack(rest->left(2), version, role))
        return std::nullopt;
    const bool isOurs = version == Version;
    if (isOurs && (rest->size() != 2 || role > static_cast<quint8>(Role::Controller)))
        return std::nullopt;
    return Hello{version, static_cast<Role>(role)};
}

std::optional<Welcome> decodeWelcome(const QByteArray &body)
{
    const std::optional<QByteArray> rest = afterMagic(body);
    quint8 version = 0;
    quint8 role = 0;
    if (!rest || !unpack(rest->left(2), version, role))
        return std::nullopt;
    quint16 canPort = 0;
    quint16 paymentPort = 0;
    const bool hasPorts = unpack(rest->mid(2), canPort, paymentPort);
    const bool isOurs = version == Version;
    if (isOurs && (!hasPorts || role > static_cast<quint8>(Role::Controller)))
        return std::nullopt;
    return Welcome{version, static_cast<Role>(role), canPort, paymentPort};
}

std::optional<Request> decodeRequest(const QByteArray &body)
{
    constexpr int headSize = 3;
    Request request{};
    if (!unpack(body.left(headSize), request.sequence, request.command))
        return std::nullopt;
    request.payload = body.mid(headSize);
    return request;
}

std::optional<Status> decodeStatus(const QByteArray &body)
{
    Status status{};
    if (!unpack(body, status.sequence, status.command, status.status))
        return std::nullopt;
    return status;
}

std::optional<Event> decodeEvent(const QByteArray &body)
{
    Event event{};
    if (!unpack(body.left(1), event.event))
        return std::nullopt;
    event.payload = body.mid(1);
    return event;
}

std::optional<Goodbye> decodeGoodbye(const QByteArray &body)
{
    Goodbye goodbye{};
    if (!unpack(body.left(1), goodbye.reason))
        return std::nullopt;
    goodbye.text = QString::fromUtf8(body.mid(1));
    return goodbye;
}

std::optional<Claim> decodeClaim(const QByteArray &payload)
{
    Claim claim{};
    if (!unpack(payload, claim.interface, claim.port))
        return std::nullopt;
    return claim;
}

std::optional<SerialLine> decodeSerialLine(const QByteArray &payload)
{
    SerialLine line{};
    if (!unpack(payload, line.port, line.baudRate, line.dataBits, line.parity, line.mdbMode))
        return std::nullopt;
    return line;
}

std::optional<Record> RecordReader::next()
{
    const int waiting = m_bytes.size() - m_taken;
    if (m_fault || waiting < s_lengthSize) {
        m_bytes.remove(0, m_taken);
        m_taken = 0;
        return std::nullopt;
    }
    const char *const pRecord = m_bytes.constData() + m_taken;
    const int length = qFromBigEndian<quint16>(pRecord);
    const bool isTooLong = length > MaxRecordSize - s_lengthSize;
    const bool hasKind = waiting > s_lengthSize;
    if (length < s_kindSize || isTooLong ||
        (hasKind && !isKnown(static_cast<quint8>(pRecord[s_lengthSize])))) {
        m_fault = isTooLong ? Reason::TooLong : Reason::Malformed;
        m_bytes.clear();
        m_taken = 0;
        return std::nullopt;
    }
    if (waiting < s_lengthSize + length) {
        m_bytes.remove(0, m_taken);
        m_taken = 0;
        return std::nullopt;
    }
    Record whole{static_cast<Kind>(pRecord[s_lengthSize]),
                 QByteArray(pRecord + s_lengthSize + s_kindSize, length - s_kindSize)};
    m_taken += s_lengthSize + length;
    return whole;
}

} // namespace multiportlink
