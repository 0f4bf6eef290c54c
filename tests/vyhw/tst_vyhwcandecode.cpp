#include "vyhw/vyhw.h"

#include "support/casename.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

constexpr int s_cpu = 0x4A8;
constexpr int s_actuator = 0x419;
constexpr int s_door = 0x721;
constexpr int s_shared = 0x301;
constexpr int s_noTime = -1;

QByteArray bytes(const char *pHex)
{
    return QByteArray::fromHex(pHex);
}

/// A line of "canBus.txt", so many ms after 23:59:58 on 2026-11-20.
QByteArray frame(int ms, int source, int destination, int index, const QByteArray &data)
{
    QByteArray line;
    if (ms != s_noTime) {
        const QDateTime begin(QDate(2026, 11, 20), QTime(23, 59, 58), Qt::UTC);
        line = begin.addMSecs(ms).toString(Qt::ISODateWithMs).toLatin1() + ' ';
    }
    const int id = index << 22 | source << 11 | destination;
    line += " <TX<< |id:0x" + QByteArray::number(id, 16).rightJustified(16, '0') + "|data(" +
            QByteArray::number(data.size()) + "):";
    for (const char byte : data)
        line += " 0x" + QByteArray(1, byte).toHex();
    return line + "| Sending: x\r\n";
}

QByteArray withChecksum(QByteArray stream)
{
    char sum = 0;
    for (const char byte : qAsConst(stream))
        sum = static_cast<char>(sum ^ byte);
    return stream + sum;
}

/// A message of one frame, with two bytes of payload at most.
QByteArray request(int ms, int source, int destination, int command,
                   const QByteArray &payload = QByteArray())
{
    const QByteArray head{"\x02\x00", 2};
    return frame(ms, source, destination, 0,
                 withChecksum(head + static_cast<char>(command) + '\0' +
                              static_cast<char>(payload.size()) + payload));
}

/// \param kind 1 acknowledges, 2 refuses
QByteArray answer(int ms, int source, int destination, int command, int kind = 1)
{
    const QByteArray head{"\x02\x00", 2};
    return frame(ms, source, destination, 0,
                 withChecksum(head + static_cast<char>(kind) + '\0' + static_cast<char>(command)));
}

/// The first of two frames: VirtualSelect (42) with four bytes.
QByteArray begin(int ms, int source = s_cpu, int destination = s_actuator)
{
    return frame(ms, source, destination, 0, bytes("02002a0004010203"));
}

QByteArray end(int ms, int source = s_cpu, int destination = s_actuator)
{
    return frame(ms, source, destination, 1, bytes("0428"));
}

/// A file with this content is decoded.
Outcome decoded(const QByteArray &content)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("canBus.txt"));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(content);
    file.close();
    return vyhw({QStringLiteral("can"), QStringLiteral("decode"), path});
}

Outcome decodedPath(const QString &path)
{
    return vyhw({QStringLiteral("can"), QStringLiteral("decode"), path});
}

/// The lines without the boards: time, command, bytes, outcome.
QStringList linesOf(const Outcome &outcome)
{
    QStringList lines = outcome.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (QString &line : lines) {
        const int arrow = line.indexOf(QLatin1String(" -> "));
        const int what = line.indexOf(QLatin1String("  "), arrow);
        if (arrow >= 0)
            line = line.left(line.indexOf(QLatin1Char(' '))) + line.mid(what);
    }
    return lines;
}

QStringList list(std::initializer_list<const char *> lines)
{
    QStringList list;
    for (const char *const pLine : lines)
        list.append(QString::fromLatin1(pLine));
    return list;
}

} // namespace

TEST(VyhwCanDecodeTest, PairsTheAcknowledgeWithItsRequest)
{
    const Outcome outcome = decoded("2026-11-21T05:25:46.507Z  <TX<< "
                                    "|id:0x0000000000254419|data(8): 0x02 0x00 0x2a 0x00 0x04 0x01 "
                                    "0x02 0x03| Sending: x\r\n"
                                    "2026-11-21T05:25:46.508Z  <TX<< "
                                    "|id:0x0000000000654419|data(2): 0x04 0x28                    "
                                    "          | Sending: x\r\n"
                                    "2026-11-21T05:25:46.527Z >>RX>  "
                                    "|id:0x000000000020cca8|data(6): 0x02 0x00 0x01 0x00 0x2a 0x29"
                                    "          | Received: x\r\n");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.out,
              QStringLiteral("2026-11-21\n"
                             "05:25:46.507 CpuBoardOstrel (0x4a8) -> ActuatorBoardOstrel "
                             "(0x419)  VirtualSelect (42)  01 02 03 04  acknowledged "
                             "after 20 ms\n"));
}

TEST(VyhwCanDecodeTest, TellsRefusedUnansweredAndBroken)
{
    const Outcome outcome = decoded(
        " <TX<< |id:0x0000000000254419|data(6): 0x02 0x00 0x2a 0x00 0x00 0x28          | a\r\n"
        ">>RX>  |id:0x000000000020cca8|data(6): 0x02 0x00 0x02 0x00 0x2a 0x2a          | a\r\n"
        " <TX<< |id:0x0000000000254419|data(6): 0x02 0x00 0x2b 0x00 0x00 0x29          | a\r\n"
        " <TX<< |id:0x0000000000254419|data(6): 0x02 0x00 0x2b 0x00 0x00 0x00          | a\r\n"
        " <TX<< |id:0x0000000001254419|data(1): 0x02                                   | a\r\n"
        " <TX<< |id:0x0000000000254419|data(8): 0x02 0x00 0x2c 0x00 0x09 0x01 0x02 0x03| a\r\n");
    EXPECT_EQ(outcome.exitCode, 1);
    const QStringList lines = outcome.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 5);
    EXPECT_TRUE(lines.at(0).endsWith(QLatin1String("VirtualSelect (42)  refused")));
    EXPECT_TRUE(lines.at(1).endsWith(QLatin1String("RVirtualPrice (43)  no answer")));
    EXPECT_TRUE(lines.at(2).endsWith(QLatin1String("RVirtualPrice (43)  wrong checksum")));
    EXPECT_TRUE(lines.at(3).endsWith(QLatin1String("continues no message  02")));
    EXPECT_TRUE(lines.at(4).endsWith(QLatin1String("MultiMachineComb2 (44)  incomplete")));
}

struct ConversationCase
{
    const char *pName;
    QByteArray log;
    QStringList lines;
    int exitCode;
};

using VyhwCanConversation = ::testing::TestWithParam<ConversationCase>;

TEST_P(VyhwCanConversation, IsTold)
{
    const Outcome outcome = decoded(GetParam().log);
    EXPECT_EQ(linesOf(outcome), GetParam().lines) << qPrintable(outcome.out);
    EXPECT_EQ(outcome.exitCode, GetParam().exitCode) << qPrintable(outcome.err);
}

const ConversationCase s_conversations[] = {
    {"AnswerIsForTheNewestRequest",
     request(0, s_cpu, s_door, 42, "a") + request(100, s_cpu, s_door, 42, "b") +
         answer(150, s_door, s_cpu, 42),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  61  no answer",
           "23:59:58.100  VirtualSelect (42)  62  acknowledged after 50 ms"}),
     0},
    {"SameBytesAreSentAgain",
     request(0, s_cpu, s_door, 42, "a") + request(1200, s_cpu, s_door, 42, "a") +
         answer(1250, s_door, s_cpu, 42, 2),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  61  no answer, sent again",
           "23:59:59.200  VirtualSelect (42)  61  refused after 50 ms"}),
     0},
    {"SentAgainAfter3s", request(0, s_cpu, s_door, 42) + request(3000, s_cpu, s_door, 42),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  no answer, sent again", "2026-11-21",
           "00:00:01.000  VirtualSelect (42)  no answer"}),
     0},
    {"NotSentAgainLater", request(0, s_cpu, s_door, 42) + request(3001, s_cpu, s_door, 42),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  no answer", "2026-11-21",
           "00:00:01.001  VirtualSelect (42)  no answer"}),
     0},
    {"OtherBoardsAndCommandsWaitOn",
     request(0, s_cpu, s_door, 42) + request(1, s_cpu, s_actuator, 42) +
         request(2, s_cpu, s_door, 43) + answer(10, s_door, s_cpu, 42),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  acknowledged after 10 ms",
           "23:59:58.001  VirtualSelect (42)  no answer",
           "23:59:58.002  RVirtualPrice (43)  no answer"}),
     0},
    {"AnyBoardAnswersTheSharedAddress",
     request(0, s_cpu, s_shared, 42) + answer(20, s_door, s_cpu, 42),
     list({"2026-11-20",
           "23:59:58.000  VirtualSelect (42)  acknowledged by DADD (0x721) after 20 ms"}),
     0},
    {"TheNewerOfSharedAndOwnAddressIsAnswered",
     request(0, s_cpu, s_shared, 42) + request(10, s_cpu, s_door, 42) +
         answer(20, s_door, s_cpu, 42),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  no answer",
           "23:59:58.010  VirtualSelect (42)  acknowledged after 10 ms"}),
     0},
    {"AnswerOf3sIsInTime", request(0, s_cpu, s_door, 42) + answer(3000, s_door, s_cpu, 42),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  acknowledged after 3000 ms"}), 0},
    {"AnswerComesTooLate", request(0, s_cpu, s_door, 42) + answer(3001, s_door, s_cpu, 42),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  no answer", "2026-11-21",
           "00:00:01.001  acknowledges VirtualSelect (42), for which no message waits"}),
     0},
    {"FirstFrameEndsTheMessageBefore", begin(0) + begin(100) + end(101),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  incomplete",
           "23:59:58.100  VirtualSelect (42)  01 02 03 04  no answer"}),
     1},
    {"FirstFrameOfAnotherPairDoesNot",
     begin(0) + begin(1, s_cpu, s_door) + begin(2, s_actuator, s_cpu) + end(3),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  01 02 03 04  no answer",
           "23:59:58.001  VirtualSelect (42)  incomplete",
           "23:59:58.002  VirtualSelect (42)  incomplete"}),
     1},
    {"AcknowledgeBetweenTheFramesDoesNot", begin(0) + answer(1, s_cpu, s_actuator, 9) + end(2),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  01 02 03 04  no answer",
           "23:59:58.001  acknowledges SetRecipeWater (9), for which no message waits"}),
     0},
    {"PartOf3sIsContinued", begin(0) + end(3000),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  01 02 03 04  no answer"}), 0},
    {"OlderPartIsEnded", begin(0) + end(3001),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  incomplete", "2026-11-21",
           "00:00:01.001  continues no message  04 28"}),
     1},
    {"ByTheTimeOfTheBeginning",
     begin(0) + request(1, s_cpu, s_door, 42) + end(2) + answer(3, s_door, s_cpu, 42) +
         answer(4, s_actuator, s_cpu, 42),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  01 02 03 04  acknowledged after 4 ms",
           "23:59:58.001  VirtualSelect (42)  acknowledged after 2 ms"}),
     0},
    {"OtherLinesKeepTheirPlace",
     request(0, s_cpu, s_door, 42) + frame(1, s_cpu, s_actuator, 3, "x") +
         answer(2, s_door, s_cpu, 42),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  acknowledged after 2 ms",
           "23:59:58.001  continues no message  78"}),
     1},
    {"BeginsNoMessage", frame(0, s_cpu, s_actuator, 0, "x"),
     list({"2026-11-20", "23:59:58.000  begins no message  78"}), 1},
    {"WrongSize", begin(0) + frame(1, s_cpu, s_actuator, 1, bytes("042800")),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  incomplete",
           "23:59:58.001  has not the size that its message needs  04 28 00"}),
     1},
    {"WrongChecksum", begin(0) + frame(1, s_cpu, s_actuator, 1, bytes("0429")),
     list({"2026-11-20", "23:59:58.000  VirtualSelect (42)  wrong checksum"}), 1},
    {"AcknowledgeOfNothing", frame(0, s_cpu, s_actuator, 0, bytes("0200010003")),
     list({"2026-11-20", "23:59:58.000  Ack (1)  does not say what it answers"}), 1},
    {"ClockIsSetBack", request(86400000, s_cpu, s_door, 42) + answer(0, s_door, s_cpu, 42),
     list({"2026-11-21", "23:59:58.000  VirtualSelect (42)  no answer", "2026-11-20",
           "23:59:58.000  acknowledges VirtualSelect (42), for which no message waits"}),
     0},
};
INSTANTIATE_TEST_SUITE_P(Logs, VyhwCanConversation, ::testing::ValuesIn(s_conversations), caseName);

/// How many frames, without times, may stand between a message and its answer.
TEST(VyhwCanDecodeTest, WithoutTimesAMessageWaitsFor1000Frames)
{
    const QByteArray asked = request(s_noTime, s_cpu, s_door, 42);
    const QByteArray answered = answer(s_noTime, s_door, s_cpu, 42);
    const QByteArray other = frame(s_noTime, s_cpu, s_actuator, 3, "x");
    const Outcome inTime = decoded(asked + other.repeated(999) + answered);
    EXPECT_TRUE(inTime.out.contains(QLatin1String("VirtualSelect (42)  acknowledged\n")));
    const Outcome tooLate = decoded(asked + other.repeated(1000) + answered);
    EXPECT_TRUE(tooLate.out.contains(QLatin1String("VirtualSelect (42)  no answer\n")));
}

TEST(VyhwCanDecodeTest, MoreMessagesThanCanWaitAreAllPrinted)
{
    // All at one time, each with an answer to wait for.
    QByteArray log;
    for (int source = 0; source < 0x700; ++source) {
        for (int destination = 1; destination < 8; ++destination)
            log += request(0, source, destination, 42);
    }
    const Outcome outcome = decoded(log);
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.out.count(QLatin1String("no answer\n")), 0x700 * 7);
}

TEST(VyhwCanDecodeTest, CountsFaultsWithoutTheLibrarysLog)
{
    const Outcome outcome =
        decoded(frame(0, s_cpu, s_actuator, 0, bytes("02002a00")) + end(1) + begin(2));
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.err.endsWith(
        QLatin1String(": 3 faults: messages that are broken or incomplete, frames of none\n")));
    EXPECT_EQ(outcome.err.count(QLatin1Char('\n')), 1) << qPrintable(outcome.err);
}

TEST(VyhwCanDecodeTest, TellsLinesThatAreNoFrames)
{
    const Outcome outcome = decoded(QByteArray(
        " <TX<< |id:0x0000000000254419|data(6): 0x02 0x00 0x2a 0x00 0x00 0x28 | a\r\nrubbish\n"));
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.err.contains(QLatin1String("canBus.txt:2: not a CAN frame: rubbish")));
    EXPECT_TRUE(outcome.out.contains(QLatin1String("VirtualSelect (42)")));
}

struct WrongLineCase
{
    const char *pName;
    QByteArray line;
    const char *pError; ///< behind "not a CAN frame: "
};

using VyhwCanWrongLine = ::testing::TestWithParam<WrongLineCase>;

TEST_P(VyhwCanWrongLine, IsToldWithWhatWasExpected)
{
    const Outcome outcome = decoded(request(0, s_cpu, s_door, 42) + GetParam().line + '\n');
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.err.contains(QLatin1String(":2: not a CAN frame: ") +
                                     QString::fromUtf8(GetParam().pError) + QLatin1Char('\n')))
        << qPrintable(outcome.err);
}

const WrongLineCase s_wrongLines[] = {
    {"Text", "rubbish", "rubbish; expected \"<TX<<\" or \">>RX>\" behind the time"},
    {"MonthThatIsNone", "2026-13-21T05:25:46.507Z  <TX<< |id:0x0000000000254419|data(0): | a",
     "2026-13-21T05:25:46.507Z  <TX<< |id:0x0000000000254419|data(...; expected a time such as "
     "2026-11-21T05:25:46.507Z"},
    {"HourThatIsNone", "2026-11-21T24:00:00.000Z >>RX>",
     "2026-11-21T24:00:00.000Z >>RX>; expected a time such as 2026-11-21T05:25:46.507Z"},
    {"NoIdentifier", ">>RX>  |id:0x25",
     ">>RX>  |id:0x25; expected \"|id:0x\" and 16 hexadecimal digits"},
    {"IdentifierAbove29Bits", ">>RX>  |id:0x0000000020000000|data(0): |",
     ">>RX>  |id:0x0000000020000000|data(0): |; expected an identifier of at most 29 bits, "
     "0x1fffffff"},
    {"IdentifierAbove32Bits", ">>RX>  |id:0x8000000000254419|data(0): |",
     ">>RX>  |id:0x8000000000254419|data(0): |; expected an identifier of at most 29 bits, "
     "0x1fffffff"},
    {"NoNumber", ">>RX>  |id:0x0000000000254419|data:",
     ">>RX>  |id:0x0000000000254419|data:; expected \"|data(\", a number and \"):\" behind the "
     "identifier"},
    {"HalfAByte", ">>RX>  |id:0x0000000000000001|data(1): 0x0 |",
     ">>RX>  |id:0x0000000000000001|data(1): 0x0 |; expected two hexadecimal digits for each byte"},
    {"CutOff", ">>RX>  |id:0x0000000000000001|data(2): 0x02",
     ">>RX>  |id:0x0000000000000001|data(2): 0x02; expected bytes such as 0x1f, and \"|\" behind "
     "them"},
    {"FewerBytes", ">>RX>  |id:0x0000000000000001|data(2): 0x02|",
     ">>RX>  |id:0x0000000000000001|data(2): 0x02|; expected as many bytes as \"data(N)\" says"},
    {"NineBytes", ">>RX> |id:0x0000000000000001|data(9):" + QByteArray(" 0x02").repeated(9) + "|",
     ">>RX> |id:0x0000000000000001|data(9): 0x02 0x02 0x02 0x02 0x...; expected at most 8 bytes"},
    {"WhatATerminalWouldActOn", "a\033[2Jb\x7f\xC2\x9B",
     "a\\x1b[2Jb\\x7f\\xc2\\x9b; expected \"<TX<<\" or \">>RX>\" behind the time"},
    {"NoUtf8", "\xC3\xA4\xFF\xC3",
     "\xC3\xA4\\xff\\xc3; expected \"<TX<<\" or \">>RX>\" behind the time"},
};
INSTANTIATE_TEST_SUITE_P(Lines, VyhwCanWrongLine, ::testing::ValuesIn(s_wrongLines), caseName);

TEST(VyhwCanDecodeTest, TakesUpperCaseDigits)
{
    const Outcome outcome = decoded(">>RX>  |id:0x000000000020CCA8|data(6): 0x02 0x00 0x2A 0x00 "
                                    "0x00 0x28 | a\n");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(outcome.out.contains(QLatin1String("VirtualSelect (42)")));
}

TEST(VyhwCanDecodeTest, LineThatIsTooLongIsOneLine)
{
    for (const int size : {4097, 5000, 300000}) {
        const Outcome outcome =
            decoded(QByteArray(size, 'x') + "\n" + request(0, s_cpu, s_door, 42) + "rubbish");
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_EQ(outcome.err.count(QLatin1String("not a CAN frame")), 2) << size;
        EXPECT_TRUE(outcome.err.contains(QLatin1String("expected at most 4096 bytes in a line")));
        EXPECT_TRUE(outcome.err.contains(QLatin1String(":3: not a CAN frame: rubbish"))) << size;
        EXPECT_TRUE(outcome.out.contains(QLatin1String("VirtualSelect (42)"))) << size;
    }
}

TEST(VyhwCanDecodeTest, LineOf4096BytesIsNotTooLong)
{
    QByteArray line = request(0, s_cpu, s_door, 42).trimmed();
    line += QByteArray(4096 - line.size(), 'x');
    EXPECT_EQ(decoded(line + '\n').exitCode, 0);
    EXPECT_EQ(decoded(line + "x\n").exitCode, 1);
}

TEST(VyhwCanDecodeTest, MissingFileFolderAndDeviceAreToldApart)
{
    const QTemporaryDir folder;
    const Outcome missing = decodedPath(folder.filePath(QStringLiteral("canBus.txt")));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.err.endsWith(QLatin1String("canBus.txt: there is no such file\n")));
    const Outcome isFolder = decodedPath(folder.path());
    EXPECT_EQ(isFolder.exitCode, 1);
    EXPECT_TRUE(isFolder.err.endsWith(
        QLatin1String(": a folder; expected a file of CAN frames such as \"canBus.txt\"\n")));
    const Outcome device = decodedPath(QStringLiteral("/dev/zero"));
    EXPECT_EQ(device.exitCode, 1);
    EXPECT_EQ(device.err, QStringLiteral("vyhw: /dev/zero: not a file; expected a file of CAN "
                                         "frames such as \"canBus.txt\"\n"));
    const Outcome nameless = decodedPath(QString());
    EXPECT_EQ(nameless.exitCode, 2);
    EXPECT_TRUE(nameless.err.contains(QLatin1String("is empty"))) << qPrintable(nameless.err);
    const Outcome empty = decoded(QByteArray());
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_TRUE(empty.err.endsWith(QLatin1String("there is no CAN frame in it\n")));
}

TEST(VyhwCanDecodeTest, ReadsStandardInputFromAPipe)
{
    QProcess process;
    process.start(QStringLiteral(VYHW_PROGRAM),
                  {QStringLiteral("can"), QStringLiteral("decode"), QStringLiteral("/dev/stdin")});
    process.write(request(0, s_cpu, s_door, 42));
    process.write(answer(7, s_door, s_cpu, 42));
    process.closeWriteChannel();
    ASSERT_TRUE(process.waitForFinished(10000));
    EXPECT_EQ(process.exitCode(), 0);
    EXPECT_TRUE(process.readAllStandardOutput().contains("acknowledged after 7 ms"));
}

TEST(VyhwCanDecodeTest, ShowsTheMessagesOfAPipeWhileItIsOpen)
{
    QProcess process;
    process.start(QStringLiteral(VYHW_PROGRAM),
                  {QStringLiteral("can"), QStringLiteral("decode"), QStringLiteral("/dev/stdin")});
    process.write(request(0, s_cpu, s_door, 42) + answer(7, s_door, s_cpu, 42));
    QByteArray output;
    while (!output.contains("acknowledged") && process.waitForReadyRead(10000))
        output += process.readAllStandardOutput();
    EXPECT_TRUE(output.contains("acknowledged after 7 ms"));
    EXPECT_EQ(process.state(), QProcess::Running);
    process.closeWriteChannel();
    ASSERT_TRUE(process.waitForFinished(10000));
    EXPECT_EQ(process.exitCode(), 0);
}

TEST(VyhwCanDecodeTest, DoesNotWaitForeverForSomebodyToWriteIntoThePipe)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("pipe"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    const Outcome outcome = decodedPath(path);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.err.endsWith(QLatin1String("there is no CAN frame in it\n")));
}

TEST(VyhwCanDecodeTest, HelpSaysWhatEndsWith1AndGivesAnExample)
{
    const Outcome outcome =
        vyhw({QStringLiteral("can"), QStringLiteral("decode"), QStringLiteral("--help")});
    EXPECT_TRUE(outcome.out.contains(QLatin1String("Ends with 1 when")));
    EXPECT_TRUE(outcome.out.contains(QLatin1String("Example: vyhw can decode ")));
}
