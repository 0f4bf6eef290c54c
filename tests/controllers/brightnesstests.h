#ifndef BRIGHTNESSTESTS_H
#define BRIGHTNESSTESTS_H

#include "controllers/backlight.h"
#include "support/assertspy.h"
#include "support/logspy.h"

/// What the tests of the boards' brightness share: each goes over the same maxima.
struct MaximumCase
{
    const char *pName;
    int maximum; ///< what the backlight's file holds
};

/// What a board's controller reports of a brightness above its scale, and where.
struct TooHighReport
{
    const char *pCondition;
    const char *pMessage;
    const char *pUnit;
};

/// The reports of this one value, which must lie between 0 and the highest.
inline void expectReports(const AssertSpy &asserts, int value, int highest,
                          const TooHighReport &tooHigh)
{
    const int isNegative = value < 0 ? 1 : 0;
    const int isTooHigh = value > highest ? 1 : 0;
    EXPECT_EQ(asserts.records().size(), isNegative + isTooHigh) << value;
    EXPECT_EQ(asserts.count("finalValue >= 0", "Final value must be larger than 0", tooHigh.pUnit),
              isNegative)
        << value;
    EXPECT_EQ(asserts.count(tooHigh.pCondition, tooHigh.pMessage, tooHigh.pUnit), isTooHigh)
        << value;
    for (const AssertRecord &record : asserts.records())
        EXPECT_FALSE(record.isRelease);
}

/// A percentage that is none is neither calculated nor written.
template <typename Controller>
void expectOutsideTheRangeRefused(int maximum)
{
    const PlatformValue target(2);
    const Backlight backlight(QByteArray::number(maximum));
    Controller controller(backlight.maximumFile(), backlight.file(), nullptr);
    const AssertSpy asserts;
    const LogSpy log;
    EXPECT_FALSE(controller.setBrightness(-1));
    EXPECT_FALSE(controller.setBrightness(101));
    EXPECT_EQ(backlight.written(), Backlight::s_untouched);
    EXPECT_TRUE(asserts.records().isEmpty());
    EXPECT_EQ(log.count("Cannot set brightness to:", 4, Log::InputOutput), 2);
}

#endif // BRIGHTNESSTESTS_H
