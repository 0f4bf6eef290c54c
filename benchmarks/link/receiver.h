#ifndef RECEIVER_H
#define RECEIVER_H

#include <QtGlobal>
#include <vector>

/// What arrived of a stream of numbered frames, and when.
class Receiver
{
public:
    explicit Receiver(int expected);

    void take(quint32 number, quint32 sentUs);

    bool isComplete() const { return m_next == static_cast<quint32>(m_expected); }
    int expected() const { return m_expected; }
    int lost() const { return m_lost; }
    int misplaced() const { return m_misplaced; } ///< doubled, or out of order
    double latencyUs(double quantile) const;
    double cpuSeconds() const;     ///< of this process, from the first frame to the last
    double grownKilobytes() const; ///< resident memory, from a tenth of the frames to the last

private:
    const int m_expected;
    quint32 m_next = 0;
    int m_lost = 0;
    int m_misplaced = 0;
    std::vector<quint32> m_latenciesUs;
    double m_cpuAtFirst = 0;
    double m_cpuAtLast = 0;
    double m_memoryEarly = 0;
    double m_memoryLate = 0;
};

#endif // RECEIVER_H
