#ifndef CONSOLE_H
#define CONSOLE_H

#include "multiportd/linkpeer.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QString>
#include <gtest/gtest.h>

/// The console of a simulated machine in another process. Waits in the event loop, so that what is
/// under way in this process goes on.
class Console
{
public:
    explicit Console(const QString &path)
    {
        m_socket.connectToServer(path);
        EXPECT_TRUE(m_socket.waitForConnected(s_patienceMs)) << path.toStdString();
    }

    QJsonObject ask(const QByteArray &line)
    {
        m_socket.write(line + '\n');
        EXPECT_TRUE(comes([this] { return m_socket.canReadLine(); })) << line.constData();
        return QJsonDocument::fromJson(m_socket.readLine()).object();
    }

    /// True when it was done.
    bool set(const char *pWhat, int value)
    {
        return isDone(ask(QByteArray(R"({"do":"set","what":")") + pWhat + R"(","value":)" +
                          QByteArray::number(value) + '}'));
    }
    bool fault(const char *pWhat, bool isOn)
    {
        return isDone(ask(QByteArray(R"({"do":"fault","what":")") + pWhat + R"(","value":")" +
                          (isOn ? "on" : "off") + "\"}"));
    }

    QJsonObject payment()
    {
        return ask(R"({"do":"status"})").value(QStringLiteral("payment")).toObject();
    }

private:
    static bool isDone(const QJsonObject &answer)
    {
        return answer.value(QStringLiteral("done")).toBool();
    }

    QLocalSocket m_socket;
};

#endif // CONSOLE_H
