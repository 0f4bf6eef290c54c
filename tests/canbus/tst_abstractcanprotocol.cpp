#include "canbus/abstractcanprotocol.h"

#include "canbus/canprotocol_test.h"
#include "canbus/canprotocol_vy.h"
#include "canbus/protocoltest.h"

#include "support/virtualtime.h"

#include <QMetaObject>
#include <QMetaType>

#include <gtest/gtest.h>

using namespace ProtocolAddress;

namespace {

/// A variant that writes down what the engine asks it, and answers as it is told.
class ScriptedProtocol : public AbstractCanProtocol
{
public:
    explicit ScriptedProtocol(bool mode = false)
        : AbstractCanProtocol(nullptr, mode)
    {
    }

    using AbstractCanProtocol::isFrameAccepted;
    using AbstractCanProtocol::mode;

    void onAnswerTimeoutError(CanBusChannel *) override { note("onAnswerTimeoutError"); }
    void onMessageSent(CanBusChannel *, QSharedPointer<const CanMessage>) override
    {
        note("onMessageSent");
    }
    void onAnswerTimeout(CanBusChannel *pChannel) override
    {
        note("onAnswerTimeout");
        AbstractCanProtocol::onAnswerTimeout(pChannel);
    }
    bool sendMessage(QSharedPointer<const CanMessage> pMessage, CanBusChannel *pChannel) override
    {
        note("sendMessage");
        return AbstractCanProtocol::sendMessage(pMessage, pChannel) && !m_isSendMessageFailing;
    }
    bool resend(CanBusChannel *pChannel) override
    {
        note("resend");
        return AbstractCanProtocol::resend(pChannel);
    }
    QList<CanFrame> encode(const CanMessage &message) override
    {
        note("encode");
        return AbstractCanProtocol::encode(message);
    }
    QList<CanFrame> splitIntoFrames(const QList<quint8> &stream, const CanMessage &message) override
    {
        note("splitIntoFrames");
        return AbstractCanProtocol::splitIntoFrames(stream, message);
    }
    CanFrame encodeAnswer(const CanAnswer &answer, const CanMessage &received,
                          const CanMessage &reply) override
    {
        note("encodeAnswer");
        return AbstractCanProtocol::encodeAnswer(answer, received, reply);
    }
    CanFrame decodeMessageHeader(const CanFrame &frame) const override
    {
        note("decodeMessageHeader");
        return frame;
    }
    int findMatchingIncompleteMessage(const CanFrame &frame) const override
    {
        note("findMatchingIncompleteMessage");
        return AbstractCanProtocol::findMatchingIncompleteMessage(frame);
    }
    bool decodeNewMessageFrame(const CanFrame &frame, IncomingCanMessage *pEntry) override
    {
        note("decodeNewMessageFrame");
        m_entry = *pEntry;
        pEntry->pMessage->setSource(VYCanFrame::sourceAddress(frame));
        pEntry->pMessage->setDestination(VYCanFrame::destinationAddress(frame));
        pEntry->lastFrameIndex = 0;
        pEntry->isComplete = m_isComplete;
        return m_isDecoded;
    }
    bool decodeIncompleteMessageFrame(const CanFrame &, IncomingCanMessage *pEntry) override
    {
        note("decodeIncompleteMessageFrame");
        pEntry->isComplete = m_isComplete;
        return m_isDecoded;
    }
    void processDecodedIncomingMessage(QSharedPointer<const CanMessage> pMessage) override
    {
        note(pMessage ? "processDecodedIncomingMessage" : "processDecodedIncomingMessage null");
        AbstractCanProtocol::processDecodedIncomingMessage(pMessage);
    }
    bool isFrameAccepted(const CanFrame &frame) override
    {
        note("isFrameAccepted");
        return m_isAccepted && AbstractCanProtocol::isFrameAccepted(frame);
    }
    const CanAnswer identifyAnswer(const CanMessage &, bool *pIsAnswer) override // NOLINT: fixed
    {
        note("identifyAnswer");
        *pIsAnswer = false;
        return {};
    }
    void generateAnswerMessage(const CanAnswer &answer, const CanMessage &received,
                               CanMessage *pReply) override
    {
        note("generateAnswerMessage");
        AbstractCanProtocol::generateAnswerMessage(answer, received, pReply);
    }
    void answerMessage(CanAnswer::AnswerType type,
                       QSharedPointer<const CanMessage> pReceived) override
    {
        note("answerMessage");
        AbstractCanProtocol::answerMessage(type, pReceived);
    }
    bool sendAnswerMessage(const CanAnswer &answer,
                           QSharedPointer<const CanMessage> pReceived) override
    {
        note("sendAnswerMessage");
        m_answers.push_back(answer.type());
        return AbstractCanProtocol::sendAnswerMessage(answer, pReceived);
    }

    void setAccepted(bool isAccepted) { m_isAccepted = isAccepted; }
    void setDecoded(bool isDecoded, bool isComplete)
    {
        m_isDecoded = isDecoded;
        m_isComplete = isComplete;
    }
    void setSendMessageFailing(bool isFailing) { m_isSendMessageFailing = isFailing; }
    const IncomingCanMessage &newEntry() const { return m_entry; }
    std::vector<std::string> calls() { return std::exchange(m_calls, {}); }
    const std::vector<CanAnswer::AnswerType> &answers() const { return m_answers; }

private:
    void note(const char *pCall) const { m_calls.emplace_back(pCall); }

    mutable std::vector<std::string> m_calls;
    std::vector<CanAnswer::AnswerType> m_answers;
    bool m_isAccepted = true;
    bool m_isDecoded = true;
    bool m_isComplete = true;
    bool m_isSendMessageFailing = false;
    IncomingCanMessage m_entry;
};

using Calls = std::vector<std::string>;

class ScriptedProtocolTest : public ::testing::Test
{
public:
    ~ScriptedProtocolTest() override { CanBusChannel::deleteChannels(); }
    Q_DISABLE_COPY_MOVE(ScriptedProtocolTest)

protected:
    ScriptedProtocolTest()
    {
        m_protocol.setOwnAddress(Own);
        m_protocol.setCanInterface(&m_interface);
    }

    static QSharedPointer<const CanMessage> message()
    {
        return QSharedPointer<CanMessage>::create(Board, 42);
    }

    RecordingInterface m_interface;
    ScriptedProtocol m_protocol;
    CanBusChannel *m_pChannel = CanBusChannel::channel(5);
};

} // namespace

// -- the interface --------------------------------------------------------------------------------

TEST(AbstractCanProtocolInterface, ModeIsWhatTheConstructorWasGiven)
{
    EXPECT_TRUE(ScriptedProtocol(true).mode());
    EXPECT_FALSE(ScriptedProtocol(false).mode());
}

TEST(AbstractCanProtocolInterface, ParentOwnsIt)
{
    QObject parent;
    const auto *const pProtocol = new CanProtocol_Vy(&parent);
    EXPECT_EQ(pProtocol->parent(), &parent);
}

// -- the bus --------------------------------------------------------------------------------------

TEST(CanProtocolBusTest, NewProtocolHasNone)
{
    EXPECT_EQ(ScriptedProtocol().canInterface(), nullptr);
}

TEST(CanProtocolBusTest, DeletedInterfaceReadsAsNone)
{
    ScriptedProtocol protocol;
    {
        RecordingInterface bus;
        protocol.setCanInterface(&bus);
        EXPECT_EQ(protocol.canInterface(), &bus);
    }
    EXPECT_EQ(protocol.canInterface(), nullptr);
}

TEST(CanProtocolBusTest, OnlyTheNewInterfaceIsHeard)
{
    RecordingInterface first;
    RecordingInterface second;
    ScriptedProtocol protocol;
    protocol.setAccepted(false);
    protocol.setCanInterface(&first);
    protocol.setCanInterface(&second);

    first.onFrameReceived(frame(Board, Own, 0, {}));
    EXPECT_TRUE(protocol.calls().empty());
    second.onFrameReceived(frame(Board, Own, 0, {}));
    EXPECT_EQ(protocol.calls(), (Calls{"decodeMessageHeader", "isFrameAccepted"}));
}

TEST(CanProtocolBusTest, SameInterfaceSetTwiceIsHeardOnce)
{
    RecordingInterface bus;
    ScriptedProtocol protocol;
    protocol.setAccepted(false);
    protocol.setCanInterface(&bus);
    protocol.setCanInterface(&bus);
    bus.onFrameReceived(frame(Board, Own, 0, {}));
    EXPECT_EQ(protocol.calls().size(), 2U);
}

TEST(CanProtocolBusTest, NoInterfaceIsHeardOnceItIsTakenAway)
{
    RecordingInterface bus;
    ScriptedProtocol protocol;
    protocol.setCanInterface(&bus);
    protocol.setCanInterface(nullptr);
    EXPECT_EQ(protocol.canInterface(), nullptr);
    bus.onFrameReceived(frame(Board, Own, 0, {}));
    EXPECT_TRUE(protocol.calls().empty());
}

TEST(CanProtocolBusTest, FilteredFramesAreNotHeard)
{
    RecordingInterface bus;
    ScriptedProtocol protocol;
    protocol.setCanInterface(&bus);
    bus.onFrameReceived(frame(Board, 0x705, 0, {}));
    EXPECT_TRUE(protocol.calls().empty());
}

TEST(CanProtocolBusTest, SimulatedBusShortensAllTimeOuts)
{
    const CanBusChannel *const pChannel = CanBusChannel::channel(1);
    RecordingInterface simulated(true);
    ScriptedProtocol protocol;
    protocol.setCanInterface(&simulated);
    EXPECT_EQ(CanBusChannel::globalTimeoutValue(), 200);
    EXPECT_EQ(pChannel->timeoutValue(), 200);
    EXPECT_EQ(CanBusChannel::channel(2)->timeoutValue(), 200);
    CanBusChannel::deleteChannels();
    CanBusChannel::setGlobalTimeoutValue(1200);
}

TEST(CanProtocolBusTest, RealBusAndNoneLeaveTheTimeOut)
{
    CanBusChannel::setGlobalTimeoutValue(700);
    RecordingInterface real(false);
    ScriptedProtocol protocol;
    protocol.setCanInterface(&real);
    protocol.setCanInterface(nullptr);
    EXPECT_EQ(CanBusChannel::globalTimeoutValue(), 700);
    CanBusChannel::setGlobalTimeoutValue(1200);
}

// -- which operation asks which -------------------------------------------------------------------

TEST_F(ScriptedProtocolTest, BaseAcceptsEveryFrame)
{
    EXPECT_TRUE(m_protocol.isFrameAccepted(frame(0, 0, 0, {})));
    EXPECT_TRUE(m_protocol.isFrameAccepted(frame(Board, 0x7FF, 63, bytes("00"))));
}

TEST_F(ScriptedProtocolTest, SendingGoesThroughItsSteps)
{
    EXPECT_TRUE(m_protocol.send(message(), m_pChannel));
    EXPECT_EQ(m_protocol.calls(), (Calls{"sendMessage", "encode", "splitIntoFrames"}));
    VirtualTime::instance()->advance(std::chrono::milliseconds(0));
    EXPECT_EQ(m_protocol.calls(), Calls{"onMessageSent"});
}

TEST_F(ScriptedProtocolTest, ChannelDoesNotWaitWhenSendMessageSaysNo)
{
    m_protocol.setSendMessageFailing(true);
    EXPECT_FALSE(m_protocol.send(message(), m_pChannel));
    EXPECT_FALSE(m_pChannel->isWaitingForAnswer());
}

TEST_F(ScriptedProtocolTest, TimeOutsAskForTwoResendsAndThenForTheError)
{
    using std::chrono::milliseconds;
    m_protocol.send(message(), m_pChannel);
    VirtualTime::instance()->advance(milliseconds(1199));
    m_protocol.calls();
    const Calls resent{"onAnswerTimeout", "resend",          "sendMessage",
                       "encode",          "splitIntoFrames", "onMessageSent"};
    VirtualTime::instance()->advance(milliseconds(1));
    EXPECT_EQ(m_protocol.calls(), resent);
    VirtualTime::instance()->advance(milliseconds(1200));
    EXPECT_EQ(m_protocol.calls(), resent);
    VirtualTime::instance()->advance(milliseconds(1200));
    EXPECT_EQ(m_protocol.calls(), (Calls{"onAnswerTimeout", "onAnswerTimeoutError"}));
    // A variant that does not end the wait is asked again and again.
    VirtualTime::instance()->advance(milliseconds(1200));
    EXPECT_EQ(m_protocol.calls(), (Calls{"onAnswerTimeout", "onAnswerTimeoutError"}));
}

TEST_F(ScriptedProtocolTest, ReceivedMessageGoesThroughItsSteps)
{
    m_interface.onFrameReceived(frame(Board, Own, 0, {}));
    EXPECT_EQ(
        m_protocol.calls(),
        (Calls{"decodeMessageHeader", "isFrameAccepted", "findMatchingIncompleteMessage",
               "decodeNewMessageFrame", "processDecodedIncomingMessage", "identifyAnswer",
               "answerMessage", "sendAnswerMessage", "generateAnswerMessage", "encodeAnswer"}));
}

TEST_F(ScriptedProtocolTest, NewEntryIsEmpty)
{
    m_interface.onFrameReceived(frame(Board, Own, 0, {}));
    EXPECT_FALSE(m_protocol.newEntry().isComplete);
    EXPECT_EQ(m_protocol.newEntry().lastFrameIndex, -1);
    EXPECT_EQ(m_protocol.newEntry().totalSize, -1);
    EXPECT_EQ(m_protocol.newEntry().pReceptionTimer, nullptr);
    ASSERT_NE(m_protocol.newEntry().pMessage, nullptr);
    EXPECT_EQ(m_protocol.newEntry().pMessage->dataSize(), 0);
}

TEST_F(ScriptedProtocolTest, DroppedFrameGoesNoFurther)
{
    m_protocol.setAccepted(false);
    m_interface.onFrameReceived(frame(Board, Own, 0, {}));
    EXPECT_EQ(m_protocol.calls(), (Calls{"decodeMessageHeader", "isFrameAccepted"}));
}

TEST_F(ScriptedProtocolTest, EveryAcceptedFrameIsFollowedByTheMessageOrByNone)
{
    m_protocol.setDecoded(false, false);
    m_interface.onFrameReceived(frame(Board, Own, 0, {}));
    EXPECT_EQ(m_protocol.calls().back(), "processDecodedIncomingMessage null");

    m_protocol.setDecoded(true, false);
    m_interface.onFrameReceived(frame(Board, Own, 0, {}));
    EXPECT_EQ(m_protocol.calls().back(), "processDecodedIncomingMessage null");
    EXPECT_EQ(m_protocol.incomingMessageCount(), 1);

    m_interface.onFrameReceived(frame(Board, Own, 1, {}));
    EXPECT_EQ(m_protocol.calls(),
              (Calls{"decodeMessageHeader", "isFrameAccepted", "findMatchingIncompleteMessage",
                     "decodeIncompleteMessageFrame", "processDecodedIncomingMessage null"}));
    EXPECT_EQ(m_protocol.incomingMessageCount(), 1);
}

TEST_F(ScriptedProtocolTest, BoardIsToldOfATimeOutAndOfAMessageByTheirTypes)
{
    m_protocol.setDecoded(true, false);
    m_interface.onFrameReceived(frame(Board, Own, 0, {}));
    VirtualTime::instance()->advance(std::chrono::milliseconds(1200));
    EXPECT_EQ(m_protocol.answers(), std::vector{CanAnswer::AnswerTimeout});
    m_protocol.setDecoded(true, true);
    m_interface.onFrameReceived(frame(Board, Own, 0, {}));
    EXPECT_EQ(m_protocol.answers(), (std::vector{CanAnswer::AnswerTimeout, CanAnswer::AnswerAck}));
}

TEST_F(ScriptedProtocolTest, SlotsCanBeCalledByName)
{
    EXPECT_TRUE(QMetaObject::invokeMethod(&m_protocol, "processIncomingFrame",
                                          Q_ARG(CanFrame, frame(Board, Own, 0, {}))));
    EXPECT_EQ(m_protocol.calls().front(), "decodeMessageHeader");
    EXPECT_TRUE(QMetaObject::invokeMethod(&m_protocol, "onAnswerTimeout",
                                          // The meta-object spells it so:
                                          // clang-format off
                                          Q_ARG(CanBusChannel*, m_pChannel)));
    // clang-format on
    EXPECT_EQ(m_protocol.calls(), Calls{"onAnswerTimeout"});
    EXPECT_TRUE(QMetaObject::invokeMethod(&m_protocol, "onReceptionTimeout"));
    EXPECT_TRUE(m_protocol.calls().empty());
}
