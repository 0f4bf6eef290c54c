#ifndef CANMODEL_H
#define CANMODEL_H

#include "canworld.h"

#include <deque>
#include <map>
#include <optional>
#include <vector>

/// What a computer on the bus must do, said a second time and as plainly as possible: no timers,
/// no signals, a clock that is a number. Shares no code with the engine; messages and frames are
/// only its values.
class CanModel : public WorldComputer
{
public:
    explicit CanModel(World &world);

    /// Lets everything happen that happens in this world.
    void run();

    int nowMs() const override { return m_nowMs; }
    bool send(int channelId, bool isNode, const QList<CanMessage> &messages) override;
    void receive(const CanFrame &frame) override;
    int underWay() const override { return static_cast<int>(m_incoming.size()); }

    bool isIdle() const;
    bool isOverlapping() const { return m_isOverlapping; } ///< a world that proves nothing

private:
    static constexpr int Nobody = -1;
    static constexpr int Never = -1;
    enum { Ack = 1, SendingError = 2, AckNot = 3, Timeout = 4 };
    using MaybeMessage = std::optional<CanMessage>;

    struct Channel
    {
        bool isWaiting = false;
        int resends = 0;
        int node = Nobody;
        CanMessage last;
        std::deque<CanMessage> pending;
        int dueMs = Never;
        int started = 0; ///< which of two that are due together was started first
    };

    struct Incoming
    {
        CanMessage message;
        int lastIndex;
        int totalSize;
        int dueMs;
    };

    struct Header
    {
        int source, destination, index;
    };

    static Header headerOf(const CanFrame &frame);
    Channel *nextChannel();
    int nextIncoming() const;

    void startTimer(Channel &channel);
    void setWaiting(Channel &channel, bool isWaiting);
    void stopSending(Channel &channel);
    void sendNext(Channel &channel);
    bool writeMessage(Channel &channel, const CanMessage &message);
    void resend(Channel &channel);
    void answerTimeOut(Channel &channel);
    void answered(Channel &channel, int answer, const MaybeMessage &message);
    void tellNode(int node, int answer, const MaybeMessage &message);

    MaybeMessage begun(const Header &header, const CanFrame &frame);
    MaybeMessage continued(std::size_t place, const Header &header, const CanFrame &frame);
    void receptionTimeOut(std::size_t place);
    void finished(const CanMessage &message);
    void finishedAnswer(const CanMessage &message);
    void answerBoard(const CanMessage &message, int command);

    World &m_world;
    int m_nowMs = 0;
    int m_starts = 0;
    std::map<int, Channel> m_channels;
    std::vector<Incoming> m_incoming;
    bool m_isBatchStarting = false;
    int m_batchNode = Nobody;
    bool m_isOverlapping = false;
};

#endif // CANMODEL_H
