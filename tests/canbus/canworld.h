#ifndef CANWORLD_H
#define CANWORLD_H

#include "boardreceiver.h"
#include "canbus/canframe.h"
#include "canbus/canmessage.h"

#include <QList>

#include <map>
#include <random>
#include <string>
#include <vector>

/// What a random world asks of the computer in its middle: the one under test, or its model.
class WorldComputer
{
public:
    WorldComputer() = default;
    virtual ~WorldComputer() = default;
    Q_DISABLE_COPY_MOVE(WorldComputer)

    virtual int nowMs() const = 0;
    /// \param isNode the channel's node sends, and not nobody
    virtual bool send(int channelId, bool isNode, const QList<CanMessage> &messages) = 0;
    virtual void receive(const CanFrame &frame) = 0;
    virtual int underWay() const = 0; ///< messages not whole yet
};

/// Everything around a computer, out of one seed: an application, three boards, and a bus with
/// faults. It has no clock; whoever drives it runs step() at nextMs(). Two equal computers make of
/// the same seed the same trace.
///
/// No two of its events come at instants that differ by a multiple of the time-out, so that no
/// event ever coincides with a timer: which of the two is first is nobody's promise.
class World
{
public:
    static constexpr int Channels = 5;
    static constexpr int Boards = 3;
    static constexpr int OwnAddress = 0x4A8;

    explicit World(quint32 seed);

    void setComputer(WorldComputer *pComputer) { m_pComputer = pComputer; }

    /// A bus that calls itself simulated, with its short time-out.
    bool isSimulated() const { return m_isSimulated; }
    int timeoutMs() const { return m_isSimulated ? 200 : 1200; }

    int nextMs() const; ///< -1 when nothing comes any more of itself
    void step();

    // What the computer does.
    bool write(const CanFrame &frame); ///< false: refused
    void nodeHears(int node, int answer, const std::string &message);
    void note(const std::string &text);

    static std::string text(const CanMessage &message);

    const std::vector<std::string> &trace() const { return m_trace; }

private:
    enum class Event { Application, Board, Restart, ToComputer, ToBoards };
    struct Planned
    {
        Event event;
        int board;
        CanFrame frame;
    };

    int below(int limit);
    bool isOneIn(int chances) { return below(chances) == 0; }
    void plan(int ms, const Planned &planned);
    void carry(int ms, const Planned &planned);
    void carryWithFault(int ms, Planned planned);
    CanFrame randomFrame();
    int randomCommand();
    CanBytes randomPayload();
    void sendFromApplication();
    void sendFromNode(int channel, bool isNode);
    void sendFromBoard(int board);
    void boardsHear(const CanFrame &frame);
    void boardAnswers(int board, const CanMessage &message);
    void acknowledge(int board, const CanMessage &message, int command, int afterMs);

    std::mt19937 m_random;
    WorldComputer *m_pComputer = nullptr;
    bool m_isSimulated = false;
    int m_faultPercent = 0;
    int m_refusalPercent = 0;  ///< of writes
    int m_reactions = 0;       ///< how often nodes may still send from their slots
    std::vector<bool> m_taken; ///< instants, modulo the time-out
    int m_free = 0;
    std::map<int, Planned> m_planned;
    std::vector<BoardReceiver> m_boards;
    std::vector<int> m_muteFromMs;
    std::vector<std::string> m_trace;
};

#endif // CANWORLD_H
