#ifndef LINKRECORDS_H
#define LINKRECORDS_H

#include "vymultiport1_export.h"

#include <QByteArray>
#include <QString>
#include <chrono>
#include <optional>

/// The control records of the multiport link, for the client, the server and whoever looks at the
/// link. docs/multiport-link.md has the bytes. Plain values and functions; any thread.
namespace multiportlink {

constexpr quint8 Version = 1;
constexpr quint16 PaymentPort = 4000;
constexpr quint16 CanPort = 4001;     ///< chosen here
constexpr quint16 ControlPort = 4002; ///< chosen here
constexpr int MaxRecordSize = 4096;   ///< bytes, the length field included; chosen here
constexpr int MaxBacklog = 1 << 20;   ///< bytes that may wait for a peer; chosen here

// Chosen here, so that a half-open connection is found within three heartbeats.
constexpr std::chrono::milliseconds HeartbeatInterval{1000};
constexpr std::chrono::milliseconds SilenceLimit{2500};
constexpr std::chrono::milliseconds HelloTimeout{5000};
constexpr std::chrono::milliseconds ClaimTimeout{2000};

enum class Kind : quint8 {
    Hello = 0x01,
    Request = 0x02,
    Heartbeat = 0x04,
    Welcome = 0x81,
    Status = 0x82,
    Event = 0x83,
    Goodbye = 0x85,
};

enum class Role : quint8 { Observer = 0, Controller = 1 };

enum class Reason : quint8 {
    NotThisLink = 1,
    OtherVersion = 2,
    ControllerTaken = 3,
    TooManyClients = 4,
    Malformed = 5,
    TooLong = 6,
    NoHello = 7,
    Silent = 8,
    Backlog = 9,
    ServerStops = 10,
};

/// One record without its length field.
struct Record
{
    Kind kind;
    QByteArray body;
};

struct Hello
{
    quint8 version;
    Role role;
};

struct Welcome
{
    quint8 version;
    Role role;
    quint16 canPort;
    quint16 paymentPort;
};

struct Request
{
    quint16 sequence;
    quint8 command;
    QByteArray payload;
};

struct Status
{
    quint16 sequence;
    quint8 command;
    quint8 status;
};

struct Event
{
    quint8 event;
    QByteArray payload;
};

struct Goodbye
{
    quint8 reason; ///< a Reason, or a number of a later version
    QString text;
};

/// The payload of MultiportProtocol::CommandClaim.
struct Claim
{
    quint8 interface;
    quint16 port; ///< the client's own, of the data connection
};

/// The payload of MultiportProtocol::CommandSetSerialLine.
struct SerialLine
{
    quint16 port;
    quint32 baudRate;
    quint8 dataBits;
    quint8 parity;
    quint8 mdbMode;
};

// Whole records, length field included.
VYMULTIPORT1_EXPORT QByteArray encode(const Hello &hello);
VYMULTIPORT1_EXPORT QByteArray encode(const Welcome &welcome);
VYMULTIPORT1_EXPORT QByteArray encode(const Request &request);
VYMULTIPORT1_EXPORT QByteArray encode(const Status &status);
VYMULTIPORT1_EXPORT QByteArray encode(const Event &event);
/// A text that would make the record too long is cut.
VYMULTIPORT1_EXPORT QByteArray encode(const Goodbye &goodbye);
VYMULTIPORT1_EXPORT QByteArray encodeHeartbeat();

// Payloads.
VYMULTIPORT1_EXPORT QByteArray encode(const Claim &claim);
VYMULTIPORT1_EXPORT QByteArray encode(const SerialLine &line);

// Nothing when the body or payload is not one of its kind. A hello or welcome of another version is
// decoded, whatever follows its version and role.
VYMULTIPORT1_EXPORT std::optional<Hello> decodeHello(const QByteArray &body);
VYMULTIPORT1_EXPORT std::optional<Welcome> decodeWelcome(const QByteArray &body);
VYMULTIPORT1_EXPORT std::optional<Request> decodeRequest(const QByteArray &body);
VYMULTIPORT1_EXPORT std::optional<Status> decodeStatus(const QByteArray &body);
VYMULTIPORT1_EXPORT std::optional<Event> decodeEvent(const QByteArray &body);
VYMULTIPORT1_EXPORT std::optional<Goodbye> decodeGoodbye(const QByteArray &body);
VYMULTIPORT1_EXPORT std::optional<Claim> decodeClaim(const QByteArray &payload);
VYMULTIPORT1_EXPORT std::optional<SerialLine> decodeSerialLine(const QByteArray &payload);

/// Takes records out of a stream that arrives cut anywhere. Holds at most one incomplete record
/// besides what was appended last.
class VYMULTIPORT1_EXPORT RecordReader
{
public:
    void append(const QByteArray &bytes)
    {
        if (!m_fault)
            m_bytes += bytes;
    }

    /// The next whole record; nothing while it is incomplete, and for ever once the stream is
    /// broken.
    std::optional<Record> next();

    /// What broke the stream: a length that no record has, or a kind that is unknown. What follows
    /// cannot be read.
    std::optional<Reason> fault() const { return m_fault; }

private:
    QByteArray m_bytes;
    int m_taken = 0; ///< bytes at the beginning whose records have been handed out
    std::optional<Reason> m_fault;
};

} // namespace multiportlink

#endif // LINKRECORDS_H
