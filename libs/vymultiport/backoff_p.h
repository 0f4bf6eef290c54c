#ifndef BACKOFF_P_H
#define BACKOFF_P_H

#include <QRandomGenerator>
#include <algorithm>
#include <chrono>

/// Pauses between attempts: they grow from 0.1 s to 1.5 s, and no two clients of a server that
/// comes back keep step. All numbers are chosen here.
class Backoff
{
public:
    static constexpr std::chrono::milliseconds Shortest{100};
    static constexpr std::chrono::milliseconds Longest{1500};

    void reset() { m_pause = Shortest; }

    std::chrono::milliseconds next()
    {
        const std::chrono::milliseconds pause = m_pause;
        m_pause = std::min(2 * m_pause, Longest);
        const auto jitter = static_cast<int>(pause.count() / 4);
        return std::max(Shortest, pause - std::chrono::milliseconds(
                                              QRandomGenerator::global()->bounded(jitter + 1)));
    }

private:
    std::chrono::milliseconds m_pause = Shortest;
};

#endif // BACKOFF_P_H
