#include "canbus/canprotocol_vy.h"
#include "canbus/protocoltest.h"

#include "support/casename.h"
#include "support/logspy.h"

#include <gtest/gtest.h>

using namespace ProtocolAddress;

namespace {

class CanReceiving : public ProtocolFixture<CanProtocol_Vy>
{
protected:
    /// A board sends a message of its own.
    void receiveMessage(int command, const CanBytes &payload, int source = Board)
    {
        const auto all = framesOf(source, Own, command, payload);
        for (const CanFrame &one : all)
            receive(one);
    }
};

const QString s_newFails = QStringLiteral("new CAN message decoding FAIL");
const QString s_followingFails = QStringLiteral("multiple frames CAN message decoding FAIL");

} // namespace

// -- whole messages -------------------------------------------------------------------------------

struct PayloadCase
{
    const char *pName;
    int size;
};

class CanPayloads : public CanReceiving, public ::testing::WithParamInterface<PayloadCase>
{
};

TEST_P(CanPayloads, ArriveBehindTheTwoBytesOfTheirLength)
{
    const CanBytes payload = countingBytes(GetParam().size);
    const CanBytes stream = streamOf(0x2A, payload);
    for (int i = 0; i < stream.size(); i += 8)
        receive(Board, i / 8, stream.mid(i, 8));

    EXPECT_EQ(timeline(), (Timeline{"0 writes 1", "0 received 42"})) << "acknowledged, then told";
    EXPECT_EQ(m_received.first()->data(), bigEndian(payload.size()) + payload);
    EXPECT_EQ(m_received.first()->source(), Board);
    EXPECT_EQ(m_received.first()->destination(), Own);
    EXPECT_FALSE(m_received.first()->isSimulated());
    const CanFrame &written = m_pInterface->written().first();
    EXPECT_EQ(written.data(), answerStream(1, 0x2A));
    EXPECT_EQ(VYCanFrame::sourceAddress(written), Own);
    EXPECT_EQ(VYCanFrame::destinationAddress(written), Board);
    EXPECT_EQ(m_pProtocol->incomingMessageCount(), 0);

    advance(10000);
    EXPECT_EQ(timeline(), Timeline{});
}

const PayloadCase s_payloadCases[] = {
    {"NoData", 0},       {"OneByte", 1},          {"TwoBytesFillAFrame", 2},
    {"ThreeBytes", 3},   {"TenBytesFillTwo", 10}, {"ElevenBytes", 11},
    {"TwoHundred", 250}, {"FiveHundred", 500},    {"MostThatCanBeNumbered", 506},
};
INSTANTIATE_TEST_SUITE_P(Sizes, CanPayloads, ::testing::ValuesIn(s_payloadCases), caseName);

TEST_F(CanReceiving, PayloadBeginsAtOffsetTwo)
{
    receive(Board, 0, bytes("02 00 2a 00 02 10 20 1a"));
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.first()->data(), bytes("00 02 10 20"));
}

TEST_F(CanReceiving, FrameIsLoggedWithItsBytes)
{
    LogSpy log;
    receive(Board, 0, bytes("02 00 2a 00 00 28"));
    EXPECT_EQ(log.count("data  0x02 0x00 0x2a 0x00 0x00 0x28"), 1);
}

TEST_F(CanReceiving, MessageIsToldWithoutAnyoneToAcknowledgeItTo)
{
    m_pProtocol->setCanInterface(nullptr);
    m_pProtocol->processIncomingFrame(frame(Board, Own, 0, bytes("02 00 2a 00 00 28")));
    EXPECT_EQ(timeline(), Timeline{"0 received 42"});
}

TEST_F(CanReceiving, MessageIsToldThoughItsAcknowledgeIsRefused)
{
    m_pInterface->setRefusing(true);
    receiveMessage(42, {});
    EXPECT_EQ(timeline(), Timeline{"0 received 42"});
}

TEST_F(CanReceiving, UnknownCommandIsLoggedToldAndAcknowledgedAsNone)
{
    LogSpy log;
    receive(Board, 0, withChecksum(bytes("02 08 00 00 00")));
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.first()->command(), -1);
    EXPECT_EQ(m_pInterface->written().first().data(), bytes("02 00 01 ff ff 03"));
    EXPECT_EQ(log.count("Invalid command 2048", 4, Log::CanBus), 1);
}

TEST_F(CanReceiving, SameMessageTwiceIsTwoMessages)
{
    receiveMessage(42, bytes("01"));
    receiveMessage(42, bytes("01"));
    EXPECT_EQ(m_received.size(), 2);
    EXPECT_EQ(m_pInterface->written().size(), 2);
}

TEST_F(CanReceiving, SlotMaySendAndReceiveAgain)
{
    QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::messageReceived, m_pProtocol.get(),
                     [this](const Message &pMessage) {
                         if (pMessage->command() == 42) {
                             send(50);
                             receiveMessage(43, countingBytes(20));
                         }
                     });
    receiveMessage(42, countingBytes(20));
    EXPECT_EQ(timeline(), (Timeline{"0 writes 1", "0 received 42", "0 writes 50", "0 sent 50",
                                    "0 writes 1", "0 received 43"}));
}

TEST_F(CanReceiving, InterfaceMayGoInsideTheSlot)
{
    QObject::connect(m_pProtocol.get(), &AbstractCanProtocol::messageReceived, m_pProtocol.get(),
                     [this] { m_pProtocol->setCanInterface(nullptr); });
    receiveMessage(42, {});
    receiveMessage(43, {});
    EXPECT_EQ(m_received.size(), 1);
}

// -- first frames that are none -------------------------------------------------------------------

struct BadFrameCase
{
    const char *pName;
    int index;
    const char *pData;
    int checksumErrors;
};

class CanBadFrames : public CanReceiving, public ::testing::WithParamInterface<BadFrameCase>
{
};

TEST_P(CanBadFrames, AreDroppedWithOneLine)
{
    LogSpy log;
    receive(Board, GetParam().index, bytes(GetParam().pData));
    EXPECT_EQ(log.count(s_newFails), 1);
    EXPECT_EQ(log.count(s_followingFails), 0);
    EXPECT_EQ(log.count("CHECKSUM Error", 4), GetParam().checksumErrors);
    EXPECT_EQ(m_pProtocol->incomingMessageCount(), 0);
    advance(10000);
    EXPECT_EQ(timeline(), Timeline{}) << "neither told nor refused";
}

const BadFrameCase s_badFrameCases[] = {
    {"Empty", 0, "", 0},
    {"StartByteAlone", 0, "02", 0},
    {"HalfACommand", 0, "02 00", 0},
    {"CommandAlone", 0, "02 00 2a", 0},
    {"HalfALength", 0, "02 00 2a 00", 0},
    {"HalfAnAcknowledge", 0, "02 00 01 00", 0},
    {"NoChecksum", 0, "02 00 2a 00 02", 1},
    {"OtherStartByte", 0, "01 00 2a 00 00 2b", 0},
    {"FollowingFrame", 1, "02 00 2a 00 00 28", 0},
    {"LastIndex", 63, "02 00 2a 00 00 28", 0},
    {"WrongChecksum", 0, "02 00 2a 00 00 29", 1},
    {"WrongChecksumOfAnAcknowledge", 0, "02 00 01 00 2a 28", 1},
    {"AcknowledgeOfFiveBytes", 0, "02 00 01 00 2a", 1},
};
INSTANTIATE_TEST_SUITE_P(Frames, CanBadFrames, ::testing::ValuesIn(s_badFrameCases), caseName);

TEST_F(CanReceiving, ChecksumErrorBearsItsSignature)
{
    LogSpy log;
    receive(Board, 0, bytes("02 00 2a 00 00 29"));
    const QStringList lines = log.texts().filter(QStringLiteral("CHECKSUM Error"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.first().contains(
        QLatin1String("AbstractCanProtocol::incomingMessageFinalChecks(IncomingCanMessage*)")));
    EXPECT_EQ(log.count("CHECKSUM Error", 4, Log::CanBus), 1);
}

TEST_F(CanReceiving, FirstFrameIsNotComparedWithTheLengthThatItTells)
{
    // Two bytes are announced, none came; the sum is right.
    receive(Board, 0, withChecksum(bytes("02 00 2a 00 02")));
    ASSERT_EQ(m_received.size(), 1);
    EXPECT_EQ(m_received.first()->data(), bytes("00 02"));
}

TEST_F(CanReceiving, WrongBitAnywhereIsFound)
{
    const CanBytes good = bytes("02 00 2a 00 02 10 20 1a");
    for (int i = 5; i < good.size(); ++i) {
        CanBytes bad = good;
        bad[i] ^= 0x40;
        receive(Board, 0, bad);
    }
    EXPECT_EQ(timeline(), Timeline{});
}

// -- final checks ---------------------------------------------------------------------------------

struct ChecksCase
{
    const char *pName;
    const char *pStream;
    bool isGood;
    const char *pLeft;
};

class CanFinalChecks : public CanReceiving, public ::testing::WithParamInterface<ChecksCase>
{
};

TEST_P(CanFinalChecks, TakeOffTheEnvelope)
{
    LogSpy log;
    IncomingCanMessage entry;
    entry.pMessage->setData(bytes(GetParam().pStream));
    EXPECT_EQ(m_pProtocol->incomingMessageFinalChecks(&entry), GetParam().isGood);
    EXPECT_EQ(entry.isComplete, GetParam().isGood);
    EXPECT_EQ(log.count("CHECKSUM Error", 4, Log::CanBus), GetParam().isGood ? 0 : 1);
    if (GetParam().isGood) {
        EXPECT_EQ(entry.pMessage->data(), bytes(GetParam().pLeft));
    }
}

const ChecksCase s_checksCases[] = {
    {"NoData", "02 00 2a 00 00 28", true, "00 00"},
    {"Payload", "02 00 2a 00 02 10 20 1a", true, "00 02 10 20"},
    {"Acknowledge", "02 00 01 00 2a 29", true, "00 2a"},
    {"Wrong", "02 00 2a 00 00 27", false, ""},
    {"WrongInTheLastBit", "02 00 2a 00 00 29", false, ""},
    {"WrongStartByte", "03 00 2a 00 00 28", false, ""},
};
INSTANTIATE_TEST_SUITE_P(Streams, CanFinalChecks, ::testing::ValuesIn(s_checksCases), caseName);

TEST_F(CanReceiving, FinalChecksOfNextToNothingHarmNothing)
{
    for (const char *pStream : {"", "00", "02", "02 02", "02 00 02"}) {
        IncomingCanMessage entry;
        entry.pMessage->setData(bytes(pStream));
        const CanBytes before = entry.pMessage->data();
        EXPECT_FALSE(m_pProtocol->incomingMessageFinalChecks(&entry)) << pStream;
        EXPECT_FALSE(entry.isComplete);
        EXPECT_EQ(entry.pMessage->data(), before);
    }
}

// -- trace ----------------------------------------------------------------------------------------

TEST_F(CanReceiving, FramesOfTheSimulatedBusAreTracedRejectedOnesToo)
{
    m_pInterface->openInterface(QStringLiteral("canBus.txt"));
    const CanFrame good = frame(Board, Own, 0, bytes("02 00 2a 00 00 28"));
    const CanFrame foreign = frame(Board, OtherBoard, 3, bytes("55"));
    receive(good);
    receive(foreign);
    const auto &traces = m_pInterface->traces();
    ASSERT_EQ(traces.size(), 2);
    EXPECT_EQ(traces.at(0).frame.id(), good.id());
    EXPECT_EQ(traces.at(0).frame.data(), good.data());
    EXPECT_EQ(traces.at(1).frame.id(), foreign.id());
    for (const auto &trace : traces) {
        EXPECT_TRUE(trace.isReceived);
        EXPECT_EQ(trace.comment, QLatin1String("->SimulatedIncomingFrame"));
    }
}

TEST_F(CanReceiving, FramesOfOtherInterfacesAreNotTraced)
{
    for (const auto &name : {QString(), QStringLiteral("/tmp/canBus.txt"),
                             QStringLiteral("canbus.txt"), QStringLiteral("can0")}) {
        m_pInterface->openInterface(name);
        receiveMessage(42, {});
    }
    EXPECT_TRUE(m_pInterface->traces().isEmpty());
    EXPECT_EQ(m_received.size(), 4);
}

// -- simulated messages ---------------------------------------------------------------------------

TEST_F(CanReceiving, SimulatedMessageIsTracedAcknowledgedAndTold)
{
    LogSpy log;
    CanMessage message(Own, 42, bytes("00 02 10 20"));
    message.setSource(OtherBoard);
    EXPECT_TRUE(m_pProtocol->simulateIncomingMessage(message));

    EXPECT_EQ(timeline(), (Timeline{"0 writes 1", "0 received 42"}));
    EXPECT_EQ(VYCanFrame::destinationAddress(m_pInterface->written().first()), OtherBoard);
    EXPECT_EQ(m_pInterface->written().first().data(), answerStream(1, 42));
    const Message &pCopy = m_received.first();
    EXPECT_TRUE(pCopy->isSimulated());
    EXPECT_FALSE(message.isSimulated());
    EXPECT_EQ(pCopy->source(), OtherBoard);
    EXPECT_EQ(pCopy->destination(), Own);
    EXPECT_EQ(pCopy->command(), 42);
    EXPECT_EQ(pCopy->data(), bytes("00 02 10 20"));

    ASSERT_EQ(m_pInterface->traces().size(), 1) << "whatever the interface's name";
    const auto &trace = m_pInterface->traces().first();
    EXPECT_EQ(trace.comment, QLatin1String("->SimulatedIncomingMessage commandId: 42"));
    EXPECT_TRUE(trace.isReceived);
    EXPECT_EQ(trace.frame.id(), 0U);
    EXPECT_TRUE(trace.frame.data().isEmpty());
    EXPECT_EQ(log.count("AbstractCanProtocol::simulateIncomingMessage(const CanMessage&)"), 1);
}

TEST_F(CanReceiving, SimulatedAcknowledgesAnswerNothing)
{
    send();
    timeline();
    CanMessage message(Own, 1, bytes("00 2a"));
    message.setSource(Board);
    EXPECT_TRUE(m_pProtocol->simulateIncomingMessage(message));
    message.setCommand(2);
    EXPECT_TRUE(m_pProtocol->simulateIncomingMessage(message));
    EXPECT_EQ(timeline(), (Timeline{"0 writes 1", "0 received 1", "0 writes 1", "0 received 2"}));
    EXPECT_TRUE(channel()->isWaitingForAnswer());
}

TEST_F(CanReceiving, SimulatedMessageWithoutInterfaceIsToldAndNotTraced)
{
    m_pProtocol->setCanInterface(nullptr);
    EXPECT_TRUE(m_pProtocol->simulateIncomingMessage(CanMessage(Own, 42)));
    EXPECT_EQ(timeline(), Timeline{"0 received 42"});
    EXPECT_TRUE(m_pInterface->traces().isEmpty());
}

TEST_F(CanReceiving, SimulatedMessageOnADeletedInterfaceIsTold)
{
    m_pInterface.reset();
    EXPECT_TRUE(m_pProtocol->simulateIncomingMessage(CanMessage()));
    EXPECT_EQ(timeline(), Timeline{"0 received -1"});
}
