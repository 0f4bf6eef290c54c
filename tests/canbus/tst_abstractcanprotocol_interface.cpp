#include "canbus/abstractcanprotocol.h"

#include "canbus/canprotocol_test.h"
#include "canbus/canprotocol_vy.h"
#include "canbus/interfaceprobe.h"
#include "canbus/protocoltest.h"

#include <QMetaObject>
#include <QMetaType>

#include <gtest/gtest.h>
#include <type_traits>

namespace {

template <typename Base>
class After : public Base
{
public:
    virtual void next() {}
};

// Each supplies one of the operations that the engine leaves to its variants.

template <typename Base>
class WithTimeoutError : public Base
{
public:
    void onAnswerTimeoutError(CanBusChannel * /*pChannel*/) override {}
};

template <typename Base>
class WithHeader : public Base
{
    CanFrame decodeMessageHeader(const CanFrame &frame) const override { return frame; }
};

template <typename Base>
class WithNewMessage : public Base
{
    bool decodeNewMessageFrame(const CanFrame & /*frame*/, IncomingCanMessage * /*pEntry*/) override
    {
        return false;
    }
};

template <typename Base>
class WithIncompleteMessage : public Base
{
    bool decodeIncompleteMessageFrame(const CanFrame & /*frame*/,
                                      IncomingCanMessage * /*pEntry*/) override
    {
        return false;
    }
};

template <typename Base>
class WithAnswer : public Base
{
    const CanAnswer identifyAnswer(const CanMessage & /*message*/, // NOLINT: fixed
                                   bool * /*pIsAnswer*/) override
    {
        return {};
    }
};

/// All that the engine itself supplies.
class Engine : public AbstractCanProtocol
{
public:
    Engine()
        : AbstractCanProtocol(nullptr, false)
    {
    }
};

} // namespace

TEST(AbstractCanProtocolInterface, VirtualOperationsStandInTheirOrderBehindThoseOfQObject)
{
    using Protocol = Exposed<AbstractCanProtocol>;
    const std::vector<std::ptrdiff_t> places = {
        placeOf(&Protocol::processIncomingFrame),
        placeOf(&Protocol::send),
        placeOf(&Protocol::simulateIncomingMessage),
        placeOf(&Protocol::onAnswerTimeout),
        placeOf(&Protocol::onAnswerTimeoutError),
        placeOf(&Protocol::onSendingError),
        placeOf(&Protocol::onReceptionTimeout),
        placeOf(&Protocol::onMessageSent),
        placeOf(&Protocol::encode),
        placeOf(&Protocol::splitIntoFrames),
        placeOf(&Protocol::encodeAnswer),
        placeOf(&Protocol::resend),
        placeOf(&Protocol::sendMessage),
        placeOf(&Protocol::decodeMessageHeader),
        placeOf(&Protocol::findMatchingIncompleteMessage),
        placeOf(&Protocol::incomingMessageFinalChecks),
        placeOf(&Protocol::decodeNewMessageFrame),
        placeOf(&Protocol::decodeIncompleteMessageFrame),
        placeOf(&Protocol::processDecodedIncomingMessage),
        placeOf(&Protocol::isFrameAccepted),
        placeOf(&Protocol::identifyAnswer),
        placeOf(&Protocol::generateAnswerMessage),
        placeOf(&Protocol::answerMessage),
        placeOf(&Protocol::sendAnswerMessage),
        placeOf(&After<AbstractCanProtocol>::next), // there are no more
    };
    int number = 0;
    for (const std::ptrdiff_t place : places)
        EXPECT_EQ(place, placeAfterQObject(number++));
}

TEST(AbstractCanProtocolInterface, VariantsAddNoVirtualOperation)
{
    EXPECT_EQ(placeOf(&After<CanProtocol_Vy>::next), placeOf(&After<AbstractCanProtocol>::next));
    EXPECT_EQ(placeOf(&After<CanProtocol_Test>::next), placeOf(&After<AbstractCanProtocol>::next));
}

TEST(AbstractCanProtocolInterface, FrameHoldsEightBytes)
{
    EXPECT_EQ(AbstractCanProtocol::FrameDataMaxSize, 8);
    EXPECT_TRUE((std::is_same_v<decltype(AbstractCanProtocol::FrameDataMaxSize), const int>));
}

TEST(AbstractCanProtocolInterface, SignalsStandInTheirOrder)
{
    const QMetaObject &meta = AbstractCanProtocol::staticMetaObject;
    EXPECT_EQ(meta.superClass(), &QObject::staticMetaObject);
    const std::vector<std::string> expected = {
        "answerReceived(CanBusChannel*,CanAnswer,QSharedPointer<const CanMessage>)",
        "messageReceived(QSharedPointer<const CanMessage>)",
        "messageSent(CanBusChannel*,QSharedPointer<const CanMessage>)"};
    EXPECT_EQ(methodsOf(meta, QMetaMethod::Signal), expected);
}

TEST(AbstractCanProtocolInterface, SlotsStandInTheirOrder)
{
    const std::vector<std::string> expected = {
        "processIncomingFrame(CanFrame)", "onAnswerTimeout(CanBusChannel*)",
        "onSendingError(CanBusChannel*,QSharedPointer<const CanMessage>)", "onReceptionTimeout()",
        "onMessageSent(CanBusChannel*,QSharedPointer<const CanMessage>)"};
    EXPECT_EQ(methodsOf(AbstractCanProtocol::staticMetaObject, QMetaMethod::Slot), expected);
}

TEST(AbstractCanProtocolInterface, VariantsAddNoSignals)
{
    for (const QMetaObject *pMeta :
         {&CanProtocol_Vy::staticMetaObject, &CanProtocol_Test::staticMetaObject}) {
        EXPECT_EQ(pMeta->superClass(), &AbstractCanProtocol::staticMetaObject);
        EXPECT_TRUE(methodsOf(*pMeta, QMetaMethod::Signal).empty());
    }
}

TEST(AbstractCanProtocolInterface, EachOfFiveOperationsMustBeSupplied)
{
    using All =
        WithTimeoutError<WithHeader<WithNewMessage<WithIncompleteMessage<WithAnswer<Engine>>>>>;
    EXPECT_FALSE(std::is_abstract_v<All>);
    EXPECT_TRUE((
        std::is_abstract_v<WithHeader<WithNewMessage<WithIncompleteMessage<WithAnswer<Engine>>>>>));
    EXPECT_TRUE((std::is_abstract_v<
                 WithTimeoutError<WithNewMessage<WithIncompleteMessage<WithAnswer<Engine>>>>>));
    EXPECT_TRUE((std::is_abstract_v<
                 WithTimeoutError<WithHeader<WithIncompleteMessage<WithAnswer<Engine>>>>>));
    EXPECT_TRUE(
        (std::is_abstract_v<WithTimeoutError<WithHeader<WithNewMessage<WithAnswer<Engine>>>>>));
    EXPECT_TRUE((std::is_abstract_v<
                 WithTimeoutError<WithHeader<WithNewMessage<WithIncompleteMessage<Engine>>>>>));
}
