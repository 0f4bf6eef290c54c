// One fault in one frame of one message, or in its acknowledge, in either direction. What must come
// of it stands in faultoutcomes.cpp.

#include "canbus/abstractcanprotocol.h"
#include "canbus/canbus.h"
#include "canbus/canbuschannel.h"
#include "canbus/canbusnode.h"
#include "canmessages.h"
#include "faultoutcomes.h"
#include "support/casename.h"
#include "support/logspy.h"
#include "support/virtualtime.h"
#include "testmachine.h"

#include <QLoggingCategory>
#include <QStringList>
#include <QTimer>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

using std::chrono::milliseconds;

constexpr int s_channel = 3;

struct Cell : FaultCase
{
    std::string pName;
};

QString answerText(int ms, quint32 id, const CanBytes &data)
{
    return QStringLiteral("%1 %2").arg(ms, 6).arg(id, 8, 16) + canBytesToString(data);
}

QString expectedAnswer(int ms, int destination, unsigned char command, unsigned char answered)
{
    const auto id = static_cast<quint32>(s_computer << 11 | destination);
    const auto checksum = static_cast<unsigned char>(2 ^ command ^ answered);
    return answerText(ms, id, {2, 0, command, 0, answered, checksum});
}

/// The bus with the faulty interface, and what is heard on it.
class Exchange
{
public:
    Exchange(const FaultCase &cell, bool isSimulated)
        : m_bus(*new FaultyBus(cell, isSimulated))
    {
        // What is asked for here are warnings; the frames in words only take time.
        QLoggingCategory::setFilterRules(QStringLiteral("vy.*.debug=false\nvy.*.info=false"));
        CanBusChannel::setGlobalTimeoutValue(1200);
        CanBus *const pBus = CanBus::instance();
        pBus->setInterface(&m_bus);
        pBus->setProtocolType(CanBus::CanProtocolVy);
        QObject::connect(pBus, &CanBus::dequedAllmessages, &m_context,
                         [this] { m_dequed.append(m_bus.nowMs()); });
        QObject::connect(pBus, &CanBus::communicationTimeout, &m_context,
                         [this](const CanAnswer &, const QSharedPointer<const CanMessage> &) {
                             m_timeouts.append(m_bus.nowMs());
                         });
        QObject::connect(
            &m_node, &CanBusNode::answerAcknowledged, &m_context,
            [this](const CanAnswer &answer, const auto &pMessage) { note(answer, pMessage); });
        QObject::connect(
            &m_node, &CanBusNode::answerError, &m_context,
            [this](const CanAnswer &answer, const auto &pMessage) { note(answer, pMessage); });
        QObject::connect(pBus->canProtocol(), &AbstractCanProtocol::messageReceived, &m_context,
                         [this](const QSharedPointer<const CanMessage> &pMessage) {
                             m_received.append(pMessage);
                             m_receivedAt.append(m_bus.nowMs());
                         });
    }

    ~Exchange()
    {
        CanBus::instance()->setInterface(nullptr);
        CanBus::deleteInstance();
    }
    Q_DISABLE_COPY_MOVE(Exchange)

    /// When and how a node hears of a message: type of the answer and command of the message.
    static QString heard(int ms, int type, int command)
    {
        return QStringLiteral("%1: %2 %3").arg(ms).arg(type).arg(command);
    }

    /// Nothing is left behind, whatever happened.
    void expectIdle() const
    {
        EXPECT_FALSE(CanBus::instance()->isInterfaceBusy());
        EXPECT_EQ(CanBus::instance()->canProtocol()->incomingMessageCount(), 0);
        for (const CanBusChannel *const pChannel : CanBusChannel::channels())
            EXPECT_FALSE(pChannel->isWaitingForAnswer());
    }

    FaultyBus &bus() { return m_bus; }
    CanBusNode &node() { return m_node; }
    const LogSpy &log() const { return m_log; }
    const QStringList &nodeHeard() const { return m_nodeHeard; }
    const QList<int> &dequed() const { return m_dequed; }
    const QList<int> &timeouts() const { return m_timeouts; }
    const QList<int> &receivedAt() const { return m_receivedAt; }
    const QList<QSharedPointer<const CanMessage>> &received() const { return m_received; }

private:
    void note(const CanAnswer &answer, const QSharedPointer<const CanMessage> &pMessage)
    {
        m_nodeHeard.append(heard(m_bus.nowMs(), answer.type(), pMessage->command()));
    }

    TestMachine m_machine;
    LogSpy m_log;
    FaultyBus &m_bus; ///< the bus's
    CanBusNode m_node{s_channel};
    QObject m_context;
    QStringList m_nodeHeard;
    QList<int> m_dequed;
    QList<int> m_timeouts;
    QList<int> m_receivedAt;
    QList<QSharedPointer<const CanMessage>> m_received;
};

QList<int> upTo(const QList<int> &instants, int limit)
{
    QList<int> kept;
    std::copy_if(instants.cbegin(), instants.cend(), std::back_inserter(kept),
                 [limit](int instant) { return instant <= limit; });
    return kept;
}

int foreignAcks(Fault fault)
{
    return fault == Fault::AckOfOtherBoard || fault == Fault::AckOfOtherCommand ? 1 : 0;
}

void sendToBoard(Exchange &exchange, const FaultCase &cell, bool isBatch, int timeout)
{
    QList<CanMessage *> messages{new CanMessage(s_board, s_command, payloadOf(cell.frames))};
    if (isBatch)
        messages.append(new CanMessage(s_board, s_nextCommand));
    EXPECT_TRUE(exchange.node().send(CanBus::instance(), messages));
    for (int ms = 0; ms < 5 * timeout; ms += timeout / 4) {
        VirtualTime::instance()->advance(milliseconds(timeout / 4));
        const CanBusChannel *const pChannel = CanBusChannel::channel(s_channel);
        EXPECT_TRUE(!pChannel->isWaitingForAnswer() || pChannel->findChild<QTimer *>()->isActive());
    }
}

void expectAlone(const FaultCase &cell, bool isSimulated)
{
    const int timeout = isSimulated ? 200 : 1200;
    const ToBoard outcome = outcomeToBoard(cell, timeout);
    Exchange exchange(cell, isSimulated);
    sendToBoard(exchange, cell, false, timeout);

    const bool isFailing = outcome.failsAt >= 0;
    const bool isTimeout = outcome.failure == CanAnswer::AnswerTimeout;
    const int told = isTimeout ? s_command : 2; // the message sent, or the refusal
    EXPECT_EQ(exchange.nodeHeard(),
              QStringList{isFailing ? Exchange::heard(outcome.failsAt, outcome.failure, told)
                                    : Exchange::heard(outcome.acks.first(), 1, 1)});
    EXPECT_EQ(exchange.dequed(), isFailing ? QList<int>{outcome.failsAt} : outcome.acks);
    EXPECT_EQ(exchange.timeouts(), isTimeout ? QList<int>{outcome.failsAt} : QList<int>());
    EXPECT_EQ(exchange.bus().sends(s_command), outcome.sends);
    EXPECT_EQ(exchange.bus().heard(s_command), outcome.heard);
    EXPECT_TRUE(exchange.bus().answers().empty());
    EXPECT_EQ(exchange.receivedAt(), QList<int>());
    EXPECT_EQ(exchange.log().count("Corresponding channel not found"), foreignAcks(cell.fault));
    exchange.expectIdle();
}

/// Another message follows: what still comes for the first one then matches nothing.
void expectWithNext(const FaultCase &cell, bool isSimulated)
{
    const int timeout = isSimulated ? 200 : 1200;
    const ToBoard outcome = outcomeToBoard(cell, timeout);
    Exchange exchange(cell, isSimulated);
    sendToBoard(exchange, cell, true, timeout);

    if (outcome.failsAt >= 0) {
        EXPECT_EQ(exchange.nodeHeard().size(), 1);
        EXPECT_EQ(exchange.bus().sends(s_nextCommand), QList<int>());
        EXPECT_EQ(exchange.dequed(), QList<int>{outcome.failsAt});
        return exchange.expectIdle();
    }
    const int first = outcome.acks.first();
    const int second = first + s_replyMs;
    const QStringList told{Exchange::heard(first, 1, 1), Exchange::heard(second, 1, 1)};
    EXPECT_EQ(exchange.nodeHeard(), told);
    EXPECT_EQ(exchange.dequed(), QList<int>{second});
    EXPECT_EQ(exchange.bus().sends(s_command), upTo(outcome.sends, first));
    EXPECT_EQ(exchange.bus().heard(s_command), upTo(outcome.heard, first));
    EXPECT_EQ(exchange.bus().sends(s_nextCommand), QList<int>{first});
    EXPECT_EQ(exchange.bus().heard(s_nextCommand), QList<int>{first});
    EXPECT_EQ(exchange.log().count("Corresponding channel not found"),
              foreignAcks(cell.fault) + outcome.acks.size() - 1);
    exchange.expectIdle();
}

QStringList answersOf(const FromBoard &outcome)
{
    QStringList answers;
    for (const int ms : outcome.received)
        answers.append(expectedAnswer(ms, outcome.source, 1, s_command));
    for (const int ms : outcome.refused)
        answers.append(expectedAnswer(ms, outcome.source, 2, s_command));
    for (const int ms : outcome.foreign)
        answers.append(expectedAnswer(ms, s_otherBoard, 1, 0x30));
    answers.sort();
    return answers;
}

void expectFromBoard(const FaultCase &cell, bool isSimulated)
{
    const int timeout = isSimulated ? 200 : 1200;
    const FromBoard outcome = outcomeFromBoard(cell, timeout);
    Exchange exchange(cell, isSimulated);
    exchange.bus().sendFromBoard();
    VirtualTime::instance()->advance(milliseconds(4 * timeout));

    QStringList answers;
    for (const Delivery &answer : exchange.bus().answers())
        answers.append(answerText(answer.afterMs, answer.frame.id(), answer.frame.data()));
    answers.sort(); // by the instant: the numbers are padded
    EXPECT_EQ(answers, answersOf(outcome));

    const CanBytes payload = payloadOf(cell.frames);
    const CanBytes length{static_cast<unsigned char>(payload.size() / 256),
                          static_cast<unsigned char>(payload.size() % 256)};
    QList<int> received;
    QList<int> foreign;
    for (int i = 0; i < exchange.received().size(); ++i) {
        const CanMessage &message = *exchange.received().at(i);
        if (message.source() == s_otherBoard) {
            foreign.append(exchange.receivedAt().at(i));
            continue;
        }
        received.append(exchange.receivedAt().at(i));
        EXPECT_EQ(message.source(), outcome.source);
        EXPECT_EQ(message.command(), s_command);
        EXPECT_EQ(message.data(), length + payload);
    }
    EXPECT_EQ(received, outcome.received);
    EXPECT_EQ(foreign, outcome.foreign);
    EXPECT_EQ(exchange.bus().acknowledged(), acknowledgedToBoard(cell, outcome));
    EXPECT_EQ(exchange.bus().sends(s_command), QList<int>());
    EXPECT_EQ(exchange.dequed(), QList<int>());
    exchange.expectIdle();
}

class FaultMatrix : public ::testing::TestWithParam<Cell>
{
};

} // namespace

TEST_P(FaultMatrix, ToBoard)
{
    for (const bool isSimulated : {false, true}) { // with its shorter time-out
        SCOPED_TRACE(isSimulated ? "simulated bus" : "real bus");
        expectAlone(GetParam(), isSimulated);
        expectWithNext(GetParam(), isSimulated);
    }
}

TEST_P(FaultMatrix, FromBoard)
{
    for (const bool isSimulated : {false, true}) {
        SCOPED_TRACE(isSimulated ? "simulated bus" : "real bus");
        expectFromBoard(GetParam(), isSimulated);
    }
}

/// Nothing in an acknowledge says which of two messages with the same command it is for.
TEST(FaultMatrixTest, SecondAcknowledgeIsTakenForTheNextMessageOfTheSameCommand)
{
    Exchange exchange({Fault::AckDoubled, 1, 0}, false);
    QList<CanMessage *> messages{new CanMessage(s_board, s_command),
                                 new CanMessage(s_board, s_command)};
    exchange.node().send(CanBus::instance(), messages);
    VirtualTime::instance()->advance(milliseconds(5000));

    const QString acknowledged = Exchange::heard(s_replyMs, 1, 1);
    EXPECT_EQ(exchange.nodeHeard(), (QStringList{acknowledged, acknowledged}));
    EXPECT_EQ(exchange.bus().sends(s_command), (QList<int>{0, s_replyMs}));
    // The second message's own acknowledge finds the channel idle.
    EXPECT_EQ(exchange.dequed(), (QList<int>{s_replyMs, 2 * s_replyMs}));
    exchange.expectIdle();
}

TEST(FaultMatrixTest, FloodOfFirstFramesTakesNoMoreThanItsShareOfMemory)
{
    Exchange exchange({Fault::None, 1, 0}, false);
    const AbstractCanProtocol *const pProtocol = CanBus::instance()->canProtocol();
    for (int source = 0; source < 2000; ++source) {
        exchange.bus().onFrameReceived(
            frame(source, s_computer, 0, bytes("02 00 24 ff ff 41 42 43")));
        ASSERT_LE(pProtocol->incomingMessageCount(), AbstractCanProtocol::MaxIncomingMessages);
    }
    EXPECT_GT(pProtocol->incomingMessageCount(), 0);
    VirtualTime::instance()->advance(milliseconds(1199));
    EXPECT_TRUE(exchange.bus().answers().empty());
    VirtualTime::instance()->advance(milliseconds(1));
    EXPECT_EQ(exchange.bus().answers().size(), AbstractCanProtocol::MaxIncomingMessages);
    exchange.expectIdle();
}

namespace {

struct FaultName
{
    Fault fault;
    const char *pName;
};

const FaultName s_faultsOfFrames[] = {
    {Fault::None, "NoFault"},
    {Fault::Dropped, "Dropped"},
    {Fault::Duplicated, "Duplicated"},
    {Fault::Reordered, "Reordered"},
    {Fault::CorruptedData, "CorruptedData"},
    {Fault::CorruptedIndex, "CorruptedIndex"},
    {Fault::CorruptedSource, "CorruptedSource"},
    {Fault::CorruptedDestination, "CorruptedDestination"},
    {Fault::Truncated, "Truncated"},
    {Fault::TruncatedToNothing, "TruncatedToNothing"},
    {Fault::ForeignSource, "ForeignSourceBefore"},
    {Fault::ForeignDestination, "ForeignDestinationBefore"},
    {Fault::DelayedBelow, "DelayedBelowTimeOut"},
    {Fault::DelayedAbove, "DelayedAboveTimeOut"},
    {Fault::Mute, "BoardMuteFrom"},
    {Fault::Restarted, "BoardRestartedAfter"},
};

const FaultName s_faultsOfHeaders[] = {
    {Fault::CorruptedStart, "CorruptedStart"},
    {Fault::CorruptedCommand, "CorruptedCommand"},
    {Fault::CorruptedLengthUp, "CorruptedLengthUp"},
    {Fault::CorruptedLengthDown, "CorruptedLengthDown"},
    {Fault::TruncatedToFour, "TruncatedToFour"},
};

const FaultName s_faultsOfAcknowledges[] = {
    {Fault::AckLost, "AckLost"},
    {Fault::AckDoubled, "AckDoubled"},
    {Fault::AckOfOtherBoard, "AckOfOtherBoard"},
    {Fault::AckOfOtherCommand, "AckOfOtherCommand"},
    {Fault::RefusedOnce, "RefusedOnce"},
    {Fault::RefusedTwice, "RefusedTwice"},
    {Fault::RefusedThrice, "RefusedThrice"},
    {Fault::RefusedLate, "RefusedLate"},
};

struct Place
{
    int frames;
    int place;
    const char *pName;
};

const Place s_places[] = {
    {1, 0, "OnlyFrame"},    {2, 0, "FirstOfTwo"},     {2, 1, "LastOfTwo"},
    {33, 0, "FirstOfMany"}, {33, 16, "MiddleOfMany"}, {33, 32, "LastOfMany"},
};

Cell cell(const FaultName &fault, const Place &place)
{
    return {{fault.fault, place.frames, place.place}, std::string(fault.pName) + place.pName};
}

std::vector<Cell> cells()
{
    std::vector<Cell> all;
    for (const Place &place : s_places) {
        for (const FaultName &fault : s_faultsOfFrames)
            all.push_back(cell(fault, place));
        if (place.place > 0)
            continue;
        for (const FaultName &fault : s_faultsOfHeaders)
            all.push_back(cell(fault, place));
    }
    for (const Place &place : {Place{1, 0, "OfOneFrame"}, {2, 0, "OfTwoFrames"}, {33, 0, "OfMany"}})
        for (const FaultName &fault : s_faultsOfAcknowledges)
            all.push_back(cell(fault, place));
    return all;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Faults, FaultMatrix, ::testing::ValuesIn(cells()), caseName);
