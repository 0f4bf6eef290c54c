#ifndef SCHEDULEDCOMPUTER_H
#define SCHEDULEDCOMPUTER_H

#include "canbus/abstractcaninterface.h"
#include "canbus/canbusnode.h"
#include "canworld.h"

#include <QTimer>

#include <memory>
#include <vector>

/// The bus under test in a random world, which it drives by a timer. There is one at a time; the
/// process's bus ends with it.
class ScheduledComputer : public QObject, public WorldComputer
{
    Q_OBJECT

public:
    explicit ScheduledComputer(World &world);
    ~ScheduledComputer() override;

    int nowMs() const override;
    bool send(int channelId, bool isNode, const QList<CanMessage> &messages) override;
    void receive(const CanFrame &frame) override;
    int underWay() const override;

    int mostUnderWay() const { return m_mostUnderWay; }
    bool hasWaitedWithoutTimer() const { return m_hasWaitedWithoutTimer; }

private:
    /// Hands to the world what the bus writes.
    class Interface : public AbstractCanInterface
    {
    public:
        explicit Interface(ScheduledComputer &computer, bool isSimulated)
            : AbstractCanInterface(nullptr, isSimulated)
            , m_computer(computer)
        {
        }

        bool openInterface(const QString &) override { return true; }
        bool closeInterface() override { return true; }
        bool isOpen() const override { return true; }
        using AbstractCanInterface::writeToCan;
        bool writeToCan(const CanFrame &frame) override { return m_computer.write(frame); }

    private:
        ScheduledComputer &m_computer;
    };

    void listen();
    bool write(const CanFrame &frame);
    void step();
    void armTimer();
    void lookAtChannels();

    World &m_world;
    const int m_startMs;
    QTimer m_timer;
    Interface *m_pInterface; ///< the bus's
    std::vector<std::unique_ptr<CanBusNode>> m_nodes;
    int m_mostUnderWay = 0;
    bool m_hasWaitedWithoutTimer = false;
};

#endif // SCHEDULEDCOMPUTER_H
