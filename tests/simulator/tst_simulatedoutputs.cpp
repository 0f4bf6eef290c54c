#include "simulator/simulatedoutputs.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

TEST(SimulatedOutputsTest, AreOffAtFirst)
{
    const SimulatedOutputs outputs;
    for (int output = 0; output < 256; ++output) {
        EXPECT_FALSE(outputs.isOn(static_cast<quint8>(output)));
        EXPECT_FALSE(outputs.isBlinking(static_cast<quint8>(output)));
    }
}

TEST(SimulatedOutputsTest, ChangeOneByOneAndTellOnlyChanges)
{
    SimulatedOutputs outputs;
    QSignalSpy changed(&outputs, &SimulatedOutputs::changed);
    EXPECT_TRUE(outputs.setOutput(9, true));
    EXPECT_TRUE(outputs.isOn(9));
    EXPECT_FALSE(outputs.isOn(8));
    EXPECT_FALSE(outputs.isOn(10));
    EXPECT_TRUE(outputs.setOutput(9, true));
    ASSERT_EQ(changed.count(), 1);
    EXPECT_EQ(changed.at(0).at(0).value<quint8>(), 9);
    EXPECT_TRUE(outputs.setOutput(9, false));
    EXPECT_FALSE(outputs.isOn(9));
    EXPECT_EQ(changed.count(), 2);
}

TEST(SimulatedOutputsTest, ShowTheirLevelAgainAfterBlinking)
{
    SimulatedOutputs outputs;
    QSignalSpy changed(&outputs, &SimulatedOutputs::changed);
    EXPECT_TRUE(outputs.setOutput(3, true));
    EXPECT_TRUE(outputs.setBlinking(3, true));
    EXPECT_TRUE(outputs.isBlinking(3));
    EXPECT_TRUE(outputs.isOn(3));
    EXPECT_TRUE(outputs.setBlinking(3, false));
    EXPECT_FALSE(outputs.isBlinking(3));
    EXPECT_TRUE(outputs.isOn(3));
    EXPECT_EQ(changed.count(), 3);
}

TEST(SimulatedOutputsTest, AreThirtyTwo)
{
    SimulatedOutputs outputs;
    QSignalSpy changed(&outputs, &SimulatedOutputs::changed);
    EXPECT_TRUE(outputs.setOutput(31, true));
    EXPECT_FALSE(outputs.setOutput(32, true));
    EXPECT_FALSE(outputs.setBlinking(255, true));
    EXPECT_EQ(changed.count(), 1);
}
