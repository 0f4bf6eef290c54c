#include "simulator/controlcommands.h"

#include "simulator/paymentline.h"
#include "simulator/simulatedmachine.h"
#include "support/casename.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <gtest/gtest.h>

using Answers = SimulatedBoard::Answers;
using Fault = PaymentPeripheral::Fault;

class ControlCommandsTest : public ::testing::Test
{
protected:
    QJsonObject ask(const char *pLine) { return obeyControlLine(m_machine, pLine); }
    bool isDone(const char *pLine)
    {
        return ask(pLine) == QJsonObject{{QStringLiteral("done"), true}};
    }
    QString errorOf(const char *pLine)
    {
        const QJsonObject answer = ask(pLine);
        return answer.value(QStringLiteral("kind")).toString() + QStringLiteral(": ") +
               answer.value(QStringLiteral("error")).toString();
    }

    SimulatedMachine m_machine;
};

TEST_F(ControlCommandsTest, StatusShowsAllThatCanBeSet)
{
    m_machine.outputs().setOutput(9, true);
    m_machine.outputs().setBlinking(10, true);
    const QByteArray expected = R"({
        "actuator": {"address": 1052, "answers": "given", "cup": 0, "delayMs": 0, "messages": 0,
                     "restarting": false},
        "link": "up",
        "outputs": [{"blinking": false, "on": true, "output": 9},
                    {"blinking": true, "on": false, "output": 10}],
        "payment": {"checksum": false, "dataBits": 8, "funds": 0, "mode": false, "repeat": false,
                    "silence": false, "state": "inactive", "vends": 0}})";
    EXPECT_EQ(ask(R"({"do":"status"})"), QJsonDocument::fromJson(expected).object());
}

TEST_F(ControlCommandsTest, SetsTheCup)
{
    EXPECT_TRUE(isDone(R"({"do":"set","what":"cup","value":42})"));
    EXPECT_EQ(m_machine.actuatorBoard().cupReading(), 42);
}

TEST_F(ControlCommandsTest, ACardNeedsAReaderThatIsEnabled)
{
    EXPECT_EQ(errorOf(R"({"do":"set","what":"card","value":150})"),
              QStringLiteral("machine: not now: the card reader is in state \"inactive\"; expected "
                             "\"enabled\" for a card, \"session\" to take it away"));
    PaymentPeripheral &reader = m_machine.payment();
    reader.setLine(9, 0);
    for (const int request : {Multidrop::Reset, Multidrop::Poll})
        reader.hear(Multidrop::toBytes(Multidrop::requestCharacters(request)));
    reader.hear(QByteArray::fromHex("0000"));
    reader.hear(Multidrop::toBytes(
        Multidrop::requestCharacters(Multidrop::SetupConfig, QByteArray(4, '\0'))));
    reader.hear(QByteArray::fromHex("0000"));
    reader.hear(Multidrop::toBytes(Multidrop::requestCharacters(Multidrop::ReaderEnable)));
    EXPECT_TRUE(isDone(R"({"do":"set","what":"card","value":150})"));
    EXPECT_EQ(reader.funds(), 150);
    EXPECT_TRUE(isDone(R"({"do":"set","what":"card","value":0})"));
    EXPECT_EQ(reader.funds(), 0);
}

TEST_F(ControlCommandsTest, SwitchesTheActuatorBoardsFaults)
{
    ActuatorBoard &board = m_machine.actuatorBoard();
    EXPECT_TRUE(isDone(R"({"do":"fault","what":"actuator.answers","value":"lost"})"));
    EXPECT_EQ(board.answers(), Answers::Lost);
    EXPECT_TRUE(isDone(R"({"do":"fault","what":"actuator.answers","value":"refused"})"));
    EXPECT_EQ(board.answers(), Answers::Refused);
    EXPECT_TRUE(isDone(R"({"do":"fault","what":"actuator.answers","value":"given"})"));
    EXPECT_EQ(board.answers(), Answers::Given);
    EXPECT_TRUE(isDone(R"({"do":"fault","what":"actuator.delay","value":250})"));
    EXPECT_EQ(board.answerDelay(), std::chrono::milliseconds(250));
    EXPECT_TRUE(isDone(R"({"do":"fault","what":"actuator.restart","value":3000})"));
    EXPECT_TRUE(board.isRestarting());
    ReaderLine::advance(3000);
    EXPECT_FALSE(board.isRestarting());
}

struct PaymentFaultCase
{
    const char *pName;
    QByteArray word;
    Fault fault;
};

class PaymentFaultWords : public ControlCommandsTest,
                          public ::testing::WithParamInterface<PaymentFaultCase>
{
};

TEST_P(PaymentFaultWords, SwitchOneFaultEach)
{
    const QByteArray line =
        R"({"do":"fault","what":"payment.)" + GetParam().word + R"(","value":"on"})";
    EXPECT_TRUE(isDone(line.constData()));
    for (const Fault fault :
         {Fault::Silence, Fault::BadChecksum, Fault::BadMode, Fault::RepeatedAnswer})
        EXPECT_EQ(m_machine.payment().hasFault(fault), fault == GetParam().fault);
    const QJsonObject payment =
        ask(R"({"do":"status"})").value(QStringLiteral("payment")).toObject();
    EXPECT_TRUE(payment.value(QString::fromLatin1(GetParam().word)).toBool());
    const QByteArray off =
        R"({"do":"fault","what":"payment.)" + GetParam().word + R"(","value":"off"})";
    EXPECT_TRUE(isDone(off.constData()));
    EXPECT_FALSE(m_machine.payment().hasFault(GetParam().fault));
}

const PaymentFaultCase s_paymentFaults[] = {
    {"Silence", "silence", Fault::Silence},
    {"Checksum", "checksum", Fault::BadChecksum},
    {"Mode", "mode", Fault::BadMode},
    {"Repeat", "repeat", Fault::RepeatedAnswer},
};
INSTANTIATE_TEST_SUITE_P(Faults, PaymentFaultWords, ::testing::ValuesIn(s_paymentFaults), caseName);

TEST_F(ControlCommandsTest, CutsTheLinkAndTellsItOnce)
{
    QSignalSpy cut(&m_machine, &SimulatedMachine::linkCutAsked);
    EXPECT_TRUE(isDone(R"({"do":"fault","what":"link","value":"cut"})"));
    EXPECT_TRUE(isDone(R"({"do":"fault","what":"link","value":"cut"})"));
    ASSERT_EQ(cut.count(), 1);
    EXPECT_TRUE(cut.at(0).at(0).toBool());
    EXPECT_EQ(ask(R"({"do":"status"})").value(QStringLiteral("link")).toString(),
              QStringLiteral("cut"));
    EXPECT_TRUE(isDone(R"({"do":"fault","what":"link","value":"up"})"));
    ASSERT_EQ(cut.count(), 2);
    EXPECT_FALSE(cut.at(1).at(0).toBool());
}

struct WrongLineCase
{
    const char *pName;
    const char *pLine;
    const char *pError; ///< its beginning
};

class WrongLines : public ControlCommandsTest, public ::testing::WithParamInterface<WrongLineCase>
{
};

TEST_P(WrongLines, AreToldWhatWasExpectedAndChangeNothing)
{
    const QJsonObject before = ask(R"({"do":"status"})");
    const QString error = errorOf(GetParam().pLine);
    EXPECT_TRUE(error.startsWith(QLatin1String("call: ") + QLatin1String(GetParam().pError)))
        << qPrintable(error);
    EXPECT_EQ(ask(R"({"do":"status"})"), before);
}

const char *const s_pNoObject = "expected one JSON object in a line, such as {\"do\":\"status\"}";
const WrongLineCase s_wrongLines[] = {
    {"Empty", "", s_pNoObject},
    {"NoJson", "status", s_pNoObject},
    {"HalfAnObject", R"({"do":"status")", s_pNoObject},
    {"TwoObjects", R"({"do":"status"}{"do":"status"})", s_pNoObject},
    {"Array", R"(["status"])", s_pNoObject},
    {"NoVerb", R"({})", "do is \"\"; expected status, set or fault"},
    {"UnknownVerb", R"({"do":"stop"})", "do is \"stop\"; expected status, set or fault"},
    {"UnknownKey", R"({"do":"status","id":1})",
     "unknown key \"id\"; expected \"do\", \"what\", \"value\""},
    {"UnknownSetting", R"({"do":"set","what":"cups","value":1})",
     "what is \"cups\"; expected cup, card"},
    {"FaultAsSetting", R"({"do":"set","what":"link","value":"cut"})",
     "what is \"link\"; expected cup, card"},
    {"UnknownFault", R"({"do":"fault","what":"cup","value":1})",
     "what is \"cup\"; expected actuator.answers, actuator.delay, actuator.restart, "
     "payment.silence, payment.checksum, payment.mode, payment.repeat, link"},
    {"NoValue", R"({"do":"set","what":"cup"})",
     "wrong value for cup; expected a reading from 0 to 65535"},
    {"CupBelow", R"({"do":"set","what":"cup","value":-1})", "wrong value for cup"},
    {"CupAbove", R"({"do":"set","what":"cup","value":65536})", "wrong value for cup"},
    {"CupHuge", R"({"do":"set","what":"cup","value":1e300})", "wrong value for cup"},
    {"HalfACup", R"({"do":"set","what":"cup","value":1.5})", "wrong value for cup"},
    {"CupAsText", R"({"do":"set","what":"cup","value":"42"})", "wrong value for cup"},
    {"CardAbove", R"({"do":"set","what":"card","value":65535})",
     "wrong value for card; expected cents from 0 to 65534"},
    {"Answers", R"({"do":"fault","what":"actuator.answers","value":"maybe"})",
     "wrong value for actuator.answers; expected given, refused or lost"},
    {"DelayAbove", R"({"do":"fault","what":"actuator.delay","value":60001})",
     "wrong value for actuator.delay; expected ms from 0 to 60000"},
    {"RestartOfNoTime", R"({"do":"fault","what":"actuator.restart","value":0})",
     "wrong value for actuator.restart; expected ms from 1 to 60000"},
    {"SilenceAsBool", R"({"do":"fault","what":"payment.silence","value":true})",
     "wrong value for payment.silence; expected on or off"},
    {"LinkDown", R"({"do":"fault","what":"link","value":"down"})",
     "wrong value for link; expected cut or up"},
};
INSTANTIATE_TEST_SUITE_P(Lines, WrongLines, ::testing::ValuesIn(s_wrongLines), caseName);
