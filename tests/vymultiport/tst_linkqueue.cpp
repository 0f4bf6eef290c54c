#include "linkqueue_p.h"

#include "backoff_p.h"

#include <QByteArrayList>
#include <gtest/gtest.h>

namespace {

LinkEvent data(LinkEvent::Type type, const QByteArray &bytes)
{
    return {type, 0, 0, bytes};
}

} // namespace

// -- the queue ------------------------------------------------------------------------------------

class LinkQueueTest : public ::testing::Test
{
protected:
    /// Puts blocks of 64 KiB until the queue is full, then says how many bytes.
    int fill()
    {
        int size = 0;
        while (!m_queue.isFull() && size < 100 * s_block.size()) {
            // Two lines take turns: joined bytes would be a single event.
            m_queue.put(
                data(m_isCan ? LinkEvent::Type::CanData : LinkEvent::Type::PaymentData, s_block));
            m_isCan = !m_isCan;
            size += s_block.size();
        }
        return size;
    }

    static inline const QByteArray s_block = QByteArray(64 * 1024, 'x');
    int m_wakes = 0;
    bool m_isCan = true;
    LinkQueue m_queue{[this] { ++m_wakes; }};
};

TEST_F(LinkQueueTest, NewOneHasNothingAndRoom)
{
    EXPECT_FALSE(m_queue.take());
    EXPECT_FALSE(m_queue.isFull());
    EXPECT_EQ(m_wakes, 0);
}

TEST_F(LinkQueueTest, EventsAreTakenInTheirOrder)
{
    m_queue.put({LinkEvent::Type::ServerConnected, 1, 0, {}});
    m_queue.put({LinkEvent::Type::Terminated, 30, 6, {}});
    m_queue.put({LinkEvent::Type::Reported, 65, 0, QByteArray("\1\0", 2)});
    auto taken = m_queue.take();
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->event.type, LinkEvent::Type::ServerConnected);
    EXPECT_EQ(taken->event.first, 1);
    taken = m_queue.take();
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->event.type, LinkEvent::Type::Terminated);
    EXPECT_EQ(taken->event.first, 30);
    EXPECT_EQ(taken->event.second, 6);
    taken = m_queue.take();
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->event.type, LinkEvent::Type::Reported);
    EXPECT_EQ(taken->event.bytes, QByteArray("\1\0", 2));
    EXPECT_FALSE(taken->wasFull);
    EXPECT_FALSE(m_queue.take());
}

TEST_F(LinkQueueTest, TakerIsWokenForTheFirstAndThenForEachThatIsLeft)
{
    m_queue.put({LinkEvent::Type::ServerConnected, 1, 0, {}});
    EXPECT_EQ(m_wakes, 1);
    m_queue.put({LinkEvent::Type::CanConnected, 1, 0, {}});
    m_queue.put({LinkEvent::Type::PaymentConnected, 1, 0, {}});
    EXPECT_EQ(m_wakes, 1);
    m_queue.take();
    EXPECT_EQ(m_wakes, 2);
    m_queue.take();
    EXPECT_EQ(m_wakes, 3);
    m_queue.take();
    EXPECT_EQ(m_wakes, 3);
    m_queue.put({LinkEvent::Type::ServerConnected, 0, 0, {}});
    EXPECT_EQ(m_wakes, 4);
}

TEST_F(LinkQueueTest, BytesOfOneLineAreJoinedUntilSomethingElseComes)
{
    m_queue.put(data(LinkEvent::Type::CanData, "a"));
    m_queue.put(data(LinkEvent::Type::CanData, "b"));
    m_queue.put(data(LinkEvent::Type::PaymentData, "c"));
    m_queue.put(data(LinkEvent::Type::CanData, "d"));
    m_queue.put({LinkEvent::Type::CanConnected, 0, 0, {}});
    m_queue.put(data(LinkEvent::Type::CanData, "e"));
    m_queue.put({LinkEvent::Type::Reported, 7, 0, "f"});
    m_queue.put({LinkEvent::Type::Reported, 7, 0, "g"});
    QByteArrayList bytes;
    while (const auto taken = m_queue.take())
        bytes.append(taken->event.bytes);
    EXPECT_EQ(bytes, (QByteArrayList{"ab", "c", "d", "", "e", "f", "g"}));
}

TEST_F(LinkQueueTest, IsFullAtAQuarterOfAMebibyteAndSaysWhenThereIsRoom)
{
    EXPECT_EQ(fill(), 256 * 1024);
    int taken = 0;
    for (int i = 1; i <= 4; ++i) {
        const auto next = m_queue.take();
        ASSERT_TRUE(next);
        if (next->wasFull)
            taken = i;
    }
    EXPECT_EQ(taken, 3); // with three of four gone less than half is left, events count too
    EXPECT_FALSE(m_queue.isFull());
}

TEST_F(LinkQueueTest, ManySmallEventsFillItToo)
{
    int events = 0;
    while (!m_queue.isFull() && events < 100000) {
        m_queue.put({LinkEvent::Type::Terminated, 30, 0, {}});
        ++events;
    }
    EXPECT_LE(events, 10000);
}

TEST_F(LinkQueueTest, JoinedBytesAreOneEventAndLeaveNothingBehind)
{
    for (int round = 0; round < 10; ++round) {
        for (int i = 0; i < 200000; ++i)
            m_queue.put(data(LinkEvent::Type::CanData, "x"));
        EXPECT_FALSE(m_queue.isFull()) << round;
        EXPECT_EQ(m_queue.take()->event.bytes.size(), 200000);
        EXPECT_FALSE(m_queue.take());
    }
}

// Two sockets ask: the one that was sent away first must be called back, whatever the other hears.
TEST_F(LinkQueueTest, StaysFullForWhoeverAsksUntilItHasSaidThatThereIsRoom)
{
    fill();
    ASSERT_FALSE(m_queue.take()->wasFull);
    EXPECT_TRUE(m_queue.isFull());
    ASSERT_FALSE(m_queue.take()->wasFull);
    EXPECT_TRUE(m_queue.isFull());
    EXPECT_TRUE(m_queue.take()->wasFull);
    EXPECT_FALSE(m_queue.isFull());
    EXPECT_FALSE(m_queue.take()->wasFull); // said once
}

TEST_F(LinkQueueTest, CanBeFilledAndEmptiedAgainAndAgain)
{
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(fill(), 256 * 1024) << round;
        int roomTold = 0;
        while (const auto taken = m_queue.take())
            roomTold += taken->wasFull ? 1 : 0;
        ASSERT_EQ(roomTold, 1) << round;
    }
}

// -- pauses ---------------------------------------------------------------------------------------

TEST(BackoffTest, PausesGrowFromATenthToOneAndAHalfSecondsAndDiffer)
{
    using std::chrono::milliseconds;
    const int largest[] = {100, 200, 400, 800, 1500, 1500, 1500};
    bool isDifferent = false;
    for (int round = 0; round < 100; ++round) {
        Backoff backoff;
        int step = 0;
        for (const int most : largest) {
            const auto pause = backoff.next().count();
            EXPECT_LE(pause, most) << step;
            EXPECT_GE(pause, std::max(100, most * 3 / 4)) << step;
            isDifferent = isDifferent || pause != most;
            ++step;
        }
        backoff.reset();
        EXPECT_EQ(backoff.next(), milliseconds(100));
    }
    EXPECT_TRUE(isDifferent);
}
