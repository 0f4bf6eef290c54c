#ifndef OBSERVERS_P_H
#define OBSERVERS_P_H

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

/// Functions that are told of each event, from whichever thread it happens in, one at a time. Once
/// remove() has returned the observer is not called any more. What an observer causes itself in the
/// same thread is not told, so that one that logs does not call itself for ever.
template <typename Event>
class Observers
{
public:
    using Observer = std::function<void(const Event &)>;

    /// The number under which remove() finds the observer.
    int add(Observer observer)
    {
        const std::lock_guard<std::recursive_mutex> lock(m_mutex);
        m_observers.emplace_back(++m_lastNumber, std::move(observer));
        m_isAnyThere = true;
        return m_lastNumber;
    }

    void remove(int number)
    {
        const std::lock_guard<std::recursive_mutex> lock(m_mutex);
        const auto isIt = [number](const auto &entry) { return entry.first == number; };
        m_observers.erase(std::remove_if(m_observers.begin(), m_observers.end(), isIt),
                          m_observers.end());
        m_isAnyThere = !m_observers.empty();
    }

    void tell(const Event &event)
    {
        if (!m_isAnyThere || isTelling())
            return;
        const std::lock_guard<std::recursive_mutex> lock(m_mutex);
        isTelling() = true;
        const auto observers = m_observers; // a copy: an observer may add or remove
        for (const auto &entry : observers) {
            if (isThere(entry.first))
                entry.second(event);
        }
        isTelling() = false;
    }

private:
    bool isThere(int number) const
    {
        const auto isIt = [number](const auto &entry) { return entry.first == number; };
        return std::any_of(m_observers.begin(), m_observers.end(), isIt);
    }

    static bool &isTelling()
    {
        static thread_local bool s_isTelling = false;
        return s_isTelling;
    }

    std::recursive_mutex m_mutex;
    std::vector<std::pair<int, Observer>> m_observers;
    std::atomic<bool> m_isAnyThere = false; ///< keeps a line without observers free of the lock
    int m_lastNumber = 0;
};

#endif // OBSERVERS_P_H
