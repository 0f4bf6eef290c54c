#include "environment/environmentfakes.h"
#include "multiportd/daemon.h"
#include "support/scopedvariable.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>

namespace {

constexpr int s_desktopPlatform = 1;
constexpr int s_targetPlatform = 2;

} // namespace

/// An environment with the multiport module beside a server with a simulated machine.
class EnvironmentLinkTest : public ::testing::Test
{
protected:
    void start(int platform)
    {
        m_machine.environment.setPlatform(platform);
        m_machine.create(HardwareEnvironment::MultiportModule);
        ASSERT_TRUE(comes([this] { return client().isServerConnected(); }));
    }
    Multiport &client() { return *m_machine.environment.multiport(); }

    /// Until the server has answered so many requests.
    bool isDone(const QSignalSpy &ended, int count)
    {
        return comes([&ended, count] { return ended.count() >= count; });
    }

    /// The simulated outputs that are on or blink: "9 on, 10 blinking".
    QString outputs() const
    {
        QLocalSocket console;
        console.connectToServer(m_console);
        EXPECT_TRUE(console.waitForConnected(s_patienceMs));
        console.write("{\"do\":\"status\"}\n");
        while (!console.canReadLine() && console.waitForReadyRead(s_patienceMs)) {
        }
        const QJsonObject status = QJsonDocument::fromJson(console.readLine()).object();
        QStringList texts;
        const QJsonArray outputs = status.value(QStringLiteral("outputs")).toArray();
        for (const QJsonValue &output : outputs) {
            const QJsonObject object = output.toObject();
            const bool isOn = object.value(QStringLiteral("on")).toBool();
            const bool isBlinking = object.value(QStringLiteral("blinking")).toBool();
            texts += QString::number(object.value(QStringLiteral("output")).toInt()) +
                     QLatin1String(isOn ? " on" : "") +
                     QLatin1String(isBlinking ? " blinking" : "");
        }
        return texts.join(QStringLiteral(", "));
    }

    QTemporaryDir m_folder;
    QString m_console = m_folder.filePath(QStringLiteral("console.sock"));
    Daemon m_daemon{{QStringLiteral("--simulate"), QStringLiteral("--console"), m_console}};
    ScopedVariable m_server{"VY_MULTIPORT",
                            "127.0.0.1:" + QByteArray::number(m_daemon.port("control"))};
    Machine m_machine;
};

TEST_F(EnvironmentLinkTest, OutputsReachTheServerWithPlatformValue2)
{
    start(s_targetPlatform);
    const QSignalSpy ended(&client(), &Multiport::lastCommandTerminationStatus);
    HardwareEnvironment &environment = m_machine.environment;
    EXPECT_TRUE(environment.setOutputEnabled(HardwareEnvironment::OutputCorvel0, true));
    EXPECT_TRUE(environment.setOutputEnabled(HardwareEnvironment::OutputCorvel4, true));
    EXPECT_TRUE(environment.setBlinkOutputEnabled(HardwareEnvironment::OutputCorvel1, true));
    ASSERT_TRUE(isDone(ended, 3));
    EXPECT_EQ(outputs(), QStringLiteral("9 on, 10 blinking, 13 on"));

    EXPECT_TRUE(environment.setOutputEnabled(HardwareEnvironment::OutputCorvel0, false));
    EXPECT_TRUE(environment.setBlinkOutputEnabled(HardwareEnvironment::OutputCorvel1, false));
    ASSERT_TRUE(isDone(ended, 5));
    EXPECT_EQ(outputs(), QStringLiteral("13 on"));
}

TEST_F(EnvironmentLinkTest, OutputsDoNothingWithPlatformValue1)
{
    start(s_desktopPlatform);
    const QSignalSpy ended(&client(), &Multiport::lastCommandTerminationStatus);
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(m_machine.environment.setOutputEnabled(
            static_cast<HardwareEnvironment::OutputCorvel>(i), true));
        EXPECT_TRUE(m_machine.environment.setBlinkOutputEnabled(
            static_cast<HardwareEnvironment::OutputCorvel>(i), true));
    }
    client().setOutputEnabled(20, true); // the link itself is there
    ASSERT_TRUE(isDone(ended, 1));
    EXPECT_EQ(outputs(), QStringLiteral("20 on"));
    EXPECT_EQ(ended.count(), 1);
}
