#include "hardwareenvironment.h"

#include "environmentfakes.h"
#include "processmemory.h"
#include "support/casename.h"
#include "support/logspy.h"
#include "support/messagespy.h"
#include "support/scopedvariable.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString s_keySignature =
    QStringLiteral("static VersionNumber HardwareEnvironment::systemKeyVersion()");
const QString s_noCore = QStringLiteral(
    "static VersionNumber HardwareEnvironment::systemKeyVersion() Reached end of file, no core "
    "version found !");
const QString s_noCpuInfo =
    QStringLiteral("QString HardwareEnvironment::revisionString() Could not open the /proc/cpuinfo "
                   "file.");
constexpr int s_mebibyte = 1024 * 1024;
constexpr int s_largeSize = 100 * 1024; ///< KiB, of the large files

/// Text with NUL bytes in it, whole.
template <int Size>
QByteArray bytes(const char (&text)[Size])
{
    return QByteArray(text, Size - 1);
}

/// Qt warnings of the default category.
QStringList warnings(const MessageSpy &messages)
{
    QStringList texts;
    const QList<MessageSpy::Message> all = messages.messages();
    for (const MessageSpy::Message &message : all) {
        if (message.type == QtWarningMsg && message.category == QLatin1String("default"))
            texts << message.text;
    }
    return texts;
}

void expectPeakBelow(long limit)
{
    if (s_isMemoryExact) {
        EXPECT_LT(peakMemory(), limit);
    }
}

} // namespace

/// Both files are one, in a folder of the test; at first it is not there.
class SystemIdentificationTest : public ::testing::Test
{
protected:
    QString path() const { return m_folder.filePath(QStringLiteral("file")); }

    void write(const QByteArray &content) const
    {
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(content), content.size());
    }

    /// `begin`, s_largeSize of repetitions of `piece`, `end`.
    void writeLarge(const QByteArray &begin, const QByteArray &piece, const QByteArray &end) const
    {
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(begin);
        const QByteArray block = piece.repeated(s_mebibyte / piece.size());
        for (int i = 0; i < s_largeSize / 1024; ++i)
            ASSERT_EQ(file.write(block), block.size());
        file.write(end);
    }

    static bool hasCpuInfoUpdated()
    {
        TestSettings settings;
        return HardwareEnvironment(HardwareEnvironment::Corvel, &settings).hasCpuInfoUpdated();
    }

    static std::string version()
    {
        return HardwareEnvironment::systemKeyVersion().toString().toStdString();
    }

    static std::string revision() { return HardwareEnvironment::revisionString().toStdString(); }

private:
    QTemporaryDir m_folder;
    ScopedVariable m_keyVariable{"VY_PATH_SYSTEM_KEY_VERSIONS", QFile::encodeName(path())};
    ScopedVariable m_cpuVariable{"VY_PATH_CPUINFO", QFile::encodeName(path())};
};

// -- system key -----------------------------------------------------------------------------------

struct KeyCase
{
    const char *pName;
    QByteArray content;
    const char *pVersion;
    bool isUpdated;
};

void PrintTo(const KeyCase &row, std::ostream *pStream)
{
    *pStream << row.pName;
}

class SystemKeyVersions : public SystemIdentificationTest,
                          public ::testing::WithParamInterface<KeyCase>
{
};

TEST_P(SystemKeyVersions, AreReadSilently)
{
    write(GetParam().content);
    const LogSpy log;
    const MessageSpy messages;
    EXPECT_EQ(version(), GetParam().pVersion);
    EXPECT_EQ(HardwareEnvironment::systemKeyVersion().size(), 4);
    EXPECT_TRUE(log.texts().isEmpty()) << log.texts().constFirst().toStdString();
    EXPECT_TRUE(warnings(messages).isEmpty());
    EXPECT_EQ(hasCpuInfoUpdated(), GetParam().isUpdated);
}

const KeyCase s_keyCases[] = {
    {"CoreValue1_0_15_1", "core_1-0-15-1\n", "1.0.15.1", true},
    {"CoreValue1_0_14_9IsNotUpdated", "core_1-0-14-9\n", "1.0.14.9", false},
    {"OneBelow", "core_1-0-15-0\n", "1.0.15.0", false},
    {"OneAbove", "core_1-0-15-2\n", "1.0.15.2", true},
    {"NumbersNotTexts", "core_1-0-9-1\n", "1.0.9.1", false},
    {"NumbersNotTextsAbove", "core_1-0-15-10\n", "1.0.15.10", true},
    {"NewerMinor", "core_1-1-0-0\n", "1.1.0.0", true},
    {"NewerMajor", "core_2-0-0-0\n", "2.0.0.0", true},
    {"OlderMajor", "core_0-99-99-99\n", "0.99.99.99", false},
    {"Dots", "core_1.0.15.1\n", "1.0.15.1", true},
    {"DotsAndDashes", "core_1-0.15-1\n", "1.0.15.1", true},
    {"NoNewline", "core_1-0-15-1", "1.0.15.1", true},
    {"CarriageReturn", "kernel_1-1\r\ncore_1-0-15-1\r\n", "1.0.15.1", true},
    {"BehindOtherLines", "kernel_4-9-0-1\nrootfs\n\n\ncore_1-0-15-1\n", "1.0.15.1", true},
    {"CoreWithinAWord", "the hardcore image_1-0-15-1\n", "1.0.15.1", true},
    {"CoreBehindTheVersion", "_1-0-15-1core\n", "1.0.15.1", true},
    {"FirstOfTwo", "core_1-0-14-9\ncore_1-0-15-1\n", "1.0.14.9", false},
    {"OtherCaseIsAnotherWord", "Core_9-9-9-9\nCORE_9-9-9-9\ncore_1-0-15-1\n", "1.0.15.1", true},
    {"Latin1", "\xE9\xFF core_1-0-15-1\n", "1.0.15.1", true},
    {"NulEndsTheLine", bytes("core_1-0-15-1\0-7_8\n"), "1.0.15.1", true},
    {"NulCutsTheWordOff", bytes("co\0re_9-9-9-9\ncore_1-0-15-1\n"), "1.0.15.1", true},
    {"ByteOrderMark",
     "\xEF\xBB\xBF"
     "core_1-0-15-1\n",
     "1.0.15.1", true},
    {"LineEndsAlone", "\r\n\r\ncore_1-0-15-1\r\n", "1.0.15.1", true},
    {"Behind4094Bytes", QByteArray(4094, 'x') + "\ncore_1-0-15-1\n", "1.0.15.1", true},
    {"Behind4095Bytes", QByteArray(4095, 'x') + "\ncore_1-0-15-1\n", "1.0.15.1", true},
    {"Behind4096Bytes", QByteArray(4096, 'x') + "\ncore_1-0-15-1\n", "1.0.15.1", true},
    {"Behind65534Bytes", QByteArray(65534, 'x') + "\ncore_1-0-15-1\n", "1.0.15.1", true},
    {"Behind65535Bytes", QByteArray(65535, 'x') + "\ncore_1-0-15-1\n", "1.0.15.1", true},
    {"Behind65536Bytes", QByteArray(65536, 'x') + "\ncore_1-0-15-1\n", "1.0.15.1", true},
    {"BehindARowOf1MiB", QByteArray(s_mebibyte, 'x') + "\ncore_1-0-15-1\n", "1.0.15.1", true},
    {"NulBeforeTheWord", bytes("x\0core_9-9-9-9\ncore_1-0-15-1\n"), "1.0.15.1", true},
};
INSTANTIATE_TEST_SUITE_P(Files, SystemKeyVersions, ::testing::ValuesIn(s_keyCases), caseName);

struct BadKeyCase
{
    const char *pName;
    QByteArray content;
    const char *pQuoted; ///< a pattern for what stands behind the fixed text, in double quotes
};

void PrintTo(const BadKeyCase &row, std::ostream *pStream)
{
    *pStream << row.pName;
}

class SystemKeyBadVersions : public SystemIdentificationTest,
                             public ::testing::WithParamInterface<BadKeyCase>
{
};

TEST_P(SystemKeyBadVersions, AreToldAndEmpty)
{
    write(GetParam().content);
    const LogSpy log;
    const MessageSpy messages;
    EXPECT_EQ(HardwareEnvironment::systemKeyVersion().size(), 0);
    ASSERT_EQ(log.records().size(), 1);
    const LogRecord record = log.records().constFirst();
    EXPECT_EQ(record.module, Log::Machine);
    EXPECT_EQ(record.level, 4);
    const QString expected =
        QStringLiteral("^(%1 )?Invalid version string format: \"%2\"$")
            .arg(QRegularExpression::escape(s_keySignature), QString::fromUtf8(GetParam().pQuoted));
    const QRegularExpression form(expected); // another for each row
    const bool isSo =
        form.match(record.text).hasMatch(); // clazy:exclude=use-static-qregularexpression
    EXPECT_TRUE(isSo) << record.text.toStdString();
    EXPECT_TRUE(warnings(messages).isEmpty());
    EXPECT_FALSE(hasCpuInfoUpdated());
}

const BadKeyCase s_badKeyCases[] = {
    {"CoreValue1_0_15", "core_1-0-15\n", "1[-.]0[-.]15"},
    {"FiveComponents", "core_1-0-15-1-2\n", "1[-.]0[-.]15[-.]1[-.]2"},
    {"OneComponent", "core_1\n", "1"},
    {"NoValue", "core_\n", ""},
    {"LastPartIsALetter", "core_1-0-15-x\n", "1[-.]0[-.]15[-.]x"},
    {"OnlyTheFirstPartIsANumber", "core_2-x-x-x\n", "2[-.]x[-.]x[-.]x"},
    {"PartInTheMiddleIsALetter", "core_1-x-15-1\n", "1[-.]x[-.]15[-.]1"},
    {"FourLetters", "core_a-b-c-d\n", "a[-.]b[-.]c[-.]d"},
    {"EmptyPart", "core_1--15-1\n", "1[-.][-.]15[-.]1"},
    {"FirstIsMalformed", "core_1-0-15\ncore_1-0-15-1\n", "1[-.]0[-.]15"},
    {"NulInTheVersion", bytes("core_1-0\0-15-1\n"), "1[-.]0"},
};
INSTANTIATE_TEST_SUITE_P(Values, SystemKeyBadVersions, ::testing::ValuesIn(s_badKeyCases),
                         caseName);

const BadKeyCase s_badLineCases[] = {
    {"NoSeparator", "core 1-0-15-1\ncore_1-0-15-1\n", "core 1-0-15-1"},
    {"TwoSeparators", "my_core_1-0-15-1\n", "my_core_1-0-15-1"},
    {"SeparatorAtTheEnd", "core_1-0-15-1_\n", "core_1-0-15-1_"},
    {"DoubleSeparator", "core__1-0-15-1\n", "core__1-0-15-1"},
    {"OnlyTheWord", "core", "core"},
    {"Latin1", "core \xE9\n", "core é"},
    {"NulBeforeTheSeparator", bytes("core\0_1-0-15-1\n"), "core"},
};
INSTANTIATE_TEST_SUITE_P(Lines, SystemKeyBadVersions, ::testing::ValuesIn(s_badLineCases),
                         caseName);

TEST_F(SystemIdentificationTest, MalformedLineIsToldWithTheSignature)
{
    write("core 1-0-15-1\n");
    const LogSpy log;
    EXPECT_EQ(HardwareEnvironment::systemKeyVersion().size(), 0);
    ASSERT_EQ(log.texts().size(), 1);
    EXPECT_EQ(log.texts().constFirst().toStdString(),
              "static VersionNumber HardwareEnvironment::systemKeyVersion() Invalid version string "
              "format: \"core 1-0-15-1\"");
}

TEST_F(SystemIdentificationTest, FourPartsThatAreNotAllNumbersAreEmptyAndNotCached)
{
    for (const char *const pContent : {"core_a-b-c-d\n", "core_1-0-15-x\n", "core_2-x-x-x\n"}) {
        write(pContent);
        EXPECT_EQ(HardwareEnvironment::systemKeyVersion().size(), 0);
        EXPECT_FALSE(hasCpuInfoUpdated());
    }
    write("core_1-0-15-1\n");
    EXPECT_EQ(version(), "1.0.15.1");
}

class SystemKeyWithoutCore : public SystemIdentificationTest,
                             public ::testing::WithParamInterface<KeyCase>
{
};

TEST_P(SystemKeyWithoutCore, WarnsAtTheEndOfTheFile)
{
    write(GetParam().content);
    const LogSpy log;
    const MessageSpy messages;
    EXPECT_EQ(HardwareEnvironment::systemKeyVersion().size(), 0);
    EXPECT_EQ(warnings(messages).join(QLatin1Char('|')).toStdString(), s_noCore.toStdString());
    EXPECT_TRUE(log.texts().isEmpty());
    EXPECT_FALSE(hasCpuInfoUpdated());
}

const KeyCase s_noCoreCases[] = {
    {"NoCoreLine", "kernel_4-9-0-1\nrootfs_1-0-15-1\n", "", false},
    {"Empty", "", "", false},
    {"Newlines", "\n\n\n", "", false},
    {"CarriageReturnAndLineEndAlone", "\r\n", "", false},
    {"ByteOrderMarkAlone", "\xEF\xBB\xBF", "", false},
    {"OtherCase", "Core_1-0-15-1\nCORE_1-0-15-1", "", false},
    {"LineThatBeginsWithNul", bytes("kernel_1\n\0x\ncore_1-0-15-1\n"), "", false},
    {"NulAlone", bytes("\0"), "", false},
};
INSTANTIATE_TEST_SUITE_P(Files, SystemKeyWithoutCore, ::testing::ValuesIn(s_noCoreCases), caseName);

// -- system key's cache ---------------------------------------------------------------------------

TEST_F(SystemIdentificationTest, GoodVersionIsKeptThoughTheFileChanges)
{
    write("core_1-0-14-9\n");
    EXPECT_EQ(version(), "1.0.14.9");
    write("core_1-0-15-1\n");
    EXPECT_EQ(version(), "1.0.14.9");
    EXPECT_FALSE(hasCpuInfoUpdated());
    ASSERT_TRUE(QFile::remove(path()));
    const LogSpy log;
    EXPECT_EQ(version(), "1.0.14.9");
    EXPECT_TRUE(log.texts().isEmpty());
}

TEST_F(SystemIdentificationTest, FirstReaderMayBeTheQuestionForTheCpuInfo)
{
    write("core_1-0-15-1\n");
    const LogSpy log;
    EXPECT_TRUE(hasCpuInfoUpdated());
    EXPECT_TRUE(log.texts().isEmpty());
    ASSERT_TRUE(QFile::remove(path()));
    EXPECT_TRUE(hasCpuInfoUpdated());
    EXPECT_EQ(version(), "1.0.15.1");
}

TEST_F(SystemIdentificationTest, FailedReadIsNotCached)
{
    for (const char *const pContent : {"", "core_1-0-15\n", "core 1\n", "rootfs_1-0-15-1\n"}) {
        write(pContent);
        EXPECT_EQ(HardwareEnvironment::systemKeyVersion().size(), 0);
        ASSERT_TRUE(QFile::remove(path()));
        EXPECT_EQ(HardwareEnvironment::systemKeyVersion().size(), 0);
        EXPECT_FALSE(hasCpuInfoUpdated());
    }
    write("core_1-0-15-1\n");
    EXPECT_EQ(version(), "1.0.15.1");
    EXPECT_TRUE(hasCpuInfoUpdated());
}

TEST_F(SystemIdentificationTest, EveryFailedReadIsTold)
{
    const LogSpy log;
    EXPECT_EQ(HardwareEnvironment::systemKeyVersion().size(), 0);
    EXPECT_EQ(HardwareEnvironment::systemKeyVersion().size(), 0);
    EXPECT_EQ(log.count("Failed opening systemkey versions file "), 2);
}

// -- what is no file ------------------------------------------------------------------------------

enum class Obstacle { Missing, Folder, Fifo, DanglingLink, NoFolder };

struct ObstacleCase
{
    const char *pName;
    Obstacle obstacle;
};

class SystemIdentificationObstacles : public SystemIdentificationTest,
                                      public ::testing::WithParamInterface<ObstacleCase>
{
protected:
    SystemIdentificationObstacles()
    {
        const QByteArray name = QFile::encodeName(path());
        switch (GetParam().obstacle) {
        case Obstacle::Missing:
            break;
        case Obstacle::Folder:
            EXPECT_EQ(mkdir(name.constData(), 0700), 0);
            break;
        case Obstacle::Fifo:
            EXPECT_EQ(mkfifo(name.constData(), 0600), 0);
            break;
        case Obstacle::DanglingLink:
            EXPECT_EQ(symlink("nothing", name.constData()), 0);
            break;
        case Obstacle::NoFolder:
            m_keyVariable = std::make_unique<ScopedVariable>("VY_PATH_SYSTEM_KEY_VERSIONS",
                                                             name + "/none/file");
            m_cpuVariable =
                std::make_unique<ScopedVariable>("VY_PATH_CPUINFO", name + "/none/file");
            break;
        }
    }

private:
    std::unique_ptr<ScopedVariable> m_keyVariable;
    std::unique_ptr<ScopedVariable> m_cpuVariable;
};

TEST_P(SystemIdentificationObstacles, GiveNoVersion)
{
    const LogSpy log;
    EXPECT_EQ(HardwareEnvironment::systemKeyVersion().size(), 0);
    ASSERT_EQ(log.records().size(), 1);
    const LogRecord record = log.records().constFirst();
    EXPECT_EQ(record.level, 4);
    EXPECT_EQ(record.module, Log::Machine);
    const QString expected =
        QStringLiteral("^%1 Failed opening systemkey versions file  ?.*0x[0-9a-f]+.?$")
            .arg(QRegularExpression::escape(s_keySignature));
    const QRegularExpression form(expected); // another for each row
    const bool isSo =
        form.match(record.text).hasMatch(); // clazy:exclude=use-static-qregularexpression
    EXPECT_TRUE(isSo) << record.text.toStdString();
    EXPECT_FALSE(hasCpuInfoUpdated());
}

TEST_P(SystemIdentificationObstacles, GiveNoRevision)
{
    const LogSpy log;
    EXPECT_EQ(revision(), "");
    ASSERT_EQ(log.records().size(), 1);
    const LogRecord record = log.records().constFirst();
    EXPECT_EQ(record.level, 4);
    EXPECT_EQ(record.module, Log::Machine);
    EXPECT_TRUE(record.text.endsWith(s_noCpuInfo)) << record.text.toStdString();
}

constexpr ObstacleCase s_obstacleCases[] = {
    {"MissingFile", Obstacle::Missing},
    {"Folder", Obstacle::Folder},
    {"Fifo", Obstacle::Fifo},
    {"DanglingLink", Obstacle::DanglingLink},
    {"MissingFolder", Obstacle::NoFolder},
};
INSTANTIATE_TEST_SUITE_P(Paths, SystemIdentificationObstacles, ::testing::ValuesIn(s_obstacleCases),
                         caseName);

TEST_F(SystemIdentificationTest, EndlessZerosGiveNothing)
{
    const ScopedVariable keys("VY_PATH_SYSTEM_KEY_VERSIONS", "/dev/zero");
    const ScopedVariable cpuInfo("VY_PATH_CPUINFO", "/dev/zero");
    const LogSpy log;
    const MessageSpy messages;
    forgetPeak();
    const long before = peakMemory();
    EXPECT_EQ(HardwareEnvironment::systemKeyVersion().size(), 0);
    EXPECT_EQ(log.count(s_keySignature) + warnings(messages).size(), 1);
    EXPECT_EQ(revision(), "");
    expectPeakBelow(before + 32 * 1024);
}

// -- large files ----------------------------------------------------------------------------------

// A program that takes such a file whole needs several times its size, for bytes, text and lines.
struct LargeCase
{
    const char *pName;
    const char *pBegin;
    const char *pPiece; ///< s_largeSize of it
    const char *pEnd;
    const char *pVersion;
    const char *pRevision;
};

class SystemIdentificationLarge : public SystemIdentificationTest,
                                  public ::testing::WithParamInterface<LargeCase>
{
};

TEST_P(SystemIdentificationLarge, IsReadInBoundedMemory)
{
    writeLarge(GetParam().pBegin, GetParam().pPiece, GetParam().pEnd);
    forgetPeak();
    const long before = peakMemory();
    EXPECT_EQ(version(), GetParam().pVersion);
    EXPECT_EQ(revision(), GetParam().pRevision);
    expectPeakBelow(before + s_largeSize);
}

constexpr LargeCase s_largeCases[] = {
    {"WantedLineFirst", "core_1-0-15-1\nRevision\t: a02082\n", "x", "", "1.0.15.1", "a02082"},
    {"OneLineWithoutNewline", "", "x", "", "", ""},
};
INSTANTIATE_TEST_SUITE_P(Files, SystemIdentificationLarge, ::testing::ValuesIn(s_largeCases),
                         caseName);

TEST_F(SystemIdentificationTest, VersionBehind100MBOfLinesIsFound)
{
    writeLarge("", QByteArray(127, 'x') + '\n', "core_1-0-15-1\n");
    forgetPeak();
    const long before = peakMemory();
    EXPECT_EQ(version(), "1.0.15.1");
    expectPeakBelow(before + 32 * 1024);
}

// -- cpuinfo --------------------------------------------------------------------------------------

struct CpuInfoCase
{
    const char *pName;
    QByteArray content;
    const char *pRevision;
};

void PrintTo(const CpuInfoCase &row, std::ostream *pStream)
{
    *pStream << row.pName;
}

class CpuInfoRevisions : public SystemIdentificationTest,
                         public ::testing::WithParamInterface<CpuInfoCase>
{
};

TEST_P(CpuInfoRevisions, AreReadSilently)
{
    write(GetParam().content);
    const LogSpy log;
    EXPECT_EQ(revision(), GetParam().pRevision);
    EXPECT_TRUE(log.texts().isEmpty());
}

const CpuInfoCase s_cpuInfoCases[] = {
    {"Tab", "Hardware\t: BCM2709\nRevision\t: a02082\nSerial\t\t: 1\n", "a02082"},
    {"NoBlanks", "Revision:a02082\n", "a02082"},
    {"BlanksAround", "Revision  :  \t a02082 \t \n", "a02082"},
    {"FirstOfTwo", "Revision : a\nRevision : b\n", "a"},
    {"LowerCaseIsAnotherWord", "CPU revision\t: 4\nRevision\t: a02082\n", "a02082"},
    {"WithinALine", "Board Revision X : a02082\n", "a02082"},
    {"WordBehindTheColon", "Board : Revision 7\n", "Revision 7"},
    {"TwoColons", "Revision : a : b\n", "a"},
    {"BlanksWithin", "Revision : rev 1 b\n", "rev 1 b"},
    {"NoColonEndsTheSearch", "Revision a\nRevision : b\n", ""},
    {"NothingBehindTheColon", "Revision :\nRevision : b\n", ""},
    {"NoSuchLine", "processor\t: 0\nmodel name\t: x\n", ""},
    {"Empty", "", ""},
    {"NoNewline", "Revision\t: a02082", "a02082"},
    {"CarriageReturn", "Hardware : x\r\nRevision\t: a02082\r\nSerial : 1\r\n", "a02082"},
    {"CarriageReturnAndLineEndAlone", "\r\n", ""},
    {"ByteOrderMark",
     "\xEF\xBB\xBF"
     "Revision : a02082\n",
     "a02082"},
    {"Behind4094Bytes", QByteArray(4094, 'x') + "\nRevision : a02082\n", "a02082"},
    {"Behind4095Bytes", QByteArray(4095, 'x') + "\nRevision : a02082\n", "a02082"},
    {"Behind4096Bytes", QByteArray(4096, 'x') + "\nRevision : a02082\n", "a02082"},
    {"BehindARowOf1MiB", QByteArray(s_mebibyte, 'x') + "\nRevision : a02082\n", "a02082"},
    {"NulBehindTheValue", bytes("Revision : a02082\0junk\n"), "a02082"},
    {"NulEndsTheText", bytes("Hardware : x\0\nRevision : a02082\n"), ""},
    {"NulFirst", bytes("\0Revision : a02082\n"), ""},
    {"NulBeforeTheColon", bytes("Revision\0: a02082\n"), ""},
};
INSTANTIATE_TEST_SUITE_P(Files, CpuInfoRevisions, ::testing::ValuesIn(s_cpuInfoCases), caseName);

TEST_F(SystemIdentificationTest, RevisionIsNotCached)
{
    write("Revision : a\n");
    EXPECT_EQ(revision(), "a");
    write("Revision : b\n");
    EXPECT_EQ(revision(), "b");
    ASSERT_TRUE(QFile::remove(path()));
    EXPECT_EQ(revision(), "");
}

TEST_F(SystemIdentificationTest, ReadsAFileOfTheKernelThoughItsSizeIsZero)
{
    const ScopedVariable cpuInfo("VY_PATH_CPUINFO", "/proc/self/comm");
    ASSERT_EQ(prctl(PR_SET_NAME, "Revision: a0208"), 0);
    EXPECT_EQ(revision(), "a0208");
}
