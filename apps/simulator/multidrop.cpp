#include "simulator/multidrop.h"

#include <QtEndian>

#include <algorithm>
#include <iterator>
#include <numeric>

namespace Multidrop {

namespace {

/// The form of a request.
struct Form
{
    Request request;
    int headSize; ///< bytes of command and sub-command
    int payloadSize;
};

constexpr Form s_forms[] = {
    {Reset, 1, 0},           {SetupConfig, 2, 4},   {SetupPrices, 2, 4},  {Poll, 1, 0},
    {VendRequest, 2, 4},     {VendCancel, 2, 0},    {VendSuccess, 2, 2},  {VendFailure, 2, 0},
    {SessionComplete, 2, 0}, {ReaderDisable, 2, 0}, {ReaderEnable, 2, 0}, {ReaderCancel, 2, 0},
};

unsigned char byteAt(const QByteArray &block, int index)
{
    return static_cast<unsigned char>(block.at(index));
}

unsigned char checksum(const QByteArray &bytes)
{
    return std::accumulate(
        bytes.cbegin(), bytes.cend(), static_cast<unsigned char>(0),
        [](unsigned char sum, char byte) { return static_cast<unsigned char>(sum + byte); });
}

Characters characters(const QByteArray &data)
{
    Characters list;
    list.reserve(data.size() + 1);
    for (const char byte : data)
        list.append({false, static_cast<unsigned char>(byte)});
    list.append({false, checksum(data)});
    return list;
}

const Form *formOf(int request)
{
    const auto *const pForm =
        std::find_if(std::begin(s_forms), std::end(s_forms),
                     [request](const Form &form) { return form.request == request; });
    return pForm == std::end(s_forms) ? nullptr : pForm;
}

} // namespace

int requestSize(const QByteArray &begin)
{
    if (begin.isEmpty())
        return 0;
    const int command = byteAt(begin, 0) << 8;
    const Form *pForm = formOf(command);
    if (pForm == nullptr)
        return -1;
    if (pForm->headSize > 1) {
        if (begin.size() < 2)
            return 0;
        pForm = formOf(command | byteAt(begin, 1));
    }
    return pForm == nullptr ? -1 : pForm->headSize + pForm->payloadSize + 1;
}

int requestOf(const QByteArray &block)
{
    const int command = byteAt(block, 0) << 8;
    const Form *const pForm = formOf(command);
    return pForm != nullptr && pForm->headSize == 1 ? command : command | byteAt(block, 1);
}

Characters requestCharacters(int request, const QByteArray &payload)
{
    QByteArray data(1, static_cast<char>(request >> 8));
    const Form *const pForm = formOf(request);
    if (pForm == nullptr || pForm->headSize > 1)
        data.append(static_cast<char>(request & 0xFF));
    Characters list = characters(data + payload);
    list.first().first = true;
    return list;
}

Characters answerCharacters(const QByteArray &data)
{
    Characters list = characters(data);
    list.last().first = true;
    return list;
}

std::optional<QByteArray> checked(const QByteArray &block)
{
    if (block.isEmpty())
        return std::nullopt;
    const QByteArray data = block.chopped(1);
    if (checksum(data) != byteAt(block, block.size() - 1))
        return std::nullopt;
    return data;
}

QByteArray toBytes(const Characters &characters)
{
    QByteArray bytes;
    bytes.reserve(2 * characters.size());
    for (const auto &[isMode, byte] : characters) {
        bytes.append(isMode ? '\1' : '\0');
        bytes.append(static_cast<char>(byte));
    }
    return bytes;
}

int shortAt(const QByteArray &block, int index)
{
    return byteAt(block, index) << 8 | byteAt(block, index + 1);
}

QByteArray shortBytes(int value)
{
    QByteArray bytes(2, '\0');
    qToBigEndian(static_cast<quint16>(value), bytes.data());
    return bytes;
}

} // namespace Multidrop
