#ifndef CANCONVERSATION_H
#define CANCONVERSATION_H

#include "canbus/canframe.h"
#include "canbus/incomingcanmessage.h"

#include <QDateTime>
#include <QString>
#include <deque>
#include <functional>
#include <vector>

/// Makes messages of the frames of a bus, both ways, and finds the answer to each. Memory is
/// bounded: a message that has waited for its answer behind too many others is let go without one.
class CanConversation
{
public:
    using Printer = std::function<void(const QString &line)>;

    /// Each message is printed when its answer is known; in the order in which they began.
    explicit CanConversation(Printer print);

    /// \param time when the frame was seen; may be invalid
    void take(const CanFrame &frame, const QDateTime &time);
    /// Prints what is left, and what has stayed incomplete.
    void finish();

private:
    struct Part
    {
        IncomingCanMessage entry;
        QDateTime time;
    };
    struct Request
    {
        int source;
        int destination;
        int command;
        QDateTime time;
        QString text;
        bool isAnswered;
        QString outcome;
    };

    void takeFollowing(const CanFrame &frame, const QDateTime &time);
    void takeWhole(IncomingCanMessage &entry, const QDateTime &time);
    void pair(const CanMessage &answer, const QDateTime &time);
    void flush(std::size_t kept);

    Printer m_print;
    std::vector<Part> m_parts;
    std::deque<Request> m_requests;
};

#endif // CANCONVERSATION_H
