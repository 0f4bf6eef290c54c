#include "logformatter.h"

#include "support/casename.h"
#include "support/logfolder.h"
#include "support/logspy.h"
#include "support/messagespy.h"

#include <QRegularExpression>
#include <algorithm>
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

/// Rules of Qt's logging until the end of the scope.
class FilterRules
{
public:
    explicit FilterRules(const char *pRules)
    {
        QLoggingCategory::setFilterRules(QString::fromUtf8(pRules));
    }
    ~FilterRules() { QLoggingCategory::setFilterRules(QString()); }
    Q_DISABLE_COPY_MOVE(FilterRules)
};

/// An observer until the end of the scope.
class Observation
{
public:
    explicit Observation(const LogFormatter::Observer &observer)
        : m_number(LogFormatter::addObserver(observer))
    {
    }
    ~Observation() { LogFormatter::removeObserver(m_number); }
    Q_DISABLE_COPY_MOVE(Observation)

private:
    int m_number;
};

constexpr int s_threads = 4;
constexpr int s_linesPerThread = 250;

/// 4096, in decimal or as the machine's service tools write it.
QRegularExpression moduleNumber()
{
    return QRegularExpression(QStringLiteral("\\b(4096|0x1000)\\b"));
}

/// Logs from several threads at once. The lines are long, so that a torn one is seen.
void logFromThreads()
{
    const auto log = [](int thread) {
        for (int line = 0; line < s_linesPerThread; ++line)
            LogFormatter(1, Log::Machine)
                << "thread" << thread << "line" << line << QString(100, QLatin1Char('x')) << "end";
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < s_threads; ++i)
        threads.emplace_back(log, i);
    for (std::thread &thread : threads)
        thread.join();
}

/// The lines of one thread out of all, in their order.
QStringList linesOf(int thread, const QStringList &all)
{
    return all.filter(QRegularExpression(QStringLiteral("^thread %1 ").arg(thread)));
}

void expectWholeLinesOfEveryThread(const QStringList &lines)
{
    EXPECT_EQ(lines.size(), s_threads * s_linesPerThread);
    for (int thread = 0; thread < s_threads; ++thread) {
        QStringList expected;
        for (int line = 0; line < s_linesPerThread; ++line)
            expected << QStringLiteral("thread %1 line %2 %3 end")
                            .arg(thread)
                            .arg(line)
                            .arg(QString(100, QLatin1Char('x')));
        EXPECT_TRUE(linesOf(thread, lines) == expected) << "thread " << thread;
    }
}

} // namespace

struct LevelCase
{
    const char *pName;
    int level;
    QtMsgType type;
};

const LevelCase s_levelCases[] = {
    {"Level0", 0, QtDebugMsg},   {"Level1", 1, QtInfoMsg},     {"Level2", 2, QtInfoMsg},
    {"Level3", 3, QtWarningMsg}, {"Level4", 4, QtCriticalMsg},
};

using LogFormatterLevels = ::testing::TestWithParam<LevelCase>;
INSTANTIATE_TEST_SUITE_P(Rows, LogFormatterLevels, ::testing::ValuesIn(s_levelCases), caseName);

TEST_P(LogFormatterLevels, ReachesQtAsATypeAndTheObserverAsANumber)
{
    const MessageSpy messages;
    const LogSpy log;
    LogFormatter(GetParam().level, Log::CanBus) << "Invalid command" << 98;

    ASSERT_EQ(messages.messages().size(), 1);
    EXPECT_EQ(messages.messages().constFirst().type, GetParam().type);
    EXPECT_EQ(messages.messages().constFirst().category.toStdString(), "vy.canbus");
    EXPECT_EQ(messages.messages().constFirst().text.toStdString(), "Invalid command 98");
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.records().constFirst().level, GetParam().level);
    EXPECT_EQ(log.records().constFirst().module, LogModule::CanBus);
    EXPECT_EQ(log.records().constFirst().text.toStdString(), "Invalid command 98");
}

TEST_P(LogFormatterLevels, EventReachesTheLogAndTheEventFile)
{
    const LogFolder folder;
    const MessageSpy messages;
    const LogSpy log;
    LogFormatter::logEvent(4096, GetParam().level, QStringLiteral("DADD warning: %1 {}"));

    ASSERT_EQ(messages.messages().size(), 1);
    EXPECT_EQ(messages.messages().constFirst().type, GetParam().type);
    EXPECT_EQ(messages.messages().constFirst().category.toStdString(), "vy.event");
    EXPECT_EQ(log.count("DADD warning: %1 {}", GetParam().level, LogModule::Event), 1);
    EXPECT_TRUE(log.texts().constFirst().contains(moduleNumber()));

    const QStringList lines = folder.lines(QStringLiteral("events.txt"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.constFirst().contains(moduleNumber()));
    EXPECT_THAT(lines.constFirst().toStdString(),
                ::testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}"
                                        "\\.[0-9]{3}Z .*DADD warning: %1 \\{\\}"));
}

struct ModuleCase
{
    const char *pName;
    LogModule module;
    const char *pCategory;
};

using LogFormatterModules = ::testing::TestWithParam<ModuleCase>;

TEST_P(LogFormatterModules, LogsInItsCategory)
{
    const MessageSpy messages;
    LogFormatter(4, GetParam().module) << "text";

    ASSERT_EQ(messages.messages().size(), 1);
    EXPECT_EQ(messages.messages().constFirst().category.toStdString(), GetParam().pCategory);
    EXPECT_STREQ(LogModules::category(GetParam().module).categoryName(), GetParam().pCategory);
}

TEST_P(LogFormatterModules, EveryLevelIsOnAtFirst)
{
    for (int level = 0; level <= 4; ++level)
        EXPECT_TRUE(LogFormatter::isEnabled(level, GetParam().module)) << level;
}

const ModuleCase s_moduleCases[] = {
    {"Global", Log::Global, "vy.global"},
    {"CanBus", Log::CanBus, "vy.canbus"},
    {"Hardware", Log::Hardware, "vy.hardware"},
    {"InputOutput", Log::InputOutput, "vy.inputoutput"},
    {"Machine", Log::Machine, "vy.machine"},
    {"Payment", Log::Payment, "vy.payment"},
    {"Event", Log::Event, "vy.event"},
    {"NumberAboveTheTable", static_cast<LogModule>(LogModules::Count), "vy.global"},
    {"NegativeNumber", static_cast<LogModule>(-1), "vy.global"},
};
INSTANTIATE_TEST_SUITE_P(Rows, LogFormatterModules, ::testing::ValuesIn(s_moduleCases), caseName);

struct PiecesCase
{
    const char *pName;
    void (*log)();
    const char *pText;
};

using LogFormatterPieces = ::testing::TestWithParam<PiecesCase>;

TEST_P(LogFormatterPieces, MakeOneLineWithOneBlankBetweenTwo)
{
    const MessageSpy messages;
    const LogSpy log;
    GetParam().log();

    ASSERT_EQ(messages.messages().size(), 1);
    EXPECT_EQ(messages.messages().constFirst().text.toStdString(), GetParam().pText);
    ASSERT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.records().constFirst().text.toStdString(), GetParam().pText);
}

const PiecesCase s_piecesCases[] = {
    {"One", [] { LogFormatter(4, Log::Global) << "alone"; }, "alone"},
    {"Numbers", [] { LogFormatter(4, Log::Global) << "a" << 1 << -2 << 0.5 << true; },
     "a 1 -2 0.5 true"},
    {"TextsWithoutQuotes",
     [] {
         LogFormatter(4, Log::Global)
             << QStringLiteral("the door") << QByteArray("is") << QLatin1String("open")
             << QLatin1Char('!') << QStringLiteral("now").midRef(0);
     },
     "the door is open ! now"},
    {"TextsInQuotes",
     [] { LogFormatter(4, Log::Global) << "file" << quoted(QStringLiteral("a b.txt")) << "gone"; },
     "file \"a b.txt\" gone"},
    {"OwnBlanksStay", [] { LogFormatter(4, Log::Global) << "value: " << 7 << " ms"; },
     "value:  7  ms"},
    {"List",
     [] {
         LogFormatter(4, Log::Global) << "list" << QList<int>{1, 2} << "end";
     },
     "list (1, 2) end"},
    {"EmptyInTheMiddle", [] { LogFormatter(4, Log::Global) << "a" << QString() << "b"; }, "a  b"},
    {"EmptyAtTheEnd", [] { LogFormatter(4, Log::Global) << "a" << QString(); }, "a "},
    {"EmptyInFront", [] { LogFormatter(4, Log::Global) << QString() << "b"; }, " b"},
    {"NotAscii", [] { LogFormatter(4, Log::Global) << QString::fromUtf8("95 °C") << "µ"; },
     "95 °C µ"},
    {"Placeholders", [] { LogFormatter(4, Log::Global) << "%1 %s {}" << QStringLiteral("%2"); },
     "%1 %s {} %2"},
};
INSTANTIATE_TEST_SUITE_P(Rows, LogFormatterPieces, ::testing::ValuesIn(s_piecesCases), caseName);

struct RulesCase
{
    const char *pName;
    const char *pRules;
    std::vector<bool> isOn; ///< by level
};

using LogFormatterRules = ::testing::TestWithParam<RulesCase>;

TEST_P(LogFormatterRules, NothingIsEvaluatedWhileALevelIsOff)
{
    const FilterRules rules(GetParam().pRules);
    const MessageSpy messages;
    const LogSpy log;
    for (int level = 0; level <= 4; ++level) {
        const bool isOn = GetParam().isOn[static_cast<size_t>(level)];
        int evaluations = 0;
        const auto piece = [&evaluations] { return ++evaluations; };
        const int linesBefore = log.records().size();
        LogFormatter(level, Log::CanBus) << piece() << piece();

        EXPECT_EQ(LogFormatter::isEnabled(level, Log::CanBus), isOn) << level;
        EXPECT_EQ(evaluations, isOn ? 2 : 0) << level;
        EXPECT_EQ(log.records().size() - linesBefore, isOn ? 1 : 0) << level;
    }
    const auto lines = std::count(GetParam().isOn.begin(), GetParam().isOn.end(), true);
    EXPECT_EQ(messages.messages().size(), lines);
}

const RulesCase s_rulesCases[] = {
    {"Debug", "vy.canbus.debug=false", {false, true, true, true, true}},
    {"Info", "vy.canbus.info=false", {true, false, false, true, true}},
    {"Warning", "vy.canbus.warning=false", {true, true, true, false, true}},
    {"Critical", "vy.canbus.critical=false", {true, true, true, true, false}},
    {"Module", "vy.canbus=false", {false, false, false, false, false}},
    {"EveryModule", "vy.*=false", {false, false, false, false, false}},
    {"OtherModule", "vy.hardware=false", {true, true, true, true, true}},
};
INSTANTIATE_TEST_SUITE_P(Rows, LogFormatterRules, ::testing::ValuesIn(s_rulesCases), caseName);

TEST(LogFormatterTest, LineBeginsWithTheFunctionAsTheCompilerSpellsIt)
{
    const LogSpy log;
    LogFormatter(4, Log::CanBus) << Q_FUNC_INFO << "Invalid command" << 98;
    ASSERT_EQ(log.texts().size(), 1);
    EXPECT_EQ(log.texts().constFirst().toStdString(),
              std::string(Q_FUNC_INFO) + " Invalid command 98");
}

TEST(LogFormatterTest, EachStatementIsALineOfItsOwn)
{
    const LogSpy log;
    LogFormatter(0, Log::CanBus) << "first" << 1;
    LogFormatter(0, Log::CanBus) << "second" << 2;
    EXPECT_EQ(log.texts().join(QLatin1Char('|')).toStdString(), "first 1|second 2");
}

TEST(LogFormatterTest, LevelComesBackWhenTheRuleGoes)
{
    const LogSpy log;
    {
        const FilterRules rules("vy.canbus.debug=false");
        LogFormatter(0, Log::CanBus) << "off";
    }
    LogFormatter(0, Log::CanBus) << "on";
    EXPECT_EQ(log.texts().join(QLatin1Char('|')).toStdString(), "on");
}

TEST(LogFormatterTest, ElseBelongsToTheIfAroundTheStatement)
{
    const LogSpy log;
    const FilterRules rules("vy.canbus.debug=false");
    int otherwise = 0;
    for (const bool isLogging : {true, false}) {
        if (isLogging)
            LogFormatter(0, Log::CanBus) << "off";
        else
            ++otherwise;
    }
    EXPECT_EQ(otherwise, 1);

    for (const bool isLogging : {true, false}) {
        if (isLogging)
            LogFormatter(4, Log::CanBus) << "on";
        else
            ++otherwise;
    }
    EXPECT_EQ(otherwise, 2);
    EXPECT_EQ(log.texts().join(QLatin1Char('|')).toStdString(), "on");
}

TEST(LogFormatterTest, LevelMayBeAnExpression)
{
    const LogSpy log;
    for (const bool isFailure : {false, true})
        LogFormatter(isFailure ? 3 : 1, isFailure ? Log::Payment : Log::Machine) << "step";
    EXPECT_EQ(log.count("step", 1, LogModule::Machine), 1);
    EXPECT_EQ(log.count("step", 3, LogModule::Payment), 1);
    EXPECT_EQ(log.records().size(), 2);
}

TEST(LogFormatterTest, EveryObserverIsToldUntilItIsRemoved)
{
    int first = 0;
    int second = 0;
    const int firstNumber = LogFormatter::addObserver([&first](const LogRecord &) { ++first; });
    const int secondNumber = LogFormatter::addObserver([&second](const LogRecord &) { ++second; });
    EXPECT_NE(firstNumber, secondNumber);
    LogFormatter(0, Log::Global) << "both";
    LogFormatter::removeObserver(firstNumber);
    LogFormatter(0, Log::Global) << "second only";
    LogFormatter::removeObserver(firstNumber); // is gone already
    LogFormatter(0, Log::Global) << "second only";
    LogFormatter::removeObserver(secondNumber);
    LogFormatter(0, Log::Global) << "none";

    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 3);
}

TEST(LogFormatterTest, WhatAnObserverLogsIsNotToldToIt)
{
    const MessageSpy messages;
    QStringList told;
    const Observation observation([&told](const LogRecord &record) {
        told << record.text;
        LogFormatter(4, Log::Global) << "heard" << record.text;
    });
    LogFormatter(0, Log::Global) << "first";
    LogFormatter(0, Log::Global) << "second";

    EXPECT_EQ(told.join(QLatin1Char('|')).toStdString(), "first|second");
    QStringList logged;
    const auto kept = messages.messages();
    for (const MessageSpy::Message &message : kept)
        logged << message.text;
    logged.sort();
    EXPECT_EQ(logged.join(QLatin1Char('|')).toStdString(), "first|heard first|heard second|second");
}

TEST(LogFormatterTest, ObserverMayRemoveItself)
{
    int calls = 0;
    int number = -1;
    number = LogFormatter::addObserver([&calls, &number](const LogRecord &) {
        ++calls;
        LogFormatter::removeObserver(number);
    });
    const LogSpy other;
    LogFormatter(0, Log::Global) << "first";
    LogFormatter(0, Log::Global) << "second";
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(other.records().size(), 2);
}

TEST(LogFormatterTest, ObserverThatAnotherOneRemovesIsNotCalledAnyMore)
{
    int calls = 0;
    int first = -1;
    int second = -1;
    first = LogFormatter::addObserver([&](const LogRecord &) {
        ++calls;
        LogFormatter::removeObserver(second);
    });
    second = LogFormatter::addObserver([&](const LogRecord &) {
        ++calls;
        LogFormatter::removeObserver(first);
    });
    LogFormatter(0, Log::Global) << "one of the two hears this";
    EXPECT_EQ(calls, 1);
    LogFormatter::removeObserver(first);
    LogFormatter::removeObserver(second);
}

TEST(LogFormatterTest, ObserverMayAddAnother)
{
    int late = 0;
    int lateNumber = -1;
    {
        const Observation observation([&](const LogRecord &) {
            if (lateNumber < 0)
                lateNumber = LogFormatter::addObserver([&late](const LogRecord &) { ++late; });
        });
        LogFormatter(0, Log::Global) << "adds it";
    }
    late = 0;
    LogFormatter(0, Log::Global) << "is heard by it";
    LogFormatter::removeObserver(lateNumber);
    EXPECT_EQ(late, 1);
}

TEST(LogFormatterTest, ObserverIsToldInTheLoggingThread)
{
    std::thread::id told;
    const Observation observation(
        [&told](const LogRecord &) { told = std::this_thread::get_id(); });
    std::thread thread([] { LogFormatter(0, Log::Global) << "from a thread"; });
    const std::thread::id logging = thread.get_id();
    thread.join();
    EXPECT_EQ(told, logging);
}

TEST(LogFormatterTest, RemovalWaitsForAnObserverThatIsBeingTold)
{
    std::atomic<bool> isInside{false};
    std::atomic<bool> wasInside{false};
    const int number = LogFormatter::addObserver([&](const LogRecord &) {
        isInside = true;
        wasInside = true;
        std::this_thread::sleep_for(50ms);
        isInside = false;
    });
    std::thread thread([] { LogFormatter(0, Log::Global) << "from a thread"; });
    while (!wasInside)
        std::this_thread::yield();
    LogFormatter::removeObserver(number);
    EXPECT_FALSE(isInside);
    thread.join();
}

TEST(LogFormatterTest, LinesOfThreadsArriveWholeAndOneAtATime)
{
    const MessageSpy messages;
    QStringList told; // no lock: observers are told one line at a time
    std::atomic<int> callers{0};
    bool isAlone = true;
    {
        const Observation observation([&](const LogRecord &record) {
            isAlone = isAlone && callers++ == 0;
            told << record.text;
            --callers;
        });
        logFromThreads();
    }
    EXPECT_TRUE(isAlone);
    expectWholeLinesOfEveryThread(told);

    QStringList logged;
    const auto kept = messages.messages();
    for (const MessageSpy::Message &message : kept)
        logged << message.text;
    expectWholeLinesOfEveryThread(logged);
}

TEST(LogFormatterTest, ObserversComeAndGoWhileThreadsLog)
{
    const MessageSpy messages;
    std::atomic<bool> isLogging{true};
    std::thread thread([&isLogging] {
        logFromThreads();
        isLogging = false;
    });
    bool isCalledLate = false;
    do {
        std::atomic<bool> isRemoved{false};
        const int number = LogFormatter::addObserver(
            [&](const LogRecord &) { isCalledLate = isCalledLate || isRemoved; });
        std::this_thread::yield();
        LogFormatter::removeObserver(number);
        isRemoved = true;
    } while (isLogging);
    thread.join();
    EXPECT_FALSE(isCalledLate);
    EXPECT_EQ(messages.messages().size(), s_threads * s_linesPerThread);
}

TEST(LogFormatterTest, EventsOfThreadsStandInTheFileWhole)
{
    const LogFolder folder;
    const MessageSpy messages;
    const auto log = [] {
        for (int i = 0; i < 50; ++i)
            LogFormatter::logEvent(4096, 3, QString(200, QLatin1Char('~')));
    };
    std::thread first(log);
    std::thread second(log);
    first.join();
    second.join();

    const QStringList lines = folder.lines(QStringLiteral("events.txt"));
    EXPECT_EQ(lines.size(), 100);
    const QRegularExpression whole(QStringLiteral("^\\d{4}-[^~]* ~{200}$"));
    EXPECT_EQ(lines.filter(whole).size(), 100);
}

TEST(LogFormatterTest, EventFileTellsTheLevelsApart)
{
    const LogFolder folder;
    for (int level = 0; level <= 4; ++level)
        LogFormatter::logEvent(4096, level, QStringLiteral("DADD warning"));

    std::set<QString> texts;
    const QStringList lines = folder.lines(QStringLiteral("events.txt"));
    for (const QString &line : lines)
        texts.insert(line.section(QLatin1Char(' '), 1)); // behind the time
    EXPECT_EQ(texts.size(), 5U);
}
