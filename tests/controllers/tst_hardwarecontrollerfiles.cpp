#include "abstracthardwarecontroller.h"

#include "controllers/backlight.h"
#include "controllers/oneline.h"
#include "support/casename.h"
#include "support/filesizelimit.h"
#include "support/logspy.h"

#include <QDir>

#include <limits>

struct ContentCase
{
    const char *pName;
    QByteArray content;
    int number;
};

using ReadIntFromFile = ::testing::TestWithParam<ContentCase>;

TEST_P(ReadIntFromFile, TakesADecimalNumberBeforeTheFirstNul)
{
    const Backlight files(GetParam().content);
    const LogSpy log;
    EXPECT_EQ(AbstractHardwareController::readIntFromFile(files.maximumFile()), GetParam().number);
    EXPECT_TRUE(log.records().isEmpty());
}

const ContentCase s_contentCases[] = {
    {"Plain", "42", 42},
    {"Zero", "0", 0},
    {"LineFeed", "42\n", 42},
    {"CarriageReturn", "42\r\n", 42},
    {"BlanksAround", " \t 42 \n\n", 42},
    {"Negative", "-7", -7},
    {"MinusOne", "-1", -1},
    {"LeadingZeros", "0010", 10}, // not octal
    {"NulBehind", QByteArray("42\0", 3), 42},
    {"LettersBehindNul", QByteArray("42\0abc", 6), 42},
    {"NumberBehindNul",
     QByteArray("42\n\0"
                "7",
                5),
     42},
    {"Largest", "2147483647", std::numeric_limits<int>::max()},
    {"Smallest", "-2147483648", std::numeric_limits<int>::min()},
    {"AcrossTheEndOfAPage", QByteArray(4095, ' ') + "42", 42},
    {"LongRowOfBlanks", QByteArray(100000, ' ') + "42", 42},
};
INSTANTIATE_TEST_SUITE_P(Rows, ReadIntFromFile, ::testing::ValuesIn(s_contentCases), caseName);

struct NoNumberCase
{
    const char *pName;
    QByteArray content;
    const char *pLogged; ///< of the content
};

using ReadIntFromFileWithoutNumber = ::testing::TestWithParam<NoNumberCase>;

TEST_P(ReadIntFromFileWithoutNumber, LogsTheContentAndReturnsMinusOne)
{
    const Backlight files(GetParam().content);
    const LogSpy log;
    EXPECT_EQ(AbstractHardwareController::readIntFromFile(files.maximumFile()), -1);
    ASSERT_EQ(log.records().size(), 1);
    const LogRecord record = log.records().constFirst();
    EXPECT_EQ(record.level, 4);
    EXPECT_EQ(record.module, Log::InputOutput);
    EXPECT_TRUE(record.text.startsWith(QStringLiteral("Could not parse content of")));
    const QString rest =
        QStringLiteral("\"%1\"! The following content could not be converted into number:")
            .arg(files.maximumFile());
    ASSERT_TRUE(record.text.contains(rest)) << record.text.left(1000).toStdString();
    const QString content = record.text.section(rest, 1).trimmed();
    EXPECT_EQ(content.left(100).toStdString(), GetParam().pLogged);
}

const NoNumberCase s_noNumberCases[] = {
    {"Empty", "", ""},
    {"Blanks", " \n\t ", ""},
    {"Letters", "abc", "abc"},
    {"LettersBehind", "12abc\n", "12abc"},
    {"TwoNumbers", "1 2", "1 2"},
    {"Hexadecimal", "0x10", "0x10"},
    {"HexadecimalDigits", "ff", "ff"},
    {"Fraction", "1.5", "1.5"},
    {"Exponent", "1e2", "1e2"},
    {"SignAlone", "-", "-"},
    {"OneAboveTheLargest", "2147483648", "2147483648"},
    {"OneBelowTheSmallest", "-2147483649", "-2147483649"},
    {"NulAlone", QByteArray(1, '\0'), ""},
    {"NumberBehindNul",
     QByteArray("\0"
                "42",
                3),
     ""},
    {"LettersBeforeNul",
     QByteArray("abc\0"
                "42",
                6),
     "abc"},
    {"PlaceholderOfAFormat", "%1 %2 %s", "%1 %2 %s"},
};
INSTANTIATE_TEST_SUITE_P(Rows, ReadIntFromFileWithoutNumber, ::testing::ValuesIn(s_noNumberCases),
                         caseName);

TEST(ReadIntFromLargeFile, FullOfLettersReturnsMinusOneInOneLine)
{
    const Backlight files(QByteArray(1024 * 1024, 'x'));
    const LogSpy log;
    EXPECT_EQ(AbstractHardwareController::readIntFromFile(files.maximumFile()), -1);
    EXPECT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.count("Could not parse content of", 4, Log::InputOutput), 1);
}

TEST(ReadIntFromLargeFile, FullOfNulsIsEmpty)
{
    const Backlight files("");
    ASSERT_TRUE(QFile::resize(files.maximumFile(), 100 * 1024 * 1024));
    const LogSpy log;
    EXPECT_EQ(AbstractHardwareController::readIntFromFile(files.maximumFile()), -1);
    EXPECT_EQ(log.count("Could not parse content of", 4, Log::InputOutput), 1);
}

struct PathCase
{
    const char *pName;
    const char *pPath; ///< below the folder of the backlight, in which "folder" is one
};

// Permissions stop nobody who is root; these stop everybody.
const PathCase s_unusablePaths[] = {
    {"BelowAFile", "brightness/below"},
    {"FolderIsMissing", "missing/file"},
    {"IsAFolder", "folder"},
};

using UnusableFile = ::testing::TestWithParam<PathCase>;

TEST_P(UnusableFile, CannotBeRead)
{
    const Backlight files("64");
    QDir().mkdir(files.path(QStringLiteral("folder")));
    const QString path = files.path(QString::fromLatin1(GetParam().pPath));
    const LogSpy log;
    EXPECT_EQ(AbstractHardwareController::readIntFromFile(path), -1);
    expectOneLine(log, 4, QStringLiteral("Could not read: %1").arg(path));
}

TEST_P(UnusableFile, CannotBeWritten)
{
    const Backlight files("64");
    QDir().mkdir(files.path(QStringLiteral("folder")));
    const QString path = files.path(QString::fromLatin1(GetParam().pPath));
    const LogSpy log;
    EXPECT_FALSE(AbstractHardwareController::writeIntToFile(path, 5));
    expectOneLine(log, 4, QStringLiteral("Could not open file for writing: \"%1").arg(path));
}

INSTANTIATE_TEST_SUITE_P(Rows, UnusableFile, ::testing::ValuesIn(s_unusablePaths), caseName);

TEST(ReadIntFromMissingFile, LogsThePathAndReturnsMinusOne)
{
    const Backlight files("64");
    const QString path = files.path(QStringLiteral("missing"));
    const LogSpy log;
    EXPECT_EQ(AbstractHardwareController::readIntFromFile(path), -1);
    expectOneLine(log, 4, QStringLiteral("Could not read: %1").arg(path));
    EXPECT_FALSE(QFile::exists(path));
}

TEST(WriteIntToFile, ReplacesTheContentByTheDecimalTextAlone)
{
    const Backlight files("64");
    const LogSpy log;
    for (const int value :
         {1000, 5, 0, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_TRUE(AbstractHardwareController::writeIntToFile(files.file(), value));
        EXPECT_EQ(files.written(), std::to_string(value));
    }
    EXPECT_TRUE(log.records().isEmpty());
}

TEST(WriteIntToFile, LinkToADeviceIsNotOpened)
{
    const Backlight files("64");
    const QString device = files.path(QStringLiteral("device"));
    ASSERT_TRUE(QFile::link(QStringLiteral("/dev/full"), device));
    const LogSpy log;
    EXPECT_FALSE(AbstractHardwareController::writeIntToFile(device, 5));
    expectOneLine(log, 4, QStringLiteral("Could not open file for writing: \"%1").arg(device));
}

TEST(WriteIntToFile, FailsAndSaysSoWhenTheFileCannotGrow)
{
    const Backlight files("64");
    const LogSpy log;
    bool isWritten = true;
    {
        const FileSizeLimit limit(0);
        isWritten = AbstractHardwareController::writeIntToFile(files.file(), 5);
    }
    EXPECT_FALSE(isWritten);
    EXPECT_EQ(log.records().size(), 1);
    EXPECT_EQ(log.count(files.file(), 4, Log::InputOutput), 1);
    EXPECT_EQ(log.count("Could not open"), 0); // it is the value that the file refuses
}
