#include "versionnumber.h"

#include "support/casename.h"

#include <gtest/gtest.h>

struct ComparisonCase
{
    const char *pName;
    const char *pFirst;
    const char *pSecond;
    int order; ///< of the first to the second: -1 smaller, 0 equal, 1 larger
};

using VersionNumberComparison = ::testing::TestWithParam<ComparisonCase>;

TEST_P(VersionNumberComparison, GoesNumberByNumber)
{
    const VersionNumber first(QString::fromUtf8(GetParam().pFirst));
    const VersionNumber second(QString::fromUtf8(GetParam().pSecond));
    const int order = GetParam().order;

    EXPECT_EQ(first < second, order < 0);
    EXPECT_EQ(first <= second, order <= 0);
    EXPECT_EQ(first == second, order == 0);
    EXPECT_EQ(first != second, order != 0);
    EXPECT_EQ(first >= second, order >= 0);
    EXPECT_EQ(first > second, order > 0);
}

const ComparisonCase s_comparisonCases[] = {
    {"Equal", "1.0.15.1", "1.0.15.1", 0},
    {"LastNumberAbove", "1.0.15.2", "1.0.15.1", 1},
    {"LastNumberBelow", "1.0.15.0", "1.0.15.1", -1},
    {"EarlierNumberDecides", "1.0.14.9", "1.0.15.1", -1},
    {"FirstNumberDecides", "2.0.0.0", "1.9.99.9", 1},
    {"NumbersNotLetters", "1.0.9", "1.0.15", -1},
    {"NumbersNotLettersInFront", "10.0", "9.9", 1},
    {"LeadingZero", "1.05", "1.5", 0},
    {"ContinuedByZero", "1.0", "1.0.0", -1},
    {"ContinuedByMore", "1.0.15", "1.0.15.1", -1},
    {"LongerButSmaller", "1.0.14.9", "1.0.15", -1},
    {"EmptyBelowZero", "", "0", -1},
    {"BothEmpty", "", "abc", 0},
};
INSTANTIATE_TEST_SUITE_P(Rows, VersionNumberComparison, ::testing::ValuesIn(s_comparisonCases),
                         caseName);

struct VersionTextCase
{
    const char *pName;
    const char *pText;
    int size;
    const char *pVersion;
};

using VersionNumberText = ::testing::TestWithParam<VersionTextCase>;

TEST_P(VersionNumberText, GivesTheNumbersItBeginsWith)
{
    const VersionNumber version(QString::fromUtf8(GetParam().pText));
    EXPECT_EQ(version.size(), GetParam().size);
    EXPECT_EQ(version.toString().toStdString(), GetParam().pVersion);
}

const VersionTextCase s_versionTextCases[] = {
    {"Four", "1.0.15.1", 4, "1.0.15.1"},
    {"Three", "1.0.15", 3, "1.0.15"},
    {"One", "7", 1, "7"},
    {"TrailingZerosCount", "1.0.0", 3, "1.0.0"},
    {"SuffixIsLeftOut", "1.2-rc", 2, "1.2"},
    {"LineEndIsLeftOut", "1.0.15.1\n", 4, "1.0.15.1"},
    {"Letters", "abc", 0, ""},
    {"LetterInFront", "v1.2", 0, ""},
    {"DotInFront", ".1", 0, ""},
    {"Empty", "", 0, ""},
};
INSTANTIATE_TEST_SUITE_P(Rows, VersionNumberText, ::testing::ValuesIn(s_versionTextCases),
                         caseName);

TEST(VersionNumberTest, DefaultIsTheEmptyVersion)
{
    const VersionNumber version;
    EXPECT_EQ(version.size(), 0);
    EXPECT_EQ(version, VersionNumber(QString()));
    EXPECT_LT(version, VersionNumber(QStringLiteral("0")));
}
