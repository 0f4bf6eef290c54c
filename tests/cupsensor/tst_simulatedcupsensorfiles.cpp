#include "cupsensor/simulatedcupsensor.h"

#include "cupsensor/fakecupsensor.h"
#include "cupsensor/simulationfolder.h"
#include "support/casename.h"
#include "support/logspy.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

/// Ends the process when the test takes longer: it is blocked then.
class Deadline
{
public:
    Deadline() { alarm(10); }
    ~Deadline() { alarm(0); }
    Q_DISABLE_COPY_MOVE(Deadline)
};

/// In KiB: what the process holds in memory ("VmRSS:"), or has held at most ("VmHWM:").
qint64 memory(const char *pEntry)
{
    QFile file(QStringLiteral("/proc/self/status"));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines)
        if (line.startsWith(pEntry))
            return line.simplified().split(' ').at(1).toLongLong();
    ADD_FAILURE() << pEntry;
    return 0;
}

/// Makes the next VmHWM that of the time from now on.
void resetMemoryPeak()
{
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_EQ(file.write("5"), 1);
}

constexpr qint64 s_gibibyte = 1024LL * 1024 * 1024;
constexpr int s_fallback = 55;

} // namespace

class SimulatedCupSensorFilesTest : public ::testing::Test
{
protected:
    void open()
    {
        m_pSensor = std::make_unique<SimulatedCupSensor>();
        m_pSensor->onRawValueChangedFromProtocol(s_fallback);
        m_log.clear();
    }

    /// One read, which must fail with one of these texts, or succeed where the first is null.
    void expectRead(int reading, const char *pError, const char *pOtherError = nullptr)
    {
        const bool isGood = pError == nullptr;
        bool error = isGood;
        EXPECT_EQ(m_pSensor->readRawValuesFromDevice(error), reading);
        EXPECT_EQ(error, !isGood);
        EXPECT_EQ(m_pSensor->rawValue(), s_fallback); // to store it is the base's business
        ASSERT_EQ(m_log.records().size(), isGood ? 0 : 1)
            << m_log.texts().join(QLatin1Char('\n')).toStdString();
        if (isGood)
            return;
        const LogRecord record = m_log.records().constFirst();
        EXPECT_EQ(record.level, 3);
        EXPECT_EQ(record.module, Log::Hardware);
        EXPECT_TRUE(record.text.endsWith(QString::fromUtf8(pError)) ||
                    (pOtherError && record.text.endsWith(QString::fromUtf8(pOtherError))))
            << record.text.toStdString();
        EXPECT_TRUE(record.text.contains(
            QStringLiteral("SimulatedCupSensor::readRawValuesFromDevice(bool&)")));
        m_log.clear();
    }

    /// A large file without a line end that takes no place on the disk: NUL bytes follow the text.
    void writeLargeLine(const QString &path, const QByteArray &text) const
    {
        m_folder.write(path, text);
        ASSERT_EQ(truncate(QFile::encodeName(path).constData(), s_gibibyte), 0);
    }

    SimulationFolder m_folder;
    LogSpy m_log;
    std::unique_ptr<SimulatedCupSensor> m_pSensor;
};

// -- what a line means ----------------------------------------------------------------------------

constexpr const char *s_noData = ": Failed reading data from file !";
constexpr const char *s_noField = ": Not enough data in file !";
constexpr const char *s_noNumber = ": Failed converting string to int !";

struct LineCase
{
    const char *pName;
    QByteArray text;
    int reading;
    const char *pError; ///< null where the read succeeds
};

class SimulatedCupSensorLines : public SimulatedCupSensorFilesTest,
                                public ::testing::WithParamInterface<LineCase>
{
};

TEST_P(SimulatedCupSensorLines, GiveTheirFirstFieldAsTheReading)
{
    m_folder.write(GetParam().text);
    open();
    for (int poll = 0; poll < 3; ++poll) // each begins at the start of the file
        expectRead(GetParam().reading, GetParam().pError);
    EXPECT_EQ(m_folder.bytes(m_folder.file()), GetParam().text);
}

const LineCase s_lineCases[] = {
    {"WithoutLineEnd", "42", 42, nullptr},
    {"WithLineEnd", "42\n", 42, nullptr},
    {"WithCarriageReturn", "42\r\n", 42, nullptr},
    {"TwoBlanksANumberATabAndANumber", "  42\t7", 42, nullptr},
    {"FurtherFields", "42 43 letters", 42, nullptr},
    {"FurtherLines", "42\n43\nletters\n", 42, nullptr},
    {"BlanksAndTabsMixed", " \t \t42\t \t7 \n", 42, nullptr},
    {"BlankAtTheEnd", "42 \n", 42, nullptr},
    {"LeadingZeros", "00042", 42, nullptr},
    {"OctalIsDecimal", "010", 10, nullptr},
    {"Zero", "0", 0, nullptr},
    {"Largest", "65535", 65535, nullptr},
    {"OneOver16BitsIsCut", "65536", 0, nullptr},
    {"Over16BitsIsCut", "65578", 42, nullptr},
    {"LargestIntIsCut", "2147483647", 65535, nullptr},
    {"NegativeIsCut", "-1", 65535, nullptr},
    {"SmallestIntIsCut", "-2147483648", 0, nullptr},
    {"OverAnInt", "2147483648", s_fallback, s_noNumber},
    {"UnderAnInt", "-2147483649", s_fallback, s_noNumber},
    {"Over64Bits", "18446744073709551658", s_fallback, s_noNumber},
    {"Letters", "letters", s_fallback, s_noNumber},
    {"LettersThenANumber", "letters 42", s_fallback, s_noNumber},
    {"LettersThenALineWithANumber", "letters\n42\n", s_fallback, s_noNumber},
    {"LettersBehindTheNumber", "42mm", s_fallback, s_noNumber},
    {"Hexadecimal", "0x2a", s_fallback, s_noNumber},
    {"Fraction", "42.5", s_fallback, s_noNumber},
    {"Comma", "42,7", s_fallback, s_noNumber},
    {"NotAscii", "42\u00b5m", s_fallback, s_noNumber},
    {"NotUtf8", "\xff\xfe", s_fallback, s_noNumber},
    {"FormFeedSeparatesNothing", "42\f7", s_fallback, s_noNumber},
    {"Empty", "", s_fallback, s_noData},
    {"LineEndAlone", "\n", s_fallback, s_noField},
    {"LineEndBeforeTheNumber", "\n42\n", s_fallback, s_noField},
    {"BlanksAlone", "  \t ", s_fallback, s_noField},
    {"BlanksAndLineEnd", "  \t \n42", s_fallback, s_noField},
    {"CarriageReturnAndLineEndAlone", "\r\n", s_fallback, s_noField},
    {"CarriageReturnAndLineEndBeforeTheNumber", "\r\n42\r\n", s_fallback, s_noField},
    {"ByteOrderMark",
     "\xef\xbb\xbf"
     "42\n",
     42, nullptr},
    {"ByteOrderMarkAlone", "\xef\xbb\xbf", s_fallback, s_noField},
};
INSTANTIATE_TEST_SUITE_P(Rows, SimulatedCupSensorLines, ::testing::ValuesIn(s_lineCases), caseName);

// No more than 4095 bytes of a line are read. A number is taken when it is there whole.
const LineCase s_endCases[] = {
    {"EndsAtByte4094", QByteArray(4092, ' ') + "42", 42, nullptr},
    {"EndsAtByte4095", QByteArray(4093, ' ') + "42", 42, nullptr},
    {"EndsAtByte4096", QByteArray(4094, ' ') + "42", s_fallback, s_noField},
    {"LineEndAtByte4094", QByteArray(4091, ' ') + "42\n", 42, nullptr},
    {"LineEndAtByte4095", QByteArray(4092, ' ') + "42\n", 42, nullptr},
    {"LineEndAtByte4096", QByteArray(4093, ' ') + "42\n", 42, nullptr},
    {"LineEndAtByte4097", QByteArray(4094, ' ') + "42\n", s_fallback, s_noField},
    {"CarriageReturnAtByte4096", QByteArray(4093, ' ') + "42\r\n", 42, nullptr},
    {"BlankAtByte4096", QByteArray(4093, ' ') + "42 7\n", 42, nullptr},
    {"TabAtByte4096", QByteArray(4093, ' ') + "42\t7\n", 42, nullptr},
    {"DigitAtByte4096", QByteArray(4093, ' ') + "421\n", s_fallback, s_noField},
    {"NumberFirstAndAFieldThatIsCut", "42 " + QByteArray(5000, 'x') + "\n", 42, nullptr},
    {"NumberThatFillsTheLine", QByteArray(4093, '0') + "42\n", 42, nullptr},
    {"NumberLongerThanTheLine", QByteArray(4094, '0') + "42\n", s_fallback, s_noNumber},
    {"BlanksAlone", QByteArray(4096, ' ') + '\n', s_fallback, s_noField},
};
INSTANTIATE_TEST_SUITE_P(LongLines, SimulatedCupSensorLines, ::testing::ValuesIn(s_endCases),
                         caseName);

TEST_F(SimulatedCupSensorFilesTest, FileIsReadAgainAtEachPoll)
{
    m_folder.write("42\n");
    open();
    expectRead(42, nullptr);
    m_folder.write("43\n"); // of the same length
    expectRead(43, nullptr);
    m_folder.write("12345 and more\nthan before\n");
    expectRead(12345, nullptr);
    m_folder.write("7");
    expectRead(7, nullptr);
    m_folder.write("");
    expectRead(s_fallback, s_noData);
    m_folder.write("letters");
    expectRead(s_fallback, s_noNumber);
    m_folder.write("8\n");
    expectRead(8, nullptr);
}

TEST_F(SimulatedCupSensorFilesTest, ReadIsEmptyWhenItFailsAndTheFallbackIsTheCurrentReading)
{
    QFile::link(QStringLiteral("/proc/self/mem"), m_folder.file()); // gives an error when read
    open();
    EXPECT_TRUE(m_pSensor->isPollingSensor());
    expectRead(s_fallback, s_noData);
    m_pSensor->onRawValueChangedFromProtocol(56);
    bool error = false;
    EXPECT_EQ(m_pSensor->readRawValuesFromDevice(error), 56);
    EXPECT_TRUE(error);
}

TEST_F(SimulatedCupSensorFilesTest, FileThatVanishesOrIsReplacedKeepsItsReading)
{
    m_folder.write("42\n");
    open();
    expectRead(42, nullptr);
    ASSERT_TRUE(QFile::remove(m_folder.file()));
    expectRead(42, nullptr);
    m_folder.write("43\n"); // a new one, while the old one stays open
    expectRead(42, nullptr);
}

TEST_F(SimulatedCupSensorFilesTest, FileThatIsRewrittenWhileItIsReadGivesOneReadingOrTheLastGood)
{
    const Deadline deadline;
    m_folder.write("7\n");
    open();
    std::atomic<bool> isDone{false};
    std::atomic<int> rewrites{0};
    std::thread tool([&] {
        while (!isDone)
            m_folder.write(++rewrites % 2 == 0 ? "7\n" : "9 and a longer line\n");
    });
    int strangers = 0;
    for (int i = 0; i < 2000 || rewrites < 100; ++i) {
        bool error = false;
        const int reading = m_pSensor->readRawValuesFromDevice(error);
        const bool isGood = error ? reading == s_fallback : reading == 7 || reading == 9;
        strangers += isGood ? 0 : 1;
        m_log.clear();
    }
    isDone = true;
    tool.join();
    EXPECT_EQ(strangers, 0);
    m_folder.write("7\n");
    expectRead(7, nullptr);
}

// -- files that are none --------------------------------------------------------------------------

struct LargeCase
{
    const char *pName;
    QByteArray text; ///< before the NUL bytes
    int reading;
    const char *pError;
    bool isHome; ///< when it is the carrier's file, and the carrier was home before
};

class SimulatedCupSensorLargeLines : public SimulatedCupSensorFilesTest,
                                     public ::testing::WithParamInterface<LargeCase>
{
};

TEST_P(SimulatedCupSensorLargeLines, TakeLittleMemoryAndTime)
{
    const Deadline deadline;
    writeLargeLine(m_folder.file(), GetParam().text);
    open();
    resetMemoryPeak();
    const qint64 before = memory("VmRSS:");
    QElapsedTimer timer;
    timer.start();
    expectRead(GetParam().reading, GetParam().pError);
    expectRead(GetParam().reading, GetParam().pError);
    EXPECT_LT(timer.elapsed(), 1000);
    EXPECT_LT(memory("VmHWM:"), before + 16 * 1024);
    m_folder.write("43");
    expectRead(43, nullptr);
}

TEST_P(SimulatedCupSensorLargeLines, TakeLittleMemoryAndTimeInTheCarriersFile)
{
    const Deadline deadline;
    m_folder.write("81");
    writeLargeLine(m_folder.carrierFile(), GetParam().text);
    open();
    m_pSensor->onRawValueChangedFromProtocol(81);
    m_pSensor->setIsCupCarrierPositionHome(true);
    resetMemoryPeak();
    const qint64 before = memory("VmRSS:");
    QElapsedTimer timer;
    timer.start();
    m_pSensor->updateCupCarrierPositionFromFile();
    EXPECT_LT(timer.elapsed(), 1000);
    EXPECT_LT(memory("VmHWM:"), before + 16 * 1024);
    EXPECT_EQ(m_pSensor->isCupCarrierPositionHome(), GetParam().isHome);
}

const LargeCase s_largeCases[] = {
    {"Number", "42 ", 42, nullptr, true},
    {"Letters", "letters", s_fallback, s_noNumber, false},
    {"NumberAndLetters", "42mm", s_fallback, s_noNumber, false},
};
INSTANTIATE_TEST_SUITE_P(Rows, SimulatedCupSensorLargeLines, ::testing::ValuesIn(s_largeCases),
                         caseName);

// Whether NUL bytes are a field that is no number or none at all makes no difference here.
TEST_F(SimulatedCupSensorFilesTest, LargeLineOfNulBytesFailsAndTakesLittleMemoryAndTime)
{
    const Deadline deadline;
    writeLargeLine(m_folder.file(), QByteArray());
    open();
    resetMemoryPeak();
    const qint64 before = memory("VmRSS:");
    QElapsedTimer timer;
    timer.start();
    expectRead(s_fallback, s_noField, s_noNumber);
    EXPECT_LT(timer.elapsed(), 1000);
    EXPECT_LT(memory("VmHWM:"), before + 16 * 1024);
}

TEST_F(SimulatedCupSensorFilesTest, NumberBehindManyBlanksIsFound)
{
    m_folder.write(QByteArray(500, ' ') + "42 " + QByteArray(1'000'000, 'x') + '\n');
    open();
    expectRead(42, nullptr);
}

struct StrangerCase
{
    const char *pName;
    void (*make)(const QString &path);
};

/// What could block, or never end.
class SimulatedCupSensorStrangers : public SimulatedCupSensorFilesTest,
                                    public ::testing::WithParamInterface<StrangerCase>
{
};

TEST_P(SimulatedCupSensorStrangers, AreNotOpenedForTheReading)
{
    const Deadline deadline;
    GetParam().make(m_folder.file());
    SimulatedCupSensor sensor;
    EXPECT_EQ(m_log.count(": Failed opening simulation file !", 3, Log::Hardware), 1);
    EXPECT_FALSE(sensor.isPollingSensor());
    EXPECT_EQ(sensor.rawValue(), 80);
    EXPECT_TRUE(sensor.startMeasureLoop());
    EXPECT_FALSE(sensor.isMeasureLoopRunning());
    EXPECT_TRUE(sensor.updateFromDevice());
    EXPECT_EQ(sensor.rawValue(), 80);
    bool error = false;
    EXPECT_EQ(sensor.readRawValuesFromDevice(error), 80);
    EXPECT_TRUE(error);
}

TEST_P(SimulatedCupSensorStrangers, AreNotOpenedForTheCarrier)
{
    const Deadline deadline;
    m_folder.write("81");
    GetParam().make(m_folder.carrierFile());
    open();
    expectRead(81, nullptr);
    EXPECT_FALSE(m_pSensor->isCupCarrierPositionHome());
    const LogSpy log;
    SimulatedCupSensor sensor;
    EXPECT_EQ(log.count(": Failed opening cup carrier simulation file !", 1, Log::Hardware), 1);
    EXPECT_TRUE(sensor.isPollingSensor());
}

const StrangerCase s_strangerCases[] = {
    {"DeviceWithoutEnd",
     [](const QString &path) { EXPECT_TRUE(QFile::link(QStringLiteral("/dev/zero"), path)); }},
    {"Pipe",
     [](const QString &path) { EXPECT_EQ(mkfifo(QFile::encodeName(path).constData(), 0600), 0); }},
    {"LinkToNothing",
     [](const QString &path) {
         EXPECT_TRUE(QFile::link(QStringLiteral("/proc/self/nothing"), path));
     }},
};
INSTANTIATE_TEST_SUITE_P(Kinds, SimulatedCupSensorStrangers, ::testing::ValuesIn(s_strangerCases),
                         caseName);

// -- the carrier ----------------------------------------------------------------------------------

struct CarrierFileCase
{
    const char *pName;
    QByteArray text;
    quint16 reading; ///< up to 70 a cup
    bool isHomeBefore;
    bool isHome;
    const char *pText; ///< the line that is logged; null where there is none
};

class SimulatedCupSensorCarrier : public SimulatedCupSensorFilesTest,
                                  public ::testing::WithParamInterface<CarrierFileCase>
{
};

TEST_P(SimulatedCupSensorCarrier, FollowsItsFileUnlessACupKeepsIt)
{
    m_folder.writeCarrier(GetParam().text);
    open();
    m_pSensor->onRawValueChangedFromProtocol(GetParam().reading);
    m_pSensor->setIsCupCarrierPositionHome(GetParam().isHomeBefore);
    m_log.clear();
    const QSignalSpy changed(m_pSensor.get(), &AbstractCupSensor::isCupCarrierPositionHomeChanged);
    m_pSensor->updateCupCarrierPositionFromFile();
    m_pSensor->updateCupCarrierPositionFromFile();

    const bool isChange = GetParam().isHome != GetParam().isHomeBefore;
    EXPECT_EQ(m_pSensor->isCupCarrierPositionHome(), GetParam().isHome);
    EXPECT_EQ(changed.count(), isChange ? 1 : 0);
    EXPECT_EQ(m_folder.bytes(m_folder.carrierFile()), GetParam().text);
    const bool isKept = GetParam().pText != nullptr && !isChange;
    ASSERT_EQ(m_log.records().size(), isKept ? 2 : isChange ? 1 : 0);
    if (GetParam().pText == nullptr)
        return;
    EXPECT_EQ(m_log.texts().constFirst().toStdString(), GetParam().pText);
    EXPECT_EQ(m_log.count(GetParam().pText, 1, Log::Hardware), isKept ? 2 : 1);
}

constexpr const char *s_toHome = "Cup carrier position changed, home: 1";
constexpr const char *s_toAway = "Cup carrier position changed, home: 0";
constexpr const char *s_kept = "A cup is present, not setting cup carrier position to home";
const CarrierFileCase s_carrierFileCases[] = {
    {"Home", "1\n", 71, false, true, s_toHome},
    {"HomeAgain", "1", 71, true, true, nullptr},
    {"Away", "0\n", 71, true, false, s_toAway},
    {"AwayAgain", "0", 71, false, false, nullptr},
    {"CupKeepsItFromHome", "1", 70, false, false, s_kept},
    {"CupLeavesItHome", "1", 70, true, true, nullptr},
    {"CupLetsItLeave", "0", 70, true, false, s_toAway},
    {"CupLeavesItAway", "0", 70, false, false, nullptr},
    {"TwoIsHome", "2", 71, false, true, s_toHome},
    {"NegativeIsHome", "-1", 71, false, true, s_toHome},
    {"Over16BitsIsHome", "65536", 71, false, true, s_toHome},
    {"BlanksAndFurtherFields", "  \t1\t0\n0\n", 71, false, true, s_toHome},
    {"SecondFieldIsIgnored", "0 1\n1\n", 71, true, false, s_toAway},
    {"LettersAreAway", "letters", 71, true, false, s_toAway},
    {"OverAnIntIsAway", "2147483648", 71, true, false, s_toAway},
    {"EmptyLeavesItHome", "", 71, true, true, nullptr},
    {"EmptyLeavesItAway", "", 71, false, false, nullptr},
    {"LineEndAloneLeavesItHome", "\n0\n", 71, true, true, nullptr},
    {"BlanksAloneLeaveItHome", " \t \n0", 71, true, true, nullptr},
};
INSTANTIATE_TEST_SUITE_P(Rows, SimulatedCupSensorCarrier, ::testing::ValuesIn(s_carrierFileCases),
                         caseName);

TEST_F(SimulatedCupSensorFilesTest, CarrierFileIsReadAgainAtEachPollWhoseReadingIsGood)
{
    m_folder.write("letters");
    m_folder.writeCarrier("1");
    open();
    m_pSensor->onRawValueChangedFromProtocol(71);
    for (const char *pText : {"letters", "", "\n"}) {
        m_folder.write(pText);
        EXPECT_FALSE(m_pSensor->updateFromDevice());
        EXPECT_FALSE(m_pSensor->isCupCarrierPositionHome()) << pText;
    }
    m_folder.write("72");
    EXPECT_TRUE(m_pSensor->updateFromDevice());
    EXPECT_TRUE(m_pSensor->isCupCarrierPositionHome());
    m_folder.writeCarrier("0");
    EXPECT_TRUE(m_pSensor->updateFromDevice());
    EXPECT_FALSE(m_pSensor->isCupCarrierPositionHome());
}

// The cup of the reading before decides, since the new one is stored only afterwards.
TEST_F(SimulatedCupSensorFilesTest, CupOfTheReadingBeforeKeepsTheCarrierFromHome)
{
    m_folder.write("71");
    m_folder.writeCarrier("1");
    open();
    m_pSensor->onRawValueChangedFromProtocol(70);
    EXPECT_TRUE(m_pSensor->updateFromDevice());
    EXPECT_FALSE(m_pSensor->isCupCarrierPositionHome());
    EXPECT_TRUE(m_pSensor->updateFromDevice());
    EXPECT_TRUE(m_pSensor->isCupCarrierPositionHome());
}
