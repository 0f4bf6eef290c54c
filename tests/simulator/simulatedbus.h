#ifndef SIMULATEDBUS_H
#define SIMULATEDBUS_H

#include "canbus/canmessages.h"
#include "canbus/vycan_cmds_and_addr.h"
#include "canbus/vycanframe.h"
#include "simulator/simulatedboard.h"
#include "simulator/simulatedcanbus.h"
#include "support/virtualtime.h"

#include <QByteArray>
#include <QStringList>

#include <chrono>

/// A board that counts what reaches its hooks, refuses what it is told to, and says what it is told
/// to.
class HookedBoard : public SimulatedBoard
{
    Q_OBJECT

public:
    explicit HookedBoard(int address)
        : SimulatedBoard(address, nullptr)
    {
    }

    using SimulatedBoard::speak;

    QList<CanMessage> messages;
    int restarts = 0;
    int refusedCommand = -1;

protected:
    bool isAcceptable(const CanMessage &message) const override
    {
        return message.command() != refusedCommand;
    }
    void onMessage(const CanMessage &message) override { messages.append(message); }
    void onRestarted() override { ++restarts; }
};

/// A bus that is written to from outside, with all that its boards say in `said`: source,
/// destination, frame index and bytes.
struct SimulatedBus
{
    static constexpr int Computer = 0x4A8;

    SimulatedBus()
    {
        QObject::connect(&bus, &SimulatedCanBus::frameOnBus, &bus,
                         [this](const CanFrame &frame) { said.append(text(frame)); });
    }

    static QString text(const CanFrame &frame)
    {
        return QStringLiteral("%1>%2 %3:%4")
            .arg(VYCanFrame::sourceAddress(frame), 0, 16)
            .arg(VYCanFrame::destinationAddress(frame), 0, 16)
            .arg(VYCanFrame::frameIndex(frame))
            .arg(canBytesToString(frame.data()));
    }

    void send(const QList<CanFrame> &frames)
    {
        for (const CanFrame &part : frames)
            bus.send(part);
    }
    void send(int destination, int command, const CanBytes &payload = {}, int source = Computer)
    {
        send(framesOf(source, destination, command, payload));
    }

    static void advance(int ms) { VirtualTime::instance()->advance(std::chrono::milliseconds(ms)); }

    /// What was said since the last call, after this time.
    QStringList saidAfter(int ms)
    {
        advance(ms);
        QStringList lines;
        lines.swap(said);
        return lines;
    }

    SimulatedCanBus bus;
    QStringList said;
};

#endif // SIMULATEDBUS_H
