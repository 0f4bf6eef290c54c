#include "vyhw/vyhw.h"

#include "support/casename.h"
#include "support/filesizelimit.h"
#include "support/scopedvariable.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <csignal>
#include <gtest/gtest.h>

namespace {

QStringList canSend(const QStringList &words)
{
    return QStringList{QStringLiteral("can"), QStringLiteral("send")} + words +
           QStringList{QStringLiteral("--settings"), configFile("lirenta.json")};
}

} // namespace

TEST(VyhwCanTest, SendSaysWhatBecameOfTheMessage)
{
    const Outcome outcome = vyhw(canSend(
        {QStringLiteral("dadd"), QStringLiteral("virtualselect"), QStringLiteral("00 07")}));
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(outcome.out.startsWith(
        QLatin1String("VirtualSelect (42) to DADD (0x721) 00 07 acknowledged after ")))
        << qPrintable(outcome.out);
}

TEST(VyhwCanTest, RepeatAndJsonGiveOneObjectForEachMessage)
{
    const Outcome outcome =
        vyhw(canSend({QStringLiteral("actuator"), QStringLiteral("0x2a"), QStringLiteral("--json"),
                      QStringLiteral("--repeat"), QStringLiteral("3")}));
    EXPECT_EQ(outcome.exitCode, 0);
    const QStringList lines = outcome.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3);
    for (const QString &line : lines) {
        const QJsonObject message = QJsonDocument::fromJson(line.toUtf8()).object();
        EXPECT_EQ(message.value(QStringLiteral("destination")).toInt(),
                  0x41C); // Lirenta, subtype 8
        EXPECT_EQ(message.value(QStringLiteral("command")).toInt(), 0x2A);
        EXPECT_EQ(message.value(QStringLiteral("outcome")).toString(),
                  QStringLiteral("acknowledged"));
    }
}

struct WrongCallCase
{
    const char *pName;
    QStringList words;
    const char *pError;
};

using VyhwCanWrongCall = ::testing::TestWithParam<WrongCallCase>;

TEST_P(VyhwCanWrongCall, IsToldWhatWasExpected)
{
    const Outcome outcome = vyhw(canSend(GetParam().words));
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_TRUE(outcome.err.contains(QLatin1String(GetParam().pError))) << qPrintable(outcome.err);
}

const WrongCallCase s_wrongCalls[] = {
    {"NoSuchBoard", {QStringLiteral("Doors"), QStringLiteral("1")}, "expected a name such as DADD"},
    {"AddressTooLarge",
     {QStringLiteral("0x800"), QStringLiteral("1")},
     "an address from 0 to 0x7ff"},
    {"NoSuchBoardListsTheNames",
     {QStringLiteral("Doors"), QStringLiteral("1")},
     "CpuBoardNewQuindo, DADD\n"},
    {"NoSuchCommandListsSimilarOnes",
     {QStringLiteral("DADD"), QStringLiteral("virtualpric")},
     "; similar: RVirtualPrice\n"},
    {"Acknowledge",
     {QStringLiteral("DADD"), QStringLiteral("ack")},
     "Ack (1) is an answer, which nobody acknowledges"},
    {"Refusal",
     {QStringLiteral("DADD"), QStringLiteral("2")},
     "Nack (2) is an answer, which nobody acknowledges"},
    {"NoSuchCommand",
     {QStringLiteral("DADD"), QStringLiteral("Open")},
     "expected a name such as VirtualSelect"},
    {"CommandTooLarge",
     {QStringLiteral("DADD"), QStringLiteral("2048")},
     "a number from 0 to 0x7ff"},
    {"HalfAByte",
     {QStringLiteral("DADD"), QStringLiteral("42"), QStringLiteral("0")},
     "expected pairs of hexadecimal digits"},
    {"TooManyBytes",
     {QStringLiteral("DADD"), QStringLiteral("42"), QStringLiteral("ab").repeated(507)},
     "expected at most 506"},
    {"NoCommand", {QStringLiteral("DADD")}, "CMD is required"},
    {"RepeatNone",
     {QStringLiteral("DADD"), QStringLiteral("1"), QStringLiteral("--repeat"), QStringLiteral("0")},
     "--repeat"},
};
INSTANTIATE_TEST_SUITE_P(Calls, VyhwCanWrongCall, ::testing::ValuesIn(s_wrongCalls), caseName);

TEST(VyhwCanTest, SharedIsTheAddressThatAllBoardsTake)
{
    const Outcome outcome =
        vyhw(canSend({QStringLiteral("Shared"), QStringLiteral("virtualselect")}));
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(
        outcome.out.startsWith(QLatin1String("VirtualSelect (42) to 0x301 acknowledged after ")))
        << qPrintable(outcome.out);
}

/// A folder for the log that lives as long as the test.
class VyhwCanLogTest : public VyhwFileTest
{
protected:
    Outcome send()
    {
        return vyhw(canSend(
            {QStringLiteral("DADD"), QStringLiteral("VirtualSelect"), QStringLiteral("--log")}));
    }
};

TEST_F(VyhwCanLogTest, IsWrittenAndDecoded)
{
    const ScopedVariable logs("VY_PATH_LOGS", QFile::encodeName(m_folder.path()));
    EXPECT_EQ(send().exitCode, 0);
    const Outcome outcome = vyhw({QStringLiteral("can"), QStringLiteral("decode"),
                                  m_folder.filePath(QStringLiteral("canBus.txt"))});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(outcome.out.contains(QLatin1String("VirtualSelect (42)  acknowledged after ")))
        << qPrintable(outcome.out);
}

TEST_F(VyhwCanLogTest, InAFolderThatCannotBeMadeIsAnError)
{
    const QString file = write("no folder");
    const ScopedVariable logs("VY_PATH_LOGS", QFile::encodeName(file));
    const Outcome outcome = send();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_EQ(outcome.err,
              QStringLiteral("vyhw: %1/canBus.txt: cannot be written: the folder cannot be made; "
                             "name another folder in VY_PATH_LOGS\n")
                  .arg(file));
}

TEST_F(VyhwCanLogTest, InTheWayOfAFolderIsAnError)
{
    ASSERT_TRUE(QDir(m_folder.path()).mkdir(QStringLiteral("canBus.txt")));
    const ScopedVariable logs("VY_PATH_LOGS", QFile::encodeName(m_folder.path()));
    const Outcome outcome = send();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.err.contains(QLatin1String("canBus.txt: cannot be written: not a file")))
        << qPrintable(outcome.err);
}

TEST_F(VyhwCanLogTest, OnAFullDiskIsAnError)
{
    constexpr int s_full = 10000;
    QFile log(m_folder.filePath(QStringLiteral("canBus.txt")));
    ASSERT_TRUE(log.open(QIODevice::WriteOnly));
    ASSERT_EQ(log.write(QByteArray(s_full - 1, 'x') + '\n'), s_full);
    log.close();
    const ScopedVariable logs("VY_PATH_LOGS", QFile::encodeName(m_folder.path()));
    const FileSizeLimit limit(s_full);
    const Outcome outcome = send();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.err.contains(QLatin1String("canBus.txt: nothing could be written to it")))
        << qPrintable(outcome.err);
}

TEST(VyhwCanTest, InterruptionStopsAfterTheMessageUnderWay)
{
    QProcess process;
    process.start(QStringLiteral(VYHW_PROGRAM),
                  canSend({QStringLiteral("DADD"), QStringLiteral("VirtualSelect"),
                           QStringLiteral("--repeat"), QStringLiteral("1000")}));
    QByteArray output;
    while (!output.contains('\n') && process.waitForReadyRead(10000))
        output += process.readAllStandardOutput();
    ASSERT_EQ(::kill(static_cast<pid_t>(process.processId()), SIGINT), 0);
    ASSERT_TRUE(process.waitForFinished(10000));
    output += process.readAllStandardOutput();
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), 1);
    EXPECT_EQ(output.count(" acknowledged after "), output.count('\n'));
    EXPECT_EQ(process.readAllStandardError(),
              "vyhw: " + QByteArray::number(output.count('\n')) + " of 1000 acknowledged\n");
}

TEST(VyhwCanTest, InfoShowsTheAddresses)
{
    const Outcome outcome = vyhw({QStringLiteral("info"), QStringLiteral("--json"),
                                  QStringLiteral("--settings"), configFile("lirenta.json")});
    const QJsonObject addresses = QJsonDocument::fromJson(outcome.out.toUtf8())
                                      .object()
                                      .value(QStringLiteral("addresses"))
                                      .toObject();
    EXPECT_EQ(addresses.value(QStringLiteral("cpuBoard")).toInt(), 0x4AE);
    EXPECT_EQ(addresses.value(QStringLiteral("actuatorBoard")).toInt(), 0x41C);
    EXPECT_EQ(addresses.value(QStringLiteral("coffeeToGoBoard")).toInt(), 0x41E);
    EXPECT_EQ(addresses.value(QStringLiteral("daddBoard")).toInt(), 0x721);
}
