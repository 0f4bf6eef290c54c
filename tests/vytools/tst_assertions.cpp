#include "assertions.h"

#include "support/assertspy.h"
#include "support/casename.h"
#include "support/exittest.h"
#include "support/messagespy.h"

#include <QLoggingCategory>
#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>

namespace {

using Report = void (*)(const QString &, const QString &, const char *, int);

} // namespace

struct ReportCase
{
    const char *pName;
    Report report;
    bool isRelease;
};

class AssertionReports : public ::testing::TestWithParam<ReportCase>
{
protected:
    static void report(const char *pCondition, const char *pMessage)
    {
        GetParam().report(QString::fromUtf8(pCondition), QString::fromUtf8(pMessage),
                          "src/dadd/daddprotocol", 417);
    }
};

const ReportCase s_reportCases[] = {
    {"Assert", &printAssertMsg, false},
    {"ReleaseAssert", &printReleaseAssertMsg, true},
};
INSTANTIATE_TEST_SUITE_P(Kinds, AssertionReports, ::testing::ValuesIn(s_reportCases), caseName);

TEST_P(AssertionReports, PrintsOneCriticalLineAndReturns)
{
    const MessageSpy messages;
    report("m_pBus != nullptr", "The bus is missing");

    ASSERT_EQ(messages.messages().size(), 1);
    const MessageSpy::Message message = messages.messages().constFirst();
    EXPECT_EQ(message.type, QtCriticalMsg);
    EXPECT_EQ(message.category.toStdString(), "vy.assert");
    const std::string text = message.text.toStdString();
    EXPECT_THAT(text, ::testing::HasSubstr("m_pBus != nullptr"));
    EXPECT_THAT(text, ::testing::HasSubstr("The bus is missing"));
    EXPECT_THAT(text, ::testing::HasSubstr("src/dadd/daddprotocol"));
    EXPECT_THAT(text, ::testing::HasSubstr("417"));
}

TEST_P(AssertionReports, TellsTheObserverEveryPart)
{
    const AssertSpy asserts;
    report("m_pBus != nullptr", "The bus is missing");

    ASSERT_EQ(asserts.records().size(), 1);
    const AssertRecord &record = asserts.records().constFirst();
    EXPECT_EQ(record.condition.toStdString(), "m_pBus != nullptr");
    EXPECT_EQ(record.message.toStdString(), "The bus is missing");
    EXPECT_EQ(record.file.toStdString(), "src/dadd/daddprotocol");
    EXPECT_EQ(record.line, 417);
    EXPECT_EQ(record.isRelease, GetParam().isRelease);
}

TEST_P(AssertionReports, ConditionMayBeEmpty)
{
    const AssertSpy asserts;
    const MessageSpy messages;
    report("", "Couldn't find setting 'hardware/usbPath' in JSON settings");

    EXPECT_EQ(asserts.count("", "Couldn't find setting 'hardware/usbPath' in JSON settings",
                            "src/dadd/daddprotocol"),
              1);
    ASSERT_EQ(messages.messages().size(), 1);
    EXPECT_TRUE(messages.messages().constFirst().text.contains(
        QLatin1String("Couldn't find setting 'hardware/usbPath' in JSON settings")));
}

TEST_P(AssertionReports, PlaceholdersInTheTextsStayAsTheyAre)
{
    const AssertSpy asserts;
    const MessageSpy messages;
    report("value %1 < %3", "100 % of %2 {} %s %4");

    EXPECT_EQ(asserts.count("value %1 < %3", "100 % of %2 {} %s %4", "src/dadd/daddprotocol"), 1);
    ASSERT_EQ(messages.messages().size(), 1);
    const std::string text = messages.messages().constFirst().text.toStdString();
    EXPECT_THAT(text, ::testing::HasSubstr("value %1 < %3"));
    EXPECT_THAT(text, ::testing::HasSubstr("100 % of %2 {} %s %4"));
}

TEST_P(AssertionReports, EveryObserverIsToldUntilItIsRemoved)
{
    int first = 0;
    int second = 0;
    const int firstNumber = addAssertObserver([&first](const AssertRecord &) { ++first; });
    const int secondNumber = addAssertObserver([&second](const AssertRecord &) { ++second; });
    report("", "both");
    removeAssertObserver(firstNumber);
    report("", "second only");
    removeAssertObserver(secondNumber);
    report("", "none");

    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
}

TEST_P(AssertionReports, ObserverIsToldWhileTheLogIsOff)
{
    QLoggingCategory::setFilterRules(QStringLiteral("vy.assert=false"));
    const AssertSpy asserts;
    report("", "told");
    QLoggingCategory::setFilterRules(QString());
    EXPECT_EQ(asserts.records().size(), 1);
}

TEST_P(AssertionReports, ObserverIsToldInTheReportingThread)
{
    std::thread::id told;
    const int number =
        addAssertObserver([&told](const AssertRecord &) { told = std::this_thread::get_id(); });
    std::thread thread(
        [pReport = GetParam().report] { pReport(QString(), QString(), "src/unit", 1); });
    const std::thread::id reporting = thread.get_id();
    thread.join();
    removeAssertObserver(number);
    EXPECT_EQ(told, reporting);
}

TEST(AssertionsTest, ReleaseReportStandsOnStandardErrorBeforeTheCallerExits)
{
    EXPECT_FATAL_ASSERTION(
        {
            printReleaseAssertMsg(QStringLiteral("gHardwareEnv == nullptr"),
                                  QStringLiteral("Only one environment"), "src/environment", 12);
            exit(1);
        },
        "gHardwareEnv == nullptr", "Only one environment", "src/environment");
}
