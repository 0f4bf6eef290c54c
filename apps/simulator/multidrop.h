#ifndef MULTIDROP_H
#define MULTIDROP_H

#include <QByteArray>
#include <QPair>
#include <QVector>

#include <optional>

/// The multi-drop payment line, as the card reader (address 0x10) and its master speak on it. A
/// character has eight bits and a mode bit. The master's blocks begin with the mode bit set, on the
/// byte that names peripheral and command; the peripheral's answer ends with it. Both end in a
/// checksum: the sum of the bytes before it. Pure functions.
namespace Multidrop {

using Characters = QVector<QPair<bool, unsigned char>>; ///< mode bit, byte

constexpr unsigned char Address = 0x10; ///< of the card reader; its commands are in the low 3 bits
constexpr unsigned char AddressMask = 0xF8;

// Single characters instead of a block. The peripheral's have the mode bit, the master's have not.
constexpr unsigned char Ack = 0x00;
constexpr unsigned char Ret = 0xAA; ///< the master wants the last block again
constexpr unsigned char Nak = 0xFF;

constexpr int MaxBlock = 36; ///< bytes, the checksum included

/// What the master asks: the command byte, and below it the sub-command where there is one.
enum Request : int {
    Reset = 0x1000,
    SetupConfig = 0x1100, ///< level, columns, rows, display information (1 byte each)
    SetupPrices = 0x1101, ///< highest and lowest price (2 bytes each)
    Poll = 0x1200,
    VendRequest = 0x1300, ///< price, item (2 bytes each)
    VendCancel = 0x1301,
    VendSuccess = 0x1302, ///< item (2 bytes)
    VendFailure = 0x1303,
    SessionComplete = 0x1304,
    ReaderDisable = 0x1400,
    ReaderEnable = 0x1401,
    ReaderCancel = 0x1402,
};

/// The first byte of the peripheral's answers.
enum Response : unsigned char {
    JustReset = 0x00,
    ConfigData = 0x01,   ///< level, country (2), scale, decimals, response time (s), options
    BeginSession = 0x03, ///< funds (2 bytes)
    SessionCancelRequest = 0x04,
    VendApproved = 0x05, ///< amount (2 bytes)
    VendDenied = 0x06,
    EndSession = 0x07,
    Cancelled = 0x08,
    OutOfSequence = 0x0B,
};

/// How many bytes a block has, its checksum included, whose first bytes these are: 0 when that
/// cannot be told yet, -1 when there is no such command.
int requestSize(const QByteArray &begin);
/// Of a block with at least its sub-command.
int requestOf(const QByteArray &block);

Characters requestCharacters(int request, const QByteArray &payload = {});
/// \param data the response and what belongs to it, without checksum
Characters answerCharacters(const QByteArray &data);

/// The block without its checksum; nothing when that is wrong.
std::optional<QByteArray> checked(const QByteArray &block);

/// How characters travel on the multiport link: a mode byte, 1 or 0, before each byte.
QByteArray toBytes(const Characters &characters);

int shortAt(const QByteArray &block, int index); ///< 16 bits, big-endian
QByteArray shortBytes(int value);

} // namespace Multidrop

#endif // MULTIDROP_H
