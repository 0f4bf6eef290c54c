#ifndef BUSBENCH_H
#define BUSBENCH_H

#include "busjournal.h"
#include "canbus/canbuschannel.h"
#include "canbus/canprotocol_vy.h"
#include "canmessages.h"
#include "recordinginterface.h"
#include "testmachine.h"

#include "support/virtualtime.h"

#include <QPointer>
#include <QTimer>

#include <chrono>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>

/// The bus of an Ostrel over a recording interface and the boards' protocol, with everything that
/// it says in a journal. Virtual time.
class BusBench : public ::testing::Test
{
protected:
    using Entries = std::vector<std::string>;

    static constexpr int s_cpu = 0x4A8;
    static constexpr int s_board = 0x419;
    static constexpr int s_otherBoard = 0x721;
    static constexpr int s_shared = 0x301;
    static constexpr int s_channelId = 3;
    static constexpr int s_otherChannelId = 5;

    static constexpr int s_reset = 0x24;
    static constexpr int s_test = 0x3C;
    static constexpr int s_rotor = 0x3F;

    BusBench()
    {
        m_pBus->setInterface(m_pInterface);
        m_pBus->setProtocol(new CanProtocol_Vy(nullptr));
        m_pInterface->setOnWrite([this](const CanFrame &frame) { m_journal.addFrame(frame); });
        m_journal.hear(m_pBus);
        m_journal.hear(&m_node, QStringLiteral("A"));
        m_journal.hear(&m_otherNode, QStringLiteral("B"));
        m_journal.hear(&m_farNode, QStringLiteral("C"));
    }
    ~BusBench() override
    {
        const QPointer<AbstractCanInterface> pCurrent = CanBus::instance()->canInterface();
        CanBus::deleteInstance();
        delete pCurrent;
        delete m_pInterface;
        CanBusChannel::setGlobalTimeoutValue(m_timeoutBefore); // a dummy has changed it for good
    }

    static CanMessage *message(int command, int destination = s_board)
    {
        return new CanMessage(destination, command);
    }
    static QList<CanMessage *> messages(std::initializer_list<int> commands,
                                        int destination = s_board)
    {
        QList<CanMessage *> list;
        list.reserve(static_cast<int>(commands.size()));
        for (const int command : commands)
            list.append(message(command, destination));
        return list;
    }

    bool send(CanBusNode &node, std::initializer_list<int> commands, int destination = s_board)
    {
        QList<CanMessage *> list = messages(commands, destination);
        return m_pBus->send(list, &node);
    }

    /// A board acknowledges (1) or refuses (2) a command.
    void answer(int answerCommand, int command, int board = s_board) const
    {
        CanBytes data = {0x02, 0, static_cast<unsigned char>(answerCommand),
                         static_cast<unsigned char>(command >> 8),
                         static_cast<unsigned char>(command & 0xFF)};
        const int checksum = data.at(0) ^ data.at(2) ^ data.at(3) ^ data.at(4);
        data.append(static_cast<unsigned char>(checksum));
        m_pInterface->onFrameReceived(frame(board, s_cpu, 0, data));
    }
    void acknowledge(int command, int board = s_board) const { answer(1, command, board); }
    void refuse(int command, int board = s_board) const { answer(2, command, board); }

    /// A board says something on its own.
    void speak(int board, int command, const CanBytes &payload = {}) const
    {
        const auto all = framesOf(board, s_cpu, command, payload);
        for (const CanFrame &part : all)
            m_pInterface->onFrameReceived(part);
    }

    static void advance(std::chrono::milliseconds duration)
    {
        VirtualTime::instance()->advance(duration);
    }

    /// Entries since the last call.
    Entries said() { return m_journal.take(); }

    static CanBusChannel *channel(int id = s_channelId) { return CanBusChannel::channel(id); }

    const int m_timeoutBefore = CanBusChannel::globalTimeoutValue();
    TestMachine m_machine;
    CanBus *m_pBus = CanBus::instance();
    QPointer<RecordingInterface> m_pInterface = new RecordingInterface;
    BusJournal m_journal;
    CanBusNode m_node{s_channelId};         ///< "A"
    CanBusNode m_otherNode{s_channelId};    ///< "B", on the same channel
    CanBusNode m_farNode{s_otherChannelId}; ///< "C"
};

#endif // BUSBENCH_H
