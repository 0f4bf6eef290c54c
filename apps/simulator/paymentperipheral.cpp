#include "simulator/paymentperipheral.h"

#include "logformatter.h"

#include <QTimer>

#include <algorithm>
#include <utility>

namespace {

constexpr int s_maxToTell = 16;

/// Level 1, euros in cents, answers within 5 s, no options.
QByteArray configuration()
{
    return QByteArray::fromHex("0101197801020500");
}

QByteArray responseBytes(Multidrop::Response response)
{
    return {1, static_cast<char>(response)};
}

} // namespace

PaymentPeripheral::PaymentPeripheral(QObject *pParent)
    : QObject(pParent)
{
}

bool PaymentPeripheral::setLine(quint8 dataBits, quint8 parity)
{
    constexpr quint8 lastParity = 2;
    if (dataBits != 8 && dataBits != 9)
        return false;
    if (parity > (dataBits == 9 ? 0 : lastParity))
        return false;
    m_dataBits = dataBits;
    forgetLine();
    return true;
}

bool PaymentPeripheral::presentCard(int cents)
{
    if (cents < 1 || cents > MaxCard || m_state != State::Enabled || m_isCardWaiting)
        return false;
    m_isCardWaiting = true;
    m_funds = cents;
    Q_EMIT changed();
    return true;
}

bool PaymentPeripheral::removeCard()
{
    if (std::exchange(m_isCardWaiting, false)) {
        m_funds = 0;
        Q_EMIT changed();
        return true;
    }
    if (m_state != State::Session)
        return false;
    const QByteArray request = responseBytes(Multidrop::SessionCancelRequest);
    if (!m_toTell.contains(request))
        tellLater(request);
    return true;
}

void PaymentPeripheral::hear(const QByteArray &bytes)
{
    if (m_dataBits != 9 || hasFault(Fault::Silence))
        return;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        if (m_mode) {
            takeCharacter(*std::exchange(m_mode, std::nullopt) == 1, byte);
            continue;
        }
        if (byte > 1) {
            LogFormatter(3, Log::Hardware) << Q_FUNC_INFO << "mode byte" << byte;
            forgetLine(); // the place in the stream is lost
            return;
        }
        m_mode = byte;
    }
}

void PaymentPeripheral::takeCharacter(bool isMode, unsigned char byte)
{
    if (isMode) {
        m_block.clear();
        m_isAckAwaited = false; // what was told is told again with the next poll
        m_isAddressed = (byte & Multidrop::AddressMask) == Multidrop::Address;
    } else if (m_isAckAwaited) {
        takeReply(byte);
        return;
    }
    if (!m_isAddressed)
        return;
    m_block.append(static_cast<char>(byte));
    const int size = Multidrop::requestSize(m_block);
    if (size < 0) {
        LogFormatter(3, Log::Hardware)
            << Q_FUNC_INFO << "unknown command" << m_block.toHex(' ').constData();
        m_isAddressed = false; // nobody knows how long its block is
    } else if (m_block.size() == size) {
        m_isAddressed = false;
        takeBlock();
    }
}

/// What the master says to a block that it was told.
void PaymentPeripheral::takeReply(unsigned char byte)
{
    if (byte == Multidrop::Ret) {
        tellFirst();
        return;
    }
    m_isAckAwaited = false;
    if (byte == Multidrop::Ack && !m_toTell.isEmpty())
        m_toTell.removeFirst();
}

void PaymentPeripheral::takeBlock()
{
    const std::optional<QByteArray> data = Multidrop::checked(m_block);
    if (data)
        obey(Multidrop::requestOf(m_block), *data);
    else
        say({{true, Multidrop::Nak}});
}

void PaymentPeripheral::obey(int request, const QByteArray &data)
{
    switch (request) {
    case Multidrop::Reset:
        reset();
        return;
    case Multidrop::Poll:
        poll();
        return;
    case Multidrop::SetupConfig:
        if (!isOneOf({State::Inactive, State::Disabled}))
            break;
        tell(configuration());
        setState(State::Disabled);
        return;
    case Multidrop::SetupPrices:
        if (m_state != State::Disabled)
            break;
        acknowledge();
        return;
    case Multidrop::ReaderDisable:
    case Multidrop::ReaderEnable:
    case Multidrop::ReaderCancel:
        obeyReader(request);
        return;
    default:
        obeyVend(request, data);
        return;
    }
    tell(responseBytes(Multidrop::OutOfSequence));
}

void PaymentPeripheral::obeyReader(int request)
{
    if (!isOneOf({State::Disabled, State::Enabled})) {
        tell(responseBytes(Multidrop::OutOfSequence));
        return;
    }
    if (request == Multidrop::ReaderCancel) {
        tell(responseBytes(Multidrop::Cancelled));
        removeCard();
        return;
    }
    acknowledge();
    if (request == Multidrop::ReaderDisable)
        removeCard();
    setState(request == Multidrop::ReaderEnable ? State::Enabled : State::Disabled);
}

void PaymentPeripheral::obeyVend(int request, const QByteArray &data)
{
    const bool isRequest = request == Multidrop::VendRequest;
    if (m_state == State::Session && isRequest) {
        acknowledge();
        decide(Multidrop::shortAt(data, 2));
    } else if (m_state == State::Session && request == Multidrop::SessionComplete) {
        tell(responseBytes(Multidrop::EndSession));
        m_funds = 0;
        setState(State::Enabled);
    } else if (m_state == State::Vend && request == Multidrop::VendCancel) {
        tell(responseBytes(Multidrop::VendDenied));
        setState(State::Session);
    } else if (m_state == State::Vend && !isRequest && request != Multidrop::SessionComplete) {
        acknowledge();
        endVend(request == Multidrop::VendSuccess);
    } else {
        tell(responseBytes(Multidrop::OutOfSequence));
    }
}

void PaymentPeripheral::poll()
{
    if (m_toTell.isEmpty() && m_state == State::Enabled && m_isCardWaiting) {
        m_isCardWaiting = false;
        tell(responseBytes(Multidrop::BeginSession) + Multidrop::shortBytes(m_funds));
        setState(State::Session);
        return;
    }
    if (m_toTell.isEmpty())
        acknowledge();
    else
        tellFirst();
}

void PaymentPeripheral::decide(int price)
{
    if (price > m_funds) {
        tellLater(responseBytes(Multidrop::VendDenied));
        return;
    }
    m_price = price;
    tellLater(responseBytes(Multidrop::VendApproved) + Multidrop::shortBytes(price));
    setState(State::Vend);
}

/// The amount leaves the card when the product has been given out.
void PaymentPeripheral::endVend(bool isSuccess)
{
    if (isSuccess) {
        m_funds -= m_price;
        ++m_vends;
    }
    setState(State::Session);
}

void PaymentPeripheral::reset()
{
    acknowledge();
    m_toTell.clear();
    tellLater(responseBytes(Multidrop::JustReset));
    m_isCardWaiting = false;
    m_funds = 0;
    setState(State::Inactive);
}

bool PaymentPeripheral::isOneOf(std::initializer_list<State> states) const
{
    return std::find(states.begin(), states.end(), m_state) != states.end();
}

void PaymentPeripheral::setState(State state)
{
    m_state = state;
    Q_EMIT changed();
}

void PaymentPeripheral::acknowledge()
{
    say({{true, Multidrop::Ack}});
}

/// Tells it at once, before all that waits.
void PaymentPeripheral::tell(const QByteArray &data)
{
    m_toTell.prepend(data);
    while (m_toTell.size() > s_maxToTell) // the master acknowledges nothing
        m_toTell.removeLast();
    tellFirst();
}

void PaymentPeripheral::tellLater(const QByteArray &data)
{
    if (m_toTell.size() < s_maxToTell)
        m_toTell.append(data);
}

void PaymentPeripheral::tellFirst()
{
    m_isAckAwaited = true;
    Multidrop::Characters characters = Multidrop::answerCharacters(m_toTell.first());
    if (hasFault(Fault::BadChecksum))
        characters.last().second ^= 0x55U;
    say(characters);
}

void PaymentPeripheral::say(const Multidrop::Characters &characters)
{
    QByteArray bytes = Multidrop::toBytes(characters);
    if (hasFault(Fault::BadMode))
        bytes[0] = 2;
    if (hasFault(Fault::RepeatedAnswer))
        bytes += bytes;
    QTimer::singleShot(0, this, [this, bytes] { Q_EMIT spoke(bytes); });
}

void PaymentPeripheral::forgetLine()
{
    m_mode.reset();
    m_isAddressed = false;
    m_isAckAwaited = false;
    m_block.clear();
}
