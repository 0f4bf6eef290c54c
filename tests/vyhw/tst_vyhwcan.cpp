#include "vyhw/vyhw.h"

#include "support/casename.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

QStringList canSend(const QStringList &words)
{
    return QStringList{QStringLiteral("can"), QStringLiteral("send")} + words +
           QStringList{QStringLiteral("--settings"), configFile("lirenta.json")};
}

} // namespace

TEST(VyhwCanTest, SendSaysWhatBecameOfTheMessage)
{
    const Outcome outcome = vyhw(canSend(
        {QStringLiteral("dadd"), QStringLiteral("virtualselect"), QStringLiteral("00 07")}));
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(outcome.out.startsWith(
        QLatin1String("VirtualSelect (42) to DADD (0x721) 00 07 acknowledged after ")))
        << qPrintable(outcome.out);
}

TEST(VyhwCanTest, RepeatAndJsonGiveOneObjectForEachMessage)
{
    const Outcome outcome =
        vyhw(canSend({QStringLiteral("actuator"), QStringLiteral("0x2a"), QStringLiteral("--json"),
                      QStringLiteral("--repeat"), QStringLiteral("3")}));
    EXPECT_EQ(outcome.exitCode, 0);
    const QStringList lines = outcome.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3);
    for (const QString &line : lines) {
        const QJsonObject message = QJsonDocument::fromJson(line.toUtf8()).object();
        EXPECT_EQ(message.value(QStringLiteral("destination")).toInt(),
                  0x41C); // Lirenta, subtype 8
        EXPECT_EQ(message.value(QStringLiteral("command")).toInt(), 0x2A);
        EXPECT_EQ(message.value(QStringLiteral("outcome")).toString(),
                  QStringLiteral("acknowledged"));
    }
}

struct WrongCallCase
{
    const char *pName;
    QStringList words;
    const char *pError;
};

using VyhwCanWrongCall = ::testing::TestWithParam<WrongCallCase>;

TEST_P(VyhwCanWrongCall, IsToldWhatWasExpected)
{
    const Outcome outcome = vyhw(canSend(GetParam().words));
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_TRUE(outcome.err.contains(QLatin1String(GetParam().pError))) << qPrintable(outcome.err);
}

const WrongCallCase s_wrongCalls[] = {
    {"NoSuchBoard", {QStringLiteral("Doors"), QStringLiteral("1")}, "expected a name such as DADD"},
    {"AddressTooLarge",
     {QStringLiteral("0x800"), QStringLiteral("1")},
     "an address from 0 to 0x7ff"},
    {"NoSuchCommand",
     {QStringLiteral("DADD"), QStringLiteral("Open")},
     "expected a name such as VirtualSelect"},
    {"CommandTooLarge",
     {QStringLiteral("DADD"), QStringLiteral("2048")},
     "a number from 0 to 0x7ff"},
    {"HalfAByte",
     {QStringLiteral("DADD"), QStringLiteral("1"), QStringLiteral("0")},
     "expected pairs of hexadecimal digits"},
    {"TooManyBytes",
     {QStringLiteral("DADD"), QStringLiteral("1"), QStringLiteral("ab").repeated(507)},
     "expected at most 506"},
    {"NoCommand", {QStringLiteral("DADD")}, "CMD is required"},
    {"RepeatNone",
     {QStringLiteral("DADD"), QStringLiteral("1"), QStringLiteral("--repeat"), QStringLiteral("0")},
     "--repeat"},
};
INSTANTIATE_TEST_SUITE_P(Calls, VyhwCanWrongCall, ::testing::ValuesIn(s_wrongCalls), caseName);

TEST(VyhwCanTest, InfoShowsTheAddresses)
{
    const Outcome outcome = vyhw({QStringLiteral("info"), QStringLiteral("--json"),
                                  QStringLiteral("--settings"), configFile("lirenta.json")});
    const QJsonObject addresses = QJsonDocument::fromJson(outcome.out.toUtf8())
                                      .object()
                                      .value(QStringLiteral("addresses"))
                                      .toObject();
    EXPECT_EQ(addresses.value(QStringLiteral("cpuBoard")).toInt(), 0x4AE);
    EXPECT_EQ(addresses.value(QStringLiteral("actuatorBoard")).toInt(), 0x41C);
    EXPECT_EQ(addresses.value(QStringLiteral("coffeeToGoBoard")).toInt(), 0x41E);
    EXPECT_EQ(addresses.value(QStringLiteral("daddBoard")).toInt(), 0x721);
}
