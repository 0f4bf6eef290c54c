#include "multiport.h"
#include "multiportd/linkpeer.h"
#include "support/logspy.h"
#include "support/processcounts.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>
#include <csignal>
#include <iostream>
#include <random>

// The client as programs link it, and the server as it ships.

namespace {

constexpr int s_isBackMs = 2000;  ///< after the server has returned
constexpr int s_isFoundMs = 3000; ///< that the server is not there any more

/// A server that comes again on the same ports.
class ServerProcess
{
public:
    ServerProcess()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VY_SIM_CONSOLE"),
                           m_folder.filePath(QStringLiteral("console")));
        m_process.setProcessEnvironment(environment);
        m_process.setStandardErrorFile(QProcess::nullDevice());
    }
    ~ServerProcess() { kill(); }
    Q_DISABLE_COPY_MOVE(ServerProcess)

    quint16 controlPort() const { return static_cast<quint16>(m_base + 2); }

    /// Returns when it listens.
    void start()
    {
        m_process.start(QStringLiteral(MULTIPORTD_PROGRAM),
                        {QStringLiteral("--simulate"), QStringLiteral("--port-base"),
                         QString::number(m_base), QStringLiteral("--print-ports")});
        QByteArray printed;
        ASSERT_TRUE(comes([&] {
            printed += m_process.readAllStandardOutput();
            return printed.contains("control") && printed.endsWith('\n');
        }));
    }
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished(s_patienceMs);
    }
    void signal(int number) const { ::kill(static_cast<pid_t>(m_process.processId()), number); }

private:
    /// Three free ports in a row, from those that no kernel gives to outgoing connections.
    static int freeBase()
    {
        std::mt19937 random(std::random_device{}());
        std::uniform_int_distribution<int> bases(20000, 30000);
        for (;;) {
            const int base = bases(random);
            QTcpServer servers[3];
            bool isFree = true;
            for (int at = 0; at < 3; ++at)
                isFree = isFree && servers[at].listen(QHostAddress::LocalHost,
                                                      static_cast<quint16>(base + at));
            if (isFree)
                return base;
        }
    }

    const QTemporaryDir m_folder;
    const int m_base = freeBase();
    QProcess m_process;
};

/// Passes on what goes between a client and a port, until it swallows it.
class Proxy : public QObject
{
public:
    explicit Proxy(quint16 port)
    {
        EXPECT_TRUE(m_server.listen(QHostAddress::LocalHost));
        connect(&m_server, &QTcpServer::newConnection, this, [this, port] {
            QTcpSocket *const pClient = m_server.nextPendingConnection();
            auto *const pServer = new QTcpSocket(pClient);
            pServer->connectToHost(QHostAddress::LocalHost, port);
            pass(pClient, pServer);
            pass(pServer, pClient);
        });
    }

    quint16 port() const { return m_server.serverPort(); }

    bool m_isBlackHole = false; ///< takes everything and lets nothing out, not even an end

private:
    void pass(QTcpSocket *pFrom, QTcpSocket *pTo)
    {
        connect(pFrom, &QTcpSocket::readyRead, pTo, [this, pFrom, pTo] {
            const QByteArray bytes = pFrom->readAll();
            if (!m_isBlackHole)
                pTo->write(bytes);
        });
        connect(pFrom, &QTcpSocket::disconnected, pTo, [this, pTo] {
            if (!m_isBlackHole)
                pTo->disconnectFromHost();
        });
    }

    QTcpServer m_server;
};

class MultiportClient : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_server.start();
        connectTo(m_server.controlPort());
    }

    void connectTo(quint16 port)
    {
        m_pClient = std::make_unique<Multiport>(QStringLiteral("127.0.0.1:%1").arg(port),
                                                Multiport::ModeLocal, nullptr);
        note("server", &Multiport::multiportServerConnectedChanged);
        note("can", &Multiport::canBusConnectedChanged);
        note("payment", &Multiport::paymentConnectedChanged);
        QObject::connect(m_pClient.get(), &Multiport::newDataOnCanBus, m_pClient.get(),
                         [this](const QByteArray &bytes) { m_can += bytes; });
        QObject::connect(m_pClient->interface(Multiport::PaymentInterface),
                         &MultiportInterface::dataReceived, m_pClient.get(),
                         [this](unsigned int, const QByteArray &bytes) { m_payment += bytes; });
        m_pClient->setEnabled(Multiport::CanBusInterface);
        m_pClient->setEnabled(Multiport::PaymentInterface);
        m_pClient->setSerialLineParameters(
            MultiportInterface::PaymentPort, MultiportProtocol::Baud9600,
            MultiportProtocol::DataBits9, MultiportProtocol::ParityNone,
            MultiportProtocol::MDBModeOff);
        m_pClient->init(true);
        ASSERT_TRUE(comes([this] { return isUp(); }));
        m_journal.clear();
    }

    template <typename Signal>
    void note(const char *pWhat, Signal signal)
    {
        QObject::connect(m_pClient.get(), signal, m_pClient.get(), [this, pWhat](bool isOn) {
            m_journal.append(QStringLiteral("%1 %2").arg(QLatin1String(pWhat)).arg(isOn));
        });
    }

    bool isUp() const
    {
        return m_pClient->isServerConnected() && m_pClient->isCanBusConnected() &&
               m_pClient->isPaymentConnected();
    }
    bool isDown() const { return !m_pClient->isServerConnected(); }

    /// ms until it holds.
    template <typename Condition>
    static int time(const Condition &condition)
    {
        QElapsedTimer clock;
        clock.start();
        EXPECT_TRUE(comes(condition));
        return static_cast<int>(clock.elapsed());
    }

    /// The bytes that the payment line took.
    qint64 writeToPayment(const QByteArray &bytes)
    {
        qint64 taken = 0;
        EXPECT_TRUE(QMetaObject::invokeMethod(
            m_pClient->interface(Multiport::PaymentInterface), "write",
            Qt::BlockingQueuedConnection, Q_RETURN_ARG(qint64, taken), Q_ARG(QByteArray, bytes)));
        return taken;
    }

    /// The actuator board acknowledges, and the card reader, whose line is set up, answers a poll.
    bool doBothWork()
    {
        m_can.clear();
        m_payment.clear();
        EXPECT_TRUE(m_pClient->writeToCanBus(QByteArray::fromHex("0025741c 06 020062000060")));
        QElapsedTimer sincePoll; // as a master polls: the first may come before the line is set up
        return comes([&] {
            if (m_payment.isEmpty() && (!sincePoll.isValid() || sincePoll.elapsed() > 200)) {
                EXPECT_EQ(writeToPayment(QByteArray::fromHex("01120012")), 4);
                sincePoll.start();
            }
            return m_can.contains(QByteArray::fromHex("0020e4ae 06 020001006261")) &&
                   m_payment.startsWith(QByteArray::fromHex("0100"));
        });
    }

    /// Since the journal was cleared the link was lost once and came back once.
    void expectOneOutage() const
    {
        ASSERT_EQ(m_journal.size(), 6) << m_journal.join(QStringLiteral(", ")).toStdString();
        const auto isBetween = [this](const char *pWhat, int first, int last) {
            const int at = m_journal.indexOf(QLatin1String(pWhat));
            EXPECT_GE(at, first) << pWhat << " in "
                                 << m_journal.join(QStringLiteral(", ")).toStdString();
            EXPECT_LE(at, last) << pWhat;
        };
        isBetween("can 0", 0, 1);
        isBetween("payment 0", 0, 1);
        isBetween("server 0", 2, 2);
        isBetween("server 1", 3, 3);
        isBetween("can 1", 4, 5);
        isBetween("payment 1", 4, 5);
    }

    static void tell(const char *pWhat, int ms)
    {
        RecordProperty(pWhat, ms);
        std::cout << pWhat << ": " << ms << "\n";
    }

    LogSpy m_log;
    ServerProcess m_server;
    std::unique_ptr<Multiport> m_pClient;
    QStringList m_journal;
    QByteArray m_can;
    QByteArray m_payment;
};

} // namespace

/// VY_LINK_SEED repeats a run's moments.
TEST_F(MultiportClient, IsBackWithAllThatWasOpenAfterEachOf20Kills)
{
    bool isGiven = false;
    const int given = qEnvironmentVariableIntValue("VY_LINK_SEED", &isGiven);
    const auto seed = isGiven ? static_cast<unsigned>(given) : std::random_device{}() & 0xFFFFU;
    std::cout << "VY_LINK_SEED=" << seed << "\n";
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> pause(0, 400);

    int mostMs = 0;
    int descriptors = 0;
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        QTest::qWait(pause(random));
        m_server.kill();
        EXPECT_LT(time([this] { return isDown(); }), s_isFoundMs);
        EXPECT_FALSE(m_pClient->writeToCanBus(QByteArray::fromHex("0025741c 06 020062000060")));
        QTest::qWait(pause(random));
        m_server.start();
        mostMs = std::max(mostMs, time([this] { return isUp(); }));
        expectOneOutage();
        EXPECT_TRUE(doBothWork());
        m_journal.clear();
        if (round == 0)
            descriptors = descriptorCount(); // Qt has opened what it opens once
    }
    EXPECT_LE(mostMs, s_isBackMs);
    EXPECT_EQ(descriptorCount(), descriptors);
    tell("longestReturnMs", mostMs);
}

TEST_F(MultiportClient, FindsThatTheServerIsStoppedAndThenTakesNothing)
{
    m_server.signal(SIGSTOP);
    const int foundMs = time([this] { return isDown(); });
    EXPECT_LE(foundMs, s_isFoundMs);
    tell("foundStoppedMs", foundMs);
    QElapsedTimer clock;
    clock.start();
    EXPECT_FALSE(m_pClient->writeToCanBus(QByteArray::fromHex("0025741c 06 020062000060")));
    EXPECT_LE(writeToPayment(QByteArray::fromHex("01120012")), 0);
    m_pClient->setOutputEnabled(9, true);
    EXPECT_LT(clock.elapsed(), 100);
    EXPECT_TRUE(comes([this] { return m_log.count("09 01 not sent") == 1; }));

    m_server.signal(SIGCONT);
    const int backMs = time([this] { return isUp(); });
    EXPECT_LE(backMs, s_isBackMs);
    tell("backAfterStopMs", backMs);
    expectOneOutage();
    EXPECT_TRUE(doBothWork());
}

TEST_F(MultiportClient, FindsThatTheNetworkSwallowsEverything)
{
    m_pClient.reset();
    Proxy proxy(m_server.controlPort());
    connectTo(proxy.port());
    EXPECT_TRUE(doBothWork());
    proxy.m_isBlackHole = true;
    const int foundMs = time([this] { return isDown(); });
    EXPECT_LE(foundMs, s_isFoundMs);
    tell("foundSwallowedMs", foundMs);
    EXPECT_FALSE(m_pClient->writeToCanBus(QByteArray::fromHex("0025741c 06 020062000060")));

    proxy.m_isBlackHole = false;
    EXPECT_TRUE(comes([this] { return isUp(); }));
    expectOneOutage();
    EXPECT_TRUE(doBothWork());
}
