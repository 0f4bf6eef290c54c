#ifndef DAEMON_H
#define DAEMON_H

#include "multiportd/linkpeer.h"

#include <QFile>
#include <QHash>
#include <QLocalSocket>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>
#include <QTemporaryDir>
#include <csignal>
#include <gtest/gtest.h>

/// What a simulated machine's console answers.
inline QByteArray askConsole(const QString &path, const QByteArray &line)
{
    QLocalSocket console;
    console.connectToServer(path);
    EXPECT_TRUE(console.waitForConnected(s_patienceMs));
    console.write(line + '\n');
    while (!console.canReadLine()) {
        if (!console.waitForReadyRead(s_patienceMs))
            return {};
    }
    return console.readLine().trimmed();
}

/// The server as it ships, on free ports and with a console of its own.
class Daemon
{
public:
    /// `console` is where the default console is to be; empty for a place of its own.
    explicit Daemon(const QStringList &arguments,
                    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment(),
                    const QString &console = {})
        : m_console(console.isEmpty() ? m_folder.filePath(QStringLiteral("console")) : console)
    {
        environment.insert(QStringLiteral("VY_SIM_CONSOLE"), m_console);
        m_process.setProcessEnvironment(environment);
        m_process.start(QStringLiteral(MULTIPORTD_PROGRAM),
                        arguments + QStringList{QStringLiteral("--port-base"), QStringLiteral("0"),
                                                QStringLiteral("--print-ports")});
        comes([this] { return readPorts() || m_process.state() == QProcess::NotRunning; });
        EXPECT_EQ(m_ports.size(), 3) << m_process.readAllStandardError().toStdString();
    }
    ~Daemon()
    {
        const bool isRunning = m_process.state() != QProcess::NotRunning;
        EXPECT_EQ(isRunning ? stop() : 0, 0);
    }
    Q_DISABLE_COPY_MOVE(Daemon)

    quint16 port(const char *pName) const { return m_ports.value(QByteArray(pName)); }
    QProcess &process() { return m_process; }
    const QString &console() const { return m_console; }
    void signal(int number) const { ::kill(static_cast<pid_t>(m_process.processId()), number); }

    /// KiB of memory that are in use.
    int memory() const
    {
        QFile status(QStringLiteral("/proc/%1/status").arg(m_process.processId()));
        EXPECT_TRUE(status.open(QIODevice::ReadOnly));
        const auto all = status.readAll().split('\n');
        for (const QByteArray &line : all) {
            if (line.startsWith("VmRSS:"))
                return line.mid(6).trimmed().split(' ').first().toInt();
        }
        return -1;
    }

    QString errors()
    {
        m_errors += m_process.readAllStandardError();
        return QString::fromUtf8(m_errors);
    }

    /// The exit code, after SIGTERM.
    int stop()
    {
        m_process.terminate();
        return ended();
    }
    int ended()
    {
        EXPECT_TRUE(comes([this] { return m_process.state() == QProcess::NotRunning; }));
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }

private:
    bool readPorts()
    {
        while (m_process.canReadLine()) {
            const QList<QByteArray> words = m_process.readLine().trimmed().split(' ');
            m_ports.insert(words.at(0), words.value(1).toUShort());
        }
        return m_ports.size() == 3;
    }

    const QTemporaryDir m_folder;
    const QString m_console;
    QProcess m_process;
    QHash<QByteArray, quint16> m_ports;
    QByteArray m_errors;
};

#endif // DAEMON_H
