#include "canworld.h"

#include "canmessages.h"

#include <algorithm>
#include <array>
#include <limits>

namespace {

constexpr std::array<int, World::Boards> s_boards{0x419, 0x41E, 0x721};
/// Two channels lead to the same board, one to whoever answers.
constexpr std::array<int, World::Channels> s_destinations{0x419, 0x41E, 0x721, 0x419,
                                                          CanVy::Address::Shared};
/// Few, so that answers meet channels that they were not meant for.
constexpr std::array<int, 4> s_commands{3, 0x24, 0x25, 0x130};

std::string hex(unsigned number)
{
    return QByteArray::number(number, 16).toStdString();
}

std::string text(const CanBytes &bytes)
{
    std::string text;
    for (const unsigned char byte : bytes)
        text += ' ' + hex(byte);
    return text;
}

} // namespace

World::World(quint32 seed)
    : m_random(seed)
    , m_muteFromMs(Boards, std::numeric_limits<int>::max())
{
    m_isSimulated = isOneIn(8);
    m_taken.resize(static_cast<std::size_t>(timeoutMs()));
    m_free = timeoutMs() * 3 / 4;
    constexpr std::array<int, 4> faults{0, 2, 10, 30};
    m_faultPercent = faults.at(static_cast<std::size_t>(below(4)));
    m_refusalPercent = isOneIn(8) ? 5 : 0;
    m_reactions = 4;
    const int span = 3 * timeoutMs();
    for (int board = 0; board < Boards; ++board) {
        m_boards.emplace_back(s_boards.at(static_cast<std::size_t>(board)));
        if (isOneIn(10))
            m_muteFromMs[static_cast<std::size_t>(board)] = below(span);
        if (isOneIn(4))
            plan(1 + below(span), {Event::Restart, board, {}});
    }
    for (int left = 4 + below(m_isSimulated ? 4 : 10); left > 0; --left)
        plan(1 + below(span), {Event::Application, 0, {}});
    for (int left = below(m_isSimulated ? 4 : 8); left > 0; --left)
        plan(1 + below(span), {Event::Board, left % Boards, {}});
}

int World::below(int limit)
{
    return static_cast<int>(m_random() % static_cast<unsigned>(limit)); // the same everywhere
}

int World::nextMs() const
{
    return m_planned.empty() ? -1 : m_planned.begin()->first;
}

void World::note(const std::string &text)
{
    m_trace.push_back(std::to_string(m_pComputer->nowMs()) + ' ' + text);
}

std::string World::text(const CanMessage &message)
{
    return hex(static_cast<unsigned>(message.source())) + '>' +
           hex(static_cast<unsigned>(message.destination())) + ' ' +
           std::to_string(message.command()) + ':' + ::text(message.data());
}

/// At this instant or soon after; not at all when the world is too full.
void World::plan(int ms, const Planned &planned)
{
    if (m_free-- <= 0)
        return;
    const auto slot = [this](int at) { return static_cast<std::size_t>(at % timeoutMs()); };
    while (m_taken[slot(ms)])
        ++ms;
    m_taken[slot(ms)] = true;
    m_planned.emplace(ms, planned);
}

void World::step()
{
    const Planned planned = m_planned.begin()->second;
    m_planned.erase(m_planned.begin());
    switch (planned.event) {
    case Event::Application:
        sendFromApplication();
        break;
    case Event::Board:
        sendFromBoard(planned.board);
        break;
    case Event::Restart:
        m_boards[static_cast<std::size_t>(planned.board)].forget();
        break;
    case Event::ToComputer:
        note("arrives " + hex(planned.frame.id()) + ::text(planned.frame.data()));
        m_pComputer->receive(planned.frame);
        break;
    case Event::ToBoards:
        boardsHear(planned.frame);
        break;
    }
    note("under way " + std::to_string(m_pComputer->underWay()));
}

bool World::write(const CanFrame &frame)
{
    const bool isRefused = below(100) < m_refusalPercent;
    note((isRefused ? "refused " : "written ") + hex(frame.id()) + ::text(frame.data()));
    if (!isRefused)
        carry(m_pComputer->nowMs(), {Event::ToBoards, 0, frame});
    return !isRefused;
}

void World::carry(int ms, const Planned &planned)
{
    if (below(100) < m_faultPercent)
        carryWithFault(ms, planned);
    else if (planned.event == Event::ToBoards && ms <= m_pComputer->nowMs())
        boardsHear(planned.frame);
    else
        plan(ms, planned);
}

void World::carryWithFault(int ms, Planned planned)
{
    CanFrame &frame = planned.frame;
    CanBytes data = frame.data();
    switch (below(8)) {
    case 0: // dropped
        return;
    case 1: // doubled
        plan(ms + below(40), planned);
        break;
    case 2: // late
        return plan(ms + below(timeoutMs() * 5 / 4), planned);
    case 3: // overtaken
        return plan(ms + 20, planned);
    case 4:
        frame.setId(frame.id() ^ 1U << static_cast<unsigned>(below(32)));
        break;
    case 5:
        if (!data.isEmpty()) {
            unsigned char &byte = data[below(data.size())];
            byte = static_cast<unsigned char>(byte ^ 1U << static_cast<unsigned>(below(8)));
        }
        break;
    case 6: // truncated
        data = data.mid(0, below(data.size() + 1));
        break;
    case 7: // a stranger comes before
        plan(ms, {planned.event, 0, randomFrame()});
        break;
    }
    frame.setData(data);
    plan(ms, planned);
}

CanFrame World::randomFrame()
{
    VYCanFrame made;
    made.setId(static_cast<quint32>(m_random()));
    if (!isOneIn(4))
        made.setDestinationAddress(OwnAddress);
    if (isOneIn(2))
        made.setSourceAddress(s_boards.at(static_cast<std::size_t>(below(Boards))));
    if (!isOneIn(3))
        made.setFrameIndex(below(3));
    CanBytes data;
    for (int left = below(9); left > 0; --left)
        data.append(static_cast<unsigned char>(below(256)));
    if (!data.isEmpty() && !isOneIn(3))
        data[0] = 2;
    made.setData(data);
    if (!isOneIn(3))
        return std::move(made);
    const int answered = randomCommand(); // which somebody sent, or nobody
    return CanVy::acknowledgeFrame(made.sourceAddress(), made.destinationAddress(), 1 + below(2),
                                   answered);
}

int World::randomCommand()
{
    return s_commands.at(static_cast<std::size_t>(below(static_cast<int>(s_commands.size()))));
}

CanBytes World::randomPayload()
{
    constexpr std::array<int, 8> sizes{0, 0, 1, 2, 3, 10, 20, 40};
    const int size = isOneIn(60) ? 258 : sizes.at(static_cast<std::size_t>(below(8)));
    CanBytes payload;
    for (int i = 0; i < size; ++i)
        payload.append(static_cast<unsigned char>(below(256)));
    return payload;
}

void World::sendFromApplication()
{
    const int channel = below(Channels);
    sendFromNode(channel, !isOneIn(8));
}

void World::sendFromNode(int channel, bool isNode)
{
    QList<CanMessage> messages;
    for (int left = isOneIn(30) ? 0 : 1 + below(3); left > 0; --left) {
        const int command = randomCommand();
        messages.append(CanMessage(s_destinations.at(static_cast<std::size_t>(channel)), command,
                                   randomPayload()));
    }
    note("application sends " + std::to_string(messages.size()) + " to " + std::to_string(channel));
    note(m_pComputer->send(channel, isNode, messages) ? "taken" : "not taken");
}

void World::nodeHears(int node, int answer, const std::string &message)
{
    note("node " + std::to_string(node) + " hears " + std::to_string(answer) + ' ' + message);
    if (m_reactions <= 0 || !isOneIn(4))
        return;
    --m_reactions;
    sendFromNode(node, true);
    if (isOneIn(4)) // queued behind the first, while the bus still goes on with the answer
        sendFromNode(node, true);
}

void World::sendFromBoard(int board)
{
    const int source = s_boards.at(static_cast<std::size_t>(board));
    constexpr std::array<int, 4> strangers{CanVy::Address::Shared, 0x705, 0x4AD, 0x301};
    const int destination =
        isOneIn(6) ? strangers.at(static_cast<std::size_t>(below(4))) : OwnAddress;
    const int command = isOneIn(4) ? 3 + below(3000) : 0x62;
    int ms = m_pComputer->nowMs();
    CanBytes stream;
    CanVy::writeStream(CanMessage(destination, 3, randomPayload()), stream);
    const auto high = static_cast<unsigned char>(command / 256);
    const auto low = static_cast<unsigned char>(command % 256);
    stream.last() = static_cast<unsigned char>(stream.last() ^ 3U ^ high ^ low);
    stream[1] = high; // here: a message does not take what boards may send
    stream[2] = low;
    QList<CanFrame> frames;
    CanVy::writeFrames(stream, source, destination, frames);
    for (const CanFrame &frame : qAsConst(frames)) {
        ms += 1 + below(isOneIn(30) ? timeoutMs() * 5 / 4 : 15);
        carry(ms, {Event::ToComputer, board, frame});
    }
}

void World::boardsHear(const CanFrame &frame)
{
    for (int board = 0; board < Boards; ++board) {
        const auto place = static_cast<std::size_t>(board);
        if (m_pComputer->nowMs() >= m_muteFromMs[place])
            continue;
        const auto pMessage = m_boards[place].take(frame);
        if (!pMessage)
            continue;
        note("board " + std::to_string(board) + " hears " + text(*pMessage));
        const bool isAnswer = CanVy::answerOf(pMessage->command()).type() != CanAnswer::AnswerNone;
        if (!isAnswer)
            boardAnswers(board, *pMessage);
        else if (pMessage->command() == 2 && isOneIn(2))
            plan(m_pComputer->nowMs() + 1 + below(50), {Event::Board, board, {}});
    }
}

void World::boardAnswers(int board, const CanMessage &message)
{
    const int soon = 1 + below(60);
    const int chance = below(100);
    if (chance < 60)
        return acknowledge(board, message, 1, soon);
    if (chance < 72)
        return acknowledge(board, message, 2, soon);
    if (chance < 77)
        return;        // keeps silent
    if (chance < 82) { // twice
        acknowledge(board, message, 1, soon);
        return acknowledge(board, message, 1, soon + below(timeoutMs()));
    }
    if (chance < 86) { // and then thinks better of it
        acknowledge(board, message, 1, soon);
        return acknowledge(board, message, 2, soon + 1 + below(timeoutMs()));
    }
    if (chance < 90)
        return acknowledge((board + 1) % Boards, message, 1 + below(2), soon);
    const int command = 1 + below(2);
    if (chance < 95)
        return acknowledge(board, message, command, soon + timeoutMs() + below(timeoutMs()));
    CanMessage other = message;
    other.setCommand(randomCommand());
    acknowledge(board, other, command, soon);
}

void World::acknowledge(int board, const CanMessage &message, int command, int afterMs)
{
    const CanFrame frame = CanVy::acknowledgeFrame(s_boards.at(static_cast<std::size_t>(board)),
                                                   message.source(), command, message.command());
    carry(m_pComputer->nowMs() + afterMs, {Event::ToComputer, board, frame});
}
