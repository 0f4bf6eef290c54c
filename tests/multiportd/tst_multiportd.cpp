#include "multiportd/daemon.h"

#include "canbus/canrecord.h"
#include "canbus/vystream.h"
#include "support/casename.h"

#include <QCanBus>
#include <QCanBusDevice>
#include <QCanBusFrame>
#include <QElapsedTimer>
#include <QNetworkInterface>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using multiportlink::Kind;
using multiportlink::Role;

namespace {

constexpr int s_maxMemory = 64 * 1024; ///< KiB
const QStringList s_simulate{QStringLiteral("--simulate")};

const char *const s_pPorts[] = {"payment", "can", "control"};

struct Outcome
{
    int exitCode;
    QString out;
    QString err;
};

Outcome run(const QStringList &arguments)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("VY_SIM_CONSOLE"), QStringLiteral("/nothing-here/console"));
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(MULTIPORTD_PROGRAM), arguments);
    if (!process.waitForFinished(s_patienceMs)) {
        process.kill();
        process.waitForFinished(s_patienceMs);
        return {-1, {}, {}};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

/// A controller with a claimed CAN connection, which asks the simulated actuator board.
class GoodClient
{
public:
    explicit GoodClient(const Daemon &daemon)
        : m_control(daemon.port("control"))
        , m_can(daemon.port("can"))
    {
        EXPECT_TRUE(m_control.greets(Role::Controller));
        m_control.keepAlive();
        EXPECT_EQ(m_control.claims(1, m_can), 0);
    }

    /// A message without data; true when its acknowledge comes.
    bool asks()
    {
        CanMessage message;
        message.setCommand(98);
        CanBytes stream;
        QList<CanFrame> frames;
        CanVy::writeStream(message, stream);
        CanVy::writeFrames(stream, s_cpu, s_actuators, frames);
        m_can.forget();
        m_can.send(CanRecord::encode(frames.constFirst()));
        return m_can.hears(CanRecord::encode(CanVy::acknowledgeFrame(s_actuators, s_cpu, 1, 98)));
    }

    ControlPeer &control() { return m_control; }
    LinkPeer &can() { return m_can; }

private:
    static constexpr int s_cpu = 0x4AE;
    static constexpr int s_actuators = 0x41C;

    ControlPeer m_control;
    LinkPeer m_can;
};

} // namespace

// -- start and stop -------------------------------------------------------------------------------

TEST(MultiportdTest, ListensOnLoopbackOnly)
{
    const Daemon daemon(s_simulate);
    for (const char *const pPort : s_pPorts) {
        EXPECT_TRUE(LinkPeer(daemon.port(pPort)).isConnected());
        EXPECT_FALSE(
            LinkPeer(daemon.port(pPort), QHostAddress(QStringLiteral("127.0.0.2"))).isConnected());
    }
}

TEST(MultiportdTest, ListensWhereItIsTold)
{
    const Daemon daemon({QStringLiteral("--listen"), QStringLiteral("127.0.0.2")});
    for (const char *const pPort : s_pPorts) {
        EXPECT_TRUE(
            LinkPeer(daemon.port(pPort), QHostAddress(QStringLiteral("127.0.0.2"))).isConnected());
        EXPECT_FALSE(LinkPeer(daemon.port(pPort)).isConnected());
    }
}

class MultiportdSignals : public ::testing::TestWithParam<int>
{
};

TEST_P(MultiportdSignals, StopItWithAGoodbyeToEverybody)
{
    Daemon daemon(s_simulate);
    GoodClient client(daemon);
    ControlPeer observer(daemon.port("control"));
    ASSERT_TRUE(observer.greets(Role::Observer));
    ::kill(static_cast<pid_t>(daemon.process().processId()), GetParam());
    EXPECT_EQ(client.control().goodbye(), 10);
    EXPECT_EQ(observer.goodbye(), 10);
    EXPECT_EQ(daemon.ended(), 0);
}
INSTANTIATE_TEST_SUITE_P(Rows, MultiportdSignals, ::testing::Values(SIGTERM, SIGINT));

TEST(MultiportdTest, SaysWhatIsNotThereAndGoesOn)
{
    Daemon daemon({});
    EXPECT_TRUE(comes([&daemon] {
        const QString errors = daemon.errors();
        return errors.contains(QStringLiteral("There is no CAN bus")) &&
               errors.contains(QStringLiteral("There is no payment line")) &&
               errors.contains(QStringLiteral("There are no outputs"));
    }));
    EXPECT_TRUE(ControlPeer(daemon.port("control")).greets(Role::Controller));
}

TEST(MultiportdTest, TellsTheServiceManagerThatItIsReadyAndThatItStops)
{
    const QTemporaryDir folder;
    const QByteArray path = QFile::encodeName(folder.filePath(QStringLiteral("notify")));
    const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
    ASSERT_EQ(::bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const auto heard = [descriptor] {
        char buffer[64];
        const ssize_t size = ::recv(descriptor, buffer, sizeof buffer, 0);
        return size < 0 ? QByteArray() : QByteArray(buffer, static_cast<int>(size));
    };

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("NOTIFY_SOCKET"), QString::fromUtf8(path));
    Daemon daemon({}, environment);
    EXPECT_TRUE(comes([&heard] { return heard() == "READY=1"; }));
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(heard(), "STOPPING=1");
    ::close(descriptor);
}

/// The very bytes of docs/multiportd.md, but for the ports.
TEST(MultiportdTest, AnswersAsItsPageSays)
{
    const Daemon daemon(s_simulate);
    LinkPeer observer(daemon.port("can"));
    LinkPeer can(daemon.port("can"));
    ControlPeer control(daemon.port("control"));
    control.sendHex("0007 01 56594d50 01 01");
    control.send(QByteArray::fromHex("0007 02 0001 0a 01") +
                 QByteArray(1, static_cast<char>(can.localPort() >> 8U)) +
                 QByteArray(1, static_cast<char>(can.localPort())));
    control.sendHex("0006 02 0002 1e 09 01");
    EXPECT_TRUE(control.hears(QByteArray::fromHex("0005 82 0001 0a 00  0005 82 0002 1e 00")));
    EXPECT_TRUE(control.received().startsWith(QByteArray::fromHex("000b 81 56594d50 01 01")));

    can.sendHex("0025741c 06 02 0062 0000 60");
    const QByteArray acknowledge = QByteArray::fromHex("0020e4ae 06 02 0001 0062 61");
    EXPECT_TRUE(can.hears(acknowledge));
    EXPECT_EQ(can.received(), acknowledge);
    EXPECT_TRUE(observer.hears(QByteArray::fromHex("0025741c 06 02 0062 0000 60") + acknowledge));
    EXPECT_TRUE(control.hears(QByteArray::fromHex("000104")));
}

// -- a server that stands still -------------------------------------------------------------------

class MultiportdStall : public ::testing::Test
{
protected:
    /// The server is stopped for longer than silence may last, while `send` is called.
    template <typename Function>
    void stall(const Function &send)
    {
        m_daemon.signal(SIGSTOP);
        send();
        QTest::qWait(3000);
        m_daemon.signal(SIGCONT);
    }

    QByteArray outputs() const
    {
        const QByteArray status = askConsole(m_daemon.console(), R"({"do":"status"})");
        const int begin = status.indexOf("\"outputs\":");
        return status.mid(begin, status.indexOf(']', begin) - begin + 1);
    }

    Daemon m_daemon{s_simulate};
    GoodClient m_client{m_daemon};
};

TEST_F(MultiportdStall, WhatWasSentMeanwhileIsNotObeyedAndTheControllerIsDropped)
{
    LinkPeer observer(m_daemon.port("can"));
    ASSERT_EQ(m_client.control().asks(30, QByteArray::fromHex("0801")), 0);
    ASSERT_TRUE(outputs().contains("\"output\":8")) << outputs().toStdString();
    stall([this] {
        m_client.control().sendHex("0006 02 03e8 1e 0901");
        m_client.can().sendHex("0025741c 06 02 0062 0000 60");
    });
    EXPECT_EQ(m_client.control().goodbye(), 8);
    EXPECT_TRUE(m_client.can().isClosed());
    EXPECT_TRUE(outputs().contains("\"output\":8"));
    EXPECT_FALSE(outputs().contains("\"output\":9")) << outputs().toStdString();
    EXPECT_FALSE(observer.received().contains(QByteArray::fromHex("0025741c")));
    EXPECT_TRUE(GoodClient(m_daemon).asks());
}

/// The server has the request already, and a claim that nobody follows keeps it from it.
TEST_F(MultiportdStall, WhatWaitedForAClaimIsNotObeyed)
{
    m_client.control().sendHex("0007 02 03e8 0a 01 0001"
                               "0006 02 03e9 1e 0901");
    QTest::qWait(300);
    stall([] {});
    EXPECT_EQ(m_client.control().goodbye(), 8);
    EXPECT_FALSE(outputs().contains("\"output\":9")) << outputs().toStdString();
}

TEST_F(MultiportdStall, OneShorterThanSilenceIsForgiven)
{
    m_daemon.signal(SIGSTOP);
    m_client.control().sendHex("0006 02 03e8 1e 0901");
    QTest::qWait(1500);
    m_daemon.signal(SIGCONT);
    EXPECT_EQ(m_client.control().status(1000), 0);
    EXPECT_TRUE(outputs().contains("\"output\":9"));
    EXPECT_TRUE(m_client.asks());
}

/// Nothing happens while only observers are there, and the loop sleeps as long as it likes.
TEST(MultiportdSleepTest, ALongSleepBeforeTheControllerCameIsNoStall)
{
    const Daemon daemon(s_simulate);
    LinkPeer early(daemon.port("can"));
    ControlPeer control(daemon.port("control"));
    QTest::qWait(3500);
    ASSERT_TRUE(control.greets(Role::Controller));
    ASSERT_EQ(control.claims(1, early), 0);
    early.sendHex("0025741c 06 02 0062 0000 60");
    EXPECT_TRUE(early.hears(QByteArray::fromHex("0020e4ae 06 02 0001 0062 61")));
    EXPECT_EQ(control.asks(30, QByteArray::fromHex("0901")), 0);
}

// -- the simulated machine ------------------------------------------------------------------------

TEST(MultiportdTest, HalfACharacterOfAControllerWhoLeftDoesNotShiftTheNextOnes)
{
    const Daemon daemon(s_simulate);
    {
        ControlPeer control(daemon.port("control"));
        ASSERT_TRUE(control.greets(Role::Controller));
        LinkPeer observer(daemon.port("payment"));
        LinkPeer payment(daemon.port("payment"));
        ASSERT_EQ(control.claims(3, payment), 0);
        ASSERT_EQ(control.asks(20, QByteArray::fromHex("0fa0 00002580 09 00 00")), 0);
        payment.sendHex("01");
        EXPECT_TRUE(observer.hears(QByteArray(1, '\1')));
    }
    ControlPeer control(daemon.port("control"));
    ASSERT_TRUE(control.greets(Role::Controller));
    LinkPeer payment(daemon.port("payment"));
    ASSERT_EQ(control.claims(3, payment), 0);
    payment.sendHex("01 12 00 12"); // a poll
    EXPECT_TRUE(payment.hears(QByteArray::fromHex("01 00")));
    EXPECT_EQ(payment.received().size(), 2);
}

TEST(MultiportdTest, OpensTheDefaultConsoleUnlessAnotherHasIt)
{
    const Daemon first(s_simulate);
    EXPECT_TRUE(askConsole(first.console(), R"({"do":"set","what":"cup","value":42})")
                    .contains("\"done\":true"));
    Daemon second(s_simulate, QProcessEnvironment::systemEnvironment(), first.console());
    EXPECT_TRUE(comes(
        [&second] { return second.errors().contains(QStringLiteral("There is no console:")); }));
    EXPECT_TRUE(GoodClient(second).asks());
    EXPECT_TRUE(askConsole(first.console(), R"({"do":"status"})").contains("42"));
}

TEST(MultiportdTest, ALinkWhosePortsAreTakenMeanwhileStaysCut)
{
    Daemon daemon(s_simulate);
    ASSERT_TRUE(askConsole(daemon.console(), R"({"do":"fault","what":"link","value":"cut"})")
                    .contains("\"done\":true"));
    QTcpServer other;
    ASSERT_TRUE(other.listen(QHostAddress::LocalHost, daemon.port("can")));
    const QByteArray up = R"({"do":"fault","what":"link","value":"up"})";
    EXPECT_TRUE(askConsole(daemon.console(), up).contains("\"error\":\"the server's ports"));
    EXPECT_TRUE(askConsole(daemon.console(), R"({"do":"status"})").contains("\"link\":\"cut\""));
    other.close();
    EXPECT_TRUE(askConsole(daemon.console(), up).contains("\"done\":true"));
    EXPECT_TRUE(GoodClient(daemon).asks());
}

// -- options --------------------------------------------------------------------------------------

struct WrongCallCase
{
    const char *pName;
    QStringList arguments;
    const char *pText;
    int exitCode;
};

using MultiportdWrongCalls = ::testing::TestWithParam<WrongCallCase>;

TEST_P(MultiportdWrongCalls, SayWhatWasExpected)
{
    const Outcome outcome = run(GetParam().arguments);
    EXPECT_EQ(outcome.exitCode, GetParam().exitCode);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_TRUE(outcome.err.contains(QString::fromLatin1(GetParam().pText)))
        << qPrintable(outcome.err);
}

QStringList words(const char *pLine)
{
    return QString::fromLatin1(pLine).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

const WrongCallCase s_wrongCalls[] = {
    {"UnknownOption", words("--foo"), "--foo", 2},
    {"Word", words("start"), "start", 2},
    {"ListenName", words("--listen localhost"), "expected one such as 127.0.0.1, 0.0.0.0 or ::1",
     2},
    {"PortBaseNegative", words("--port-base -1"), "expected 1 to 65533, or 0 for free ports", 2},
    {"PortBaseOneAbove", words("--port-base 65534"), "expected 1 to 65533, or 0 for free ports", 2},
    {"PortBaseText", words("--port-base x"), "expected 1 to 65533, or 0 for free ports", 2},
    {"PortBaseMissing", words("--port-base"), "--port-base", 2},
    {"ConfigMissing", words("--config /nothing-here.conf"), "/nothing-here.conf", 2},
    {"ConsoleAlone", words("--console /tmp/x"), "--console requires --simulate", 2},
    {"CanWithoutPlugin", words("--can can0"), "expected PLUGIN:INTERFACE", 2},
    {"CanWithoutInterface", words("--can socketcan:"), "expected PLUGIN:INTERFACE", 2},
    {"CanEmptyPlugin", words("--can :can0"), "expected PLUGIN:INTERFACE", 2},
    {"CanUnknownPlugin", words("--can mycan:can0"), "there is no CAN plugin \"mycan\"", 1},
    {"PaymentWithoutKind", words("--payment /dev/ttyS1"), "expected serial:DEVICE", 2},
    {"PaymentWithoutDevice", words("--payment serial:"), "expected serial:DEVICE", 2},
    {"PaymentNotThere", words("--payment serial:/dev/nothing-here"),
     "cannot open serial device /dev/nothing-here: ", 1},
    {"ForeignAddress", words("--listen 192.0.2.1"), "cannot listen on 192.0.2.1 port 4000", 1},
};
INSTANTIATE_TEST_SUITE_P(Rows, MultiportdWrongCalls, ::testing::ValuesIn(s_wrongCalls), caseName);

TEST(MultiportdTest, APortThatIsTakenEndsItWithOne)
{
    QTcpServer other;
    ASSERT_TRUE(other.listen(QHostAddress::LocalHost));
    const Outcome outcome =
        run({QStringLiteral("--port-base"), QString::number(other.serverPort())});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.err.contains(
        QStringLiteral("cannot listen on 127.0.0.1 port %1 (payment)").arg(other.serverPort())));
}

class MultiportdFiles : public ::testing::Test
{
protected:
    QString file(const char *pName) { return m_folder.filePath(QString::fromLatin1(pName)); }
    QString write(const char *pName, const QByteArray &content)
    {
        QFile written(file(pName));
        EXPECT_TRUE(written.open(QIODevice::WriteOnly));
        EXPECT_EQ(written.write(content), content.size());
        return written.fileName();
    }

    QTemporaryDir m_folder;
};

TEST_F(MultiportdFiles, OptionsMayStandInAFile)
{
    const QString path = write("multiportd.conf", "# where\nlisten=127.0.0.2\nsimulate=true\n");
    const Daemon daemon({QStringLiteral("--config"), path});
    ControlPeer peer(daemon.port("control"), QHostAddress(QStringLiteral("127.0.0.2")));
    ASSERT_TRUE(peer.greets(Role::Controller));
    EXPECT_EQ(peer.asks(30, QByteArray::fromHex("0901")), 0); // there are outputs
}

TEST_F(MultiportdFiles, AFileWithAnUnknownOptionIsRefused)
{
    const QString path = write("multiportd.conf", "colour=red\n");
    const Outcome outcome = run({QStringLiteral("--config"), path});
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_TRUE(outcome.err.contains(QStringLiteral("colour"))) << qPrintable(outcome.err);
}

TEST_F(MultiportdFiles, LogGoesToAFileToo)
{
    const QString path = file("server.log");
    {
        Daemon daemon({QStringLiteral("--simulate"), QStringLiteral("--log"), path});
        ControlPeer peer(daemon.port("control"));
        peer.sendHex("ffff");
        EXPECT_EQ(peer.goodbye(), 6);
    }
    QFile log(path);
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QByteArray lines = log.readAll();
    EXPECT_TRUE(lines.contains("Listening on 127.0.0.1")) << lines.toStdString();
    EXPECT_TRUE(lines.contains("dropped: a record has at most 4096 bytes")) << lines.toStdString();
}

// -- floods ---------------------------------------------------------------------------------------

/// 1,000 connections a second on the three ports in turn, each left to itself; VY_FLOOD_SECONDS
/// makes it longer.
TEST(MultiportdTest, SurvivesAFloodOfConnections)
{
    bool isGiven = false;
    const int given = qEnvironmentVariableIntValue("VY_FLOOD_SECONDS", &isGiven);
    const int connections = 1000 * (isGiven ? given : 2);

    Daemon daemon(s_simulate);
    GoodClient client(daemon);
    std::vector<std::unique_ptr<QTcpSocket>> flood(200); // so many at a time
    QElapsedTimer clock;
    clock.start();
    int most = 0;
    for (int count = 0; count < connections; ++count) {
        auto &pSocket = flood.at(static_cast<size_t>(count) % flood.size());
        pSocket = std::make_unique<QTcpSocket>();
        pSocket->connectToHost(QHostAddress::LocalHost, daemon.port(s_pPorts[count % 3]));
        if (count % 250 == 0) {
            EXPECT_TRUE(client.asks()) << count;
            most = std::max(most, daemon.memory());
        }
        while (clock.elapsed() < count)
            settle();
    }
    RecordProperty("connectionsPerSecond",
                   static_cast<int>(connections * 1000 / std::max<qint64>(clock.elapsed(), 1)));
    RecordProperty("memoryKiB", most);
    EXPECT_GT(most, 0);
    EXPECT_LT(most, s_maxMemory);
    EXPECT_TRUE(client.asks());
    EXPECT_EQ(client.control().asks(30, QByteArray::fromHex("0901")), 0);
    flood.clear();
    ControlPeer observer(daemon.port("control")); // and others may come again
    EXPECT_TRUE(observer.greets(Role::Observer));
}

struct GarbageCase
{
    const char *pName;
    const char *pFirst; ///< to the control port on each connection, in hexadecimal
    const char *pEndless;
};

class MultiportdGarbage : public ::testing::TestWithParam<GarbageCase>
{
};

TEST_P(MultiportdGarbage, IsSurvivedOnEveryPort)
{
    constexpr qint64 total = 8 << 20; // bytes to each port
    const QByteArray chunk = QByteArray::fromHex(GetParam().pEndless).repeated(1 << 14);
    Daemon daemon(s_simulate);
    GoodClient client(daemon);
    int most = 0;
    for (const char *const pPort : s_pPorts) {
        std::unique_ptr<LinkPeer> pPeer;
        for (qint64 sent = 0; sent < total; sent += chunk.size()) {
            if (!pPeer || !pPeer->isConnected()) {
                pPeer = std::make_unique<LinkPeer>(daemon.port(pPort));
                pPeer->sendHex(GetParam().pFirst);
            }
            pPeer->send(chunk);
            comes(
                [&pPeer] { return pPeer->socket().bytesToWrite() == 0 || !pPeer->isConnected(); });
        }
        most = std::max(most, daemon.memory());
        EXPECT_TRUE(client.asks());
    }
    RecordProperty("memoryKiB", most);
    EXPECT_GT(most, 0);
    EXPECT_LT(most, s_maxMemory);
    EXPECT_EQ(client.control().asks(30, QByteArray::fromHex("0901")), 0);
}

constexpr GarbageCase s_garbageCases[] = {
    {"LineWithoutEnd", "", "4141414141414141"},
    {"Zeros", "", "0000000000000000"},
    {"Ones", "", "ffffffffffffffff"},
    {"Hellos", "", "000701 56594d50 0100"},
    {"HeartbeatsOfAWelcomeObserver", "000701 56594d50 0100", "000104"},
    {"RequestsOfAWelcomeObserver", "000701 56594d50 0100", "0006 02 0007 1e 0901"},
    {"LongestRecordsOfAWelcomeObserver", "000701 56594d50 0100", "0ffe 02 0007 1e"},
};
INSTANTIATE_TEST_SUITE_P(Rows, MultiportdGarbage, ::testing::ValuesIn(s_garbageCases), caseName);

/// All places of both data ports and of the control port are taken by clients that do not read,
/// and more comes for each than it may leave unread.
TEST(MultiportdTest, StaysSmallWhileNobodyReads)
{
    Daemon daemon(s_simulate);
    ControlPeer control(daemon.port("control"));
    ASSERT_TRUE(control.greets(Role::Controller));
    control.keepAlive();
    std::vector<std::unique_ptr<LinkPeer>> observers;
    const auto fill = [&](const char *pPort) {
        for (int count = 0; count < 16; ++count) {
            observers.push_back(std::make_unique<LinkPeer>(daemon.port(pPort)));
            observers.back()->stopReading();
        }
    };
    LinkPeer can(daemon.port("can"));
    LinkPeer payment(daemon.port("payment"));
    ASSERT_EQ(control.claims(1, can), 0);
    ASSERT_EQ(control.claims(3, payment), 0);
    fill("can");
    fill("payment");
    fill("control");
    for (size_t at = 32; at < observers.size(); ++at)
        observers.at(at)->sendHex("000701 56594d50 0100");

    const QByteArray frames = QByteArray::fromHex("00000001 08 0102030405060708").repeated(4096);
    const QByteArray requests = QByteArray::fromHex("0004 02 0001 1e").repeated(8192);
    int most = 0;
    bool isTold = false;
    for (int round = 0; round < 300 && !isTold; ++round) { // how much the kernel takes, it decides
        can.send(frames);
        payment.send(frames);
        for (size_t at = 32; at < observers.size() && round < 40; ++at)
            observers.at(at)->send(requests);
        ASSERT_TRUE(comes([&] {
            return can.socket().bytesToWrite() == 0 && payment.socket().bytesToWrite() == 0;
        }));
        most = std::max(most, daemon.memory());
        isTold = daemon.errors().contains(
            QStringLiteral("more than 16777216 bytes wait to be read by all clients"));
    }
    RecordProperty("memoryKiB", most);
    std::cout << "memory in use at most: " << most << " KiB\n";
    EXPECT_GT(most, 0);
    EXPECT_LT(most, s_maxMemory);
    EXPECT_TRUE(isTold);
    EXPECT_EQ(control.asks(30, QByteArray::fromHex("0901")), 0);
    EXPECT_TRUE(can.isConnected());
}

// -- a bus that another tool is on ----------------------------------------------------------------

/// A CAN bus that is a TCP connection between processes: the server makes it, Qt's own tool listens
/// to it, and a device of this process speaks on it (the tool cannot: it speaks before it is
/// connected).
class MultiportdVirtualCan : public ::testing::Test
{
protected:
    MultiportdVirtualCan()
        : m_bus(QStringLiteral("tcp://127.0.0.1:%1/can0").arg(freePort()))
        , m_daemon({QStringLiteral("--can"), QStringLiteral("virtualcan:") + m_bus})
        , m_control(m_daemon.port("control"))
        , m_can(m_daemon.port("can"))
    {
        EXPECT_TRUE(m_control.greets(Role::Controller));
        m_control.keepAlive();
        EXPECT_EQ(m_control.claims(1, m_can), 0);
    }

    static quint16 freePort()
    {
        QTcpServer server;
        EXPECT_TRUE(server.listen(QHostAddress::LocalHost));
        return server.serverPort();
    }

    std::unique_ptr<QCanBusDevice> device()
    {
        std::unique_ptr<QCanBusDevice> pDevice(
            QCanBus::instance()->createDevice(QStringLiteral("virtualcan"), m_bus));
        EXPECT_TRUE(pDevice->connectDevice());
        EXPECT_TRUE(
            comes([&pDevice] { return pDevice->state() == QCanBusDevice::ConnectedState; }));
        return pDevice;
    }

    QString m_bus;
    Daemon m_daemon;
    ControlPeer m_control;
    LinkPeer m_can;
};

TEST_F(MultiportdVirtualCan, OtherToolSeesTheControllersFrames)
{
    QProcess tool;
    tool.start(QStringLiteral(CANBUSUTIL_PROGRAM),
               {QStringLiteral("-l"), QStringLiteral("virtualcan"), m_bus});
    QByteArray seen;
    ASSERT_TRUE(comes([this, &tool, &seen] { // it says nothing when it is there
        m_can.send(QByteArray::fromHex("00254419 06 02002a000028"));
        seen += tool.readAllStandardOutput();
        return seen.contains("28");
    })) << tool.readAllStandardError().toStdString();
    const QByteArray line = seen.left(seen.indexOf('\n')).simplified();
    EXPECT_EQ(line, "00254419 [6] 02 00 2A 00 00 28");
    tool.kill();
    tool.waitForFinished(s_patienceMs);
}

TEST_F(MultiportdVirtualCan, ControllerGetsTheOthersExtendedDataFramesOnly)
{
    const auto pDevice = device();
    const auto speak = [&pDevice](quint32 id, bool isExtended, const QByteArray &payload) {
        QCanBusFrame frame(id, payload);
        frame.setExtendedFrameFormat(isExtended);
        EXPECT_TRUE(pDevice->writeFrame(frame));
    };
    speak(0x123, false, "\x01");
    speak(0x124, false, "\x01");
    QCanBusFrame remote(QCanBusFrame::RemoteRequestFrame);
    remote.setFrameId(0x00254419);
    remote.setExtendedFrameFormat(true);
    EXPECT_TRUE(pDevice->writeFrame(remote));
    speak(0x1FFFFFFF, true, QByteArray::fromHex("0102030405060708"));
    speak(0x00254419, true, {});
    const QByteArray expected = QByteArray::fromHex("1fffffff 08 0102030405060708 00254419 00");
    EXPECT_TRUE(m_can.hears(expected));
    EXPECT_EQ(m_can.received(), expected);
    EXPECT_EQ(m_daemon.errors().count(QStringLiteral("Not relayed")), 1);
}

TEST_F(MultiportdVirtualCan, IdentifierThatNoBusHasIsDropped)
{
    const auto pDevice = device();
    ASSERT_TRUE(comes([this, &pDevice] { // connected, it need not be on the bus yet
        m_can.send(QByteArray::fromHex("20000000 01 01 1fffffff 01 02"));
        return pDevice->framesAvailable() > 0;
    }));
    const QVector<QCanBusFrame> frames = pDevice->readAllFrames();
    for (const QCanBusFrame &frame : frames) {
        EXPECT_EQ(frame.frameId(), 0x1FFFFFFFU);
        EXPECT_TRUE(frame.hasExtendedFrameFormat());
        EXPECT_EQ(frame.payload(), QByteArray(1, '\2'));
    }
    EXPECT_TRUE(
        m_daemon.errors().contains(QStringLiteral("identifier 0x20000000 has more than 29 bits")));
}

/// An address of this computer that is not loopback; empty where there is none.
QString ownAddress()
{
    const auto all = QNetworkInterface::allAddresses();
    for (const QHostAddress &address : all) {
        if (!address.isLoopback() && address.protocol() == QAbstractSocket::IPv4Protocol)
            return address.toString();
    }
    return {};
}

/// The bus is another process's, which goes and comes again.
TEST(MultiportdBusLossTest, EndsTheControllersConnectionUntilTheBusIsBack)
{
    QTcpServer bus;
    ASSERT_TRUE(bus.listen(QHostAddress::LocalHost));
    const quint16 port = bus.serverPort();
    Daemon daemon(
        {QStringLiteral("--can"), QStringLiteral("virtualcan:tcp://127.0.0.1:%1/can0").arg(port)});
    ASSERT_TRUE(comes([&bus] { return bus.hasPendingConnections(); }));
    ControlPeer control(daemon.port("control"));
    ASSERT_TRUE(control.greets(Role::Controller));
    control.keepAlive();
    LinkPeer can(daemon.port("can"));
    ASSERT_EQ(control.claims(1, can), 0);

    delete bus.nextPendingConnection();
    EXPECT_TRUE(can.isClosed());
    LinkPeer early(daemon.port("can"));
    EXPECT_EQ(control.claims(1, early), 6);
    ASSERT_TRUE(comes([&bus] { return bus.hasPendingConnections(); }));
    LinkPeer later(daemon.port("can"));
    EXPECT_TRUE(comes([&] { return control.claims(1, later) == 0; }));
}

TEST(MultiportdBusLossTest, ABusThatIsDownIsLoggedOnceAndClaimsFailUntilItIsThere)
{
    if (ownAddress().isEmpty()) // on loopback Qt's plugin would make the bus itself
        GTEST_SKIP() << "this computer has no address but loopback";
    QTcpServer bus;
    ASSERT_TRUE(bus.listen(QHostAddress(ownAddress())));
    const quint16 port = bus.serverPort();
    bus.close();
    Daemon daemon({QStringLiteral("--can"),
                   QStringLiteral("virtualcan:tcp://%1:%2/can0").arg(ownAddress()).arg(port)});
    ControlPeer control(daemon.port("control"));
    ASSERT_TRUE(control.greets(Role::Controller));
    control.keepAlive();
    LinkPeer can(daemon.port("can"));
    EXPECT_EQ(control.claims(1, can), 6);
    QTest::qWait(3500); // the server has tried three times
    EXPECT_EQ(control.claims(1, can), 6);
    EXPECT_EQ(daemon.errors().count(QStringLiteral("MultiportServer lost")), 1);
    ASSERT_TRUE(bus.listen(QHostAddress(ownAddress()), port));
    EXPECT_TRUE(comes([&] { return control.claims(1, can) == 0; }));
    EXPECT_EQ(daemon.errors().count(QStringLiteral("MultiportServer has it again")), 1);
}

/// Whoever holds the bus reads nothing: frames are lost before they fill the memory.
TEST(MultiportdBusLossTest, WhatABusDoesNotTakeIsBounded)
{
    QTcpServer bus;
    ASSERT_TRUE(bus.listen(QHostAddress::LocalHost));
    Daemon daemon({QStringLiteral("--can"),
                   QStringLiteral("virtualcan:tcp://127.0.0.1:%1/can0").arg(bus.serverPort())});
    ASSERT_TRUE(comes([&bus] { return bus.hasPendingConnections(); }));
    QTcpSocket *const pHolder = bus.nextPendingConnection();
    pHolder->setReadBufferSize(1);
    pHolder->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 4096);
    ControlPeer control(daemon.port("control"));
    ASSERT_TRUE(control.greets(Role::Controller));
    control.keepAlive();
    LinkPeer can(daemon.port("can"));
    ASSERT_TRUE(comes([&] { return control.claims(1, can) == 0; }));
    const int before = daemon.memory();
    const QByteArray frames = QByteArray::fromHex("00000001 08 0102030405060708").repeated(4096);
    for (int round = 0; round < 150; ++round) { // 600,000 frames, more than 20 MB for that bus
        can.send(frames);
        ASSERT_TRUE(comes([&can] { return can.socket().bytesToWrite() == 0; }));
    }
    EXPECT_EQ(control.asks(200, {}), 4); // the server has come so far
    RecordProperty("memoryKiB", daemon.memory() - before);
    EXPECT_LT(daemon.memory() - before, 8 * 1024);
    const int lossesTold = daemon.errors().count(QStringLiteral("CAN frames are lost"));
    EXPECT_GE(lossesTold, 1);
    EXPECT_LE(lossesTold, 3); // once, unless the kernel has taken all that waited meanwhile
    EXPECT_EQ(control.asks(200, {}), 4);
}
