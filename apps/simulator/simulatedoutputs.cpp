#include "simulator/simulatedoutputs.h"

SimulatedOutputs::SimulatedOutputs(QObject *pParent)
    : QObject(pParent)
{
}

bool SimulatedOutputs::setOutput(quint8 output, bool isOn)
{
    return set(m_on, output, isOn);
}

bool SimulatedOutputs::setBlinking(quint8 output, bool isBlinking)
{
    return set(m_blinking, output, isBlinking);
}

bool SimulatedOutputs::isOn(quint8 output) const
{
    return output < Count && m_on[output];
}

bool SimulatedOutputs::isBlinking(quint8 output) const
{
    return output < Count && m_blinking[output];
}

bool SimulatedOutputs::set(Flags &flags, quint8 output, bool value)
{
    if (output >= Count)
        return false;
    if (flags[output] != value) {
        flags[output] = value;
        Q_EMIT changed(output);
    }
    return true;
}
