#include "simulator/controlconsole.h"

#include "simulator/simulatedmachine.h"
#include "support/logspy.h"
#include "support/processcounts.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int s_waitMs = 10000; ///< for what comes at once unless something is wrong

const QByteArray s_status = "{\"do\":\"status\"}\n";

} // namespace

class ControlConsoleTest : public ::testing::Test
{
protected:
    void listen()
    {
        QString error;
        ASSERT_TRUE(m_console.listen(m_path, &error)) << qPrintable(error);
    }

    std::unique_ptr<QLocalSocket> connected() const
    {
        auto pSocket = std::make_unique<QLocalSocket>();
        pSocket->connectToServer(m_path);
        EXPECT_TRUE(pSocket->waitForConnected(s_waitMs));
        return pSocket;
    }

    static QByteArray lineFrom(QLocalSocket &socket)
    {
        EXPECT_TRUE(QTest::qWaitFor([&socket] { return socket.canReadLine(); }, s_waitMs));
        return socket.readLine();
    }
    static QString errorFrom(QLocalSocket &socket)
    {
        return QJsonDocument::fromJson(lineFrom(socket))
            .object()
            .value(QStringLiteral("error"))
            .toString();
    }
    static bool isClosed(QLocalSocket &socket)
    {
        return QTest::qWaitFor(
            [&socket] { return socket.state() == QLocalSocket::UnconnectedState; }, s_waitMs);
    }
    static bool isAnswered(QLocalSocket &socket)
    {
        socket.write(s_status);
        return lineFrom(socket).contains("\"actuator\"");
    }

    QTemporaryDir m_folder;
    QString m_path = m_folder.filePath(QStringLiteral("console.sock"));
    SimulatedMachine m_machine;
    ControlConsole m_console{&m_machine, nullptr};
};

TEST_F(ControlConsoleTest, AnswersEachLineByALine)
{
    listen();
    const auto pSocket = connected();
    pSocket->write("{\"do\":\"set\",\"what\":\"cup\",\"value\":42}\n{\"do\":\"no\"}\n");
    EXPECT_EQ(lineFrom(*pSocket), QByteArray("{\"done\":true}\n"));
    EXPECT_EQ(m_machine.actuatorBoard().cupReading(), 42);
    EXPECT_EQ(errorFrom(*pSocket), QStringLiteral("do is \"no\"; expected status, set or fault"));
    EXPECT_TRUE(isAnswered(*pSocket));
}

TEST_F(ControlConsoleTest, TakesALineInPieces)
{
    listen();
    const auto pSocket = connected();
    for (const char byte : s_status) {
        pSocket->write(&byte, 1);
        pSocket->flush();
        QTest::qWait(1);
    }
    EXPECT_TRUE(lineFrom(*pSocket).contains("\"actuator\""));
}

TEST_F(ControlConsoleTest, CanBeOpenedByItsOwnerAlone)
{
    listen();
    struct stat info = {};
    ASSERT_EQ(::stat(QFile::encodeName(m_path).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0700U);
}

TEST_F(ControlConsoleTest, TakesALineOfFourKibibytes)
{
    listen();
    const auto pSocket = connected();
    const int blanks = ControlConsole::MaxLine - s_status.size();
    pSocket->write(QByteArray(blanks, ' ') + s_status);
    EXPECT_TRUE(lineFrom(*pSocket).contains("\"actuator\""));
    EXPECT_TRUE(isAnswered(*pSocket));
}

TEST_F(ControlConsoleTest, ClosesAtALineOfOneByteMore)
{
    LogSpy log;
    listen();
    const auto pOther = connected();
    const auto pSocket = connected();
    const int blanks = ControlConsole::MaxLine - s_status.size() + 1;
    pSocket->write(QByteArray(blanks, ' ') + s_status);
    EXPECT_EQ(errorFrom(*pSocket), QStringLiteral("endless line; expected at most 4096 bytes"));
    EXPECT_TRUE(isClosed(*pSocket));
    EXPECT_EQ(log.count("endless line", 3), 1);
    EXPECT_TRUE(isAnswered(*pOther));
}

TEST_F(ControlConsoleTest, ClosesAtAnEndlessLine)
{
    listen();
    const auto pSocket = connected();
    const QByteArray chunk(1 << 20, '{');
    for (int i = 0; i < 64 && pSocket->state() == QLocalSocket::ConnectedState; ++i) {
        pSocket->write(chunk);
        QTest::qWait(1);
    }
    EXPECT_TRUE(isClosed(*pSocket));
    EXPECT_TRUE(isAnswered(*connected()));
}

TEST_F(ControlConsoleTest, AnswersGarbageAndGoesOn)
{
    listen();
    const auto pSocket = connected();
    pSocket->write(QByteArray::fromHex("00ff80fe0a"));
    EXPECT_TRUE(errorFrom(*pSocket).startsWith(QLatin1String("expected one JSON object")));
    pSocket->write(QByteArray(2000, '[') + "\n");
    EXPECT_TRUE(errorFrom(*pSocket).startsWith(QLatin1String("expected one JSON object")));
    EXPECT_TRUE(isAnswered(*pSocket));
}

TEST_F(ControlConsoleTest, RefusesTheNinthClientUntilOneLeaves)
{
    listen();
    std::vector<std::unique_ptr<QLocalSocket>> clients;
    for (int i = 0; i < ControlConsole::MaxClients; ++i) {
        clients.push_back(connected());
        ASSERT_TRUE(isAnswered(*clients.back()));
    }
    const auto pNinth = connected();
    EXPECT_EQ(errorFrom(*pNinth), QStringLiteral("too many clients; expected at most 8"));
    EXPECT_TRUE(isClosed(*pNinth));
    for (const auto &pClient : clients)
        EXPECT_TRUE(isAnswered(*pClient));
    clients.pop_back();
    QTest::qWait(50); // the console notices
    EXPECT_TRUE(isAnswered(*connected()));
}

TEST_F(ControlConsoleTest, DropsAClientThatDoesNotReadAndNobodyElse)
{
    LogSpy log;
    listen();
    const auto pOther = connected();
    // A socket of our own, because Qt's reads whatever comes.
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    ASSERT_GE(socket, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const QByteArray path = QFile::encodeName(m_path);
    std::copy(path.cbegin(), path.cend(), address.sun_path);
    ASSERT_EQ(::connect(socket, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    const QByteArray lines = s_status.repeated(100);
    const auto isDropped = [&] {
        while (::send(socket, lines.constData(), static_cast<std::size_t>(lines.size()),
                      MSG_NOSIGNAL) > 0) {
        }
        return log.count("the answers are not read", 3) == 1;
    };
    EXPECT_TRUE(QTest::qWaitFor(isDropped, s_waitMs));
    ::close(socket);
    EXPECT_TRUE(isAnswered(*pOther));
}

TEST_F(ControlConsoleTest, KeepsNoDescriptorOfClientsThatCameAndWent)
{
    listen();
    ASSERT_TRUE(isAnswered(*connected()));
    QTest::qWait(20);
    const int before = descriptorCount();
    for (int i = 0; i < 50; ++i)
        ASSERT_TRUE(isAnswered(*connected()));
    EXPECT_TRUE(QTest::qWaitFor([before] { return descriptorCount() <= before; }, s_waitMs));
}

TEST_F(ControlConsoleTest, ReplacesASocketThatNobodyListensOn)
{
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const QByteArray path = QFile::encodeName(m_path);
    std::copy(path.cbegin(), path.cend(), address.sun_path);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    ::close(socket); // the file stays, as after a crash
    ASSERT_TRUE(QFileInfo::exists(m_path));
    listen();
    EXPECT_TRUE(isAnswered(*connected()));
}

TEST_F(ControlConsoleTest, LeavesTheSocketOfAnother)
{
    listen();
    ControlConsole second(&m_machine, nullptr);
    QString error;
    EXPECT_FALSE(second.listen(m_path, &error));
    EXPECT_EQ(error, m_path + QStringLiteral(": another process listens on it"));
    EXPECT_TRUE(isAnswered(*connected()));
}

TEST_F(ControlConsoleTest, LeavesAFileThatIsNoSocket)
{
    QFile file(m_path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("precious");
    file.close();
    QString error;
    EXPECT_FALSE(m_console.listen(m_path, &error));
    EXPECT_EQ(error, m_path + QStringLiteral(": is there already and no socket"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray("precious"));
}

TEST_F(ControlConsoleTest, SaysWhyItCannotListen)
{
    QString error;
    const QString path = m_folder.filePath(QStringLiteral("none/console.sock"));
    EXPECT_FALSE(m_console.listen(path, &error));
    EXPECT_TRUE(error.startsWith(path + QStringLiteral(": "))) << qPrintable(error);
    EXPECT_GT(error.size(), path.size() + 2);
}

TEST_F(ControlConsoleTest, TakesItsSocketAway)
{
    {
        ControlConsole console(&m_machine, nullptr);
        QString error;
        ASSERT_TRUE(console.listen(m_path, &error));
        const auto pClient = connected();
        ASSERT_TRUE(isAnswered(*pClient));
    }
    EXPECT_FALSE(QFileInfo::exists(m_path));
}
