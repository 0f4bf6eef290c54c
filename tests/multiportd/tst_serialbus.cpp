#include "multiportd/linkpeer.h"
#include "multiportd/serialbuscanbackend.h"
#include "support/logspy.h"

#include <QProcess>
#include <QTcpServer>
#include <gtest/gtest.h>

namespace {

quint16 freePort()
{
    QTcpServer server;
    EXPECT_TRUE(server.listen(QHostAddress::LocalHost));
    return server.serverPort();
}

} // namespace

/// Qt's own tool on the other end of a bus that is a TCP connection.
class VirtualCanTest : public ::testing::Test
{
protected:
    VirtualCanTest()
        : m_interface(QStringLiteral("tcp://127.0.0.1:%1/can0").arg(freePort()))
        , m_backend(QStringLiteral("virtualcan"), m_interface)
    {
        QString error;
        EXPECT_TRUE(m_backend.open(&error)) << qPrintable(error);
        QObject::connect(&m_backend, &SerialBusCanBackend::frameReceived, &m_backend,
                         [this](const CanFrame &frame) { m_frames.append(frame); });
    }
    ~VirtualCanTest() override
    {
        m_tool.terminate();
        EXPECT_TRUE(m_tool.waitForFinished(s_patienceMs));
    }

    void start(const QStringList &arguments)
    {
        m_tool.start(QStringLiteral("canbusutil"),
                     arguments.mid(0, 1) + QStringList{QStringLiteral("virtualcan"), m_interface} +
                         arguments.mid(1));
        ASSERT_TRUE(m_tool.waitForStarted(s_patienceMs));
    }

    LogSpy m_log;
    QString m_interface;
    SerialBusCanBackend m_backend;
    QList<CanFrame> m_frames;
    QProcess m_tool;
};
