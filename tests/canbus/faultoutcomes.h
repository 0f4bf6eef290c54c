#ifndef FAULTOUTCOMES_H
#define FAULTOUTCOMES_H

#include "faultybus.h"

#include <QList>

// What one fault must lead to. All instants are in ms from the start.

/// What is to become of a message with the fault, sent alone to a board.
struct ToBoard
{
    QList<int> sends;
    QList<int> heard; ///< by the board, whole
    QList<int> acks;  ///< that reach the channel; the node is told of the first
    int failsAt = -1;
    int failure = 0; ///< the answer's type
};

ToBoard outcomeToBoard(const FaultCase &cell, int timeout);

/// What is to become of a board's message with the fault.
struct FromBoard
{
    QList<int> received; ///< and acknowledged at once
    QList<int> refused;
    QList<int> foreign; ///< messages of the other board, received and acknowledged
    int source = s_board;
};

FromBoard outcomeFromBoard(const FaultCase &cell, int timeout);

/// When the board hears that its message was acknowledged.
QList<int> acknowledgedToBoard(const FaultCase &cell, const FromBoard &outcome);

#endif // FAULTOUTCOMES_H
