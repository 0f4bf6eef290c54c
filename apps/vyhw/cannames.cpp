#include "cannames.h"

#include "canbus/canmessage.h"
#include "canbus/vycan_cmds_and_addr.h"

#include <QByteArray>
#include <QRegularExpression>
#include <algorithm>

namespace {

constexpr int s_maxNumber = 0x7FF; ///< addresses and commands have 11 bits

std::optional<int> numberFrom(const QString &text)
{
    bool isNumber = false;
    // A leading zero does not make it octal.
    const bool isHex = text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
    const int number = isHex ? text.midRef(2).toInt(&isNumber, 16) : text.toInt(&isNumber, 10);
    if (!isNumber || number < 0 || number > s_maxNumber)
        return std::nullopt;
    return number;
}

/// The number whose name is the text.
std::optional<int> named(const QString &text, QString (*pToString)(int))
{
    for (int number = 0; number <= s_maxNumber; ++number) {
        if (pToString(number).compare(text, Qt::CaseInsensitive) == 0)
            return number;
    }
    return std::nullopt;
}

bool isUnknown(const QString &commandName)
{
    return commandName.startsWith(QLatin1String("Unknown command"));
}

} // namespace

std::optional<int> boardFrom(const QString &text)
{
    if (text.compare(QLatin1String("actuator"), Qt::CaseInsensitive) == 0)
        return CanVy::Address::actuatorBoard();
    if (text.compare(QLatin1String("shared"), Qt::CaseInsensitive) == 0)
        return CanVy::Address::Shared;
    const std::optional<int> number = numberFrom(text);
    return number ? number : named(text, &CanVy::Address::toString);
}

QStringList boardNames()
{
    QStringList names;
    for (int address = 0; address <= s_maxNumber; ++address) {
        const QString name = CanVy::Address::toString(address);
        if (name != QString::number(address))
            names.append(name);
    }
    return names;
}

std::optional<int> commandFrom(const QString &text)
{
    const std::optional<int> number = numberFrom(text);
    return number ? number : named(text, &CanVy::commandCanToString);
}

QStringList commandNamesLike(const QString &text)
{
    QStringList names;
    for (int command = 0; command <= s_maxNumber; ++command) {
        const QString name = CanVy::commandCanToString(command);
        if (name.contains(text, Qt::CaseInsensitive) && !isUnknown(name))
            names.append(name);
    }
    const auto isShorter = [](const QString &one, const QString &other) {
        return one.size() < other.size();
    };
    std::stable_sort(names.begin(), names.end(), isShorter);
    return names;
}

std::optional<CanBytes> bytesFrom(const QString &text)
{
    static const QRegularExpression s_bytes(QStringLiteral("^\\s*([0-9a-fA-F]{2}\\s*)*$"));
    if (!s_bytes.match(text).hasMatch())
        return std::nullopt;
    CanBytes bytes;
    const auto all = QByteArray::fromHex(text.toLatin1());
    for (const char byte : all)
        bytes.append(static_cast<unsigned char>(byte));
    return bytes;
}

QString boardText(int address)
{
    const QString number = QStringLiteral("0x%1").arg(address, 3, 16, QLatin1Char('0'));
    const QString name = CanVy::Address::toString(address);
    return name == QString::number(address) ? number : name + QStringLiteral(" (%1)").arg(number);
}

QString commandText(int command)
{
    const QString name = CanVy::commandCanToString(command);
    return isUnknown(name) ? QStringLiteral("command %1").arg(command)
                           : name + QStringLiteral(" (%1)").arg(command);
}

QString bytesText(const CanBytes &bytes)
{
    QByteArray raw;
    for (const unsigned char byte : bytes)
        raw.append(static_cast<char>(byte));
    return QString::fromLatin1(raw.toHex(' '));
}
