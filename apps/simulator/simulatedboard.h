#ifndef SIMULATEDBOARD_H
#define SIMULATEDBOARD_H

#include "canbus/canframe.h"
#include "canbus/canmessage.h"
#include "canbus/incomingcanmessage.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QSharedPointer>
#include <QTimer>

#include <chrono>
#include <deque>

/// A board on a simulated CAN bus. It puts together what is sent to its address, or to the one that
/// all boards take, and acknowledges it; a variant does more with it. Attach it with
/// SimulatedCanBus::attach(). Its event loop may run on virtual time.
class SimulatedBoard : public QObject
{
    Q_OBJECT

public:
    enum class Answers {
        Given,
        Refused, ///< each message is answered by a NACK and has no effect
        Lost,    ///< the message has its effect, its answer goes nowhere
    };

    static constexpr int MaxParts = 16;     ///< messages under reassembly; then the oldest goes
    static constexpr int MaxWaiting = 1024; ///< messages not yet spoken; what is more is lost

    /// \param address 11 bits
    SimulatedBoard(int address, QObject *pParent);

    int address() const { return m_address; }

    // Faults, to be switched on.
    void setAnswers(Answers answers) { m_answers = answers; }
    Answers answers() const { return m_answers; }
    /// From the end of a message to its answer; 0 at first: the next turn of the event loop. A
    /// negative one counts as 0. Concerns messages that come from now on.
    void setAnswerDelay(std::chrono::milliseconds delay);
    std::chrono::milliseconds answerDelay() const { return m_answerDelay; }
    /// The board neither hears nor speaks for so long; what it has not said yet, and what it has
    /// heard of messages, is forgotten. Called again meanwhile, the time begins anew.
    void restart(std::chrono::milliseconds duration);
    bool isRestarting() const { return m_restartTimer.isActive(); }

    /// How many messages with this command have had their effect.
    int taken(int command) const { return m_taken.value(command); }
    int taken() const; ///< with any command

public Q_SLOTS:
    /// A frame is on the bus. Frames for other boards, and the board's own, are ignored.
    void hear(const CanFrame &frame);

Q_SIGNALS:
    /// The board puts a frame on the bus: always on a later turn of the event loop, never inside
    /// hear(). The frames of a message come one right after the other.
    void spoke(const CanFrame &frame);

protected:
    /// Says a message on the next turn of the event loop; nothing while the board restarts.
    void speak(int destination, int command, const CanBytes &payload = {});

    /// False refuses the message: it is answered by a NACK.
    virtual bool isAcceptable(const CanMessage &message) const;
    /// A message that was accepted, its answer on its way. The payload stands at offset 2 of its
    /// data. Acknowledges do not come here.
    virtual void onMessage(const CanMessage &message);
    /// The board is back after restart().
    virtual void onRestarted();

private:
    using Parts = std::deque<IncomingCanMessage>;

    QSharedPointer<CanMessage> assemble(const CanFrame &frame);
    QSharedPointer<CanMessage> begin(const CanFrame &frame);
    QSharedPointer<CanMessage> proceed(const CanFrame &frame);
    Parts::iterator partOf(const CanFrame &frame);
    void take(const CanMessage &message);
    void say(const QList<CanFrame> &frames, std::chrono::milliseconds delay);

    const int m_address;
    Answers m_answers = Answers::Given;
    std::chrono::milliseconds m_answerDelay{0};
    QTimer m_restartTimer{this};
    Parts m_parts; ///< at most one for a source and a destination, the oldest first
    QMap<int, int> m_taken;
    int m_waiting = 0;         ///< messages of this life that are not yet spoken
    int m_life = 0;            ///< counts the restarts
    bool m_isLossTold = false; ///< since nothing waited
};

#endif // SIMULATEDBOARD_H
