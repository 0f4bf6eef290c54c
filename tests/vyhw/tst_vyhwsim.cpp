#include "simulator/consolepath.h"
#include "simulator/controlconsole.h"
#include "simulator/simulatedmachine.h"
#include "support/casename.h"
#include "support/scopedvariable.h"
#include "vyhw/vyhw.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <unistd.h>

/// The tool beside a console in this process.
class VyhwSimTest : public ::testing::Test
{
protected:
    VyhwSimTest()
    {
        QString error;
        EXPECT_TRUE(m_console.listen(m_path, &error)) << qPrintable(error);
    }

    /// Runs `vyhw sim` while the event loop here goes on.
    static Outcome sim(const QStringList &words)
    {
        QProcess process;
        process.start(QStringLiteral(VYHW_PROGRAM), QStringList{QStringLiteral("sim")} + words);
        const bool isOver =
            QTest::qWaitFor([&process] { return process.state() == QProcess::NotRunning; }, 30000);
        if (!isOver || process.exitStatus() != QProcess::NormalExit)
            return {-1, QString(), process.errorString()};
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }
    Outcome simHere(const QStringList &words) const
    {
        return sim(words + QStringList{QStringLiteral("--console"), m_path});
    }

    QTemporaryDir m_folder;
    QString m_path = m_folder.filePath(QStringLiteral("console.sock"));
    SimulatedMachine m_machine;
    ControlConsole m_console{&m_machine, nullptr};
};

TEST_F(VyhwSimTest, StatusIsForPeople)
{
    m_machine.actuatorBoard().setCupReading(42);
    m_machine.outputs().setOutput(9, true);
    m_machine.outputs().setBlinking(10, true);
    const Outcome outcome = simHere({QStringLiteral("status")});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err, QString());
    EXPECT_EQ(outcome.out,
              QStringLiteral("actuator board  0x41c, cup 42, messages taken 0\n"
                             "outputs         9 on, 10 blinking\n"
                             "card reader     inactive, 8 data bits, funds 0, vends 0\n"
                             "faults          none\n"));
}

TEST_F(VyhwSimTest, StatusNamesTheFaults)
{
    m_machine.actuatorBoard().setAnswers(SimulatedBoard::Answers::Lost);
    m_machine.actuatorBoard().setAnswerDelay(std::chrono::milliseconds(250));
    m_machine.actuatorBoard().restart(std::chrono::minutes(1));
    m_machine.payment().setFault(PaymentPeripheral::Fault::BadMode, true);
    m_machine.setLinkCut(true);
    const Outcome outcome = simHere({QStringLiteral("status")});
    EXPECT_TRUE(outcome.out.endsWith(
        QLatin1String("faults          actuator.answers lost, actuator.delay 250, "
                      "actuator.restart, payment.mode, link cut\n")))
        << qPrintable(outcome.out);
    EXPECT_TRUE(outcome.out.contains(QLatin1String("outputs         none on\n")));
}

TEST_F(VyhwSimTest, StatusIsOneJsonObject)
{
    const Outcome outcome = simHere({QStringLiteral("status"), QStringLiteral("--json")});
    EXPECT_EQ(outcome.exitCode, 0);
    const QJsonObject status = QJsonDocument::fromJson(outcome.out.toUtf8()).object();
    EXPECT_EQ(status.value(QStringLiteral("actuator")).toObject().value(QStringLiteral("address")),
              QJsonValue(0x41C));
}

TEST_F(VyhwSimTest, SetsTheCup)
{
    const Outcome outcome =
        simHere({QStringLiteral("set"), QStringLiteral("cup"), QStringLiteral("42")});
    EXPECT_EQ(outcome.exitCode, 0) << qPrintable(outcome.err);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_EQ(m_machine.actuatorBoard().cupReading(), 42);
}

TEST_F(VyhwSimTest, SwitchesFaults)
{
    EXPECT_EQ(
        simHere({QStringLiteral("fault"), QStringLiteral("payment.silence"), QStringLiteral("on")})
            .exitCode,
        0);
    EXPECT_TRUE(m_machine.payment().hasFault(PaymentPeripheral::Fault::Silence));
    EXPECT_EQ(
        simHere({QStringLiteral("fault"), QStringLiteral("link"), QStringLiteral("cut")}).exitCode,
        0);
    EXPECT_TRUE(m_machine.isLinkCut());
}

TEST_F(VyhwSimTest, WhatTheMachineCannotDoNowEndsWithOne)
{
    const Outcome outcome =
        simHere({QStringLiteral("set"), QStringLiteral("card"), QStringLiteral("150")});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.err,
              QStringLiteral("vyhw: not now: the card reader is in state \"inactive\"; expected "
                             "\"enabled\" for a card, \"session\" to take it away\n"));
}

struct WrongSimCase
{
    const char *pName;
    QStringList words;
    const char *pError;
};

class WrongSimCalls : public VyhwSimTest, public ::testing::WithParamInterface<WrongSimCase>
{
};

TEST_P(WrongSimCalls, EndWithTwoAndSayWhatWasExpected)
{
    const Outcome outcome = simHere(GetParam().words);
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_TRUE(outcome.err.startsWith(QLatin1String("vyhw: "))) << qPrintable(outcome.err);
    EXPECT_TRUE(outcome.err.contains(QLatin1String(GetParam().pError))) << qPrintable(outcome.err);
}

const WrongSimCase s_wrongSimCases[] = {
    {"NoSuchSetting",
     {QStringLiteral("set"), QStringLiteral("cups"), QStringLiteral("1")},
     "what is \"cups\"; expected cup, card"},
    {"NoSuchFault",
     {QStringLiteral("fault"), QStringLiteral("cup"), QStringLiteral("1")},
     "expected actuator.answers, "},
    {"WrongValue",
     {QStringLiteral("set"), QStringLiteral("cup"), QStringLiteral("full")},
     "wrong value for cup; expected a reading from 0 to 65535"},
    {"NegativeValue",
     {QStringLiteral("set"), QStringLiteral("cup"), QStringLiteral("-1")},
     "wrong value for cup; expected a reading from 0 to 65535"},
    {"NoValue", {QStringLiteral("set"), QStringLiteral("cup")}, "VALUE is required"},
    {"NoCommand", {}, "\"--console\" is not known here"},
};
INSTANTIATE_TEST_SUITE_P(Calls, WrongSimCalls, ::testing::ValuesIn(s_wrongSimCases), caseName);

TEST_F(VyhwSimTest, WithoutSimulatorSaysWhereItLooked)
{
    const QString path = m_folder.filePath(QStringLiteral("none.sock"));
    const Outcome outcome = sim({QStringLiteral("status"), QStringLiteral("--console"), path});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.err,
              QStringLiteral("vyhw: %1: no simulator listens there; expected a running multiportd "
                             "--simulate, or its console's path in --console\n")
                  .arg(path));
}

TEST_F(VyhwSimTest, AConnectionThatEndsWithoutAnswerIsTold)
{
    const QString path = m_folder.filePath(QStringLiteral("other.sock"));
    QLocalServer other;
    ASSERT_TRUE(other.listen(path));
    QObject::connect(&other, &QLocalServer::newConnection, &other,
                     [&other] { other.nextPendingConnection()->abort(); });
    const Outcome outcome = sim({QStringLiteral("status"), QStringLiteral("--console"), path});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.err, QStringLiteral("vyhw: %1: the simulator does not answer\n").arg(path));
}

TEST_F(VyhwSimTest, ARelativePathIsOneFromTheCurrentFolder)
{
    const QString path = QDir::current().relativeFilePath(m_path);
    EXPECT_EQ(sim({QStringLiteral("status"), QStringLiteral("--console"), path}).exitCode, 0);
}

TEST_F(VyhwSimTest, AnotherProgramsAnswerIsTold)
{
    const QString path = m_folder.filePath(QStringLiteral("other.sock"));
    QLocalServer other;
    ASSERT_TRUE(other.listen(path));
    QObject::connect(&other, &QLocalServer::newConnection, &other,
                     [&other] { other.nextPendingConnection()->write("220 hello\n"); });
    const Outcome outcome = sim({QStringLiteral("status"), QStringLiteral("--console"), path});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.err, QStringLiteral("vyhw: %1: the answer is not a simulator's\n").arg(path));
}

TEST_F(VyhwSimTest, FindsTheConsoleByItsVariable)
{
    const ScopedVariable variable("VY_SIM_CONSOLE", QFile::encodeName(m_path));
    EXPECT_EQ(sim({QStringLiteral("status")}).exitCode, 0);
}

TEST(ConsolePathTest, IsTheVariableElseTheRuntimeFolderElseTemporary)
{
    const ScopedVariable chosen("VY_SIM_CONSOLE", "/somewhere/console");
    const ScopedVariable folder("XDG_RUNTIME_DIR", "/run/user/7");
    EXPECT_EQ(defaultConsolePath(), QStringLiteral("/somewhere/console"));
    qunsetenv("VY_SIM_CONSOLE");
    EXPECT_EQ(defaultConsolePath(), QStringLiteral("/run/user/7/vy-sim.sock"));
    qunsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(defaultConsolePath(), QStringLiteral("/tmp/vy-sim-%1.sock").arg(::getuid()));
}
