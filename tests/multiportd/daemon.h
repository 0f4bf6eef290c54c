#ifndef DAEMON_H
#define DAEMON_H

#include "multiportd/linkpeer.h"

#include <QFile>
#include <QHash>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>
#include <gtest/gtest.h>

/// The server as it ships, on free ports.
class Daemon
{
public:
    explicit Daemon(const QStringList &arguments, const QProcessEnvironment &environment =
                                                      QProcessEnvironment::systemEnvironment())
    {
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

    /// KiB of memory that are in use.
    int memory() const
    {
        QFile status(QStringLiteral("/proc/%1/status").arg(m_process.processId()));
        EXPECT_TRUE(status.open(QIODevice::ReadOnly));
        for (const QByteArray &line : status.readAll().split('\n')) {
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

    QProcess m_process;
    QHash<QByteArray, quint16> m_ports;
    QByteArray m_errors;
};

#endif // DAEMON_H
