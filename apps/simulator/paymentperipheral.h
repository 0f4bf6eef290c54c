#ifndef PAYMENTPERIPHERAL_H
#define PAYMENTPERIPHERAL_H

#include "simulator/multidrop.h"

#include <QByteArray>
#include <QList>
#include <QObject>

#include <bitset>
#include <initializer_list>
#include <optional>

/// A card reader on the payment line, whose master resets it, sets it up, enables it and polls it.
/// It speaks when it is asked and only then. What it has to tell it repeats with each poll until
/// the master acknowledges it.
///
/// Amounts are in cents.
class PaymentPeripheral : public QObject
{
    Q_OBJECT

public:
    enum class State {
        Inactive, ///< reset and not yet set up
        Disabled, ///< looks at no card
        Enabled,
        Session, ///< a card is being used
        Vend,    ///< a payment was approved, its end is awaited
    };

    enum class Fault {
        Silence,        ///< neither hears nor answers, as if it were unplugged
        BadChecksum,    ///< in each block that it says
        BadMode,        ///< the first mode byte of each answer is 2
        RepeatedAnswer, ///< says everything twice
    };
    static constexpr int FaultCount = 4;

    static constexpr int MaxCard = 0xFFFE;

    explicit PaymentPeripheral(QObject *pParent = nullptr);

    /// The line is set up, with 8 or 9 data bits and parity 0 none, 1 even, 2 odd; 9 data bits have
    /// no parity. False, with the line as it was, for anything else. With 8 data bits, as at first,
    /// the peripheral understands nothing and stays silent.
    bool setLine(quint8 dataBits, quint8 parity);
    quint8 dataBits() const { return m_dataBits; }

    State state() const { return m_state; }
    int funds() const { return m_funds; } ///< what is left on the card; 0 without a card
    int vends() const { return m_vends; } ///< payments that have succeeded

    /// A card with so much on it, 1 to MaxCard, is held to the reader. False unless the reader is
    /// enabled and has no card; the session begins with the next poll.
    bool presentCard(int cents);
    /// Takes the card away: a session without payment under way asks to be ended. False when there
    /// is no card, or a payment is under way.
    bool removeCard();

    void setFault(Fault fault, bool isOn) { m_faults[static_cast<std::size_t>(fault)] = isOn; }
    bool hasFault(Fault fault) const { return m_faults[static_cast<std::size_t>(fault)]; }

public Q_SLOTS:
    /// Bytes of the line from the master, cut anywhere.
    void hear(const QByteArray &bytes);
    /// Another master follows: what was heard of a block is gone, and what was told counts as not
    /// heard.
    void forgetLine();

Q_SIGNALS:
    /// An answer: mode and data bytes. On a later turn of the event loop, never inside hear().
    void spoke(const QByteArray &bytes);
    void changed(); ///< state, funds or vends

private:
    void takeCharacter(bool isMode, unsigned char byte);
    void takeReply(unsigned char byte);
    void takeBlock();
    void obey(int request, const QByteArray &data);
    void obeyVend(int request, const QByteArray &data);
    void obeyReader(int request);
    void poll();
    void decide(int price);
    void reset();
    void endVend(bool isSuccess);

    bool isOneOf(std::initializer_list<State> states) const;
    void setState(State state);

    void acknowledge();
    void tell(const QByteArray &data);
    void tellLater(const QByteArray &data);
    void tellFirst();
    void say(const Multidrop::Characters &characters);

    quint8 m_dataBits = 8;
    std::bitset<FaultCount> m_faults;

    std::optional<unsigned char> m_mode; ///< its data byte is still to come
    bool m_isAddressed = false;          ///< the block that is being heard is for this peripheral
    bool m_isAckAwaited = false;
    QByteArray m_block;

    State m_state = State::Inactive;
    bool m_isCardWaiting = false; ///< held to the reader, not yet told
    int m_funds = 0;
    int m_price = 0; ///< of the payment under way
    int m_vends = 0;
    QList<QByteArray> m_toTell; ///< what the master has not acknowledged
};

#endif // PAYMENTPERIPHERAL_H
