#include "loginfile.h"

#include "support/casename.h"
#include "support/filesizelimit.h"
#include "support/logfolder.h"
#include "support/logspy.h"
#include "support/scopedvariable.h"

#include <QDateTime>
#include <QFileInfo>
#include <QRegularExpression>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

constexpr double s_kibibyte = 1.0 / 1024; ///< in mebibytes
constexpr int s_kibibyteBytes = 1024;
constexpr RotatingLogFileConfiguration s_large = {8.0, 1, false};

QString fileName()
{
    return QStringLiteral("canBus.txt");
}

/// The name of an older file: 1 is the latest of them.
QString olderName(int number)
{
    return QStringLiteral("canBus.%1.txt").arg(number);
}

QRegularExpression stamp()
{
    return QRegularExpression(QStringLiteral(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z )"));
}

/// The lines' texts behind their times. A line that does not begin with a time stays as it is.
QStringList textsOf(QStringList lines)
{
    return lines.replaceInStrings(stamp(), QString());
}

QString joined(const QStringList &texts)
{
    return texts.join(QLatin1Char('|'));
}

} // namespace

class LogInFileTest : public ::testing::Test
{
protected:
    /// Writes to the file, and only there.
    static std::unique_ptr<LogInFile>
    makeLog(const RotatingLogFileConfiguration &configuration = s_large,
            const QString &name = fileName())
    {
        auto pLog = std::make_unique<LogInFile>(nullptr, name, Log::CanBus, configuration);
        pLog->setLogInFile(true);
        return pLog;
    }

    static void logNumbers(LogInFile &log, int first, int last)
    {
        for (int i = first; i <= last; ++i)
            log.logString(QString::number(i));
    }

    /// "first|...|last"
    static std::string numbers(int first, int last)
    {
        QStringList texts;
        for (int i = first; i <= last; ++i)
            texts << QString::number(i);
        return joined(texts).toStdString();
    }

    std::string texts(const QString &name = fileName()) const
    {
        return joined(textsOf(m_folder.lines(name))).toStdString();
    }

    std::string names() const { return joined(m_folder.names()).toStdString(); }

    LogFolder m_folder;
};

TEST_F(LogInFileTest, NothingIsWrittenWhileTheSwitchIsOff)
{
    const LogSpy spy;
    LogInFile log(nullptr, fileName(), Log::CanBus, s_large);
    EXPECT_FALSE(log.isLogInFile());
    log.logString(QStringLiteral("off"));
    EXPECT_EQ(names(), "");

    log.setLogInFile(true);
    EXPECT_TRUE(log.isLogInFile());
    log.logString(QStringLiteral("on"));
    log.setLogInFile(false);
    EXPECT_FALSE(log.isLogInFile());
    log.logString(QStringLiteral("off again"));
    EXPECT_EQ(names(), "canBus.txt");
    EXPECT_EQ(texts(), "on");
    EXPECT_TRUE(spy.records().isEmpty());
}

TEST_F(LogInFileTest, FileIsOpenedWithTheFirstLine)
{
    const auto pLog = makeLog();
    EXPECT_EQ(names(), "");
    pLog->logString(QStringLiteral("first"));
    EXPECT_EQ(names(), "canBus.txt");
}

TEST_F(LogInFileTest, FolderThatIsMissingIsMade)
{
    const ScopedVariable logs("VY_PATH_LOGS",
                              QFile::encodeName(m_folder.path(QStringLiteral("a/b"))));
    makeLog()->logString(QStringLiteral("first"));
    EXPECT_EQ(texts(QStringLiteral("a/b/canBus.txt")), "first");
}

TEST_F(LogInFileTest, LineBeginsWithItsTimeInUtc)
{
    const ScopedVariable zone("TZ", "TEST-9"); // nine hours before UTC
    tzset();
    const auto pLog = makeLog();
    const QDateTime before = QDateTime::currentDateTimeUtc();
    pLog->logString(QStringLiteral("text"));
    const QDateTime after = QDateTime::currentDateTimeUtc();

    ASSERT_EQ(m_folder.lines(fileName()).size(), 1);
    const QString line = m_folder.lines(fileName()).constFirst();
    ASSERT_TRUE(line.contains(stamp())) << line.toStdString();
    EXPECT_EQ(line.mid(25).toStdString(), "text");
    const QDateTime time = QDateTime::fromString(line.left(24), Qt::ISODateWithMs);
    EXPECT_EQ(time.timeSpec(), Qt::UTC);
    EXPECT_LE(before, time);
    EXPECT_LE(time, after);
}

// The date is converted once a second at most; the lines must follow the clock all the same.
TEST_F(LogInFileTest, TimeFollowsTheClockIntoTheNextSecond)
{
    const auto pLog = makeLog();
    std::vector<std::pair<QDateTime, QDateTime>> brackets;
    const QDateTime end = QDateTime::currentDateTimeUtc().addMSecs(1010);
    while (QDateTime::currentDateTimeUtc() < end) {
        const QDateTime before = QDateTime::currentDateTimeUtc();
        pLog->logString(QStringLiteral("text"));
        brackets.emplace_back(before, QDateTime::currentDateTimeUtc());
        std::this_thread::sleep_for(7ms);
    }

    const QStringList lines = m_folder.lines(fileName());
    ASSERT_EQ(static_cast<size_t>(lines.size()), brackets.size());
    for (int i = 0; i < lines.size(); ++i) {
        ASSERT_TRUE(lines[i].contains(stamp())) << lines[i].toStdString();
        const QDateTime time = QDateTime::fromString(lines[i].left(24), Qt::ISODateWithMs);
        const auto &[before, after] = brackets[static_cast<size_t>(i)];
        EXPECT_TRUE(before <= time && time <= after) << lines[i].toStdString();
    }
}

struct LineCase
{
    const char *pName;
    QByteArray text;
    QByteArray inFile; ///< behind the time, without the line's end
};

class LogInFileLines : public LogInFileTest, public ::testing::WithParamInterface<LineCase>
{
};

TEST_P(LogInFileLines, StandsOnALineOfItsOwn)
{
    const auto pLog = makeLog();
    pLog->logString(QString::fromUtf8(GetParam().text));
    pLog->logString(QStringLiteral("next"));

    const QByteArray bytes = m_folder.bytes(fileName());
    EXPECT_TRUE(bytes.endsWith("next\n"));
    EXPECT_EQ(bytes.count('\n'), 2);
    QStringList lines = textsOf(m_folder.lines(fileName()));
    ASSERT_EQ(lines.size(), 2);
    if (lines.first().endsWith(QLatin1Char('\r')))
        lines.first().chop(1); // a text's own line end
    EXPECT_EQ(lines.first().toStdString(), GetParam().inFile.toStdString());
    EXPECT_EQ(lines.last().toStdString(), "next");
}

const LineCase s_lineCases[] = {
    {"WithoutEnd", "text", "text"},
    {"WithLineFeed", "text\n", "text"},
    {"WithCarriageReturnAndLineFeed", "text\r\n", "text"},
    {"Empty", "", ""},
    {"LineFeedAlone", "\n", ""},
    {"Blanks", "  text  ", "  text  "},
    {"NotAscii", "95 °C µ 漢", "95 °C µ 漢"},
    {"Placeholders", "%1 %s {} {0} %v", "%1 %s {} {0} %v"},
    {"Long", QByteArray(100000, 'x'), QByteArray(100000, 'x')},
};
INSTANTIATE_TEST_SUITE_P(Rows, LogInFileLines, ::testing::ValuesIn(s_lineCases), caseName);

TEST_F(LogInFileTest, OrderIsKept)
{
    const auto pLog = makeLog();
    logNumbers(*pLog, 1, 1000);
    EXPECT_EQ(texts(), numbers(1, 1000));
}

TEST_F(LogInFileTest, NamesMakeDifferentFiles)
{
    const auto pFirst = makeLog();
    const auto pSecond = makeLog(s_large, QStringLiteral("paymentSocket.txt"));
    pFirst->logString(QStringLiteral("frame"));
    pSecond->logString(QStringLiteral("bytes"));
    EXPECT_EQ(names(), "canBus.txt|paymentSocket.txt");
    EXPECT_EQ(texts(), "frame");
    EXPECT_EQ(texts(QStringLiteral("paymentSocket.txt")), "bytes");
}

TEST_F(LogInFileTest, ObjectsWithOneNameShareTheFile)
{
    const RotatingLogFileConfiguration rotated = {8.0, 1, true};
    auto pFirst = makeLog(rotated);
    const auto pSecond = makeLog(rotated);
    pFirst->logString(QStringLiteral("first"));
    pSecond->logString(QStringLiteral("second"));
    pFirst->logString(QStringLiteral("third"));
    pFirst->setLogInFile(false);
    pFirst->logString(QStringLiteral("off"));
    pSecond->logString(QStringLiteral("fourth"));
    pFirst.reset();
    pSecond->logString(QStringLiteral("fifth"));
    EXPECT_EQ(names(), "canBus.txt"); // opened once, so nothing has been rotated
    EXPECT_EQ(texts(), "first|second|third|fourth|fifth");
}

// Each line is about a tenth of the file, so the threads rotate it all the time.
TEST_F(LogInFileTest, ThreadsWithOneNameLoseNoLine)
{
    constexpr int s_threads = 4;
    constexpr int s_lines = 60;
    const RotatingLogFileConfiguration configuration = {s_kibibyte, 100, false};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < s_threads; ++thread)
        threads.emplace_back([&configuration, thread] {
            const auto pLog = makeLog(configuration);
            for (int line = 0; line < s_lines; ++line)
                pLog->logString(QStringLiteral("%1 %2 %3")
                                    .arg(thread)
                                    .arg(line)
                                    .arg(QString(70, QLatin1Char('x'))));
        });
    for (std::thread &thread : threads)
        thread.join();

    QStringList all;
    for (int number = m_folder.names().size() - 1; number > 0; --number)
        all << textsOf(m_folder.lines(olderName(number)));
    all << textsOf(m_folder.lines(fileName()));
    EXPECT_EQ(all.size(), s_threads * s_lines);
    for (int thread = 0; thread < s_threads; ++thread) {
        const QStringList own =
            all.filter(QRegularExpression(QStringLiteral("^%1 \\d+ x{70}$").arg(thread)));
        ASSERT_EQ(own.size(), s_lines);
        for (int line = 0; line < s_lines; ++line)
            EXPECT_EQ(own[line].section(QLatin1Char(' '), 1, 1).toInt(), line);
    }
}

struct OlderFilesCase
{
    const char *pName;
    int olderFiles;
    int lines;     ///< how many are logged; eight fill a file
    int firstLeft; ///< number of the first line that is still there
};

class LogInFileOlderFiles : public LogInFileTest,
                            public ::testing::WithParamInterface<OlderFilesCase>
{
protected:
    /// A line's text; the whole line takes 128 bytes.
    static QString text(int line)
    {
        return QStringLiteral("%1").arg(line, 128 - 25 - 1, 10, QLatin1Char('0'));
    }
};

TEST_P(LogInFileOlderFiles, AreKeptInOrderAndTheOldestIsDeleted)
{
    const auto pLog = makeLog({s_kibibyte, GetParam().olderFiles, false});
    for (int line = 1; line <= GetParam().lines; ++line) {
        pLog->logString(text(line));
        ASSERT_LE(QFileInfo(m_folder.path(fileName())).size(), s_kibibyteBytes);
    }

    QStringList names;
    QStringList lines;
    for (int number = 20; number > 0; --number) {
        if (!QFile::exists(m_folder.path(olderName(number))))
            continue;
        names.prepend(olderName(number));
        EXPECT_EQ(QFileInfo(m_folder.path(olderName(number))).size(), s_kibibyteBytes);
        lines << textsOf(m_folder.lines(olderName(number)));
    }
    names.append(fileName());
    lines << textsOf(m_folder.lines(fileName()));

    names.sort();
    EXPECT_EQ(this->names(), joined(names).toStdString());
    QStringList expected;
    for (int line = GetParam().firstLeft; line <= GetParam().lines; ++line)
        expected << text(line);
    EXPECT_EQ(joined(lines).toStdString(), joined(expected).toStdString());
}

const OlderFilesCase s_olderFilesCases[] = {
    {"FileJustFull", 2, 8, 1},
    {"OneLineMore", 2, 9, 1},
    {"EveryFileJustFull", 2, 24, 1},
    {"OneLineTooMany", 2, 25, 9},
    {"ManyRotations", 2, 100, 81},
    {"OneOlderFile", 1, 100, 89},
    {"NoOlderFileJustFull", 0, 8, 1},
    {"NoOlderFile", 0, 100, 97},
    {"ElevenOlderFiles", 11, 100, 1 + 104 - 96},
};
INSTANTIATE_TEST_SUITE_P(Rows, LogInFileOlderFiles, ::testing::ValuesIn(s_olderFilesCases),
                         caseName);

TEST_F(LogInFileTest, WhatAnEarlierRunWroteCountsForTheSize)
{
    const QString text(512 - 25 - 1, QLatin1Char('x'));
    makeLog({s_kibibyte, 1, false})->logString(text);
    ASSERT_EQ(QFileInfo(m_folder.path(fileName())).size(), 512);

    const auto pLog = makeLog({s_kibibyte, 1, false});
    pLog->logString(text);
    EXPECT_EQ(names(), "canBus.txt");
    pLog->logString(text);
    EXPECT_EQ(names(), "canBus.1.txt|canBus.txt");
    EXPECT_EQ(m_folder.lines(olderName(1)).size(), 2);
    EXPECT_EQ(m_folder.lines(fileName()).size(), 1);
}

TEST_F(LogInFileTest, FileGoesOnWhenOpenedAgain)
{
    makeLog()->logString(QStringLiteral("first"));
    makeLog()->logString(QStringLiteral("second"));
    EXPECT_EQ(names(), "canBus.txt");
    EXPECT_EQ(texts(), "first|second");
}

TEST_F(LogInFileTest, FileIsRotatedWhenOpenedAgainIfConfiguredSo)
{
    const RotatingLogFileConfiguration rotated = {8.0, 2, true};
    makeLog(rotated)->logString(QStringLiteral("first"));
    EXPECT_EQ(names(), "canBus.txt");
    makeLog(rotated)->logString(QStringLiteral("second"));
    {
        const auto pThird = makeLog(rotated);
        logNumbers(*pThird, 3, 4);
    }
    EXPECT_EQ(names(), "canBus.1.txt|canBus.2.txt|canBus.txt");
    EXPECT_EQ(texts(olderName(2)), "first");
    EXPECT_EQ(texts(olderName(1)), "second");
    EXPECT_EQ(texts(), "3|4");
}

struct SwitchesCase
{
    const char *pName;
    bool isInFile;
    bool isInDebug;
};

class LogInFileSwitches : public LogInFileTest, public ::testing::WithParamInterface<SwitchesCase>
{
};

TEST_P(LogInFileSwitches, SendTheLineToTheFileAndToItsModule)
{
    const LogSpy spy;
    LogInFile log(nullptr, fileName(), Log::Payment, s_large);
    EXPECT_FALSE(log.isLogInDebug());
    log.setLogInFile(GetParam().isInFile);
    log.setLogInDebug(GetParam().isInDebug);
    EXPECT_EQ(log.isLogInDebug(), GetParam().isInDebug);
    log.logString(QStringLiteral("frame %1"));

    EXPECT_EQ(texts(), GetParam().isInFile ? "frame %1" : "");
    EXPECT_EQ(spy.records().size(), GetParam().isInDebug ? 1 : 0);
    EXPECT_EQ(spy.count("frame %1", 0, LogModule::Payment), GetParam().isInDebug ? 1 : 0);
}

const SwitchesCase s_switchesCases[] = {
    {"BothOff", false, false},
    {"File", true, false},
    {"Debug", false, true},
    {"BothOn", true, true},
};
INSTANTIATE_TEST_SUITE_P(Rows, LogInFileSwitches, ::testing::ValuesIn(s_switchesCases), caseName);

struct FailureCase
{
    const char *pName;
    void (*breakIt)(const LogFolder &);
    void (*mendIt)(const LogFolder &); ///< leaves no log file
};

/// What keeps lines from being written. The tests may run as root, whom permissions do not stop.
class LogInFileFailures : public LogInFileTest, public ::testing::WithParamInterface<FailureCase>
{
protected:
    LogInFileFailures()
        : m_logs("VY_PATH_LOGS", QFile::encodeName(m_folder.path(QStringLiteral("logs"))))
    {
        QDir(m_folder.path()).mkdir(QStringLiteral("logs"));
    }

    void breakIt() const { GetParam().breakIt(m_folder); }
    void mendIt() const { GetParam().mendIt(m_folder); }
    std::string logTexts() const { return texts(QStringLiteral("logs/canBus.txt")); }

    /// The latest line of the log must be about the file, and the only one since the last look.
    void expectTold(int level)
    {
        ASSERT_EQ(m_spy.records().size(), 1);
        EXPECT_GE(m_spy.records().constFirst().level, level);
        EXPECT_TRUE(m_spy.records().constFirst().text.contains(fileName()));
    }

    /// The same with this number of lost lines.
    void expectToldLost(int lines)
    {
        expectTold(LogDebug);
        const QRegularExpression number(QStringLiteral("\\b%1\\b").arg(lines));
        EXPECT_EQ(m_spy.texts().filter(number).size(), 1) << joined(m_spy.texts()).toStdString();
    }

    /// Of a log whose file is broken: seventeen lines are lost and told once, and the three behind
    /// the mending are written.
    void expectLossUntilMended(LogInFile &log)
    {
        logNumbers(log, 1, 17);
        expectTold(LogWarning);
        m_spy.clear();

        mendIt();
        logNumbers(log, 18, 20);
        EXPECT_EQ(logTexts(), "18|19|20");
        expectToldLost(17);
    }

    LogSpy m_spy;

private:
    ScopedVariable m_logs;
};

QString brokenFolder(const LogFolder &folder)
{
    return folder.path(QStringLiteral("logs"));
}

QString brokenFile(const LogFolder &folder)
{
    return folder.path(QStringLiteral("logs/canBus.txt"));
}

const FailureCase s_failureCases[] = {
    {"FullDisk",
     [](const LogFolder &folder) {
         QFile::remove(brokenFile(folder));
         QFile::link(QStringLiteral("/dev/full"), brokenFile(folder));
     },
     [](const LogFolder &folder) { QFile::remove(brokenFile(folder)); }},
    {"FolderIsAFile",
     [](const LogFolder &folder) {
         QDir(brokenFolder(folder)).removeRecursively();
         QFile file(brokenFolder(folder));
         EXPECT_TRUE(file.open(QIODevice::WriteOnly));
     },
     [](const LogFolder &folder) {
         QFile::remove(brokenFolder(folder));
         QDir().mkdir(brokenFolder(folder));
     }},
    {"FileIsAFolder",
     [](const LogFolder &folder) {
         QFile::remove(brokenFile(folder));
         QDir().mkdir(brokenFile(folder));
     },
     [](const LogFolder &folder) { QDir().rmdir(brokenFile(folder)); }},
    {"FileIsAPipe", // that nobody reads, so that opening it would wait
     [](const LogFolder &folder) {
         QFile::remove(brokenFile(folder));
         EXPECT_EQ(mkfifo(QFile::encodeName(brokenFile(folder)).constData(), 0600), 0);
     },
     [](const LogFolder &folder) { QFile::remove(brokenFile(folder)); }},
};
INSTANTIATE_TEST_SUITE_P(Kinds, LogInFileFailures, ::testing::ValuesIn(s_failureCases), caseName);

TEST_P(LogInFileFailures, CostLinesAndAreToldOnceFromTheFirstLineOn)
{
    breakIt();
    const auto pLog = makeLog();
    EXPECT_TRUE(m_spy.records().isEmpty());
    expectLossUntilMended(*pLog);
}

TEST_P(LogInFileFailures, CostLinesAndAreToldOnceWhileTheFileIsOpen)
{
    const auto pLog = makeLog();
    pLog->logString(QStringLiteral("before"));
    EXPECT_EQ(logTexts(), "before");
    EXPECT_TRUE(m_spy.records().isEmpty());

    breakIt();
    expectLossUntilMended(*pLog);
}

TEST_P(LogInFileFailures, AreToldAgainWhenTheyComeBack)
{
    const auto pLog = makeLog();
    for (const int lost : {17, 23}) {
        breakIt();
        logNumbers(*pLog, 1, lost);
        expectTold(LogWarning);
        m_spy.clear();

        mendIt();
        logNumbers(*pLog, 1, 2);
        EXPECT_EQ(logTexts(), "1|2");
        expectToldLost(lost);
        m_spy.clear();
    }
}

TEST_P(LogInFileFailures, AreToldOnceForObjectsThatShareTheFile)
{
    breakIt();
    const auto pFirst = makeLog();
    const auto pSecond = makeLog();
    logNumbers(*pFirst, 1, 8);
    logNumbers(*pSecond, 9, 17);
    expectTold(LogWarning);
    m_spy.clear();

    mendIt();
    pSecond->logString(QStringLiteral("after"));
    pFirst->logString(QStringLiteral("last"));
    EXPECT_EQ(logTexts(), "after|last");
    expectToldLost(17);
}

// An application may well write its whole log into such a file.
TEST_P(LogInFileFailures, MayBeToldToOneWhoWritesThatIntoTheSameFile)
{
    const auto pLog = makeLog();
    const int number = LogFormatter::addObserver(
        [&pLog](const LogRecord &record) { pLog->logString(record.text); });
    breakIt();
    logNumbers(*pLog, 1, 17);
    mendIt();
    logNumbers(*pLog, 18, 20);
    LogFormatter::removeObserver(number);
    EXPECT_EQ(m_spy.count("canBus.txt"), 2);
    EXPECT_EQ(textsOf(m_folder.lines(QStringLiteral("logs/canBus.txt")))
                  .filter(QRegularExpression(QStringLiteral("^\\d+$")))
                  .size(),
              3);
}

TEST_P(LogInFileFailures, DoNotKeepLinesFromTheDebugLog)
{
    breakIt();
    const auto pLog = makeLog();
    pLog->setLogInDebug(true);
    logNumbers(*pLog, 101, 105);
    for (int i = 101; i <= 105; ++i)
        EXPECT_EQ(m_spy.count(QString::number(i), 0, LogModule::CanBus), 1);
}

// Here the disk takes the first half of a line.
TEST_F(LogInFileTest, LineAfterAHalfWrittenOneStandsOnItsOwn)
{
    const auto pLog = makeLog();
    pLog->logString(QStringLiteral("before"));
    LogSpy spy;
    {
        const FileSizeLimit limit(40);
        logNumbers(*pLog, 1, 17);
    }
    EXPECT_EQ(spy.records().size(), 1);
    spy.clear();
    logNumbers(*pLog, 18, 20);

    const QStringList lines = textsOf(m_folder.lines(fileName()));
    EXPECT_EQ(joined(lines.mid(lines.size() - 3)).toStdString(), "18|19|20");
    EXPECT_EQ(lines.constFirst().toStdString(), "before");
    EXPECT_EQ(spy.count(QStringLiteral("17")), 1);
}

struct LossCase
{
    const char *pName;
    void (*takeAway)(const LogFolder &);
};

class LogInFileLosses : public LogInFileTest, public ::testing::WithParamInterface<LossCase>
{
};

TEST_P(LogInFileLosses, AreToldOnceAndTheNextLineIsInANewFile)
{
    LogSpy spy;
    const auto pLog = makeLog();
    for (int episode = 0; episode < 2; ++episode) {
        pLog->logString(QStringLiteral("before"));
        spy.clear();
        GetParam().takeAway(m_folder);
        logNumbers(*pLog, 1, 3);
        EXPECT_EQ(texts(), "1|2|3");
        ASSERT_EQ(spy.records().size(), 1);
        EXPECT_TRUE(spy.texts().constFirst().contains(fileName()));
    }
}

const LossCase s_lossCases[] = {
    {"FileDeleted", [](const LogFolder &folder) { QFile::remove(folder.path(fileName())); }},
    {"FolderDeleted", [](const LogFolder &folder) { QDir(folder.path()).removeRecursively(); }},
    {"FileReplaced",
     [](const LogFolder &folder) {
         QFile::remove(folder.path(fileName()));
         QFile file(folder.path(fileName()));
         EXPECT_TRUE(file.open(QIODevice::WriteOnly));
     }},
};
INSTANTIATE_TEST_SUITE_P(Kinds, LogInFileLosses, ::testing::ValuesIn(s_lossCases), caseName);

// A folder stands where the older file is to go.
TEST_F(LogInFileTest, LinesAreLostAndToldWhileTheFileCannotBeRotated)
{
    QDir(m_folder.path()).mkpath(olderName(1) + QStringLiteral("/occupied"));
    const QString text(256 - 25 - 1, QLatin1Char('x'));
    LogSpy spy;
    const auto pLog = makeLog({s_kibibyte, 1, false});
    for (int i = 0; i < 4 + 17; ++i)
        pLog->logString(text);
    EXPECT_EQ(m_folder.lines(fileName()).size(), 4); // four fill it, and they stay
    EXPECT_EQ(QFileInfo(m_folder.path(fileName())).size(), s_kibibyteBytes);
    EXPECT_EQ(spy.records().size(), 1);
    spy.clear();

    QDir(m_folder.path(olderName(1))).removeRecursively();
    pLog->logString(text);
    EXPECT_EQ(m_folder.lines(olderName(1)).size(), 4);
    EXPECT_EQ(m_folder.lines(fileName()).size(), 1);
    ASSERT_EQ(spy.records().size(), 1);
    EXPECT_TRUE(spy.texts().constFirst().contains(QRegularExpression(QStringLiteral("\\b17\\b"))));
}

/// Runs in a process of its own, which the alarm ends if the threads wait for one another.
void tellAFailureWhileAnObserverWrites(const LogFolder &folder)
{
    alarm(3);
    QFile::link(QStringLiteral("/dev/full"), folder.path(fileName()));
    LogInFile log(nullptr, fileName(), Log::CanBus, s_large);
    log.setLogInFile(true);
    std::atomic<bool> isObserving{false};
    LogFormatter::addObserver([&](const LogRecord &record) {
        isObserving = true;
        std::this_thread::sleep_for(50ms); // until the other thread has its failure
        log.logString(record.text);
    });
    std::thread observed([] { LogFormatter(1, Log::Machine) << "heard by the observer"; });
    while (!isObserving)
        std::this_thread::yield();
    LogInFile other(nullptr, fileName(), Log::CanBus, s_large);
    other.setLogInFile(true);
    other.logString(QStringLiteral("lost"));
    observed.join();
    QDir(folder.path()).removeRecursively();
    std::_Exit(0);
}

TEST_F(LogInFileTest, FailureCanBeToldWhileAnObserverWritesIntoTheFileInAnotherThread)
{
    EXPECT_EXIT(tellAFailureWhileAnObserverWrites(m_folder), ::testing::ExitedWithCode(0), "");
}

namespace {

class AfterQObject : public QObject
{
public:
    virtual void next() {}
};

class AfterLogInFile : public LogInFile
{
public:
    using LogInFile::LogInFile;
    virtual void next() {}
};

/// The compiler's form of a pointer to a virtual operation, which tells the operation's place.
template <typename Class>
auto placeOf(void (Class::*operation)())
{
    std::array<unsigned char, sizeof operation> bytes{};
    std::memcpy(bytes.data(), &operation, bytes.size());
    return bytes;
}

} // namespace

TEST(LogInFileInterface, AddsNoVirtualOperationToQObject)
{
    EXPECT_EQ(placeOf(&AfterLogInFile::next), placeOf(&AfterQObject::next));
}
