#ifndef CANINTERFACE_DUMMY_H
#define CANINTERFACE_DUMMY_H

#include "canbus/abstractcaninterface.h"

#include <QTimer>

/// The simulated bus of a desktop: it takes every frame, and can answer itself as a board would.
///
/// A simulated board of some substance listens to frameSent(), reads lastFrameSent() and speaks
/// through onFrameReceived(), on a later turn of the event loop; the answer simulation is then off.
class VYHARDWARE1_EXPORT CanInterface_Dummy : public AbstractCanInterface
{
    Q_OBJECT

public:
    /// \param isTraced every frame is also written to the trace file, and the interface counts as
    /// open only while that file is
    CanInterface_Dummy(QObject *pParent, bool isTraced);

    /// `name` is the path of the trace file, which is emptied. Nothing to do when not traced.
    bool openInterface(const QString &name) override;
    bool closeInterface() override;
    bool isOpen() const override;
    using AbstractCanInterface::writeToCan;
    bool writeToCan(const CanFrame &frame) override;

    /// Off at first. While on, each message is answered 20 ms after its last frame by a positive
    /// acknowledge, and the slots below have an effect.
    void setAnswerSimulation(bool isOn) { m_isAnswerSimulation = isOn; }
    bool isAnswerSimulation() const { return m_isAnswerSimulation; }

    const CanFrame &lastFrameSent() const { return m_lastFrameSent; }
    const CanFrame &lastFirstFrameSent() const { return m_lastFirstFrameSent; }

public Q_SLOTS:
    /// Receives the last frame sent, unchanged.
    void simulateIncomingFrameFromLastSent();
    /// Receives the answer of the board that the last message was for; an acknowledge gets none.
    /// \param answerCommand 1 acknowledges, 2 refuses
    void simulateIncomingFrameFromLastFirstFrameSent(int answerCommand = 1);
    void simulateIncomingFrame(const CanFrame &frame);

Q_SIGNALS:
    /// Comes inside the write: whoever answers does so on a later turn of the event loop.
    void frameSent();

private:
    const bool m_isTraced;
    bool m_isAnswerSimulation = false;
    QTimer m_answerTimer{this};
    CanFrame m_lastFrameSent;
    CanFrame m_lastFirstFrameSent;
};

#endif // CANINTERFACE_DUMMY_H
