#ifndef CANCONVERSATION_H
#define CANCONVERSATION_H

#include "canbus/canframe.h"
#include "canbus/incomingcanmessage.h"

#include <QHash>
#include <QString>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

/// Makes messages of the frames of a bus, both ways, and finds the answer to each. They are printed
/// in the order in which they began. A message that is incomplete or unanswered holds back those
/// behind it for 3 s of the frames' time, or for 1000 frames without times; then it is given up. So
/// memory is bounded.
class CanConversation
{
public:
    /// When a frame was seen: UTC, in ms since the Julian day 0; empty where nobody knows.
    using Time = std::optional<qint64>;
    /// A message, or frames that are none.
    struct Exchange
    {
        Time time;
        int source;
        int destination;
        int command;     ///< -1 where it could not be read
        QString payload; ///< "01 ff"
        QString outcome; ///< "acknowledged after 3 ms"; empty where no answer is due
        bool isFault;
        QString line; ///< all of it for people; on a new day a line with the day stands before it
    };
    using Printer = std::function<void(const Exchange &exchange)>;

    explicit CanConversation(Printer print);

    void take(const CanFrame &frame, const Time &time);
    /// It is that late by now: what is over is given up and printed.
    void wait(const Time &time);
    /// Gives up what is incomplete or unanswered, and prints what is left.
    void finish();

    /// Messages that are incomplete or have a wrong checksum, and frames that belong to none.
    int faults() const { return m_faults; }

private:
    struct Moment
    {
        Time time;
        qint64 frame = 0; ///< how many frames had been seen
    };
    enum class State {
        Growing, ///< frames are missing
        Waiting, ///< whole, not answered
        Decided, ///< can be printed
    };
    struct Line
    {
        Moment began;
        int source;
        int destination;
        int command; ///< -1 where it could not be read
        State state;
        QString what; ///< command and bytes; empty for a frame that belongs to no message
        QString outcome;
        QString payload;
        bool isFault = false;
    };
    struct Part
    {
        IncomingCanMessage entry;
        qint64 number; ///< of its line
    };
    using Parts = std::vector<Part>;

    void takeFirst(const CanFrame &frame);
    void takeFollowing(const CanFrame &frame);
    void takeWhole(qint64 number, CanMessage &message);
    void takeAcknowledge(const CanMessage &answer);
    qint64 requestFor(const CanMessage &answer, int command);

    qint64 addLine(int source, int destination, State state, const QString &what);
    void addFault(const CanFrame &frame, const QString &what);
    Line &line(qint64 number) { return m_lines[static_cast<std::size_t>(number - m_firstNumber)]; }
    void decide(Line &line, const QString &outcome);
    void spoil(Line &line, const QString &outcome);
    void await(qint64 number, int command);
    void endPartOf(int source, int destination);

    bool isOver(const Line &line) const;
    void giveUp(qint64 number);
    void flush();
    void printFirst();
    QString textOf(const Line &line);
    QString board(int address);

    Printer m_print;
    Moment m_now;
    std::deque<Line> m_lines; ///< not yet printed
    qint64 m_firstNumber = 0; ///< of the first of them; lines are numbered from 0
    Parts m_parts;            ///< one for a source and a destination at most
    /// The last request of a command, source and destination, while it is not answered.
    QHash<quint64, qint64> m_requests;
    QHash<int, QString> m_boards; ///< making their names takes longer than all the rest
    qint64 m_day = -1;            ///< the Julian day of the last line with a time
    int m_faults = 0;
};

#endif // CANCONVERSATION_H
