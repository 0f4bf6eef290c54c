#ifndef SIMULATEDOUTPUTS_H
#define SIMULATEDOUTPUTS_H

#include <QObject>

#include <bitset>

/// The multiport server's digital outputs, to be read back. An output's level and its blinking are
/// kept apart: one that blinks and is stopped shows its level again.
class SimulatedOutputs : public QObject
{
    Q_OBJECT

public:
    static constexpr int Count = 32; ///< outputs 0 to 31; all are off at first

    explicit SimulatedOutputs(QObject *pParent = nullptr);

    // False for an output that there is not.
    bool setOutput(quint8 output, bool isOn);
    bool setBlinking(quint8 output, bool isBlinking);

    // Also false for an output that there is not.
    bool isOn(quint8 output) const;
    bool isBlinking(quint8 output) const;

Q_SIGNALS:
    void changed(quint8 output);

private:
    using Flags = std::bitset<Count>;

    bool set(Flags &flags, quint8 output, bool value);

    Flags m_on;
    Flags m_blinking;
};

#endif // SIMULATEDOUTPUTS_H
