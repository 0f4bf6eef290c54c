#ifndef OUTCOMEBENCH_H
#define OUTCOMEBENCH_H

#include "busbench.h"
#include "canbus/caninterface_dummy.h"

#include <utility>

using namespace std::chrono_literals;

inline constexpr const char *s_sendReset = "log cmd = 36 ResetBoard";
inline constexpr const char *s_sendTest = "log cmd = 60 Test";
inline constexpr const char *s_sendRotor = "log cmd = 63 Rotor";
inline constexpr const char *s_foundReset = "log Received ACK for command: 36 | answer command: 36";
inline constexpr const char *s_foundTest = "log Received ACK for command: 60 | answer command: 60";
inline constexpr const char *s_refusal =
    "log Sent command: 36 | answer command: 36 | Received an ACK NOT, "
    "handled as timeout, resending last message";
inline constexpr const char *s_idle = "log : No more messages to send";
inline constexpr const char *s_dequed = "bus dequedAllmessages";
inline constexpr const char *s_notFoundReset =
    "log Corresponding channel not found for a CAN answer: answer to command: 36, ignoring it";
inline constexpr const char *s_notFoundTest =
    "log Corresponding channel not found for a CAN answer: answer to command: 60, ignoring it";
inline constexpr const char *s_aborting = "log CanBus not available for sending. Aborting.";
inline constexpr const char *s_notAvailable =
    "log CAN Bus not available, command .*ResetBoard.*36.*\\) toward .*ActuatorBoardOstrel.* "
    "and subsequent messages not sent";
inline constexpr const char *s_emptyMessage = "log cmd = -1 .*"; ///< its name is of no importance

/// The steps that the rows of "What becomes of a message" in docs/architecture.md share.
class OutcomeTest : public BusBench
{
protected:
    /// A message that is sent and awaits its answer.
    void sendReset()
    {
        ASSERT_TRUE(send(m_node, {s_reset}));
        ASSERT_THAT(said(), ::testing::ElementsAre(s_sendReset, "wire 36"));
    }

    /// Lets the message of sendReset() run into its time-out, unheard.
    void timeOut()
    {
        advance(3600ms);
        said();
    }

    /// The attempts at one and two time-outs are made, and nothing besides.
    void expectTwoResends()
    {
        for (int attempt = 2; attempt <= 3; ++attempt) {
            advance(1199ms);
            EXPECT_THAT(said(), ::testing::IsEmpty()) << attempt;
            advance(1ms);
            EXPECT_THAT(said(), ::testing::ElementsAre(s_sendReset, "wire 36")) << attempt;
        }
    }

    /// The third time-out since sendReset() ends the message, and nothing comes later.
    void expectReport(const Entries &report)
    {
        advance(1199ms);
        EXPECT_THAT(said(), ::testing::IsEmpty());
        advance(1ms);
        EXPECT_THAT(said(), ::testing::ElementsAreArray(report));
        advance(1h);
        EXPECT_THAT(said(), ::testing::IsEmpty());
        EXPECT_FALSE(m_pBus->isInterfaceBusy());
    }

    /// The node sends these, once, when it hears its next acknowledge.
    void sendFromSlot(std::initializer_list<int> commands)
    {
        const std::vector<int> kept = commands;
        QObject::connect(&m_node, &CanBusNode::answerAcknowledged, &m_node,
                         [this, kept, isDone = false]() mutable {
                             if (std::exchange(isDone, true))
                                 return;
                             QList<CanMessage *> list;
                             for (const int command : kept)
                                 list << message(command);
                             m_pBus->send(list, &m_node);
                         });
    }

    /// The recording interface is gone then.
    void useDummy(bool isAnswering)
    {
        auto *const pDummy = new CanInterface_Dummy(nullptr, false);
        pDummy->setAnswerSimulation(isAnswering);
        m_pBus->setInterface(pDummy);
        QObject::connect(pDummy, &CanInterface_Dummy::frameSent, pDummy,
                         [this, pDummy] { m_journal.addFrame(pDummy->lastFrameSent()); });
    }

    const Entries m_timedOut = {"bus communicationTimeout 4 36", "A answerError 4 36", s_idle,
                                s_dequed};
};

#endif // OUTCOMEBENCH_H
