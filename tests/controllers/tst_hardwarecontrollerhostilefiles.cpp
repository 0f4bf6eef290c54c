// Files of a backlight that could block, never end, or take all memory.

#include "abstracthardwarecontroller.h"

#include "controllers/backlight.h"
#include "controllers/oneline.h"
#include "environment/processmemory.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QElapsedTimer>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int s_largeSize = 100 * 1024 * 1024; ///< bytes
constexpr long s_mostMemory = 16 * 1024; ///< KiB more than before; a file taken whole needs 100 MiB

/// A board whose brightness is the percentage.
class PercentController : public AbstractHardwareController
{
public:
    using AbstractHardwareController::AbstractHardwareController;
    using AbstractHardwareController::maxBrightness;

    int calculateFinalBrightness(int percent) const override { return percent; }
};

void makeFifo(const QString &path)
{
    ASSERT_EQ(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
}

template <const char *const &Target>
void makeLink(const QString &path)
{
    ASSERT_TRUE(QFile::link(QString::fromLatin1(Target), path));
}

constexpr const char *s_zero = "/dev/zero";
constexpr const char *s_full = "/dev/full";

void makeLinkToFifo(const QString &path)
{
    makeFifo(path + QStringLiteral(".fifo"));
    ASSERT_TRUE(QFile::link(path + QStringLiteral(".fifo"), path));
}

} // namespace

/// Ends the process when the test takes longer: it is blocked then.
class HostileFileTest : public ::testing::Test
{
protected:
    HostileFileTest()
    {
        alarm(20);
        QFile::remove(m_backlight.file());
        QFile::remove(m_backlight.maximumFile());
        forgetPeak();
        m_peakBefore = processNumber("VmRSS");
    }
    ~HostileFileTest() override { alarm(0); }
    Q_DISABLE_COPY_MOVE(HostileFileTest)

    void expectLittleMemory() const
    {
        if (s_isMemoryExact) {
            EXPECT_LT(peakMemory(), m_peakBefore + s_mostMemory);
        }
    }

    const PlatformValue m_target{2};
    const Backlight m_backlight{""};
    long m_peakBefore = 0;
};

// -- what is no file ------------------------------------------------------------------------------

struct StrangerCase
{
    const char *pName;
    void (*make)(const QString &path);
};

class BrightnessStrangers : public HostileFileTest,
                            public ::testing::WithParamInterface<StrangerCase>
{
};

TEST_P(BrightnessStrangers, AreNoMaximum)
{
    GetParam().make(m_backlight.maximumFile());
    writeFile(m_backlight.file(), Backlight::s_untouched);
    LogSpy log;
    PercentController controller(m_backlight.maximumFile(), m_backlight.file(), nullptr);
    EXPECT_EQ(controller.maxBrightness(), -1);
    expectOneLine(log, 4, QStringLiteral("Could not read: %1").arg(m_backlight.maximumFile()));

    log.clear();
    EXPECT_FALSE(controller.setBrightness(50));
    expectOneLine(log, 4, QStringLiteral("MaxBrightness value has not been correctly initialized"));
    EXPECT_EQ(m_backlight.written(), Backlight::s_untouched);
    expectLittleMemory();
}

TEST_P(BrightnessStrangers, TakeNoBrightness)
{
    writeFile(m_backlight.maximumFile(), "100");
    GetParam().make(m_backlight.file());
    PercentController controller(m_backlight.maximumFile(), m_backlight.file(), nullptr);
    for (int i = 0; i < 3; ++i) {
        const LogSpy log;
        EXPECT_FALSE(controller.setBrightness(50));
        expectOneLine(
            log, 4,
            QStringLiteral("Could not open file for writing: \"%1").arg(m_backlight.file()));
    }
    expectLittleMemory();
}

const StrangerCase s_strangerCases[] = {
    {"Fifo", makeFifo},
    {"LinkToAFifo", makeLinkToFifo},
    {"DeviceWithoutEnd", makeLink<s_zero>},
    {"DeviceThatIsFull", makeLink<s_full>},
};
INSTANTIATE_TEST_SUITE_P(Kinds, BrightnessStrangers, ::testing::ValuesIn(s_strangerCases),
                         caseName);

// -- large files ----------------------------------------------------------------------------------

struct LargeCase
{
    const char *pName;
    const char *pBegin;
    char filling; ///< to s_largeSize; NUL takes no place on the disk
    const char *pEnd;
    int number;
};

class BrightnessLargeFiles : public HostileFileTest, public ::testing::WithParamInterface<LargeCase>
{
protected:
    static void make(const QString &path)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(GetParam().pBegin);
        if (GetParam().filling == '\0') {
            ASSERT_TRUE(file.resize(s_largeSize));
            file.seek(s_largeSize);
        } else {
            const QByteArray block(1024 * 1024, GetParam().filling);
            while (file.pos() < s_largeSize)
                ASSERT_EQ(file.write(block), block.size());
        }
        file.write(GetParam().pEnd);
    }
};

TEST_P(BrightnessLargeFiles, AreReadInBoundedMemoryAndToldInOneLine)
{
    make(m_backlight.maximumFile());
    forgetPeak();
    const LogSpy log;
    QElapsedTimer time;
    time.start();
    EXPECT_EQ(AbstractHardwareController::readIntFromFile(m_backlight.maximumFile()),
              GetParam().number);
    EXPECT_LT(time.elapsed(), 2000);
    expectLittleMemory();
    ASSERT_EQ(log.records().size(), GetParam().number == -1 ? 1 : 0);
    if (GetParam().number != -1)
        return;
    EXPECT_EQ(log.count("Could not parse content of", 4, Log::InputOutput), 1);
    EXPECT_EQ(log.count(m_backlight.maximumFile(), 4, Log::InputOutput), 1);
    EXPECT_LE(log.texts().constFirst().size(), 2000); // a line that somebody can read
}

TEST_P(BrightnessLargeFiles, AreReplacedByTheValue)
{
    make(m_backlight.file());
    forgetPeak();
    const LogSpy log;
    EXPECT_TRUE(AbstractHardwareController::writeIntToFile(m_backlight.file(), 50));
    EXPECT_EQ(m_backlight.written(), "50");
    EXPECT_TRUE(log.records().isEmpty());
    expectLittleMemory();
}

// A number that is not there whole is none: its beginning would be another one.
constexpr LargeCase s_largeCases[] = {
    {"Letters", "", 'x', "", -1},
    {"Digits", "", '1', "", -1},
    {"ZerosBeforeTheNumber", "", '0', "42", -1},
    {"BlanksBeforeTheNumber", "", ' ', "42", -1},
    {"NumberAndLettersFarBehind", "42", ' ', "abc", -1},
    {"Nul", "", '\0', "", -1},
    {"NumberAndNul", "42", '\0', "7", 42},
};
INSTANTIATE_TEST_SUITE_P(Files, BrightnessLargeFiles, ::testing::ValuesIn(s_largeCases), caseName);
