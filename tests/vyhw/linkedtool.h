#ifndef LINKEDTOOL_H
#define LINKEDTOOL_H

#include "multiportd/daemon.h"
#include "vyhw/vyhw.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <csignal>

/// The tool while it runs.
class RunningTool
{
public:
    explicit RunningTool(const QStringList &arguments, const QString &outputFile = QString())
    {
        if (!outputFile.isEmpty())
            m_process.setStandardOutputFile(outputFile);
        m_process.start(QStringLiteral(VYHW_PROGRAM), arguments);
    }

    bool prints(const char *pText)
    {
        return comes([this, pText] { return out().contains(QLatin1String(pText)); });
    }
    bool tells(const char *pText)
    {
        return comes([this, pText] { return err().contains(QLatin1String(pText)); });
    }
    /// An observer has its connection.
    bool watches() { return tells(", from here on\n"); }

    QString out()
    {
        m_out += m_process.readAllStandardOutput();
        return QString::fromUtf8(m_out);
    }
    QString err()
    {
        m_err += m_process.readAllStandardError();
        return QString::fromUtf8(m_err);
    }

    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }
    Outcome ended()
    {
        EXPECT_TRUE(comes([this] { return !isRunning(); }));
        const bool isNormal = m_process.exitStatus() == QProcess::NormalExit;
        return {isNormal ? m_process.exitCode() : -1, out(), err()};
    }
    /// Its end after Ctrl-C.
    Outcome interrupted()
    {
        EXPECT_EQ(::kill(static_cast<pid_t>(m_process.processId()), SIGINT), 0);
        return ended();
    }

private:
    QProcess m_process;
    QByteArray m_out;
    QByteArray m_err;
};

/// The tool beside a server with a simulated machine, as both ship.
class LinkedToolTest : public ::testing::Test
{
protected:
    QString address(const char *pPort = "control") const
    {
        return QStringLiteral("127.0.0.1:%1").arg(m_daemon.port(pPort));
    }
    QStringList here(const QStringList &words) const
    {
        return words + QStringList{QStringLiteral("--multiport"), address()};
    }
    Outcome tool(const QStringList &words) const { return vyhw(here(words)); }

    QStringList canSend(const QStringList &words) const
    {
        return here(QStringList{QStringLiteral("can"), QStringLiteral("send")} + words +
                    QStringList{QStringLiteral("--settings"), configFile("lirenta.json")});
    }
    QStringList monitor(const QStringList &words = {}) const
    {
        return here(QStringList{QStringLiteral("can"), QStringLiteral("monitor")} + words);
    }

    Outcome sim(const QStringList &words) const
    {
        return vyhw(QStringList{QStringLiteral("sim")} + words +
                    QStringList{QStringLiteral("--console"), m_console});
    }
    void setFault(const char *pWhat, const char *pValue) const
    {
        EXPECT_EQ(sim({QStringLiteral("fault"), QLatin1String(pWhat), QLatin1String(pValue)}).err,
                  QString());
    }
    QJsonObject machine() const
    {
        const Outcome status = sim({QStringLiteral("status"), QStringLiteral("--json")});
        return QJsonDocument::fromJson(status.out.toUtf8()).object();
    }

    QTemporaryDir m_folder;
    QString m_console = m_folder.filePath(QStringLiteral("console.sock"));
    Daemon m_daemon{{QStringLiteral("--simulate"), QStringLiteral("--console"), m_console}};
};

/// A controller of the server that knows nothing but bytes, with one line of its own.
class RawController
{
public:
    /// \param interface 1 CAN, 3 payment
    RawController(const Daemon &daemon, quint8 interface)
        : m_control(daemon.port("control"))
        , m_line(daemon.port(interface == 1 ? "can" : "payment"))
    {
        EXPECT_TRUE(m_control.greets(multiportlink::Role::Controller));
        m_control.keepAlive();
        EXPECT_EQ(m_control.claims(interface, m_line), 0);
    }

    ControlPeer &control() { return m_control; }
    void send(const char *pHex) { m_line.sendHex(pHex); }

private:
    ControlPeer m_control;
    LinkPeer m_line;
};

/// A server that welcomes everybody and says these bytes on both of its lines.
class FakeServer
{
public:
    FakeServer()
    {
        EXPECT_TRUE(m_control.listen(QHostAddress::LocalHost));
        EXPECT_TRUE(m_line.listen(QHostAddress::LocalHost));
        QObject::connect(&m_control, &QTcpServer::newConnection, &m_control, [this] {
            m_control.nextPendingConnection()->write(multiportlink::encode(
                multiportlink::Welcome{multiportlink::Version, multiportlink::Role::Observer,
                                       m_line.serverPort(), m_line.serverPort()}));
        });
        QObject::connect(&m_line, &QTcpServer::newConnection, &m_line,
                         [this] { m_pObserver = m_line.nextPendingConnection(); });
    }

    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(m_control.serverPort()); }
    void say(const char *pHex)
    {
        ASSERT_TRUE(comes([this] { return m_pObserver != nullptr; }));
        m_pObserver->write(QByteArray::fromHex(pHex));
    }

private:
    QTcpServer m_control;
    QTcpServer m_line;
    QTcpSocket *m_pObserver = nullptr; ///< owned by m_line
};

#endif // LINKEDTOOL_H
