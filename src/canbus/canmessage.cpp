#include "canbus/canmessage.h"

#include "assertions.h"
#include "logformatter.h"

#include <cstring>

CanMessage::CanMessage(int destination, int command)
    : m_destination(destination)
{
    setCommand(command);
}

CanMessage::CanMessage(int destination, int command, const CanBytes &data)
    : CanMessage(destination, command)
{
    m_data = data;
}

CanMessage::CanMessage(int destination, int command, const char *pData)
    : CanMessage(destination, command)
{
    setData(pData);
}

CanMessage::CanMessage(int destination, int command, const QByteArray &data)
    : CanMessage(destination, command)
{
    setData(data);
}

CanMessage::CanMessage(const CanMessage *pOther)
{
    if (pOther)
        *this = CanMessage(pOther->m_destination, pOther->m_command, pOther->m_data);
}

void CanMessage::init()
{
    m_source = -1;
    m_destination = -1;
    m_command = -1;
    m_isSimulated = false;
}

void CanMessage::setCommand(int command)
{
    if (command < -1 || command > MaxCommand) {
        LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "Invalid command" << command;
        m_command = -1;
        return;
    }
    m_command = command;
}

void CanMessage::setData(const char *pText)
{
    setData(QByteArray::fromRawData(pText, pText ? static_cast<int>(std::strlen(pText)) : 0));
}

void CanMessage::setData(const QByteArray &bytes)
{
    m_data.clear();
    for (int i = 0; i < bytes.size() - 1; ++i)
        m_data.append(static_cast<unsigned char>(bytes.at(i)));
}

void CanMessage::appendDataUnsignedShort(unsigned short value)
{
    m_data.append(static_cast<unsigned char>(value >> 8U));
    m_data.append(static_cast<unsigned char>(value & 0xFFU));
}

void CanMessage::appendDataUnsignedInt(unsigned int value)
{
    appendDataUnsignedShort(static_cast<unsigned short>(value >> 16U));
    appendDataUnsignedShort(static_cast<unsigned short>(value & 0xFFFFU));
}

unsigned char CanMessage::dataUnsignedCharAt(int index) const
{
    return static_cast<unsigned char>(numberAt(index, 1));
}

signed char CanMessage::dataSignedCharAt(int index) const
{
    return static_cast<signed char>(numberAt(index, 1));
}

unsigned short CanMessage::dataUnsignedShortAt(int index) const
{
    return static_cast<unsigned short>(numberAt(index, 2));
}

short CanMessage::dataSignedShortAt(int index) const
{
    return static_cast<short>(numberAt(index, 2));
}

unsigned int CanMessage::dataUnsignedIntAt(int index) const
{
    return numberAt(index, 4);
}

quint32 CanMessage::numberAt(int index, int bytes) const
{
    if (index < 0 || index >= dataSize()) {
        printAssertMsg(QStringLiteral("index >= 0 && index < dataSize()"),
                       QStringLiteral("Reading invalid index (%1) from CAN message").arg(index),
                       "src/canbus/canmessage", 146);
    }
    quint32 number = 0;
    for (int i = 0; i < bytes; ++i) {
        // Unsigned, because the highest index has no next one.
        const auto at = static_cast<unsigned>(index) + static_cast<unsigned>(i);
        number = number << 8U | m_data.value(static_cast<int>(at), 0);
    }
    return number;
}
