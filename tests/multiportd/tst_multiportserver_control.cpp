#include "multiportd/servertest.h"

#include "support/casename.h"

#include <string>

using multiportlink::Kind;
using multiportlink::Role;

// -- greeting -------------------------------------------------------------------------------------

TEST_F(ServerTest, WelcomeNamesTheDataPorts)
{
    for (const Role role : {Role::Observer, Role::Controller}) {
        ControlPeer peer(m_server.ports().control);
        ASSERT_TRUE(peer.greets(role));
        const auto welcome = multiportlink::decodeWelcome(peer.records(Kind::Welcome).front());
        ASSERT_TRUE(welcome.has_value());
        EXPECT_EQ(welcome->version, 1);
        EXPECT_EQ(welcome->role, role);
        EXPECT_EQ(welcome->canPort, m_server.ports().can);
        EXPECT_EQ(welcome->paymentPort, m_server.ports().payment);
    }
}

TEST_F(ServerTest, HelloMayArriveByteByByte)
{
    ControlPeer peer(m_server.ports().control);
    const auto all = QByteArray::fromHex("000701 56594d50 0101");
    for (const char byte : all) {
        EXPECT_TRUE(peer.records(Kind::Welcome).empty());
        peer.send(QByteArray(1, byte));
        settle();
    }
    EXPECT_TRUE(comes([&peer] { return peer.records(Kind::Welcome).size() == 1; }));
}

struct GoodbyeCase
{
    const char *pName;
    const char *pFirst; ///< what the client sends first, in hexadecimal
    const char *pThen;
    int reason;
};

class ServerGoodbyes : public ServerTest, public ::testing::WithParamInterface<GoodbyeCase>
{
};

TEST_P(ServerGoodbyes, TellWhyAndEndThatConnectionAlone)
{
    const auto pOther = observer();
    ControlPeer peer(m_server.ports().control);
    peer.sendHex(GetParam().pFirst);
    peer.sendHex(GetParam().pThen);
    EXPECT_EQ(peer.goodbye(), GetParam().reason);
    EXPECT_EQ(m_log.count("dropped:", 3), 1);
    EXPECT_TRUE(pOther->isConnected());
    EXPECT_EQ(pOther->asks(30, QByteArray::fromHex("0901")), 3);
}

constexpr auto s_pHello = "000701 56594d50 0100";
constexpr GoodbyeCase s_goodbyeCases[] = {
    {"OtherMagic", "000701 56594d51 0100", "", 1},
    {"NoMagic", "000101", "", 1},
    {"RequestFirst", "000602 0007 1e 0901", "", 1},
    {"HeartbeatFirst", "000104", "", 1},
    {"VersionBelow", "000701 56594d50 0000", "", 2},
    {"VersionAbove", "000701 56594d50 0201", "", 2},
    {"LongHelloOfAnotherVersion", "000901 56594d50 0201 ffff", "", 2},
    {"HelloTooShort", "000601 56594d50 01", "", 5},
    {"HelloTooLong", "000801 56594d50 0100 00", "", 5},
    {"RoleAbove", "000701 56594d50 0102", "", 5},
    {"LengthZero", "0000", "", 5},
    {"UnknownKind", "000105", "", 5},
    {"LengthOneAbove", "0fff01", "", 6},
    {"LengthLargest", "ffff", "", 6},
    {"Text", "474554202f20485454502f312e310d0a", "", 6}, // "GET / HTTP/1.1"
    {"SecondHello", s_pHello, s_pHello, 5},
    {"WhatServersSay", s_pHello, "00058200071e00", 5},
    {"HeartbeatWithBody", s_pHello, "00020400", 5},
    {"RequestTooShort", s_pHello, "0003020007", 5},
    {"UnknownKindLater", s_pHello, "000106", 5},
    {"LengthOneAboveLater", s_pHello, "0fff02", 6},
};
INSTANTIATE_TEST_SUITE_P(Rows, ServerGoodbyes, ::testing::ValuesIn(s_goodbyeCases), caseName);

TEST_F(ServerTest, TakesARecordOf4096Bytes)
{
    const auto pController = controller();
    EXPECT_EQ(pController->asks(200, QByteArray(4096 - 6, 'x')), 4);
    EXPECT_TRUE(pController->isConnected());
}

TEST_F(ServerTest, WhoSaysNoHelloIsToldAfter5Seconds)
{
    ControlPeer silent(m_server.ports().control);
    ControlPeer half(m_server.ports().control);
    half.sendHex("000701 56594d50 01");
    QTest::qWait(4500);
    EXPECT_TRUE(silent.isConnected());
    EXPECT_TRUE(half.isConnected());
    EXPECT_EQ(silent.goodbye(), 7);
    EXPECT_EQ(half.goodbye(), 7);
}

// -- who may come ---------------------------------------------------------------------------------

TEST_F(ServerTest, SecondControllerIsRefusedUntilTheFirstHasLeft)
{
    auto pFirst = controller();
    for (int attempt = 0; attempt < 2; ++attempt) {
        ControlPeer second(m_server.ports().control);
        second.sendHex("000701 56594d50 0101");
        EXPECT_EQ(second.goodbye(), 3);
    }
    EXPECT_TRUE(pFirst->isConnected());
    EXPECT_EQ(pFirst->asks(30, QByteArray::fromHex("0901")), 0);
    pFirst.reset();
    settle();
    EXPECT_TRUE(ControlPeer(m_server.ports().control).greets(Role::Controller));
}

TEST_F(ServerTest, TakesSixteenObserversOnTheControlPort)
{
    std::vector<std::unique_ptr<ControlPeer>> observers;
    for (int count = 0; count < 16; ++count)
        observers.push_back(observer());
    for (int attempt = 0; attempt < 2; ++attempt) {
        ControlPeer peer(m_server.ports().control);
        peer.sendHex(s_pHello);
        EXPECT_EQ(peer.goodbye(), 4);
    }
    EXPECT_EQ(controller()->asks(30, QByteArray::fromHex("0901")), 0); // has a place of its own
    for (const auto &pPeer : observers)
        EXPECT_TRUE(pPeer->isConnected());
    observers.pop_back();
    settle();
    observers.push_back(observer());
}

TEST_F(ServerTest, WhoSaysNothingMakesRoomForTheNext)
{
    std::vector<std::unique_ptr<ControlPeer>> silent;
    for (int count = 0; count < ControlPort::MaxGreeting + 3; ++count) {
        silent.push_back(std::make_unique<ControlPeer>(m_server.ports().control));
        settle();
    }
    for (int oldest = 0; oldest < 3; ++oldest)
        EXPECT_EQ(silent.at(static_cast<size_t>(oldest))->goodbye(), 4);
    EXPECT_TRUE(silent.at(3)->isConnected());
    EXPECT_EQ(m_log.count("dropped: too many clients", 3), 1); // once until somebody is welcome
    EXPECT_TRUE(controller()->isConnected());
}

// -- heartbeat ------------------------------------------------------------------------------------

TEST_F(ServerTest, SilentClientIsDroppedAndHasHeardHeartbeats)
{
    ControlPeer silent(m_server.ports().control);
    ASSERT_TRUE(silent.greets(Role::Controller));
    const auto pOther = observer(); // sends heartbeats
    EXPECT_EQ(silent.goodbye(), 8);
    EXPECT_EQ(silent.records(Kind::Heartbeat).size(), 2U); // one a second, in 2.5 s
    QTest::qWait(1000);
    EXPECT_TRUE(pOther->isConnected());
}

// -- requests -------------------------------------------------------------------------------------

struct RequestCase
{
    const char *pName;
    quint8 command;
    const char *pPayload; ///< in hexadecimal
    int status;
    const char *pDone; ///< what the backends were told
};

class ServerRequests : public ServerTest, public ::testing::WithParamInterface<RequestCase>
{
};

TEST_P(ServerRequests, AreAnsweredWithTheirStatus)
{
    const QByteArray payload = QByteArray::fromHex(GetParam().pPayload);
    EXPECT_EQ(observer()->asks(GetParam().command, payload), 3);
    EXPECT_EQ(m_payment.m_lines + m_outputs.m_calls, QStringList());

    EXPECT_EQ(controller()->asks(GetParam().command, payload), GetParam().status);
    const QString done = QString::fromLatin1(GetParam().pDone);
    EXPECT_EQ((m_payment.m_lines + m_outputs.m_calls).join(QLatin1Char(';')), done);
}

constexpr RequestCase s_requestCases[] = {
    {"OutputOn", 30, "0901", 0, "output 9 1"},
    {"OutputOff", 30, "0900", 0, "output 9 0"},
    {"OutputRejected", 30, "ff01", 1, "output 255 1"},
    {"OutputFlagAbove", 30, "0902", 2, ""},
    {"OutputTooShort", 30, "09", 2, ""},
    {"OutputTooLong", 30, "090101", 2, ""},
    {"BlinkOn", 31, "0001", 0, "blink 0 1"},
    {"BlinkOff", 31, "0000", 0, "blink 0 0"},
    {"BlinkEmpty", 31, "", 2, ""},
    {"SerialLine", 20, "0fa0 00002580 09 00 00", 0, "9600 9 0"},
    {"SerialLineEven", 20, "0fa0 00002580 08 01 00", 0, "9600 8 1"},
    {"SerialLineOdd", 20, "0fa0 00002580 08 02 00", 0, "9600 8 2"},
    {"SerialLineOtherPort", 20, "0fa1 00002580 09 00 00", 2, ""},
    {"SerialLineNoBaudRate", 20, "0fa0 00000000 09 00 00", 2, ""},
    {"SerialLine7Bits", 20, "0fa0 00002580 07 00 00", 2, ""},
    {"SerialLine10Bits", 20, "0fa0 00002580 0a 00 00", 2, ""},
    {"SerialLineParityAbove", 20, "0fa0 00002580 08 03 00", 2, ""},
    {"SerialLineMdbMode", 20, "0fa0 00002580 09 00 01", 2, ""},
    {"SerialLineTooShort", 20, "0fa0 00002580 09 00", 2, ""},
    {"SerialLineTooLong", 20, "0fa0 00002580 09 00 00 00", 2, ""},
    {"DigitInput", 49, "", 5, ""},
    {"DigitInputTooLong", 49, "00", 2, ""},
    {"MotorStatus", 53, "01", 5, ""},
    {"MotorStatusEmpty", 53, "", 2, ""},
    {"StopMotor", 54, "01", 5, ""},
    {"StopMotorTooLong", 54, "0101", 2, ""},
    {"StartMotor", 74, "01 01 0064 03e8 0032 01f4", 5, ""},
    {"StartMotorTooShort", 74, "01 01 0064 03e8 0032 01", 2, ""},
    {"SetParameter", 75, "0001 0064", 5, ""},
    {"SetParameterTooShort", 75, "0001", 2, ""},
    {"CommandZero", 0, "", 4, ""},
    {"CommandUnknown", 76, "", 4, ""},
    {"ClaimOfNoInterface", 10, "02 1234", 2, ""},
    {"ClaimTooShort", 10, "01 12", 2, ""},
    {"ClaimTooLong", 10, "01 1234 00", 2, ""},
};
INSTANTIATE_TEST_SUITE_P(Rows, ServerRequests, ::testing::ValuesIn(s_requestCases), caseName);

TEST_F(ServerTest, SerialLineStatusIsTheDevices)
{
    m_payment.m_status = 6;
    EXPECT_EQ(controller()->asks(20, QByteArray::fromHex("0fa0 00002580 09 00 00")), 6);
}

TEST_F(ServerTest, ThousandRequestsAreAnsweredInTheirOrder)
{
    const auto pController = controller();
    QByteArray requests;
    for (quint16 sequence = 0; sequence < 1000; ++sequence)
        requests += multiportlink::encode(
            multiportlink::Request{sequence, 30, QByteArray::fromHex("0901")});
    pController->send(requests);
    ASSERT_TRUE(comes([&] { return pController->records(Kind::Status).size() == 1000; }));
    quint16 expected = 0;
    for (const QByteArray &body : pController->records(Kind::Status))
        EXPECT_EQ(multiportlink::decodeStatus(body)->sequence, expected++);
    EXPECT_EQ(m_outputs.m_calls.size(), 1000);
}

TEST(ServerWithoutBackendsTest, AnswersThatThereIsNoDevice)
{
    MultiportServer server(nullptr, nullptr, nullptr);
    QString error;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost, {0, 0, 0}, &error));
    ControlPeer peer(server.ports().control);
    ASSERT_TRUE(peer.greets(Role::Controller));
    LinkPeer can(server.ports().can);
    LinkPeer payment(server.ports().payment);
    EXPECT_EQ(peer.claims(1, can), 5);
    EXPECT_EQ(peer.claims(3, payment), 5);
    EXPECT_EQ(peer.asks(20, QByteArray::fromHex("0fa0 00002580 09 00 00")), 5);
    EXPECT_EQ(peer.asks(30, QByteArray::fromHex("0901")), 5);
    EXPECT_EQ(peer.asks(31, QByteArray::fromHex("0901")), 5);
    EXPECT_EQ(peer.asks(31, QByteArray::fromHex("0902")), 2);
}

// -- the end --------------------------------------------------------------------------------------

TEST_F(ServerTest, WhenItStopsEverybodyIsTold)
{
    const auto pController = controller();
    const auto pObserver = observer();
    const auto pCan = canPeer();
    const auto pPayment = paymentPeer();
    ASSERT_EQ(pController->claims(1, *pCan), 0);
    ControlPeer greeting(m_server.ports().control);
    settle();
    m_server.stop();
    EXPECT_EQ(pController->goodbye(), 10);
    EXPECT_EQ(pObserver->goodbye(), 10);
    EXPECT_EQ(greeting.goodbye(), 10);
    EXPECT_TRUE(pCan->isClosed());
    EXPECT_TRUE(pPayment->isClosed());
    EXPECT_FALSE(LinkPeer(m_server.ports().control).isConnected());
}

TEST_F(ServerTest, ListensAgainWhereItDidAfterACut)
{
    const auto pController = controller();
    m_server.setCut(true);
    EXPECT_TRUE(pController->isClosed());
    EXPECT_FALSE(LinkPeer(m_server.ports().can).isConnected());
    m_server.setCut(false);
    EXPECT_EQ(controller()->asks(30, QByteArray::fromHex("0901")), 0);
}

TEST_F(ServerTest, APortThatIsTakenIsNamed)
{
    MultiportServer second(nullptr, nullptr, nullptr);
    QString error;
    EXPECT_FALSE(second.listen(QHostAddress::LocalHost, {0, 0, m_server.ports().control}, &error));
    EXPECT_TRUE(error.startsWith(QStringLiteral("cannot listen on 127.0.0.1 port %1 (control): ")
                                     .arg(m_server.ports().control)))
        << qPrintable(error);
}
