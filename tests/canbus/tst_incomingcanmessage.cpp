#include "canbus/incomingcanmessage.h"

#include "canbus/canmessages.h"

#include <QList>
#include <QTimer>
#include <gtest/gtest.h>
#include <type_traits>

static_assert(std::is_aggregate_v<IncomingCanMessage>);

TEST(IncomingCanMessageTest, NewEntryHasTakenNothing)
{
    const IncomingCanMessage entry;
    EXPECT_FALSE(entry.isComplete);
    EXPECT_EQ(entry.lastFrameIndex, -1);
    EXPECT_EQ(entry.totalSize, -1);
    EXPECT_EQ(entry.pReceptionTimer, nullptr);
    ASSERT_TRUE(entry.pMessage);
    EXPECT_EQ(entry.pMessage->source(), -1);
    EXPECT_EQ(entry.pMessage->destination(), -1);
    EXPECT_EQ(entry.pMessage->command(), -1);
    EXPECT_EQ(entry.pMessage->dataSize(), 0);
}

TEST(IncomingCanMessageTest, EachEntryHasAMessageOfItsOwn)
{
    const IncomingCanMessage first;
    const IncomingCanMessage second;
    EXPECT_NE(first.pMessage, second.pMessage);
}

TEST(IncomingCanMessageTest, FieldsStandInTheirOrder)
{
    QTimer timer;
    const auto pMessage = QSharedPointer<CanMessage>::create(5, 42);
    const IncomingCanMessage entry{true, 3, 14, pMessage, &timer};
    EXPECT_TRUE(entry.isComplete);
    EXPECT_EQ(entry.lastFrameIndex, 3);
    EXPECT_EQ(entry.totalSize, 14);
    EXPECT_EQ(entry.pMessage, pMessage);
    EXPECT_EQ(entry.pReceptionTimer, &timer);
}

TEST(IncomingCanMessageTest, CopyInAListHasTheSameMessageAndTimer)
{
    QTimer timer;
    IncomingCanMessage entry;
    entry.isComplete = true;
    entry.lastFrameIndex = 63;
    entry.totalSize = 512;
    entry.pReceptionTimer = &timer;

    QList<IncomingCanMessage> entries;
    entries.append(entry);
    entry.totalSize = 6;
    EXPECT_TRUE(entries.first().isComplete);
    EXPECT_EQ(entries.first().lastFrameIndex, 63);
    EXPECT_EQ(entries.first().totalSize, 512);
    EXPECT_EQ(entries.first().pMessage, entry.pMessage);
    EXPECT_EQ(entries.first().pReceptionTimer, &timer);
}
