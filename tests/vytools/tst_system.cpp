#include "system.h"

#include "support/casename.h"
#include "support/logspy.h"

#include <QFile>
#include <QTemporaryDir>
#include <array>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class SystemTest : public ::testing::Test
{
protected:
    QString path() const { return m_folder.filePath(QStringLiteral("values.txt")); }

    void write(const QByteArray &bytes) const
    {
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }

    /// The file must be refused with one line in the log, a warning at least.
    static void expectRefusal(QFile &file)
    {
        const LogSpy log;
        EXPECT_FALSE(System::syncFile(file));
        ASSERT_EQ(log.records().size(), 1);
        EXPECT_GE(log.records().constFirst().level, LogWarning);
        EXPECT_TRUE(log.records().constFirst().text.contains(file.fileName()));
    }

private:
    QTemporaryDir m_folder;
};

struct ModeCase
{
    const char *pName;
    QIODevice::OpenMode mode;
    const char *pContent; ///< of a file that held "old", once "new" is written
};

class SystemModes : public SystemTest, public ::testing::WithParamInterface<ModeCase>
{
};

TEST_P(SystemModes, SyncBringsWhatWasWrittenToTheFile)
{
    write("old");
    QFile file(path());
    ASSERT_TRUE(file.open(GetParam().mode));
    ASSERT_EQ(file.write("new"), 3);

    const LogSpy log;
    EXPECT_TRUE(System::syncFile(file));
    EXPECT_EQ(contentOf(path()).toStdString(), GetParam().pContent);
    EXPECT_TRUE(log.records().isEmpty());
    EXPECT_TRUE(file.isOpen());
}

const ModeCase s_modeCases[] = {
    {"WriteOnly", QIODevice::WriteOnly, "new"},
    {"ReadWrite", QIODevice::ReadWrite, "new"},
    {"Append", QIODevice::Append, "oldnew"},
    {"Text", QIODevice::WriteOnly | QIODevice::Text, "new"},
    {"Unbuffered", QIODevice::WriteOnly | QIODevice::Unbuffered, "new"},
};
INSTANTIATE_TEST_SUITE_P(Rows, SystemModes, ::testing::ValuesIn(s_modeCases), caseName);

TEST_F(SystemTest, SyncWithNothingWrittenSucceeds)
{
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_TRUE(System::syncFile(file));
    EXPECT_TRUE(System::syncFile(file));
}

TEST_F(SystemTest, FileThatIsNotOpenIsRefused)
{
    write("old");
    QFile file(path());
    expectRefusal(file);
}

TEST_F(SystemTest, ClosedFileIsRefused)
{
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    expectRefusal(file);
}

TEST_F(SystemTest, ReadOnlyFileIsRefused)
{
    write("old");
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    expectRefusal(file);
}

TEST_F(SystemTest, FullDiskIsAFailure)
{
    QFile file(QStringLiteral("/dev/full"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write("new"), 3); // is buffered
    expectRefusal(file);
}

// A pipe takes the bytes, but has no disk to bring them to.
TEST_F(SystemTest, FileWithoutDiskIsAFailure)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    QFile file;
    ASSERT_TRUE(file.open(ends[1], QIODevice::WriteOnly, QFileDevice::AutoCloseHandle));
    expectRefusal(file);
    ::close(ends[0]);
}
