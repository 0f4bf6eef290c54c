#include "busbench.h"

#include "canbus/canprotocol_test.h"

#include "support/casename.h"

#include <limits>

using namespace std::chrono_literals;

namespace {

constexpr int s_answer = 0x26; ///< a command that boards send on their own

CanMessage expectation(const CanBytes &data)
{
    return {0x7FF, 1000, data}; // command and addresses do not count
}

} // namespace

class CanBusWaitingTest : public BusBench
{
protected:
    /// The board sends these payload bytes after a time.
    void speakAfter(std::chrono::milliseconds delay, const CanBytes &payload)
    {
        QTimer::singleShot(delay, m_pBus, [this, payload] { speak(s_board, s_answer, payload); });
    }

    /// Waits, and says how long that took.
    bool wait(const CanBytes &data, int timeoutMs)
    {
        const auto before = VirtualTime::instance()->now();
        const bool hasCome = m_pBus->waitForExpectedAnswer(expectation(data), timeoutMs);
        m_waited = VirtualTime::instance()->now() - before;
        return hasCome;
    }

    std::chrono::milliseconds m_waited{0};
};

TEST_F(CanBusWaitingTest, MessageWithTheSameDataEndsIt)
{
    speakAfter(100ms, bytes("2a"));
    EXPECT_TRUE(wait(bytes("00 01 2a"), 500)); // the two bytes of the length come first
    EXPECT_EQ(m_waited, 100ms);
}

TEST_F(CanBusWaitingTest, WithoutAMessageTheTimeEndsIt)
{
    EXPECT_FALSE(wait(bytes("00 01 2a"), 500));
    EXPECT_EQ(m_waited, 500ms);
}

struct OtherDataCase
{
    const char *pName;
    const char *pPayload;
    const char *pExpected;
};

class CanBusWaitingTable : public CanBusWaitingTest,
                           public ::testing::WithParamInterface<OtherDataCase>
{
};

TEST_P(CanBusWaitingTable, OtherDataDoNotEndIt)
{
    speakAfter(100ms, bytes(GetParam().pPayload));
    EXPECT_FALSE(wait(bytes(GetParam().pExpected), 500));
    EXPECT_EQ(m_waited, 500ms);
}

const OtherDataCase s_otherDataCases[] = {
    {"OtherByte", "2b", "00 01 2a"},  {"OneMore", "2a 00", "00 01 2a"},
    {"OneLess", "2a", "00 01 2a 00"}, {"WithoutTheLength", "2a", "2a"},
    {"NothingExpected", "2a", ""},    {"NothingCame", "", "00 01 2a"},
};
INSTANTIATE_TEST_SUITE_P(Data, CanBusWaitingTable, ::testing::ValuesIn(s_otherDataCases), caseName);

TEST_F(CanBusWaitingTest, MessagesThatDoNotMatchAreNotTheEnd)
{
    speakAfter(100ms, bytes("01"));
    speakAfter(200ms, bytes("02"));
    speakAfter(300ms, bytes("03"));
    EXPECT_TRUE(wait(bytes("00 01 03"), 500));
    EXPECT_EQ(m_waited, 300ms);
}

TEST_F(CanBusWaitingTest, CommandAndAddressesAreNotCompared)
{
    QTimer::singleShot(100ms, m_pBus, [this] { speak(s_otherBoard, s_rotor, bytes("2a")); });
    EXPECT_TRUE(wait(bytes("00 01 2a"), 500));
}

TEST_F(CanBusWaitingTest, MessageThatCameBeforeDoesNotCount)
{
    speak(s_board, s_answer, bytes("2a"));
    EXPECT_FALSE(wait(bytes("00 01 2a"), 500));
}

TEST_F(CanBusWaitingTest, AnswerToAMessageDoesNotCount)
{
    send(m_node, {s_reset});
    QTimer::singleShot(100ms, m_pBus, [this] { acknowledge(s_reset); });
    EXPECT_FALSE(wait(bytes("00 24"), 500));
}

TEST_F(CanBusWaitingTest, SimulatedMessageCounts)
{
    QTimer::singleShot(100ms, m_pBus, [this] {
        m_pBus->canProtocol()->simulateIncomingMessage(expectation(bytes("2a")));
    });
    EXPECT_TRUE(wait(bytes("2a"), 500));
}

TEST_F(CanBusWaitingTest, MessageOfSeveralFramesCounts)
{
    speakAfter(100ms, bytes("01 02 03 04 05 06 07 08 09 0a"));
    EXPECT_TRUE(wait(bytes("00 0a 01 02 03 04 05 06 07 08 09 0a"), 500));
}

TEST_F(CanBusWaitingTest, MessageAtTheVeryInstantThatTheTimeEndsIsDecidedByTheOrderOfTheTimers)
{
    speakAfter(499ms, bytes("2a"));
    EXPECT_TRUE(wait(bytes("00 01 2a"), 500));
    speakAfter(501ms, bytes("2a"));
    EXPECT_FALSE(wait(bytes("00 01 2a"), 500));
}

TEST_F(CanBusWaitingTest, InnerWaitEndsBeforeTheOuterOne)
{
    bool hasInnerCome = false;
    std::chrono::milliseconds innerEnd{0};
    QTimer::singleShot(50ms, m_pBus, [&] {
        hasInnerCome = m_pBus->waitForExpectedAnswer(expectation(bytes("00 01 02")), 1000);
        innerEnd = VirtualTime::instance()->now();
    });
    speakAfter(100ms, bytes("01")); // for the outer one, while the inner one still runs
    speakAfter(300ms, bytes("02"));
    EXPECT_TRUE(wait(bytes("00 01 01"), 500));
    EXPECT_TRUE(hasInnerCome);
    EXPECT_EQ(m_waited, 300ms);
    EXPECT_EQ(innerEnd, VirtualTime::instance()->now());
}

TEST_F(CanBusWaitingTest, OuterWaitGoesOnAfterTheInnerOne)
{
    bool hasInnerCome = true;
    QTimer::singleShot(50ms, m_pBus, [&] {
        hasInnerCome = m_pBus->waitForExpectedAnswer(expectation(bytes("00 01 02")), 100);
    });
    speakAfter(400ms, bytes("01"));
    EXPECT_TRUE(wait(bytes("00 01 01"), 500));
    EXPECT_FALSE(hasInnerCome);
    EXPECT_EQ(m_waited, 400ms);
}

TEST_F(CanBusWaitingTest, OuterTimePassesDuringTheInnerWait)
{
    QTimer::singleShot(
        50ms, m_pBus, [&] { m_pBus->waitForExpectedAnswer(expectation(bytes("00 01 02")), 1000); });
    EXPECT_FALSE(wait(bytes("00 01 01"), 500));
    EXPECT_EQ(m_waited, 1050ms);
}

TEST_F(CanBusWaitingTest, BothWaitsForTheSameMessageSeeIt)
{
    bool hasInnerCome = false;
    QTimer::singleShot(50ms, m_pBus, [&] {
        hasInnerCome = m_pBus->waitForExpectedAnswer(expectation(bytes("00 01 01")), 1000);
    });
    speakAfter(100ms, bytes("01"));
    EXPECT_TRUE(wait(bytes("00 01 01"), 500));
    EXPECT_TRUE(hasInnerCome);
    EXPECT_EQ(m_waited, 100ms);
}

TEST_F(CanBusWaitingTest, WithoutProtocolTheTimeEndsIt)
{
    CanBus::deleteInstance();
    m_pBus = CanBus::instance();
    EXPECT_FALSE(wait(bytes("00 01 2a"), 500));
    EXPECT_EQ(m_waited, 500ms);
}

TEST_F(CanBusWaitingTest, AnswersAndTimeOutsGoOnMeanwhile)
{
    send(m_node, {s_reset});
    said();
    EXPECT_FALSE(wait(bytes("01"), 3601));
    const Entries entries = said();
    EXPECT_EQ(entries.at(entries.size() - 3), "A answerError 4 36");
}

TEST_F(CanBusWaitingTest, ProtocolExchangedMeanwhileLetsTheTimeEndIt)
{
    QTimer::singleShot(100ms, m_pBus, [this] { m_pBus->setProtocolType(CanBus::CanProtocolTest); });
    EXPECT_FALSE(wait(bytes("00 01 2a"), 500));
    EXPECT_EQ(m_waited, 500ms);
}

TEST_F(CanBusWaitingTest, NoTimeEndsItAtOnce)
{
    for (const int timeoutMs : {0, -1, std::numeric_limits<int>::min()}) {
        EXPECT_FALSE(wait(bytes("00 01 2a"), timeoutMs)) << timeoutMs;
        EXPECT_EQ(m_waited, 0ms) << timeoutMs;
    }
}

TEST_F(CanBusWaitingTest, NothingIsLeftOfIt)
{
    speakAfter(100ms, bytes("2a"));
    EXPECT_TRUE(wait(bytes("00 01 2a"), 500));
    speak(s_board, s_answer, bytes("2a"));
    advance(1h);
    EXPECT_FALSE(wait(bytes("00 01 2a"), 10));
}
