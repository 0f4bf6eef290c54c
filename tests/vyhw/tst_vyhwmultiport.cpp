#include "support/scopedvariable.h"
#include "vyhw/linkedtool.h"

class VyhwMultiportTest : public LinkedToolTest
{
protected:
    /// Sends VirtualSelect to the actuator board.
    QStringList select(const QStringList &words = {}) const
    {
        return canSend(QStringList{QStringLiteral("actuator"), QStringLiteral("VirtualSelect"),
                                   QStringLiteral("00 07")} +
                       words);
    }
    int taken() const
    {
        return machine()
            .value(QStringLiteral("actuator"))
            .toObject()
            .value(QStringLiteral("messages"))
            .toInt();
    }
};

TEST_F(VyhwMultiportTest, SendReachesTheBoard)
{
    const Outcome outcome = vyhw(select());
    EXPECT_EQ(outcome.exitCode, 0) << qPrintable(outcome.err);
    EXPECT_TRUE(outcome.out.contains(QLatin1String(" to 0x41c 00 07 acknowledged after ")))
        << qPrintable(outcome.out);
    EXPECT_EQ(taken(), 1);
}

TEST_F(VyhwMultiportTest, RepeatSendsOneAfterTheOther)
{
    const Outcome outcome = vyhw(select({QStringLiteral("--repeat"), QStringLiteral("5")}));
    EXPECT_EQ(outcome.exitCode, 0) << qPrintable(outcome.err);
    EXPECT_EQ(outcome.out.count(QLatin1String(" acknowledged after ")), 5);
    EXPECT_EQ(taken(), 5);
}

TEST_F(VyhwMultiportTest, JsonGivesOneObjectForEachMessage)
{
    const Outcome outcome =
        vyhw(select({QStringLiteral("--repeat"), QStringLiteral("2"), QStringLiteral("--json")}));
    const QStringList lines = outcome.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2);
    for (const QString &line : lines) {
        const QJsonObject message = QJsonDocument::fromJson(line.toUtf8()).object();
        EXPECT_EQ(message.value(QStringLiteral("destination")).toInt(), 0x41C);
        EXPECT_EQ(message.value(QStringLiteral("bytes")).toString(), QStringLiteral("00 07"));
        EXPECT_EQ(message.value(QStringLiteral("outcome")).toString(),
                  QStringLiteral("acknowledged"));
    }
}

TEST_F(VyhwMultiportTest, ARefusedMessageEndsWithOne)
{
    setFault("actuator.answers", "refused");
    const Outcome outcome = vyhw(select());
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.out.contains(QLatin1String(" refused after "))) << qPrintable(outcome.out);
    EXPECT_TRUE(outcome.err.endsWith(QLatin1String("vyhw: 0 of 1 acknowledged\n")))
        << qPrintable(outcome.err); // below what the library logs
    EXPECT_EQ(outcome.err.count(QLatin1String("vyhw: ")), 1) << qPrintable(outcome.err);
    EXPECT_EQ(taken(), 0);
}

TEST_F(VyhwMultiportTest, AMessageWithoutAnswerEndsWithOne)
{
    setFault("actuator.answers", "lost");
    const Outcome outcome = vyhw(select());
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.out.contains(QLatin1String(" not answered after ")))
        << qPrintable(outcome.out);
    EXPECT_TRUE(outcome.err.endsWith(QLatin1String("vyhw: 0 of 1 acknowledged\n")))
        << qPrintable(outcome.err); // below what the library logs
    EXPECT_EQ(outcome.err.count(QLatin1String("vyhw: ")), 1) << qPrintable(outcome.err);
    EXPECT_GT(taken(), 1); // the effect is there, each time
}

TEST_F(VyhwMultiportTest, TheAddressMayBeTheVariables)
{
    const ScopedVariable variable("VY_MULTIPORT", address().toLatin1());
    QStringList words = select();
    words.removeLast(); // --multiport remains
    ASSERT_EQ(words.last(), QStringLiteral("--multiport"));
    EXPECT_EQ(vyhw(words).exitCode, 0);
    EXPECT_EQ(taken(), 1);
    words.removeLast(); // the simulated bus
    EXPECT_EQ(vyhw(words).exitCode, 0);
    EXPECT_EQ(taken(), 1);
}

TEST_F(VyhwMultiportTest, ASecondControllerIsToldWhyOnce)
{
    ControlPeer controller(m_daemon.port("control"));
    ASSERT_TRUE(controller.greets(multiportlink::Role::Controller));
    controller.keepAlive();
    RunningTool second(select());
    const Outcome outcome = second.ended();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_EQ(outcome.err,
              QStringLiteral("vyhw: multiport server %1: it says: there is a controller already\n")
                  .arg(address()));
    EXPECT_EQ(taken(), 0);
}

TEST_F(VyhwMultiportTest, WithoutLinkOneErrorIsEnough)
{
    EXPECT_EQ(m_daemon.stop(), 0);
    const Outcome outcome = vyhw(select());
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.out, QString());
    EXPECT_EQ(
        outcome.err,
        QStringLiteral("vyhw: no multiport server at %1: Connection refused\n").arg(address()));
}

TEST_F(VyhwMultiportTest, InterruptionStopsAfterTheMessageUnderWay)
{
    setFault("actuator.delay", "100");
    RunningTool sending(select({QStringLiteral("--repeat"), QStringLiteral("1000")}));
    ASSERT_TRUE(sending.prints(" acknowledged after "));
    const Outcome outcome = sending.interrupted();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(errorsOf(outcome), QStringLiteral("vyhw: %1 of 1000 acknowledged\n")
                                     .arg(outcome.out.count(QLatin1Char('\n'))));
}
