#ifndef LINKQUEUE_P_H
#define LINKQUEUE_P_H

#include <QByteArray>
#include <QMutex>
#include <QMutexLocker>
#include <deque>
#include <functional>
#include <optional>
#include <utility>

/// What the client's thread tells the thread of Multiport.
struct LinkEvent
{
    enum class Type {
        ServerConnected,  ///< first is 0 or 1
        CanConnected,     ///< number is the generation, 0 when it is lost
        PaymentConnected, ///< number is the generation, 0 when it is lost
        CanData,
        PaymentData,
        Terminated, ///< first is the command, second its status
        Reported,   ///< first is the event, bytes its payload
    };

    Type type;
    quint8 first = 0;
    quint8 second = 0;
    QByteArray bytes;
    unsigned int number = 0;
};

/// The one way from the client's thread to the thread of Multiport: events in their order, taken
/// one at a time, so that whoever hears one may run an event loop and hear the next there. Bounded
/// by whoever puts: it stops reading its sockets while the queue is full.
class LinkQueue
{
public:
    /// `wake` is called in either thread whenever the taker has something to take and has not been
    /// woken for it.
    explicit LinkQueue(std::function<void()> wake)
        : m_wake(std::move(wake))
    {
    }

    /// Bytes that follow bytes of the same line are joined to them.
    void put(LinkEvent event)
    {
        bool isFirst = false;
        {
            const QMutexLocker locker(&m_mutex);
            m_size += s_overhead + event.bytes.size();
            isFirst = m_events.empty();
            const bool isData = event.type == LinkEvent::Type::CanData ||
                                event.type == LinkEvent::Type::PaymentData;
            if (isData && !isFirst && m_events.back().type == event.type) {
                m_size -= s_overhead;
                m_events.back().bytes += event.bytes;
            } else {
                m_events.push_back(std::move(event));
            }
        }
        if (isFirst)
            m_wake();
    }

    struct Taken
    {
        LinkEvent event;
        bool wasFull; ///< the other side waits for room, and there is some now
    };

    std::optional<Taken> take()
    {
        bool hasMore = false;
        std::optional<Taken> taken;
        {
            const QMutexLocker locker(&m_mutex);
            if (m_events.empty())
                return std::nullopt;
            taken = Taken{std::move(m_events.front()), false};
            m_events.pop_front();
            m_size -= s_overhead + taken->event.bytes.size();
            taken->wasFull = m_isFull && m_size < s_room;
            if (taken->wasFull)
                m_isFull = false;
            hasMore = !m_events.empty();
        }
        if (hasMore)
            m_wake();
        return taken;
    }

    /// To be asked before more is read. Once true it stays so, for everyone who asks, until the
    /// take() that makes room says so.
    bool isFull()
    {
        const QMutexLocker locker(&m_mutex);
        m_isFull = m_isFull || m_size >= s_capacity;
        return m_isFull;
    }

private:
    static constexpr int s_overhead = 64; ///< bytes that an event without bytes counts as
    static constexpr int s_capacity = 256 * 1024;
    static constexpr int s_room = s_capacity / 2;

    const std::function<void()> m_wake;
    QMutex m_mutex;
    std::deque<LinkEvent> m_events;
    int m_size = 0;
    bool m_isFull = false;
};

#endif // LINKQUEUE_P_H
