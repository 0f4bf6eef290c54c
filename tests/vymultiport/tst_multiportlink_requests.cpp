#include "multiport.h"

#include "multiportprotocol.h"
#include "support/casename.h"
#include "vymultiport/linkbench.h"

#include <QSignalSpy>
#include <gtest/gtest.h>
#include <ostream>

using namespace multiportlink;

namespace {

QByteArray hex(const char *pHex)
{
    return QByteArray::fromHex(pHex);
}

} // namespace

// -- what each request is -------------------------------------------------------------------------

struct RequestCase
{
    const char *pName;
    void (*pAsk)(Multiport &client);
    int command;
    const char *pPayload;
};

void PrintTo(const RequestCase &row, std::ostream *pOut)
{
    *pOut << row.pName;
}

class MultiportRequests : public LinkBench, public ::testing::WithParamInterface<RequestCase>
{
};

TEST_P(MultiportRequests, AreThoseOfThePageAndTheirStatusIsTold)
{
    connectAll();
    GetParam().pAsk(client());
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 1; }));
    const QList<Request> requests = m_server.requests(static_cast<quint8>(GetParam().command));
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(requests.constFirst().payload.toHex(' ').toStdString(), GetParam().pPayload);
    EXPECT_EQ(m_journal.constFirst(), QStringLiteral("status %1 0").arg(GetParam().command));
}

TEST_P(MultiportRequests, AreRefusedWithALineAndNotSentLaterWithoutALink)
{
    connectAll();
    m_server.stop();
    ASSERT_TRUE(waitUntil([this] { return isDown(); }));
    m_journal.clear();
    const LogSpy log;
    GetParam().pAsk(client());
    if (GetParam().command != MultiportProtocol::CommandSetSerialLine) { // which is a state
        EXPECT_EQ(log.count("No link to the multiport server", 3, Log::Hardware), 1);
    }
    ASSERT_TRUE(m_server.start());
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    client().setParameter(1, 2); // behind whatever would be sent now
    ASSERT_TRUE(waitUntil([this] { return m_journal.contains(QStringLiteral("status 75 0")); }));
    int others = 0;
    for (const Request &request : m_server.requests()) {
        if (request.command != MultiportProtocol::CommandClaim &&
            request.command != MultiportProtocol::CommandSetSerialLine)
            ++others;
    }
    EXPECT_EQ(others, 1);
    EXPECT_EQ(m_journal.filter(QStringLiteral("status")).size(), 1);
}

constexpr RequestCase s_requestCases[] = {
    {"OutputOn", [](Multiport &client) { client.setOutputEnabled(9, true); }, 30, "09 01"},
    {"OutputOff", [](Multiport &client) { client.setOutputEnabled(255, false); }, 30, "ff 00"},
    {"BlinkOn", [](Multiport &client) { client.setBlinkOutput(0, true); }, 31, "00 01"},
    {"BlinkOff", [](Multiport &client) { client.setBlinkOutput(13, false); }, 31, "0d 00"},
    {"Switches", [](Multiport &client) { client.sendRequestDigitInput(); }, 49, ""},
    {"MotorStatus", [](Multiport &client) { client.motorStatus(2); }, 53, "02"},
    {"StopMotor", [](Multiport &client) { client.stopMotor(255); }, 54, "ff"},
    {"StartMotor",
     [](Multiport &client) {
         client.startDaddMotor({1, 2, 0x0304, 0x0506, 0x0708, 0x090a});
     },
     74, "01 02 03 04 05 06 07 08 09 0a"},
    {"SetParameter", [](Multiport &client) { client.setParameter(0x0102, 0xfffe); }, 75,
     "01 02 ff fe"},
    {"SerialLineOf9Bits",
     [](Multiport &client) {
         client.setSerialLineParameters(MultiportInterface::PaymentPort,
                                        MultiportProtocol::Baud9600, MultiportProtocol::DataBits9,
                                        MultiportProtocol::ParityNone,
                                        MultiportProtocol::MDBModeOff);
     },
     20, "0f a0 00 00 25 80 09 00 00"},
    {"SerialLineOf8Bits",
     [](Multiport &client) {
         EXPECT_TRUE(QMetaObject::invokeMethod(
             &client, "setSerialLineParameters",
             Q_ARG(MultiportInterface::Port, MultiportInterface::PaymentPort),
             Q_ARG(MultiportProtocol::BaudRate, MultiportProtocol::Baud9600),
             Q_ARG(MultiportProtocol::DataBits, MultiportProtocol::DataBits8),
             Q_ARG(MultiportProtocol::Parity, MultiportProtocol::ParityEven),
             Q_ARG(MultiportProtocol::MDBMode, MultiportProtocol::MDBModeOff)));
     },
     20, "0f a0 00 00 25 80 08 01 00"},
};
INSTANTIATE_TEST_SUITE_P(Rows, MultiportRequests, ::testing::ValuesIn(s_requestCases), caseName);

// -- how they end ---------------------------------------------------------------------------------

using MultiportRequestTest = LinkBench;

TEST_F(MultiportRequestTest, StatusesAreToldInTheOrderOfTheRequests)
{
    connectAll();
    m_server.setAnswer([](const Request &request) {
        return static_cast<quint8>(request.payload.at(0)); // each has a status of its own
    });
    QStringList expected;
    for (int i = 0; i < 200; ++i) {
        client().setOutputEnabled(i, i % 2 == 0);
        expected.append(QStringLiteral("status 30 %1").arg(i));
    }
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() >= 200; }));
    EXPECT_EQ(m_journal, expected);
}

TEST_F(MultiportRequestTest, OutputThatDoesNotExistIsNotAskedFor)
{
    connectAll();
    const LogSpy log;
    client().setOutputEnabled(256, true);
    client().setBlinkOutput(-1, true);
    client().stopMotor(3);
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 1; }));
    EXPECT_EQ(m_journal.constFirst(), QStringLiteral("status 54 0"));
    EXPECT_EQ(m_server.requests().size(), 3); // two claims
    EXPECT_EQ(log.count("but expected 0 to 255", 4, Log::Hardware), 2);
}

TEST_F(MultiportRequestTest, RequestThatTheLinkDidNotLiveToAnswerIsToldNothing)
{
    connectAll();
    m_server.setAnswer([](const Request &request) -> std::optional<quint8> {
        if (request.command == MultiportProtocol::CommandSetOutput)
            return std::nullopt;
        return MultiportProtocol::StatusDone;
    });
    client().setOutputEnabled(9, true);
    ASSERT_TRUE(waitUntil([this] { return m_server.requests(30).size() == 1; }));
    restartServer();
    client().stopMotor(1);
    ASSERT_TRUE(waitUntil([this] { return m_journal.contains(QStringLiteral("status 54 0")); }));
    EXPECT_EQ(m_server.requests(30).size(), 1);
    EXPECT_EQ(m_journal.filter(QStringLiteral("status")).size(), 1);
}

TEST_F(MultiportRequestTest, ThousandAtOnceAreAllAnswered)
{
    connectAll();
    for (int i = 0; i < 1000; ++i)
        client().setParameter(static_cast<unsigned short>(i), 1);
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() == 1000; }));
    const QList<Request> requests = m_server.requests(MultiportProtocol::CommandSetParameter);
    ASSERT_EQ(requests.size(), 1000);
    for (int i = 0; i < 1000; ++i) {
        const QByteArray payload = requests.at(i).payload;
        EXPECT_EQ(static_cast<quint8>(payload.at(0)) << 8 | static_cast<quint8>(payload.at(1)), i);
    }
    EXPECT_TRUE(isUp());
}

// The client's thread does not come to them: what waits for it is bounded, and what does not fit is
// told at once.
TEST_F(MultiportRequestTest, FloodIsBoundedAndWhatIsSentIsAnswered)
{
    connectAll();
    const LogSpy log;
    {
        const ThreadHold hold(client());
        for (int i = 0; i < 10000; ++i)
            client().stopMotor(1);
    }
    const int refused = log.count("Too many requests at once, command 54 01 not sent", 3);
    EXPECT_EQ(refused, 10000 - 1024);
    ASSERT_TRUE(waitUntil([&] { return m_journal.size() == 10000 - refused; }));
    EXPECT_TRUE(isUp());
    client().stopMotor(2);
    EXPECT_TRUE(waitUntil([&] { return m_journal.size() == 10001 - refused; }));
}

// -- events ---------------------------------------------------------------------------------------

class MultiportEventTest : public LinkBench
{
protected:
    MultiportEventTest()
    {
        const auto note = [this](const char *pWhat, std::initializer_list<int> numbers) {
            QString text = QString::fromLatin1(pWhat);
            for (const int number : numbers)
                text += QStringLiteral(" %1").arg(number);
            m_journal.append(text);
        };
        QObject::connect(&client(), &Multiport::daddUpperMicroswitchStatus, &client(),
                         [=](unsigned char status) { note("upper", {status}); });
        QObject::connect(&client(), &Multiport::daddLowerMicroswitchStatus, &client(),
                         [=](unsigned char status) { note("lower", {status}); });
        QObject::connect(&client(), &Multiport::daddMicroswitchesStatusReceived, &client(),
                         [=](unsigned char lower, unsigned char upper) {
                             note("switches", {lower, upper});
                         });
        QObject::connect(&client(), &Multiport::motorStatusChanged, &client(),
                         [=](unsigned char motor, unsigned char status) {
                             note("motor", {motor, status});
                         });
    }
};

TEST_F(MultiportEventTest, EachGoesToItsSignal)
{
    connectAll();
    m_server.sendEvent(7, hex("01"));
    m_server.sendEvent(8, hex("00"));
    m_server.sendEvent(65, hex("01 00"));
    m_server.sendEvent(67, hex("02 ff"));
    m_server.sendEvent(8, hex("01"));
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() >= 5; }));
    EXPECT_EQ(m_journal.join(QStringLiteral(", ")),
              QStringLiteral("upper 1, lower 0, switches 1 0, motor 2 255, lower 1"));
}

TEST_F(MultiportEventTest, AnswersComeBeforeTheStatusOfTheirRequest)
{
    connectAll();
    m_server.setAnswer([this](const Request &request) {
        if (request.command == MultiportProtocol::CommandDigitInput)
            m_server.sendEvent(MultiportProtocol::EventMicroswitches, hex("00 01"));
        if (request.command == MultiportProtocol::CommandMotorStatus)
            m_server.sendEvent(MultiportProtocol::EventMotorStatus, request.payload + '\x03');
        return quint8{MultiportProtocol::StatusDone};
    });
    client().sendRequestDigitInput();
    client().motorStatus(1);
    ASSERT_TRUE(waitUntil([this] { return m_journal.size() >= 4; }));
    EXPECT_EQ(m_journal.join(QStringLiteral(", ")),
              QStringLiteral("switches 0 1, status 49 0, motor 1 3, status 53 0"));
}

TEST_F(MultiportEventTest, ThoseOfAnotherLengthOrNumberSignalNothing)
{
    connectAll();
    for (const int event : {7, 8, 65, 67}) {
        m_server.sendEvent(static_cast<quint8>(event), QByteArray());
        m_server.sendEvent(static_cast<quint8>(event), hex("01 01 01"));
    }
    m_server.sendEvent(65, hex("01"));
    m_server.sendEvent(7, hex("01 01"));
    m_server.sendEvent(0, hex("01"));
    m_server.sendEvent(255, hex("01 01"));
    ASSERT_TRUE(waitUntil([this] { return isUp(); }));
    m_server.sendEvent(8, hex("01"));
    waitUntil([this] { return m_journal.contains(QStringLiteral("lower 1")); }, 1000);
    m_journal.removeAll(QStringLiteral("lower 1"));
    for (const QString &line : qAsConst(m_journal))
        EXPECT_TRUE(line.startsWith(QLatin1String("server")) ||
                    line.startsWith(QLatin1String("can")) ||
                    line.startsWith(QLatin1String("payment")))
            << line.toStdString();
}
